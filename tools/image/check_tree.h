// SPDX-License-Identifier: Apache-2.0
// The tree of components: every link is followed once, what is wrong is put right,
// and what no link leads to any more is found by the marks of its record. Names and
// values of the components are looked at elsewhere.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "image/bench.h"
#include "tavdb_modules.h"

namespace tavdb::image {

/// A component that is in the tree, or will be.
struct KnownComponent {
    uint32_t key = 0;
    bool isNode = false;
};

class TreeCheck {
public:
    explicit TreeCheck(Bench &place) : bench(place) {}

    void run();

    const std::vector<KnownComponent> &components() const {
        return known;
    }
    uint32_t root() const {
        return rootKey;
    }
    /// What goes below /lost+found; each with all that is below it.
    const std::vector<uint32_t> &orphans() const {
        return lost;
    }
    uint32_t parentOf(uint32_t key) const;

private:
    /// A word that leads to a child: a node's first, or the next one of its sibling.
    struct Link {
        uint32_t owner = 0;   ///< the node whose children they are
        uint32_t holder = 0;  ///< the record that the word stands in
        bool isFirst() const {
            return owner == holder;
        }
    };
    struct BrokenLink {
        Link link;
        std::optional<size_t> finding;
    };
    enum class Verdict : uint8_t { child, strange, stray, none };
    struct Look {
        Verdict verdict = Verdict::none;
        std::string sentence;  ///< of what is no component
        int32_t kind = TAVDB_KIND_NODE;
    };

    void nameLosses();
    void findRoot();
    bool acceptRoot(uint32_t key);
    std::optional<uint32_t> otherRoot() const;
    void makeRoot();
    void setRoot(uint32_t key);

    void follow(Link link);
    void followAll();
    bool mendOne();
    bool standsBelowItsParent(uint32_t key) const;
    void adopt(Link link);
    void cut(const Link &link, const Look &look);
    void giveOrphan(const BrokenLink &end);
    bool putInFront();
    uint32_t headOfChainTo(uint32_t first, const std::vector<uint32_t> &keys) const;
    bool enterChain(uint32_t parent, uint32_t from, uint32_t to);
    bool takeOutOfOrder();
    bool couldBeDeleted(uint32_t key);
    bool isOrphanTop(uint32_t key) const;

    Look lookAt(uint32_t key, uint32_t parent);
    Look lookAtPlace(uint32_t key, uint32_t parent, tavDBMComponent component);
    bool canBeNamed(uint32_t key, uint32_t parent, const tavDBMComponent &component) const;
    std::optional<int32_t> impliedKind(uint32_t key, const tavDBMComponent &component) const;
    bool leadsToChild(uint32_t key) const;
    bool holdsValues(uint32_t key) const;
    size_t countValues(uint32_t key) const;

    void enter(uint32_t key, uint32_t parent, int32_t kind);
    void findCandidates();
    bool isLeft(uint32_t key) const {
        return !parents.contains(key);
    }
    std::vector<uint32_t> leftOf(uint32_t parent) const;

    uint32_t wordAt(uint32_t offset) const {
        return bench.images.read<uint32_t>(kComponentMedium, offset).value_or(0);
    }
    void setWord(uint32_t offset, uint32_t word) {
        bench.images.write(kComponentMedium, offset, word);
    }
    static uint32_t placeOf(const Link &link);
    FoundAt at(uint32_t key) const;

    Bench &bench;
    uint32_t rootKey = 0;
    std::vector<KnownComponent> known;
    std::unordered_map<uint32_t, uint32_t> parents;  ///< of the known components
    std::vector<Link> work;
    std::deque<Link> deferred;  ///< to a component that names another parent
    std::deque<BrokenLink> broken;
    std::unordered_set<uint32_t> brokenOwners;
    std::vector<std::pair<uint32_t, size_t>> deadEnds;  ///< where broken links led, and what was found then
    bool haveCandidates = false;
    std::vector<uint32_t> candidates;                    ///< records that no link leads to, ascending
    std::map<uint32_t, std::vector<uint32_t>> byParent;  ///< the same by the parent they name
    size_t nextCandidate = 0;
    bool isFrontDone = false;
    std::vector<uint32_t> lost;
};

}  // namespace tavdb::image
