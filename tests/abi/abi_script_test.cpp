// SPDX-License-Identifier: Apache-2.0
// scripts/abi.sh sees what it is there for. It looks at a small library that
// stands for all four, first as it was released and then changed.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "abi/command_output.h"

namespace tavdb_test {
namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

const std::string kReleased = R"(
typedef struct { int id; unsigned size; } Entry;
int measure(const Entry *entry, int scale) { return (int)entry->size * scale; }
Entry *find(int id) { static Entry entry; entry.id = id; return &entry; }
unsigned table[4];
)";

class AbiScript : public testing::Test {
protected:
    AbiScript() {
        std::string name = testing::TempDir() + "tavdb-abi-XXXXXX";
        folder = mkdtemp(name.data());
        compile(kReleased, "-O0 -g");
        accepted = check("--accept");
    }
    ~AbiScript() override {
        fs::remove_all(folder);
    }
    /// Makes all four libraries from a source text.
    void compile(const std::string &source, const std::string &options) const {
        const fs::path libraries = folder / "build" / "lib";
        fs::create_directories(libraries);
        std::ofstream(folder / "library.c") << source;
        const fs::path made = libraries / "libtavdb.so.1";
        const auto run = runCommand("cd '" + folder.string() + "' && '" TAVDB_TEST_C_COMPILER "' -shared -fPIC " +
                                    options + " -Wl,-soname,libscratch.so.1 library.c -o '" + made.string() + "'");
        ASSERT_EQ(run.status, 0);
        for (const char *name : {"libtavosw.so.1", "libtavhook.so.1", "libtavdbfile.so.1"})
            fs::copy_file(made, libraries / name, fs::copy_options::overwrite_existing);
    }
    CommandOutput check(const std::string &option = "") const {
        return runCommand("'" TAVDB_TEST_SOURCE "/scripts/abi.sh' " + option + " --releases '" +
                          (folder / "releases").string() + "' '" + (folder / "build").string() + "' 2>&1");
    }
    static std::string text(const CommandOutput &output) {
        std::string all;
        for (const std::string &line : output.lines)
            all += line + "\n";
        return all;
    }
    /// The released source with one text in the place of another.
    static std::string changed(const std::string &from, const std::string &to) {
        std::string source = kReleased;
        EXPECT_NE(source.find(from), std::string::npos);
        return source.replace(source.find(from), from.size(), to);
    }
    void expectRefused(const std::string &source, const testing::Matcher<std::string> &output) const {
        ASSERT_EQ(accepted.status, 0) << text(accepted);
        compile(source, "-O0 -g");
        const auto refused = check();
        EXPECT_NE(refused.status, 0);
        EXPECT_THAT(text(refused), AllOf(output, HasSubstr("scripts/abi.sh --accept")));
    }

    fs::path folder;
    CommandOutput accepted;
};

TEST_F(AbiScript, SameInterfacePassesHoweverItIsCompiled) {
    ASSERT_EQ(accepted.status, 0) << text(accepted);
    compile("\n\n\n" + kReleased +
                "static int hidden(int more) { return more; }\nint (*unused)(int) __attribute__("
                "(visibility(\"hidden\"))) = hidden;\n",
            "-O2 -g -fdebug-prefix-map=/=/elsewhere/");
    const auto passed = check();
    EXPECT_EQ(passed.status, 0) << text(passed);
}

TEST_F(AbiScript, RemovedFunctionFails) {
    expectRefused(changed("Entry *find", "static Entry *find") + "void *keep(void) { return (void *)find; }\n",
                  HasSubstr("libtavdb: removed find"));
}

TEST_F(AbiScript, AddedFunctionFails) {
    expectRefused(kReleased + "void more(void) {}\n",
                  AllOf(HasSubstr("libtavdb: added more"), Not(HasSubstr("removed "))));
}

TEST_F(AbiScript, LongerStructFails) {
    expectRefused(changed("unsigned size;", "unsigned size; int flags;"), HasSubstr("Entry"));
}

TEST_F(AbiScript, MemberOfAnotherTypeFails) {
    expectRefused(changed("unsigned size;", "int size;"), HasSubstr("Entry"));
}

TEST_F(AbiScript, ParameterOfAnotherTypeFails) {
    expectRefused(changed("int scale", "long scale"), HasSubstr("measure"));
}

TEST_F(AbiScript, ParameterThatIsMissingFails) {
    expectRefused(changed("(int id) {", "(void) { int id = 0;"), HasSubstr("find"));
}

TEST_F(AbiScript, LongerObjectFails) {
    expectRefused(changed("table[4]", "table[5]"), HasSubstr("table"));
}

TEST_F(AbiScript, AcceptedChangePasses) {
    compile(kReleased + "void more(void) {}\n", "-O0 -g");
    ASSERT_NE(check().status, 0);
    ASSERT_EQ(check("--accept").status, 0);
    EXPECT_EQ(check().status, 0);
}

TEST_F(AbiScript, LibraryWithoutTypesFails) {
    compile(kReleased, "-O0 -s");
    const auto refused = check();
    EXPECT_NE(refused.status, 0);
    EXPECT_THAT(text(refused), HasSubstr("has no debug information"));
}

TEST_F(AbiScript, MissingLibraryFails) {
    fs::remove(folder / "build" / "lib" / "libtavosw.so.1");
    const auto refused = check();
    EXPECT_NE(refused.status, 0);
    EXPECT_THAT(text(refused), HasSubstr("has no libtavosw.so.1"));
}

TEST_F(AbiScript, MissingReleaseFails) {
    fs::remove_all(folder / "releases");
    const auto refused = check();
    EXPECT_NE(refused.status, 0);
    EXPECT_THAT(text(refused), HasSubstr("no release is written down"));
}

}  // namespace
}  // namespace tavdb_test
