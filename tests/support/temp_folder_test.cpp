#include "tests/common/scratch.h"
#include "support/errors.h"
#include "support/temp_folder.h"
#include "support/wide_text.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <regex>
#include <set>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// Every scope is taken in a forked child: the scope sets the process environment, and the
// process-wide folder is taken once per process.
void useRoot(const std::string& root) {
    ::setenv("TMPDIR", root.c_str(), 1);
    ::unsetenv("XTempFolderScope_Location");
}

std::string utf8(const std::wstring& text) { return Vesk::toUtf8(text); }

// A child that takes a scope, leaves `file` in it and reports its folder; it holds the scope
// until told to go on, then ends without tearing it down when `dies` is set.
int holdScope(scratch::Child& self, const std::string& root, const std::wstring& prefix, bool dies) {
    useRoot(root);
    Vesk::XTempFolderScope scope(prefix);
    scratch::writeFile(utf8(scope.folder()) + "left-behind", "x");
    self.report(utf8(scope.folder()));
    self.awaitGo();
    if (dies)
        ::_exit(0);
    return 0;
}

struct NamingCase {
    const char* name;
    std::wstring prefix;
    std::string first;
    std::string second;
};

class TempFolderNaming : public testing::TestWithParam<NamingCase> {};

TEST_P(TempFolderNaming, LiveOwnersGetConsecutiveFolders) {
    scratch::Folder root;
    const std::string base = root.path() + "/";
    scratch::Child first([&](scratch::Child& self) { return holdScope(self, base, GetParam().prefix, false); });
    EXPECT_EQ(first.nextLine(), base + GetParam().first + "/");
    scratch::Child second([&](scratch::Child& self) { return holdScope(self, base, GetParam().prefix, false); });
    EXPECT_EQ(second.nextLine(), base + GetParam().second + "/");
    // A live owner's files are left alone.
    EXPECT_TRUE(scratch::exists(base + GetParam().first + "/left-behind"));
    first.go();
    second.go();
    EXPECT_EQ(first.finish(), 0);
    EXPECT_EQ(second.finish(), 0);
    // An owner that ends normally takes its folder with it.
    EXPECT_FALSE(scratch::exists(base + GetParam().first));
    EXPECT_FALSE(scratch::exists(base + GetParam().second));
}

INSTANTIATE_TEST_SUITE_P(Table, TempFolderNaming,
                         testing::Values(NamingCase{"Numbered", L"", "XTempFolder-0", "XTempFolder-1"},
                                         NamingCase{"Prefixed", L"caf\u00e9", "caf\xC3\xA9-temp",
                                                    "caf\xC3\xA9-temp-1"}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(TempFolder, FolderOfADeadOwnerIsTakenAndCleaned) {
    scratch::Folder root;
    const std::string base = root.path() + "/";
    {
        scratch::Child dying([&](scratch::Child& self) { return holdScope(self, base, L"", true); });
        EXPECT_EQ(dying.nextLine(), base + "XTempFolder-0/");
        dying.go();
        EXPECT_EQ(dying.finish(), 0);
    }
    ASSERT_TRUE(scratch::exists(base + "XTempFolder-0/left-behind"));
    scratch::Child next([&](scratch::Child& self) {
        useRoot(base);
        Vesk::XTempFolderScope scope;
        self.report(utf8(scope.folder()));
        self.report(scratch::exists(utf8(scope.folder()) + "left-behind") ? "stale" : "clean");
        self.report(scratch::exists(utf8(scope.folder()) + "XTempFolderLock") ? "locked" : "no lock file");
        return 0;
    });
    EXPECT_EQ(next.nextLine(), base + "XTempFolder-0/");
    EXPECT_EQ(next.nextLine(), "clean");
    EXPECT_EQ(next.nextLine(), "locked");
    EXPECT_EQ(next.finish(), 0);
}

TEST(TempFolder, ChildrenInheritTheOwnersFolder) {
    scratch::Folder root;
    const std::string base = root.path() + "/";
    scratch::Child owner([&](scratch::Child& self) {
        useRoot(base);
        Vesk::XTempFolderScope scope;
        self.report(utf8(scope.folder()));
        // A process started later, with the environment as it is now.
        scratch::Child child([&](scratch::Child& inner) {
            Vesk::XTempFolderScope inherited;
            inner.report(utf8(inherited.folder()) + (inherited.owned() ? " owned" : " inherited"));
            return 0;
        });
        self.report(child.nextLine());
        return child.finish();
    });
    const std::string folder = owner.nextLine();
    EXPECT_EQ(folder, base + "XTempFolder-0/");
    EXPECT_EQ(owner.nextLine(), folder + " inherited");
    EXPECT_EQ(owner.finish(), 0);
}

TEST(TempFolder, InheritedLocationIsUsedAsItIs) {
    scratch::Child child([](scratch::Child& self) {
        ::setenv("XTempFolderScope_Location", "/nonexistent/place", 1);
        Vesk::XTempFolderScope scope;
        self.report(utf8(scope.folder()));
        return scope.owned() ? 1 : 0;
    });
    EXPECT_EQ(child.nextLine(), "/nonexistent/place/");
    EXPECT_EQ(child.finish(), 0);
    EXPECT_FALSE(scratch::exists("/nonexistent/place"));
}

TEST(TempFolder, UnusableRootThrowsFileError) {
    scratch::Folder root;
    scratch::writeFile(root / "plain", "x");
    for (const std::string& bad : {root / "plain/", root / "missing/"}) {
        scratch::Child child([&](scratch::Child& self) {
            useRoot(bad);
            try {
                Vesk::XTempFolderScope scope;
                self.report("taken " + utf8(scope.folder()));
            } catch (const Vesk::file_access_error& e) {
                self.report(e.what());
            }
            return 0;
        });
        const std::string line = child.nextLine();
        EXPECT_TRUE(line.rfind("file access error", 0) == 0 || line == "file not found")
            << bad << ": " << line;
        EXPECT_EQ(child.finish(), 0);
    }
}

TEST(TempFolder, TempFilesAreNewAndNamedAfterTheCaller) {
    scratch::Folder root;
    scratch::Child child([&](scratch::Child& self) {
        useRoot(root.path() + "/");
        Vesk::XFile a = Vesk::createTempFile(L"snd", L".wav");
        Vesk::XFile b = Vesk::createTempFile(L"snd", L".wav");
        Vesk::XFile c = Vesk::createTempFile();
        for (Vesk::XFile* file : {&a, &b, &c})
            self.report(utf8(file->path()) + (file->isOpen() ? "" : " closed"));
        return a.path() == b.path() ? 1 : 0;
    });
    const std::string folder = root.path() + "/XTempFolder-0/";
    const std::regex named(folder + R"(snd-XTempFile-[0-9.]+-[0-9]+\.wav)");
    const std::regex plain(folder + R"(XTempFile-[0-9.]+-[0-9]+\.tmp)");
    EXPECT_TRUE(std::regex_match(child.nextLine(), named));
    EXPECT_TRUE(std::regex_match(child.nextLine(), named));
    EXPECT_TRUE(std::regex_match(child.nextLine(), plain));
    EXPECT_EQ(child.finish(), 0);
}

TEST(TempFolder, TagsAreUniqueWithinTheProcess) {
    std::set<std::string> tags;
    for (int i = 0; i < 1000; ++i)
        tags.insert(Vesk::uniqueTempTag());
    EXPECT_EQ(tags.size(), 1000u);
}

} // namespace
