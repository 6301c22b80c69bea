// SPDX-License-Identifier: Apache-2.0
// Walks over a whole subtree: the copies between a leaf's three values and the
// printing. Children are visited in the order of their chain.
#include <stdio.h>

#include "control/db_trace.h"
#include "model/db_component.h"
#include "model/db_component_descent.h"

namespace tavdb {
namespace {

using CopyLeaf = int32_t (*)(tavDBMSession *session, const tavDBMLeaf &leaf);

/// Copies at one component of a subtree, or goes down to its children.
int32_t copyAt(tavDBMSession *session, uint32_t key, CopyLeaf copy, Descent &descent, Site site) {
    if (!descent.admits(key))
        return 0;
    tavDBMComponent header;
    if (comp_getComponent(session, key, &header) == nullptr) {
        traceError(site, key, lastError(session));
        return lastError(session);
    }
    descent.met(key);
    if (header.kind == TAVDB_KIND_LEAF) {
        tavDBMLeaf leaf;
        return comp_getLeaf(session, key, &leaf) != nullptr ? copy(session, leaf) : lastError(session);
    }
    if (header.kind != TAVDB_KIND_NODE)
        return failKind(session, header, site + 1);
    tavDBMNode node;
    return comp_getNode(session, key, &node) != nullptr ? descent.enter({.key = node.firstChild}) : lastError(session);
}

/// Copies at every leaf of a subtree; the first failure ends the walk.
int32_t copySubTree(tavDBMSession *session, uint32_t start, CopyLeaf copy, Site site) {
    Descent descent(session, start, site + 3, site + 4);
    int32_t code = 0;
    uint32_t key = start;
    do {
        code = copyAt(session, key, copy, descent, site);
        key = code == 0 ? descent.nextChild(site + 2) : 0;
    } while (key != 0);
    return code;
}

/// So many levels down; the largest depth is followed by the smallest.
int32_t deeper(int32_t depth, uint32_t levels) {
    return static_cast<int32_t>(static_cast<uint32_t>(depth) + levels);
}

/// Twice the depth, as the signed 32-bit number it is compared as.
int32_t indentation(int32_t depth) {
    return static_cast<int32_t>(2u * static_cast<uint32_t>(depth));
}

void printSpaces(int32_t count) {
    for (int32_t i = 0; i < count; i++)
        putc(' ', stdout);
}

void printLeaf(tavDBMSession *session, const tavDBMLeaf &leaf, int32_t depth) {
    const int32_t width = indentation(deeper(depth, 1));
    printSpaces(indentation(depth));
    const uint32_t values[] = {leaf.currentValue, leaf.defaultValue, leaf.factoryValue};
    for (const uint32_t value : values) {
        printSpaces(width);
        value_print(session, value);
    }
    if (leaf.hookId != 0)
        printSpaces(width);
}

/// Prints one component of a subtree, or goes down to its children.
void printAt(tavDBMSession *session, uint32_t key, int32_t depth, Descent &descent, Site site) {
    tavDBMComponent header;
    if (!descent.admits(key) || comp_getComponent(session, key, &header) == nullptr)
        return;
    descent.met(key);
    if (header.kind == TAVDB_KIND_LEAF) {
        tavDBMLeaf leaf;
        if (comp_getLeaf(session, key, &leaf) != nullptr)
            printLeaf(session, leaf, depth);
        return;
    }
    if (header.kind != TAVDB_KIND_NODE) {
        failKind(session, header, site);
        return;
    }
    tavDBMNode node;
    if (comp_getNode(session, key, &node) == nullptr)
        return;
    printSpaces(indentation(depth));
    descent.enter({.key = node.firstChild});
}

}  // namespace
}  // namespace tavdb

using namespace tavdb;

int32_t comp_defaultToCurrent(tavDBMSession *session, uint32_t key) {
    const auto copy = [](tavDBMSession *s, const tavDBMLeaf &leaf) {
        return value_copy2(s, leaf.currentValue, leaf.defaultValue, leaf.hookId);
    };
    return copySubTree(session, key, copy, {__func__, 400});
}

int32_t comp_factoryToDefault(tavDBMSession *session, uint32_t key) {
    const auto copy = [](tavDBMSession *s, const tavDBMLeaf &leaf) {
        return value_copy(s, leaf.defaultValue, leaf.factoryValue);
    };
    return copySubTree(session, key, copy, {__func__, 410});
}

int32_t comp_currentToDefault(tavDBMSession *session, uint32_t key) {
    const auto copy = [](tavDBMSession *s, const tavDBMLeaf &leaf) {
        return value_copy(s, leaf.defaultValue, leaf.currentValue);
    };
    return copySubTree(session, key, copy, {__func__, 420});
}

void comp_traverseAndPrint(tavDBMSession *session, uint32_t key, int32_t depth) {
    Descent descent(session, key, {__func__, 430}, {__func__, 431});
    do {
        printAt(session, key, deeper(depth, descent.depth()), descent, {__func__, 440});
        key = descent.nextChild({__func__, 441});
    } while (key != 0);
}
