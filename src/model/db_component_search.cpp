// SPDX-License-Identifier: Apache-2.0
// The search for a component by a path: names are matched as prefixes of the
// text along the way. The search never goes back up: it gives up at the first
// child that matched its own name but found nothing below.
#include <string.h>

#include "control/db_trace.h"
#include "model/db_component.h"

namespace tavdb {
namespace {

constexpr Site kSite = {"comp_searchByName", 500};
constexpr int32_t kNameBytes = 256;

/// One component compared with the front of a path.
struct Match {
    bool goesOn;        ///< it matched and has children to look at
    uint32_t key;       ///< its key; when the search ends here, the result or 0
    uint32_t children;  ///< the first child
    const char *rest;   ///< of the path, behind the component's name
};

constexpr Match endsWith(uint32_t key) {
    return {false, key, 0, nullptr};
}

/// A name without a child that fits: an error that is there already stays.
uint32_t failBelow(tavDBMSession *session, uint32_t key) {
    if (lastError(session) != TAVDB_ERR_NOT_BELOW)
        fail(session, TAVDB_ERR_NOT_BELOW, key, kSite + 1, key);
    return 0;
}

/// The length of a component's name when it is a prefix of the path, or -1 with the failure recorded.
int32_t matchName(tavDBMSession *session, const tavDBMComponent &component, uint32_t key, const char *path) {
    char name[kNameBytes + 1] = {};
    if (tavdb_getString(session, component.name, name, kNameBytes) == nullptr)
        return -1;
    const size_t length = strlen(name);
    if (strncmp(path, name, length) == 0)
        return static_cast<int32_t>(length);
    fail(session, TAVDB_ERR_NO_MATCH, key, kSite + 2, key);
    return -1;
}

Match match(tavDBMSession *session, uint32_t key, const char *path) {
    tavDBMComponent header;
    if (comp_getComponent(session, key, &header) == nullptr) {
        traceError(kSite, key);
        return endsWith(0);
    }
    const int32_t length = matchName(session, header, key, path);
    if (length < 0)
        return endsWith(0);
    const char *const rest = path + length;
    if (*rest == '\0')
        return endsWith(key);
    if (header.kind == TAVDB_KIND_LEAF)
        return endsWith(0);  // deliberate: no error is recorded
    const uint32_t candidate = *rest == '/' ? key : 0;
    tavDBMNode node;
    if (comp_getNode(session, key, &node) == nullptr)
        return endsWith(candidate);
    if (node.firstChild != 0)
        return {true, key, node.firstChild, rest};
    // deliberate: a node without children matches whatever follows the slash behind its name
    return endsWith(candidate != 0 ? candidate : failBelow(session, key));
}

/// The first child that ends the search or leads it further down. Deliberate: a later one that would fit is not tried.
Match matchChildren(tavDBMSession *session, const Match &parent) {
    Match child = endsWith(0);
    const uint32_t stopped = walkSiblings(session, parent.children, kSite + 3, [&](uint32_t key) {
        child = match(session, key, parent.rest);
        return child.goesOn || child.key != 0 || lastError(session) == TAVDB_ERR_NOT_BELOW;
    });
    return stopped != 0 ? child : endsWith(failBelow(session, parent.key));
}

}  // namespace
}  // namespace tavdb

using namespace tavdb;

uint32_t comp_searchByName(tavDBMSession *session, uint32_t key, const char *path) {
    if (path == nullptr) {
        fail(session, TAVDB_ERR_NULL_ARGUMENT, 0, kSite + 4);
        return 0;
    }
    CycleGuard guard(kSite + 5);
    Match current = match(session, key, path);
    while (current.goesOn && !guard.meetsAgain(current.key))
        current = matchChildren(session, current);
    return current.goesOn ? failBelow(session, current.key) : current.key;
}
