// SPDX-License-Identifier: Apache-2.0
#include "image/check_tree.h"

#include <algorithm>
#include <cstddef>
#include <iterator>

namespace tavdb::image {

namespace {

constexpr uint32_t kWordBytes = sizeof(uint32_t);
constexpr uint32_t kKindPlace = offsetof(tavDBMComponent, kind);

uint32_t sizeOfKind(int32_t kind) {
    return kind == TAVDB_KIND_NODE ? sizeof(tavDBMNode) : sizeof(tavDBMLeaf);
}

bool isKind(int32_t kind) {
    return kind == TAVDB_KIND_NODE || kind == TAVDB_KIND_LEAF;
}

std::string nameOfKind(int32_t kind) {
    return kind == TAVDB_KIND_NODE ? "node" : "leaf";
}

}  // namespace

uint32_t TreeCheck::placeOf(const Link &link) {
    return link.holder + (link.isFirst() ? kFirstChildPlace : kNextPlace);
}

uint32_t TreeCheck::parentOf(uint32_t key) const {
    const auto found = parents.find(key);
    return found == parents.end() ? 0 : found->second;
}

FoundAt TreeCheck::at(uint32_t key) const {
    const auto component = bench.images.read<tavDBMComponent>(kComponentMedium, key);
    const bool isLeaf = component && component->kind == TAVDB_KIND_LEAF;
    return {kComponentMedium, isLeaf ? RecordKind::leaf : RecordKind::node, key, key};
}

/// First what every link says by itself; then, one at a time, what only makes sense
/// when all of that is known.
void TreeCheck::run() {
    findRoot();
    followAll();
    findCandidates();
    while (mendOne())
        followAll();
    nameLosses();
}

/// Where a link led and nobody is now, and which was not free, a component was.
void TreeCheck::nameLosses() {
    for (const auto &[target, finding] : deadEnds) {
        const ByteRange place = {target, sizeof(tavDBMNode)};
        if (bench.isInside(kComponentMedium, place) && bench.claimsOf(kComponentMedium).isFree(place) &&
            !bench.wasFree(kComponentMedium, target))
            bench.findings[finding].lost = "the component at " + std::to_string(target);
    }
}

void TreeCheck::followAll() {
    while (!work.empty()) {
        const auto link = work.back();
        work.pop_back();
        follow(link);
    }
}

/// @return whether there was anything left
bool TreeCheck::mendOne() {
    const auto stray = std::find_if(deferred.begin(), deferred.end(),
                                    [&](const Link &link) { return !isLeft(wordAt(placeOf(link))); });
    if (stray != deferred.end()) {
        const auto link = *stray;
        deferred.erase(stray);
        follow(link);
        return true;
    }
    if (!broken.empty()) {
        const auto link = broken.front();
        broken.pop_front();
        giveOrphan(link);
        return true;
    }
    if (!deferred.empty()) {
        const auto link = deferred.front();
        deferred.pop_front();
        if (standsBelowItsParent(wordAt(placeOf(link))))
            cut(link, {Verdict::stray, "stands below its own parent as well"});
        else
            adopt(link);
        return true;
    }
    isFrontDone = isFrontDone || !putInFront();
    return !isFrontDone || takeOutOfOrder();
}

void TreeCheck::findRoot() {
    const auto header = bench.images.read<tavDBMMediumHeader>(kComponentMedium, 0);
    const uint32_t key = header ? header->root : 0;
    if (key != 0 && acceptRoot(key))
        return;
    const auto other = otherRoot();
    const auto what = key == 0 ? std::string("it names no root") : "its root, at " + std::to_string(key) + ", is none";
    bench.report(Gravity::damage, {kComponentMedium, RecordKind::header, 0, 0}, what,
                 other ? "it names the node at " + std::to_string(*other) : "a new root is made");
    if (other)
        setRoot(*other);
    else
        makeRoot();
}

void TreeCheck::setRoot(uint32_t key) {
    setWord(offsetof(tavDBMMediumHeader, root), key);
    acceptRoot(key);
}

bool TreeCheck::acceptRoot(uint32_t key) {
    const auto found = bench.images.read<tavDBMNode>(kComponentMedium, key);
    if (!found)
        return false;
    // A node that names a parent is the root only when there is no better one.
    const auto parent = found->component.parent;
    if (parent != 0 && otherRoot())
        return false;
    const auto look = lookAt(key, parent);
    if (look.verdict != Verdict::child || look.kind != TAVDB_KIND_NODE)
        return false;
    if (parent != 0 || found->component.next != 0)
        bench.report(Gravity::damage, at(key), "it is the root and names a parent or a sibling",
                     "it names neither of them");
    setWord(key + kParentPlace, 0);
    setWord(key + kNextPlace, 0);
    rootKey = key;
    enter(key, 0, TAVDB_KIND_NODE);
    return true;
}

/// A node that names no parent.
std::optional<uint32_t> TreeCheck::otherRoot() const {
    const uint64_t size = bench.sizeOf(kComponentMedium);
    const auto free = bench.soundFreeBlocks(kComponentMedium);
    auto block = free.begin();
    for (uint32_t key = kHeaderBytes; key + sizeof(tavDBMNode) <= size; key += kWordBytes) {
        while (block != free.end() && block->end() <= key)
            ++block;
        if (wordAt(key) != key || (block != free.end() && block->offset <= key))
            continue;
        const auto node = *bench.images.read<tavDBMNode>(kComponentMedium, key);
        const bool leads = node.firstChild == 0 || wordAt(node.firstChild + kParentPlace) == key;
        const bool isNode =
            node.component.kind == TAVDB_KIND_NODE && impliedKind(key, node.component) == TAVDB_KIND_NODE;
        if (isNode && node.component.parent == 0 && leads)
            return key;
    }
    return std::nullopt;
}

void TreeCheck::makeRoot() {
    while (bench.sizeOf(kComponentMedium) % kWordBytes != 0)
        bench.images.append(kComponentMedium, std::string_view("\0", 1));
    const auto key = bench.images.append(kComponentMedium, std::string(sizeof(tavDBMNode), '\0'));
    bench.images.write(kComponentMedium, key, tavDBMNode{{key, 0, 0, 0, 0, TAVDB_KIND_NODE}, 0});
    bench.newNames[key] = "/";
    setRoot(key);
}

void TreeCheck::enter(uint32_t key, uint32_t parent, int32_t kind) {
    bench.claimsOf(kComponentMedium).take({key, sizeOfKind(kind)});
    known.push_back({key, kind == TAVDB_KIND_NODE});
    parents.emplace(key, parent);
    if (kind == TAVDB_KIND_NODE)
        work.push_back({key, key});
}

void TreeCheck::follow(Link link) {
    for (;;) {
        const uint32_t target = wordAt(placeOf(link));
        if (target == 0) {
            if (brokenOwners.contains(link.owner))
                broken.push_back({link, std::nullopt});
            return;
        }
        const auto look = lookAt(target, link.owner);
        if (look.verdict == Verdict::strange)
            return deferred.push_back(link);
        if (look.verdict != Verdict::child)
            return cut(link, look);
        enter(target, link.owner, look.kind);
        link.holder = target;
    }
}

/// A chain ends where its link leads to nothing, until its other components are found.
void TreeCheck::cut(const Link &link, const Look &look) {
    const uint32_t target = wordAt(placeOf(link));
    const auto name =
        std::string(link.isFirst() ? "its first child, at " : "its next sibling, at ") + std::to_string(target) + ", ";
    const bool isLeaf = wordAt(target + kKindPlace) == TAVDB_KIND_LEAF;
    // Moving a leaf that is a first child leaves its old parent's link: deliberate in the library.
    const bool isKnownOddity = look.verdict == Verdict::stray && isLeaf && (link.isFirst() || link.holder == target);
    const auto finding = bench.report(isKnownOddity ? Gravity::oddity : Gravity::damage, at(link.holder),
                                      name + look.sentence, "the chain ends there");
    if (look.verdict == Verdict::none)
        deadEnds.emplace_back(target, finding);
    setWord(placeOf(link), 0);
    brokenOwners.insert(link.owner);
    broken.push_back({link, finding});
}

/// Goes on with a component that names the node as its parent and is nobody's successor.
void TreeCheck::giveOrphan(const BrokenLink &end) {
    const auto left = leftOf(end.link.owner);
    if (left.empty())
        return;
    std::unordered_set<uint32_t> successors;
    for (const uint32_t key : left)
        successors.insert(wordAt(key + kNextPlace));
    const auto head = std::find_if(left.begin(), left.end(), [&](uint32_t key) { return !successors.contains(key); });
    const uint32_t key = head == left.end() ? left[0] : *head;
    const auto remedy = "the chain goes on with the component at " + std::to_string(key);
    if (end.finding)
        bench.findings[*end.finding].remedy = remedy;
    else
        bench.report(Gravity::damage, at(end.link.holder), "the chain of siblings behind it is lost", remedy);
    std::erase(byParent[end.link.owner], key);
    setWord(placeOf(end.link), key);
    work.push_back(end.link);
}

/// Whether a component is in the chain of the node that it names, which is not reached yet.
bool TreeCheck::standsBelowItsParent(uint32_t key) const {
    const uint32_t parent = wordAt(key + kParentPlace);
    if (!isLeft(parent) || !std::binary_search(candidates.begin(), candidates.end(), parent) ||
        wordAt(parent + kKindPlace) != TAVDB_KIND_NODE)
        return false;
    uint32_t child = wordAt(parent + kFirstChildPlace);
    for (size_t steps = 0; child != 0 && child != key && steps < candidates.size(); steps++)
        child = wordAt(child + kParentPlace) == parent ? wordAt(child + kNextPlace) : 0;
    return child == key;
}

/// The component that a link leads to, and that nothing else leads to, belongs there.
void TreeCheck::adopt(Link link) {
    const uint32_t target = wordAt(placeOf(link));
    const uint32_t parent = wordAt(target + kParentPlace);
    // Children of a node that was deleted or moved alone go on naming it: deliberate in the library.
    const bool couldBeNode = bench.isInside(kComponentMedium, {parent, sizeof(tavDBMNode)});
    const bool isKnownOddity = couldBeNode && parent % kWordBytes == 0;
    bench.report(isKnownOddity ? Gravity::oddity : Gravity::damage, at(target),
                 "it names " + std::to_string(parent) + " as its parent and hangs below the node at " +
                     std::to_string(link.owner),
                 "it names that node");
    setWord(target + kParentPlace, link.owner);
    work.push_back(link);
}

/// A leaf that was the first child and was moved behind one of its siblings is linked
/// in front of them still, and they are lost: deliberate in the library.
bool TreeCheck::putInFront() {
    for (const auto &[parent, keys] : byParent) {
        const uint32_t first = isLeft(parent) ? 0 : wordAt(parent + kFirstChildPlace);
        if (first == 0 || wordAt(first + kKindPlace) != TAVDB_KIND_LEAF)
            continue;
        const uint32_t head = headOfChainTo(first, leftOf(parent));
        if (head == first || !enterChain(parent, head, first))
            continue;
        bench.report(Gravity::oddity, at(parent),
                     "no link leads to its children from " + std::to_string(head) + " on, which stand in front of " +
                         std::to_string(first),
                     "they come first");
        return true;
    }
    return false;
}

/// Goes back along the links of `keys` that lead to a component.
uint32_t TreeCheck::headOfChainTo(uint32_t first, const std::vector<uint32_t> &keys) const {
    uint32_t head = first;
    for (size_t steps = 0; steps < keys.size(); steps++) {
        const auto before = std::find_if(keys.begin(), keys.end(),
                                         [&](uint32_t key) { return key != head && wordAt(key + kNextPlace) == head; });
        if (before == keys.end())
            break;
        head = *before;
    }
    return head;
}

/// Makes the components from one to another, which is the first child, the first children.
bool TreeCheck::enterChain(uint32_t parent, uint32_t from, uint32_t to) {
    uint32_t last = 0;
    for (uint32_t key = from; key != to; key = wordAt(key + kNextPlace)) {
        const auto look = lookAt(key, parent);
        if (look.verdict != Verdict::child)
            break;
        enter(key, parent, look.kind);
        last = key;
    }
    if (last == 0)
        return false;
    setWord(last + kNextPlace, to);
    setWord(parent + kFirstChildPlace, from);
    return true;
}

/// A component whose parent is to be found among those that are left is found below it.
bool TreeCheck::isOrphanTop(uint32_t key) const {
    const uint32_t parent = wordAt(key + kParentPlace);
    return !std::binary_search(candidates.begin(), candidates.end(), parent) || !isLeft(parent) || parent == key;
}

/// The next component that no link leads to, in the second round whatever stands above
/// it. @return false when there is none left
bool TreeCheck::takeOutOfOrder() {
    for (; nextCandidate < 2 * candidates.size(); nextCandidate++) {
        const bool isSecondRound = nextCandidate >= candidates.size();
        const uint32_t key = candidates[nextCandidate % candidates.size()];
        if (!isLeft(key) || (!isSecondRound && !isOrphanTop(key)))
            continue;
        const auto look = lookAt(key, wordAt(key + kParentPlace));
        if (look.verdict != Verdict::child)
            continue;
        bench.report(couldBeDeleted(key) ? Gravity::oddity : Gravity::damage, at(key), "no link leads to it",
                     "it comes to stand below /lost+found");
        enter(key, 0, look.kind);
        lost.push_back(key);
        bench.displaced.push_back(key);
        return true;
    }
    return false;
}

/// The file list drops what is given back behind the last free block: deliberate in the
/// library. What was deleted there looks like what was lost.
bool TreeCheck::couldBeDeleted(uint32_t key) {
    return !isLeft(wordAt(key + kParentPlace)) && key > bench.lastFree(kComponentMedium);
}

TreeCheck::Look TreeCheck::lookAt(uint32_t key, uint32_t parent) {
    if (!isLeft(key))
        return {Verdict::stray, "stands elsewhere in the tree as well"};
    const auto component = bench.images.read<tavDBMComponent>(kComponentMedium, key);
    if (!component || key < kHeaderBytes)
        return {Verdict::none, "lies outside of its medium"};
    return lookAtPlace(key, parent, *component);
}

TreeCheck::Look TreeCheck::lookAtPlace(uint32_t key, uint32_t parent, tavDBMComponent component) {
    const bool isNamed = component.key == key;
    if (!isNamed && !canBeNamed(key, parent, component))
        return {Verdict::none, "is no record: it does not name itself"};
    const auto kind = component.parent == parent ? impliedKind(key, component) : std::optional(component.kind);
    if (!kind || !isKind(*kind))
        return {Verdict::none, "is of kind " + std::to_string(component.kind) + ", which is none"};
    const ByteRange range = {key, sizeOfKind(*kind)};
    if (!bench.images.contains(kComponentMedium, range))
        return {Verdict::none, "does not end on its medium"};
    if (!bench.claimsOf(kComponentMedium).isFree(range))
        return {Verdict::none, "lies in another record"};
    if (component.parent != parent)
        return {Verdict::strange, {}};
    if (!isNamed) {
        setWord(key, key);
        bench.report(Gravity::damage, at(key), "it says that it lies at " + std::to_string(component.key),
                     "it says where it lies");
    }
    if (*kind != component.kind) {
        setWord(key + kKindPlace, static_cast<uint32_t>(*kind));
        bench.report(Gravity::damage, at(key), "it says that it is of kind " + std::to_string(component.kind),
                     "it is a " + nameOfKind(*kind));
    }
    return {Verdict::child, {}, *kind};
}

/// Whether nothing but its first word keeps a record from being this component.
bool TreeCheck::canBeNamed(uint32_t key, uint32_t parent, const tavDBMComponent &component) const {
    if (component.parent != parent || !isKind(component.kind) || !bench.namesItself(kStringMedium, component.name))
        return false;
    if (component.kind == TAVDB_KIND_LEAF)
        return countValues(key) != 0;
    return wordAt(key + kFirstChildPlace) == 0 || leadsToChild(key);
}

/// The kind that the rest of a record tells, when its own word cannot be right.
std::optional<int32_t> TreeCheck::impliedKind(uint32_t key, const tavDBMComponent &component) const {
    const bool isEmpty = wordAt(key + kFirstChildPlace) == 0;
    const bool isSound = component.kind == TAVDB_KIND_NODE ? isEmpty || leadsToChild(key) : holdsValues(key);
    if (isKind(component.kind) && isSound)
        return component.kind;
    if (leadsToChild(key))
        return TAVDB_KIND_NODE;
    if (!isEmpty && holdsValues(key))
        return TAVDB_KIND_LEAF;
    return isKind(component.kind) ? std::optional(component.kind) : std::nullopt;
}

bool TreeCheck::leadsToChild(uint32_t key) const {
    const uint32_t child = wordAt(key + kFirstChildPlace);
    return bench.namesItself(kComponentMedium, child) && wordAt(child + kParentPlace) == key;
}

/// What is a node and stands in front of another component may look like a leaf.
bool TreeCheck::holdsValues(uint32_t key) const {
    const auto leaf = bench.images.read<tavDBMLeaf>(kComponentMedium, key);
    for (uint32_t place = key + sizeof(tavDBMNode); leaf && place < key + sizeof *leaf; place += kWordBytes)
        if (wordAt(place) == place)
            return false;
    if (!leaf)
        return false;
    const uint32_t keys[] = {leaf->currentValue, leaf->defaultValue, leaf->factoryValue};
    const auto named = static_cast<size_t>(std::count(std::begin(keys), std::end(keys), 0U)) + countValues(key);
    return named == std::size(keys) && countValues(key) != 0;
}

/// How many sound values a record names where a leaf does.
size_t TreeCheck::countValues(uint32_t key) const {
    const auto leaf = bench.images.read<tavDBMLeaf>(kComponentMedium, key);
    if (!leaf)
        return 0;
    const uint32_t keys[] = {leaf->currentValue, leaf->defaultValue, leaf->factoryValue};
    return static_cast<size_t>(std::count_if(std::begin(keys), std::end(keys), [&](uint32_t value) {
        return value != 0 && bench.namesItself(kValueMedium, value);
    }));
}

/// Records that name themselves, outside of the free list. What was deleted and given
/// back looks the same, but lies inside of it.
void TreeCheck::findCandidates() {
    for (const auto &gap : bench.claimsOf(kComponentMedium).gaps(bench.sizeOf(kComponentMedium))) {
        const uint32_t first = (gap.offset + kWordBytes - 1) / kWordBytes * kWordBytes;
        for (uint64_t place = first; place + sizeof(tavDBMNode) <= gap.end(); place += kWordBytes) {
            const auto key = static_cast<uint32_t>(place);
            if (wordAt(key) != key || key == 0)
                continue;
            const auto kind = static_cast<int32_t>(wordAt(key + kKindPlace));
            if (isKind(kind) && place + sizeOfKind(kind) <= gap.end() && !bench.wasFree(kComponentMedium, key))
                candidates.push_back(key);
        }
    }
    for (const uint32_t key : candidates)
        byParent[wordAt(key + kParentPlace)].push_back(key);
}

std::vector<uint32_t> TreeCheck::leftOf(uint32_t parent) const {
    std::vector<uint32_t> left;
    const auto found = byParent.find(parent);
    if (found != byParent.end())
        std::copy_if(found->second.begin(), found->second.end(), std::back_inserter(left),
                     [&](uint32_t key) { return isLeft(key); });
    return left;
}

}  // namespace tavdb::image
