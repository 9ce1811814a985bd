#include "support/errors.h"
#include "support/file_paths.h"
#include "support/named_lock.h"
#include "support/wide_text.h"
#include "tests/common/case_name.h"
#include "tests/common/scratch.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using testing_support::caseName;

std::wstring wide(const std::string& text) { return Vesk::fromUtf8(text); }

TEST(RenameFile, ExistingTargetIsKeptWithoutOverwrite) {
    scratch::Folder folder;
    scratch::writeFile(folder / "a", "A");
    scratch::writeFile(folder / "b", "B");
    EXPECT_THROW(Vesk::renameFile(wide(folder / "a"), wide(folder / "b")), Vesk::file_already_exists);
    EXPECT_EQ(scratch::readFile(folder / "a"), "A");
    EXPECT_EQ(scratch::readFile(folder / "b"), "B");
    Vesk::renameFile(wide(folder / "a"), wide(folder / "b"), Vesk::renameOverwrite);
    EXPECT_FALSE(scratch::exists(folder / "a"));
    EXPECT_EQ(scratch::readFile(folder / "b"), "A");
}

TEST(RenameFile, FailuresMapToFileErrors) {
    scratch::Folder folder;
    scratch::writeFile(folder / "a", "A");
    scratch::writeFile(folder / "plain", "x");
    EXPECT_THROW(Vesk::renameFile(wide(folder / "missing"), wide(folder / "c")), Vesk::file_not_found);
    EXPECT_THROW(Vesk::renameFile(wide(folder / "a"), wide(folder / "no/such")), Vesk::file_not_found);
    try {
        Vesk::renameFile(wide(folder / "a"), wide(folder / "plain/below"), Vesk::renameOverwrite);
        ADD_FAILURE() << "renamed below a regular file";
    } catch (const Vesk::file_access_error& e) {
        EXPECT_STREQ(e.what(), "file access error: Not a directory");
    }
    const std::wstring accented = wide(folder / "\xC3\xA9t\xC3\xA9");
    Vesk::renameFile(wide(folder / "a"), accented);
    EXPECT_EQ(scratch::readFile(folder / "\xC3\xA9t\xC3\xA9"), "A");
}

TEST(ReadLink, TargetsOfAnyLengthAndBadInput) {
    scratch::Folder folder;
    for (const std::string& target : {std::string("caf\xC3\xA9"), std::string(1023, 'x'), std::string(1024, 'y'),
                                      std::string(3000, 'z')}) {
        const std::string link = folder / "link";
        ::unlink(link.c_str());
        ASSERT_EQ(::symlink(target.c_str(), link.c_str()), 0);
        EXPECT_EQ(Vesk::readLink(wide(link)), wide(target)) << target.size();
    }
    scratch::writeFile(folder / "plain", "x");
    EXPECT_THROW(Vesk::readLink(wide(folder / "plain")), Vesk::file_access_error);
    EXPECT_THROW(Vesk::readLink(wide(folder / "missing")), Vesk::file_access_error);
}

class ScopedVariable {
public:
    ScopedVariable(const char* name, const std::optional<std::string>& value) : name(name) {
        if (const char* old = std::getenv(name))
            previous = old;
        value ? ::setenv(name, value->c_str(), 1) : ::unsetenv(name);
    }
    ~ScopedVariable() { previous ? ::setenv(name, previous->c_str(), 1) : ::unsetenv(name); }

private:
    const char* name;
    std::optional<std::string> previous;
};

struct AppDataCase {
    const char* name;
    std::optional<std::string> override, xdg, home;
    std::string expected;
};

class AppDataFolder : public testing::TestWithParam<AppDataCase> {};

TEST_P(AppDataFolder, OverrideThenXdgThenHome) {
    ScopedVariable a("_APPDATA_OVERRIDE", GetParam().override), b("XDG_DATA_HOME", GetParam().xdg),
        c("HOME", GetParam().home);
    EXPECT_EQ(Vesk::toUtf8(Vesk::appDataFolder()), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Table, AppDataFolder,
    testing::Values(AppDataCase{"Override", "/data/here", "/xdg", "/home/u", "/data/here/"},
                    AppDataCase{"OverrideWithSeparator", "/data/", std::nullopt, "/home/u", "/data/"},
                    AppDataCase{"Xdg", std::nullopt, "/xdg/data", "/home/u", "/xdg/data/"},
                    AppDataCase{"RelativeXdgIsIgnored", std::nullopt, "rel/data", "/home/u", "/home/u/.local/share/"},
                    AppDataCase{"EmptyXdgIsIgnored", std::nullopt, "", "/home/u", "/home/u/.local/share/"},
                    AppDataCase{"Home", std::nullopt, std::nullopt, "/home/\xC3\xBC", "/home/\xC3\xBC/.local/share/"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(CreateFolderPath, CreatesEveryMissingComponent) {
    scratch::Folder folder;
    const std::string deep = folder / "a/b/\xC3\xA9/d";
    EXPECT_TRUE(Vesk::createFolderPath(wide(deep), 0750));
    struct stat info;
    ASSERT_EQ(::stat(deep.c_str(), &info), 0);
    EXPECT_TRUE(S_ISDIR(info.st_mode));
    EXPECT_EQ(info.st_mode & 0777, 0750u & ~static_cast<unsigned>(::umask(::umask(0))));
    EXPECT_TRUE(Vesk::createFolderPath(wide(deep + "/")));
}

TEST(CreateFolderPath, StopsAtTheFirstFailure) {
    scratch::Folder folder;
    scratch::writeFile(folder / "plain", "x");
    EXPECT_FALSE(Vesk::createFolderPath(wide(folder / "plain/below/more")));
    EXPECT_FALSE(Vesk::createFolderPath(wide("/Volumes/NoSuchVolume-8d1f/folder")));
    EXPECT_FALSE(scratch::exists("/Volumes/NoSuchVolume-8d1f"));
    EXPECT_FALSE(Vesk::createFolderPath(wide("/Network/NoSuchShare-8d1f")));
    EXPECT_FALSE(scratch::exists("/Network/NoSuchShare-8d1f"));
}

TEST(CreateFolderPath, ReadOnlyParentFails) {
    if (::geteuid() == 0)
        GTEST_SKIP() << "root writes into read-only folders";
    scratch::Folder folder;
    ASSERT_EQ(::mkdir((folder / "ro").c_str(), 0500), 0);
    EXPECT_FALSE(Vesk::createFolderPath(wide(folder / "ro/sub")));
}

struct HousekeepingCase {
    std::wstring path;
    bool skipped;
};

class HousekeepingFolders : public testing::TestWithParam<HousekeepingCase> {};

TEST_P(HousekeepingFolders, OnlyTheLastComponentCounts) {
    EXPECT_EQ(Vesk::isHousekeepingFolder(GetParam().path), GetParam().skipped);
}

INSTANTIATE_TEST_SUITE_P(
    Table, HousekeepingFolders,
    testing::Values(HousekeepingCase{L"/share/@Recycle", true},
                    HousekeepingCase{L"/share/#recycle/", true},
                    HousekeepingCase{L"$RECYCLE.BIN", true}, HousekeepingCase{L"/v/@tmp", true},
                    HousekeepingCase{L"/v/@eaDir", true},
                    HousekeepingCase{L"/v/@Recently-Snapshot", true},
                    HousekeepingCase{L"/v/_gsdata_", true}, HousekeepingCase{L"/v/@recycle", false},
                    HousekeepingCase{L"/@eaDir/music", false}, HousekeepingCase{L"/v/@tmp2", false},
                    HousekeepingCase{L"", false}),
    [](const auto& info) {
        const auto& c = info.param;
        return std::string(caseName({Vesk::toUtf8(c.path)}));
    });

TEST(RewriteFiles, NamesAndLeftovers) {
    const std::string pid = std::to_string(::getpid());
    EXPECT_EQ(Vesk::toUtf8(Vesk::rewriteTempPath(L"/a/b.txt")), "/a/b.txt.p" + pid + ".rewrite.tmp");
    EXPECT_EQ(Vesk::toUtf8(Vesk::rewriteTempPath(L"/a/b.txt", 3)), "/a/b.txt.p" + pid + ".3.rewrite.tmp");

    scratch::Folder folder;
    for (const char* name : {"x.p1.rewrite.tmp", "y.p2.7.rewrite.tmp", "keep.tmp", "rewrite.tmp.not"})
        scratch::writeFile(folder / name, "");
    EXPECT_EQ(Vesk::removeRewriteLeftovers(wide(folder.path())), 2u);
    EXPECT_TRUE(scratch::exists(folder / "keep.tmp"));
    EXPECT_TRUE(scratch::exists(folder / "rewrite.tmp.not"));
    EXPECT_FALSE(scratch::exists(folder / "x.p1.rewrite.tmp"));
    EXPECT_EQ(Vesk::removeRewriteLeftovers(wide(folder / "missing")), 0u);
}

TEST(NamedLock, HeldByOneProcessAtATime) {
    const std::wstring name = L"support-test-\u00e9-" + std::to_wstring(::getpid());
    Vesk::XNamedLock mine(name);
    EXPECT_EQ(mine.path(), "/tmp/xmutex-" + Vesk::toUtf8(name));
    {
        scratch::Child holder([&](scratch::Child& self) {
            Vesk::XNamedLock lock(name);
            lock.take();
            self.report("held");
            self.awaitGo();
            return 0;
        });
        ASSERT_EQ(holder.nextLine(), "held");
        EXPECT_FALSE(mine.tryTake());
        EXPECT_FALSE(mine.held());
        holder.go();
        EXPECT_EQ(holder.finish(), 0);
    }
    EXPECT_TRUE(mine.tryTake());
    scratch::Child other([&](scratch::Child& self) {
        Vesk::XNamedLock lock(name);
        self.report(lock.tryTake() ? "taken" : "busy");
        return 0;
    });
    EXPECT_EQ(other.nextLine(), "busy");
    mine.remove();
    EXPECT_FALSE(scratch::exists(mine.path()));
}

TEST(NamedLock, UnusableNameThrowsFileError) {
    Vesk::XNamedLock lock(L"no/such/folder");
    EXPECT_THROW(lock.take(), Vesk::file_not_found);
}

} // namespace
