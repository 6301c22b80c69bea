// SPDX-License-Identifier: Apache-2.0
#include "image/tree_builder.h"

#include <array>
#include <cstring>

#include "image/leaf_access.h"
#include "image/value_bytes.h"

namespace tavdb::image {

namespace {

using NewRange = void *(*)(tavDBMSession *, void *);

/// By value type code, from TAVDB_TYPE_S8 on.
constexpr std::array<NewRange, 10> kNewRange = {rangeS8_new,  rangeS16_new, rangeS32_new, rangeS64_new, rangeU8_new,
                                                rangeU16_new, rangeU32_new, rangeU64_new, rangeF32_new, rangeF64_new};

/// Where the three values stand in a range record: behind the header, each in its
/// type's width. The widest record has room for all of them.
struct RangeBytes {
    alignas(tavDBMRangeU64) std::array<char, sizeof(tavDBMRangeU64)> bytes{};
};
static_assert(offsetof(tavDBMRangeU8, minimum) == 8 && offsetof(tavDBMRangeU8, step) == 10);
static_assert(offsetof(tavDBMRangeF32, minimum) == 8 && offsetof(tavDBMRangeF32, step) == 16);
static_assert(offsetof(tavDBMRangeF64, minimum) == 8 && offsetof(tavDBMRangeF64, step) == 24);

RangeBytes rangeRecord(Type type, const Range &range) {
    RangeBytes record;
    const auto code = static_cast<int32_t>(type);
    std::memcpy(record.bytes.data() + offsetof(tavDBMConstraint, type), &code, sizeof code);
    size_t offset = sizeof(tavDBMConstraint);
    for (const auto *value : {&range.minimum, &range.maximum, &range.step}) {
        const auto bytes = encodeValue(type, 0, *value);
        std::memcpy(record.bytes.data() + offset, bytes.data(), bytes.size());
        offset += bytes.size();
    }
    return record;
}

class TreeBuilder {
public:
    TreeBuilder(Database &place, const std::function<bool()> &asked, ComponentKeys &made)
        : database(place), interrupted(asked), keys(made) {}

    Status build(const Node &root) {
        const uint32_t key = createRoot();
        if (key == 0 || fault)
            return fault;
        buildChildren(root, "/", key);
        return std::move(fault);
    }

private:
    /// A node can be created below a parent only, so the root is written as a record.
    uint32_t createRoot() {
        tavDBMNode root = {};
        root.component.name = createName("/", "/");
        if (fault || !check("/", comp_newNode(database.cleared(), &root) != nullptr))
            return 0;
        const uint32_t key = root.component.key;
        check("/", comp_setNode(database.session(), &root) == 0);
        // deliberate: a successful update reports code 23, so the root is read back
        flst_m_setRoot(database.session(), kComponentMedium, key);
        const bool isSet = flst_m_getRoot(database.cleared(), kComponentMedium) == key;
        check("/", isSet);
        keys["/"] = key;
        return key;
    }

    /// All children of a node stand together, those of its children behind them: a
    /// search passes over few pages. Each is created behind the one before it.
    void buildChildren(const Node &node, const std::string &path, uint32_t parent) {
        std::vector<uint32_t> made;
        for (const auto &child : node.children) {
            const uint32_t previous = made.empty() ? 0 : made.back();
            made.push_back(createComponent(child, path, parent, previous));
            if (fault)
                return;
        }
        for (size_t i = 0; i < made.size() && !fault; i++)
            if (const auto *below = node.children[i].node())
                buildChildren(*below, childPath(path, below->name), made[i]);
    }

    uint32_t createComponent(const Component &component, const std::string &parentPath, uint32_t parent,
                             uint32_t previous) {
        if (interrupted()) {
            fault = Fault{FaultKind::failed, "interrupted"};
            return 0;
        }
        const auto *leaf = component.leaf();
        const auto path = childPath(parentPath, leaf != nullptr ? leaf->name : component.node()->name);
        const uint32_t key = leaf != nullptr ? createLeaf(*leaf, path, parent, previous)
                                             : createNode(*component.node(), path, parent, previous);
        keys[path] = key;
        return key;
    }

    uint32_t createNode(const Node &node, const std::string &path, uint32_t parent, uint32_t previous) {
        const uint32_t name = createName(node.name + "/", path);
        if (fault)
            return 0;
        return made(path, node_create(database.cleared(), name, parent, previous, 0));
    }

    uint32_t createLeaf(const Leaf &leaf, const std::string &path, uint32_t parent, uint32_t previous) {
        const uint32_t name = createName(leaf.name, path);
        const uint32_t constraint = createConstraint(leaf, path);
        const uint32_t current = createValue(leaf, leaf.current, constraint, path);
        const uint32_t standard = createValue(leaf, leaf.defaultValue, constraint, path);
        const uint32_t factory = createValue(leaf, leaf.factory, constraint, path);
        if (fault)
            return 0;
        return made(path,
                    leaf_create(database.cleared(), name, parent, previous, current, standard, factory, leaf.hookId));
    }

    uint32_t createName(const std::string &name, const std::string &path) {
        return fault ? 0 : made(path, str_create(database.cleared(), name.c_str(), kTextMedium));
    }

    uint32_t createValue(const Leaf &leaf, const Value &value, uint32_t constraint, const std::string &path) {
        if (fault)
            return 0;
        const auto bytes = encodeValue(leaf.type, leaf.lengthBytes, value);
        const uint32_t key = made(path, value_create(database.cleared(), static_cast<int32_t>(leaf.type), 0,
                                                     bytes.data(), static_cast<int32_t>(bytes.size()), kDataMedium));
        if (!fault && constraint != 0)
            check(path, value_setConstraintKey(database.cleared(), key, constraint) == 0);
        return key;
    }

    /// One record for the three values of one leaf, and never for two leaves: the
    /// library changes the constraint of a leaf in its record.
    uint32_t createConstraint(const Leaf &leaf, const std::string &path) {
        if (fault)
            return 0;
        if (const auto *range = std::get_if<Range>(&leaf.constraint))
            return createRange(leaf.type, *range, path);
        const auto *elements = std::get_if<Enumeration>(&leaf.constraint);
        return elements != nullptr ? createEnumeration(leaf.type, *elements, path) : 0;
    }

    uint32_t createRange(Type type, const Range &range, const std::string &path) {
        auto record = rangeRecord(type, range);
        const auto create = kNewRange[static_cast<size_t>(type) - TAVDB_TYPE_S8];
        check(path, create(database.cleared(), record.bytes.data()) != nullptr);
        uint32_t key = 0;
        std::memcpy(&key, record.bytes.data(), sizeof key);
        return key;
    }

    uint32_t createEnumeration(Type type, const Enumeration &elements, const std::string &path) {
        const auto width = static_cast<int32_t>(typeInfo(type).widthBytes);
        const auto count = static_cast<int32_t>(elements.size());
        std::string bytes;
        for (const auto &element : elements)
            bytes += encodeValue(type, 0, element.number);
        const uint32_t array = constraint_newEnumArray(database.cleared(), width, count);
        tavDBMEnumeration record = {0, static_cast<int32_t>(type) << TAVDB_ENUMERATION_SHIFT, array, width, count};
        if (!check(path, array != UINT32_MAX) || !check(path, enum_new(database.cleared(), &record) != nullptr))
            return 0;
        check(path, constraint_setEnumArray(database.cleared(), array, width, count, bytes.data()) == 0);
        return record.key;
    }

    /// Keeps the first fault. Some calls succeed by their result and leave a failure in the session.
    bool check(const std::string &path, bool isGood) {
        if (isGood && database.session()->errorCode == 0)
            return true;
        if (!fault)
            fault = faultIn(path, database.knownFault());
        return false;
    }

    uint32_t made(const std::string &path, uint32_t key) {
        return check(path, key != 0 && key != UINT32_MAX) ? key : 0;
    }

    Database &database;
    const std::function<bool()> &interrupted;
    ComponentKeys &keys;
    Status fault;
};

}  // namespace

Status buildTree(Database &database, const Model &model, const std::function<bool()> &interrupted,
                 ComponentKeys &keys) {
    return TreeBuilder(database, interrupted, keys).build(model.root);
}

}  // namespace tavdb::image
