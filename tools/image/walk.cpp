// SPDX-License-Identifier: Apache-2.0
#include "image/walk.h"

#include "image/model.h"

namespace tavdb::image {

namespace {

class Walk {
public:
    Walk(Database &place, const std::function<bool(const Located &)> &visitor) : database(place), visit(visitor) {}

    Status run(const Located &start) {
        visited.insert(start.component.key);
        enter(start, 0);
        return std::move(fault);
    }

private:
    bool enter(const Located &at, uint32_t level) {
        if (!visit(at))
            return false;
        if (level == kLevelsMax) {
            note(at.path, tooManyLevels());
            return true;
        }
        bool goesOn = true;
        auto ended = forEachChild(database, at.component, visited, [&](const StoredComponent &child) {
            goesOn = enter({child, childPath(at.path, child.name)}, level + 1);
            return goesOn;
        });
        if (ended)
            note(at.path, std::move(*ended));
        return goesOn;
    }

    void note(const std::string &path, Fault found) {
        if (!fault)
            fault = faultIn(path, std::move(found));
    }

    Database &database;
    const std::function<bool(const Located &)> &visit;
    Visited visited;
    Status fault;
};

}  // namespace

Status forEachFrom(Database &database, const Located &start, const std::function<bool(const Located &)> &visit) {
    return Walk(database, visit).run(start);
}

Result<std::vector<StoredComponent>> childrenOf(Database &database, const StoredComponent &node) {
    using Children = Result<std::vector<StoredComponent>>;
    std::vector<StoredComponent> children;
    Visited visited;
    auto fault = forEachChild(database, node, visited, [&](const StoredComponent &child) {
        children.push_back(child);
        return true;
    });
    return fault ? Children::bad(std::move(*fault)) : Children::good(std::move(children));
}

}  // namespace tavdb::image
