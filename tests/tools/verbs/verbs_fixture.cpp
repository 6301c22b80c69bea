// SPDX-License-Identifier: Apache-2.0
#include "tools/verbs/verbs_fixture.h"

#include <set>

namespace tavdb_test {

namespace {

/// Walks as an application would, with nothing but keys.
class Walker {
public:
    explicit Walker(tavdb::image::Attached &database) : attached(database) {}

    void walk(uint32_t node, const std::string &path) {
        for (uint32_t child = tavDBMGetFirstChild(attached.session(), node); child != 0;
             child = tavDBMGetNextChild(attached.session(), child)) {
            ASSERT_TRUE(seen.insert(child).second) << path << " leads to a component a second time";
            EXPECT_EQ(tavDBMGetParent(attached.session(), child), node) << path;
            const auto name = path + attached.nameOf(child);
            lines.push_back(name);
            if (name.ends_with('/'))
                walk(child, name);
        }
    }

    Lines lines;

private:
    tavdb::image::Attached &attached;
    std::set<uint32_t> seen;
};

}  // namespace

Json VerbTest::json(std::vector<std::string> arguments) const {
    arguments.push_back("--json");
    const auto result = tavdb(arguments);
    EXPECT_EQ(result.exitCode, 0) << result.err;
    return Json::parse(result.out, nullptr, false);
}

Lines VerbTest::shape() const {
    tavdb::image::Attached attached(directory());
    Walker walker(attached);
    walker.walk(tavDBMGetRoot(attached.session()), "/");
    return walker.lines;
}

std::map<std::string, uint64_t> VerbTest::freeBytes() const {
    std::map<std::string, uint64_t> bytes;
    const auto info = json({"info"});
    for (const auto &medium : info["media"])
        if (!medium["freeBytes"].is_null())
            bytes[medium["holds"]] = medium["freeBytes"];
    return bytes;
}

Lines VerbTest::schemaPaths() const {
    Lines paths;
    const auto schema = Json::parse(bytesOf(place / "db/schema.json"));
    for (const auto &[path, entry] : schema["components"].items())
        paths.push_back(path);
    return paths;
}

std::string VerbTest::value(const std::string &path) const {
    const auto result = tavdb({"get", path});
    return result.exitCode == 0 ? result.out : result.err;
}

void VerbTest::expectRefusal(const std::vector<std::string> &arguments, int exitCode, const std::string &line) const {
    const auto contentOf = [&] {
        auto files = filesIn(directory());
        // Every command that attaches takes a session and gives it back.
        for (const auto *name : {"session.tbl", "session.tbl.sem", "lock.tbl", "lock.tbl.sem"})
            files.erase(name);
        return files;
    };
    const auto before = contentOf();
    EXPECT_EQ(tavdb(arguments), fails(exitCode, "tavdb: " + line + "\n"));
    EXPECT_EQ(contentOf(), before) << line;
}

}  // namespace tavdb_test
