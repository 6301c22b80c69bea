// SPDX-License-Identifier: Apache-2.0
// What the packages hold and what they say about themselves.
#include <gmock/gmock.h>
#include <unistd.h>

#include <fstream>
#include <map>

#include "packages/package_support.h"

namespace tavdb_test {
namespace {

namespace fs = std::filesystem;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::Not;

class PackageContents : public Packages {
protected:
    std::string field(const std::string &package, const std::string &name) const {
        const auto output = run("dpkg-deb -f '" + packageFile(package).string() + "' " + name);
        return output.lines.empty() ? "" : output.lines[0];
    }
    /// The control files of a package, in a folder of their own.
    fs::path control(const std::string &package) const {
        run("dpkg-deb -e '" + packageFile(package).string() + "' control");
        return folder / "control";
    }
    std::vector<std::string> linesOf(const fs::path &file) const {
        return run("cat '" + file.string() + "'").lines;
    }
    std::vector<fs::path> programs() const {
        std::vector<fs::path> found = {root / "usr/bin/tavdb"};
        for (const char *name : {"tavdb", "tavosw", "tavhook", "tavdbfile"})
            found.push_back(libraries / ("lib" + std::string(name) + ".so.1"));
        return found;
    }
};

TEST_F(PackageContents, DependenciesAreExact) {
    const std::string version = field("libtavdb1", "Version");
    const std::string libc = "libc6 \\(>= 2\\.[0-9]+\\)";
    EXPECT_THAT(field("libtavdb1", "Depends"), MatchesRegex(libc));
    EXPECT_EQ(field("libtavdb-dev", "Depends"), "libtavdb1 (= " + version + "), libc6-dev");
    EXPECT_THAT(field("tavdb-tools", "Depends"), MatchesRegex("libtavdb1 \\(= " + version + "\\), " + libc));
}

TEST_F(PackageContents, LibcIsAsNewAsTheSymbolsNeed) {
    const auto output =
        run("readelf -V -W '" + (root / "usr/bin/tavdb").string() + "' | grep -o 'GLIBC_[0-9.]*' | sort -V | tail -1");
    ASSERT_EQ(output.lines.size(), 1U);
    EXPECT_THAT(field("tavdb-tools", "Depends"), HasSubstr("libc6 (>= " + output.lines[0].substr(6) + ")"));
}

TEST_F(PackageContents, LinkerLearnsOfTheLibraries) {
    const fs::path files = control("libtavdb1");
    EXPECT_THAT(linesOf(files / "triggers"), ElementsAre("activate-noawait ldconfig"));
    EXPECT_THAT(linesOf(files / "shlibs"), Contains("libtavdb 1 libtavdb1 (>= " + field("libtavdb1", "Version") + ")"));
    const auto symbols = linesOf(files / "symbols");
    EXPECT_THAT(symbols, Contains("libtavosw.so.1 libtavdb1 #MINVER#"));
    EXPECT_THAT(symbols, Contains(" tavDBMInit@TAVDB_1 1.0.0"));
}

TEST_F(PackageContents, SymbolsAreThoseOfTheLibraries) {
    std::vector<std::string> listed = linesOf(control("libtavdb1") / "symbols");
    std::erase_if(listed, [](const std::string &line) { return !line.starts_with(" "); });
    const auto exported =
        run("for file in '" + libraries.string() +
            "'/lib*.so.1; do readelf -W --dyn-syms $file; done | grep -c ' GLOBAL DEFAULT  *[0-9].*@@'");
    ASSERT_EQ(exported.lines.size(), 1U);
    EXPECT_EQ(std::to_string(listed.size()), exported.lines[0]);
}

TEST_F(PackageContents, ProgramsAreStrippedAndFindLibrariesByTheSystem) {
    for (const fs::path &program : programs()) {
        const std::string sections = joined(run("readelf -S -d -W '" + program.string() + "'").lines);
        EXPECT_THAT(sections, HasSubstr("(NEEDED)")) << program;
        for (const char *unwanted : {".debug_info", ".symtab", "RPATH", "RUNPATH"})
            EXPECT_THAT(sections, Not(HasSubstr(unwanted))) << program;
    }
}

TEST_F(PackageContents, NoFileNamesTheFolderOfTheBuild) {
    EXPECT_THAT(run("grep -rlF '" TAVDB_TEST_SOURCE "' root").lines, IsEmpty());
}

TEST_F(PackageContents, NoFileIsInTwoPackages) {
    std::map<std::string, int> packages;
    for (const std::string &package : kPackages)
        for (const std::string &line : run("dpkg-deb -c '" + packageFile(package).string() + "' | grep -v /$").lines)
            EXPECT_EQ(++packages[line.substr(line.find(" ./"))], 1) << line;
    EXPECT_GT(packages.size(), 60U);
}

TEST_F(PackageContents, ChecksumsHold) {
    for (const std::string &package : kPackages)
        EXPECT_EQ(run("(cd root && md5sum --quiet -c '" + (control(package) / "md5sums").string() + "')").status, 0);
}

TEST_F(PackageContents, EachHasLicenceAndChangelog) {
    for (const std::string &package : kPackages) {
        const fs::path documents = root / "usr/share/doc" / package;
        EXPECT_THAT(linesOf(documents / "copyright"), Contains("License: Apache-2.0"));
        const auto changelog = run("zcat '" + (documents / "changelog.Debian.gz").string() + "'").lines;
        ASSERT_FALSE(changelog.empty());
        EXPECT_THAT(changelog[0], HasSubstr("(" + field(package, "Version") + ")"));
    }
}

TEST_F(PackageContents, ShellsFindTheirCompletions) {
    for (const char *script :
         {"bash-completion/completions/tavdb", "fish/vendor_completions.d/tavdb.fish", "zsh/vendor-completions/_tavdb"})
        EXPECT_THAT(linesOf(root / "usr/share" / script), Contains(HasSubstr("made by \"tavdb completion"))) << script;
}

TEST_F(PackageContents, ManualIsThere) {
    if (!fs::exists(TAVDB_TEST_BUILD "/man"))
        GTEST_SKIP() << "lowdown is not installed: there is no manual";
    for (const char *page : {"man1/tavdb.1", "man1/tavdb-get.1", "man5/tavdb-media.5"})
        EXPECT_THAT(run("zcat '" + (root / "usr/share/man" / page).string() + ".gz'").lines,
                    Contains(HasSubstr(".TH \"tavdb")));
}

TEST_F(PackageContents, EqualWhenPackedAgain) {
    ASSERT_EQ(run("'" TAVDB_TEST_SOURCE "/scripts/packages.sh' --built '" TAVDB_TEST_BUILD "' again >/dev/null").status,
              0);
    EXPECT_EQ(run("diff -r again '" TAVDB_TEST_PACKAGES "'").status, 0);
}

TEST_F(PackageContents, FolderOfTheControlTableIsForRootOnly) {
    if (geteuid() != 0 || run("command -v systemd-tmpfiles >/dev/null").status != 0)
        GTEST_SKIP() << "needs systemd-tmpfiles, and root to give the folder to root";
    ASSERT_EQ(run("systemd-tmpfiles --root='" + root.string() + "' --create tavdb.conf").status, 0);
    EXPECT_THAT(run("stat -c '%U %G %a %F' root/run/tavdb").lines, ElementsAre("root root 750 directory"));
}

}  // namespace
}  // namespace tavdb_test
