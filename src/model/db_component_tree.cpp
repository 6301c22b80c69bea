// SPDX-License-Identifier: Apache-2.0
// Changes of the tree: creating, moving and deleting components. Each rewrites
// the records concerned one by one in a fixed order; none is atomic and none
// takes a lock.
#include "control/db_trace.h"
#include "model/db_component.h"
#include "model/db_component_descent.h"

namespace tavdb {
namespace {

/// What became of linking a component into a chain.
struct Linked {
    bool neighbourRead;  ///< the sibling in front, or the parent
    int32_t status;      ///< of its rewrite; the session's last error when it could not be read
};

/// Links a component behind a sibling, or as the first child when there is none.
Linked link(tavDBMSession *session, tavDBMComponent &component, uint32_t parent, uint32_t previous) {
    if (previous != 0) {
        tavDBMComponent before;
        if (comp_getComponent(session, previous, &before) == nullptr)
            return {false, lastError(session)};
        component.next = before.next;
        before.next = component.key;
        return {true, comp_setComponent(session, &before)};
    }
    tavDBMNode above;
    if (comp_getNode(session, parent, &above) == nullptr)
        return {false, lastError(session)};
    component.next = above.firstChild;
    above.firstChild = component.key;
    return {true, comp_setNode(session, &above)};
}

/// Makes the component behind a new place the only child of the node put there. @return whether it could be read
bool adopt(tavDBMSession *session, tavDBMComponent &node, uint32_t childKey) {
    tavDBMComponent child;
    if (comp_getComponent(session, childKey, &child) == nullptr)
        return false;
    child.parent = node.key;
    node.next = child.next;
    child.next = 0;
    comp_setComponent(session, &child);
    return true;
}

/// The component whose next sibling is `key`, or 0.
uint32_t findPredecessor(tavDBMSession *session, uint32_t first, uint32_t key) {
    CycleGuard guard({"comp_getNextSibling", 300});
    uint32_t component = first;
    while (component != 0 && !guard.meetsAgain(component)) {
        const uint32_t next = comp_getNextSibling(session, component);
        if (next == key)
            return component;
        component = next;
    }
    return 0;
}

/// Puts something else into a component's place among its parent's children; `replacement(instead)` is
/// asked once the parent was read. A parent that cannot be read is left out without a word.
/// @return false when there is no replacement; nothing was written then
template <typename Replacement>
bool replaceInChain(tavDBMSession *session, const tavDBMComponent &component, uint32_t firstChildTest,
                    Replacement replacement) {
    tavDBMNode parent;
    if (comp_getNode(session, component.parent, &parent) == nullptr)
        return true;  // deliberate: what asked goes on all the same
    uint32_t instead = component.next;
    if (!replacement(instead))
        return false;
    if (parent.firstChild == firstChildTest) {
        parent.firstChild = instead;
    } else {
        const uint32_t predecessor = findPredecessor(session, parent.firstChild, component.key);
        if (predecessor != 0)
            comp_setNextSibling(session, predecessor, instead);
    }
    comp_setNode(session, &parent);
    return true;
}

/// Takes a component out of its parent's chain.
void unlink(tavDBMSession *session, const tavDBMComponent &component, uint32_t firstChildTest) {
    replaceInChain(session, component, firstChildTest, [](uint32_t &) { return true; });
}

/// The last child of a node, 0 without any. @return false when a read on the way failed: what was found then is a
/// child with others behind it
bool findLastChild(tavDBMSession *session, uint32_t key, uint32_t &last) {
    const uint32_t earlierCode = session->errorCode;
    session->errorCode = 0;
    const uint32_t count = comp_getChildCount(session, key);
    last = count > 0 ? comp_getChildByIndex(session, key, count - 1) : 0;
    if (session->errorCode != 0)
        return false;
    session->errorCode = earlierCode;
    return true;
}

/// Takes a node out of its parent's chain and puts its children there. They keep naming the node as parent.
/// @return false when the children could not be read to the last one; nothing was written then
bool unlinkAlone(tavDBMSession *session, const tavDBMNode &node) {
    const tavDBMComponent &component = node.component;
    return replaceInChain(session, component, component.key, [session, &node, &component](uint32_t &instead) {
        if (component.kind != TAVDB_KIND_NODE || node.firstChild == 0)
            return true;
        uint32_t last = 0;
        if (!findLastChild(session, component.key, last))
            return false;
        if (last != 0)
            comp_setNextSibling(session, last, component.next);
        instead = node.firstChild;
        return true;
    });
}

int32_t unreadable(tavDBMSession *session, uint32_t key, Site site) {
    traceError(site, key, lastError(session));
    return lastError(session);
}

/// Deletes one component of a subtree, or goes down to its children.
int32_t deleteAt(tavDBMSession *session, uint32_t key, bool unlinkFirst, Descent &descent, Site site) {
    if (!descent.admits(key))
        return 0;
    tavDBMNode node;
    if (comp_getNode(session, key, &node) == nullptr)
        return unreadable(session, key, site);
    descent.met(key);
    if (unlinkFirst) {
        unlink(session, node.component, node.component.key);
        if (comp_getNode(session, key, &node) == nullptr)
            return unreadable(session, key, site + 1);
    }
    if (node.component.kind != TAVDB_KIND_NODE)
        return comp_setDeleted(session, &node.component);
    return descent.enter(
        {.key = 0, .above = key, .record = node.component.key, .left = comp_getChildCount(session, key)});
}

/// Deletes a subtree, children last-first, so that each walk by index crosses only records that are still in place.
int32_t deleteSubTree(tavDBMSession *session, uint32_t start, bool unlinkFirst) {
    constexpr Site site = {"comp_deleteWithSub", 371};
    Descent descent(session, start, {site.function, 370}, {site.function, 373});
    int32_t code = deleteAt(session, start, unlinkFirst, descent, site);
    while (descent.depth() > 0 && descent.failure() == 0) {
        Place &place = descent.place();
        if (place.left > 0 && !descent.isOver()) {
            place.left -= 1;
            place.key = comp_getChildByIndex(session, place.above, place.left);
            deleteAt(session, place.key, false, descent, site);  // deliberate: a child that fails stops no other
            continue;
        }
        const tavDBMComponent emptied = {
            .key = place.record, .name = 0, .reserved = 0, .parent = 0, .next = 0, .kind = TAVDB_KIND_NODE};
        descent.leave();
        code = comp_setDeleted(session, &emptied);
    }
    return descent.failure() != 0 ? descent.failure() : code;
}

}  // namespace
}  // namespace tavdb

using namespace tavdb;

uint32_t node_create(tavDBMSession *session, uint32_t name, uint32_t parent, uint32_t previous, uint32_t child) {
    tavDBMNode node = {};
    if (comp_newNode(session, &node) == nullptr) {
        traceError({__func__, 310});
        return 0;
    }
    node.component.name = name;
    node.component.parent = parent;
    node.firstChild = child;
    if (!link(session, node.component, parent, previous).neighbourRead && lastError(session) != 0)
        return 0;
    if (child != 0 && !adopt(session, node.component, child) && lastError(session) != 0)
        return 0;
    comp_setNode(session, &node);
    return node.component.key;
}

uint32_t leaf_create(tavDBMSession *session, uint32_t name, uint32_t parent, uint32_t previous, uint32_t currentValue,
                     uint32_t defaultValue, uint32_t factoryValue, uint32_t hookId) {
    tavDBMLeaf leaf = {};
    if (comp_newLeaf(session, &leaf) == nullptr) {
        traceError({__func__, 320});
        return 0;
    }
    leaf.component.name = name;
    leaf.component.parent = parent;
    leaf.currentValue = currentValue;
    leaf.defaultValue = defaultValue;
    leaf.factoryValue = factoryValue;
    leaf.hookId = hookId;
    const bool linked = link(session, leaf.component, parent, previous).status == 0;
    return linked && comp_setLeaf(session, &leaf) == 0 ? leaf.component.key : 0;
}

int32_t leaf_move(tavDBMSession *session, uint32_t key, uint32_t parent, uint32_t previous) {
    tavDBMLeaf leaf;
    if (comp_getLeaf(session, key, &leaf) == nullptr)
        return unreadable(session, key, {__func__, 330});
    // deliberate: the old parent's first child is compared with the parent's own key, so a leaf that is
    // the first child stays linked there as well
    unlink(session, leaf.component, leaf.component.parent);
    leaf.component.parent = parent;
    link(session, leaf.component, parent, previous);
    return comp_setLeaf(session, &leaf);
}

int32_t node_moveWithSub(tavDBMSession *session, uint32_t key, uint32_t parent, uint32_t previous) {
    tavDBMNode node;
    if (comp_getNode(session, key, &node) == nullptr)
        return unreadable(session, key, {__func__, 340});
    unlink(session, node.component, node.component.key);
    node.component.parent = parent;
    link(session, node.component, parent, previous);
    return comp_setNode(session, &node);
}

int32_t node_move(tavDBMSession *session, uint32_t key, uint32_t parent, uint32_t previous, uint32_t child) {
    tavDBMNode node;
    if (comp_getNode(session, key, &node) == nullptr)
        return unreadable(session, key, {__func__, 350});
    if (!unlinkAlone(session, node))
        return unreadable(session, key, {__func__, 351});
    node.component.parent = parent;
    if (!link(session, node.component, parent, previous).neighbourRead)
        return comp_setNode(session, &node);  // deliberate: with its old first child
    if (child != 0)
        adopt(session, node.component, child);
    node.firstChild = child;
    return comp_setNode(session, &node);
}

int32_t comp_delete(tavDBMSession *session, uint32_t key) {
    tavDBMNode node;
    if (comp_getNode(session, key, &node) == nullptr)
        return unreadable(session, key, {__func__, 360});
    if (!unlinkAlone(session, node))
        return unreadable(session, key, {__func__, 362});
    tavDBMComponent header;
    if (comp_getComponent(session, key, &header) == nullptr)
        return unreadable(session, key, {__func__, 361});
    return comp_setDeleted(session, &header);
}

int32_t comp_deleteWithSub(tavDBMSession *session, uint32_t key, int32_t unlink) {
    return deleteSubTree(session, key, unlink != 0);
}

// deliberate: a leaf's values and a component's name stay allocated; others may use them too
int32_t comp_setDeleted(tavDBMSession *session, const void *header) {
    tavDBMComponent component = {};
    if (header != nullptr)
        component = *static_cast<const tavDBMComponent *>(header);
    int32_t mediaId = 0;
    if (!findMediaId(session, kComponentRecord, component.key, {__func__, 380}, mediaId))
        return lastError(session);
    switch (component.kind) {
        case TAVDB_KIND_NODE:
            return flst_m_release(session, mediaId, component.key, sizeof(tavDBMNode));
        case TAVDB_KIND_LEAF:
            return flst_m_release(session, mediaId, component.key, sizeof(tavDBMLeaf));
        default:
            return failKind(session, component, {__func__, 390});
    }
}
