#include "tests/common/scratch.h"
#include "support/wait_for_any.h"
#include "support/wide_text.h"
#include "support/x_file.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

namespace {

using Vesk::XFile;

std::wstring wide(const std::string& text) { return Vesk::fromUtf8(text); }

struct ModeCase {
    const char* name;
    uint32_t mode;
    bool exists;
    bool opens;
    const char* contentAfter;  // null: the file must not exist afterwards
};

class XFileModes : public testing::TestWithParam<ModeCase> {};

TEST_P(XFileModes, CreateTruncateOrRequireAsTheModeSays) {
    scratch::Folder folder;
    const std::string path = folder / "file.bin";
    if (GetParam().exists)
        scratch::writeFile(path, "old");
    XFile file;
    EXPECT_EQ(file.open(wide(path), XFile::readWrite, GetParam().mode | XFile::noLock, false), GetParam().opens);
    EXPECT_EQ(file.isOpen(), GetParam().opens);
    file.close();
    if (GetParam().contentAfter)
        EXPECT_EQ(scratch::readFile(path), GetParam().contentAfter);
    else
        EXPECT_FALSE(scratch::exists(path));
}

INSTANTIATE_TEST_SUITE_P(
    Table, XFileModes,
    testing::Values(ModeCase{"CreateNewMissing", XFile::createNew, false, true, ""},
                    ModeCase{"CreateNewExisting", XFile::createNew, true, false, "old"},
                    ModeCase{"CreateOrTruncateMissing", XFile::createOrTruncate, false, true, ""},
                    ModeCase{"CreateOrTruncateExisting", XFile::createOrTruncate, true, true, ""},
                    ModeCase{"OpenExistingMissing", XFile::openExisting, false, false, nullptr},
                    ModeCase{"OpenExistingExisting", XFile::openExisting, true, true, "old"},
                    ModeCase{"OpenOrCreateMissing", XFile::openOrCreate, false, true, ""},
                    ModeCase{"OpenOrCreateExisting", XFile::openOrCreate, true, true, "old"},
                    ModeCase{"TruncateExistingMissing", XFile::truncateExisting, false, false, nullptr},
                    ModeCase{"TruncateExistingExisting", XFile::truncateExisting, true, true, ""},
                    ModeCase{"ModeZeroMissing", 0, false, false, nullptr},
                    ModeCase{"ModeSevenExisting", 7, true, true, "old"}),
    [](const auto& info) { return std::string(info.param.name); });

struct LockCase {
    const char* name;
    bool holderShared;
    uint32_t lockBits;
    bool shared;
    bool opens;
};

class XFileLocksBetweenProcesses : public testing::TestWithParam<LockCase> {};

TEST_P(XFileLocksBetweenProcesses, SecondOpenerSeesTheFirstOnesLock) {
    scratch::Folder folder;
    const std::wstring path = wide(folder / "locked");
    scratch::writeFile(folder / "locked", "x");
    scratch::Child holder([&](scratch::Child& self) {
        XFile file;
        if (!file.open(path, XFile::readOnly, XFile::openExisting, false, GetParam().holderShared))
            return 1;
        self.report("locked");
        self.awaitGo();
        return 0;
    });
    ASSERT_EQ(holder.nextLine(), "locked");
    XFile file;
    EXPECT_EQ(file.open(path, XFile::readOnly, XFile::openExisting | GetParam().lockBits, false, GetParam().shared),
              GetParam().opens);
    EXPECT_EQ(file.isOpen(), GetParam().opens);
    holder.go();
    EXPECT_EQ(holder.finish(), 0);
    // Once the holder is gone anyone may lock.
    EXPECT_TRUE(file.open(path, XFile::readOnly, XFile::openExisting, false, false));
}

INSTANTIATE_TEST_SUITE_P(
    Table, XFileLocksBetweenProcesses,
    testing::Values(LockCase{"ExclusiveBlocksExclusive", false, 0, false, false},
                    LockCase{"ExclusiveBlocksShared", false, 0, true, false},
                    LockCase{"SharedBlocksExclusive", true, 0, false, false},
                    LockCase{"SharedAllowsShared", true, 0, true, true},
                    LockCase{"IgnoreFailureOpensAnyway", false, XFile::ignoreLockFailure, false, true},
                    LockCase{"NoLockOpensAnyway", false, XFile::noLock, false, true}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(XFile, WaitingLockOpensOnceTheHolderLetsGo) {
    scratch::Folder folder;
    const std::wstring path = wide(folder / "locked");
    scratch::writeFile(folder / "locked", "x");
    scratch::Child holder([&](scratch::Child& self) {
        XFile file;
        if (!file.open(path, XFile::readOnly, XFile::openExisting, false))
            return 1;
        self.report("locked");
        Vesk::sleep(0.2);
        return 0;
    });
    ASSERT_EQ(holder.nextLine(), "locked");
    XFile file;
    EXPECT_TRUE(file.open(path, XFile::readOnly, XFile::openExisting | XFile::waitForLock, false));
    EXPECT_EQ(holder.finish(), 0);
}

TEST(XFile, ReadAndWriteHonourTheOrigin) {
    scratch::Folder folder;
    XFile file;
    ASSERT_TRUE(file.open(wide(folder / "data"), XFile::readWrite, XFile::createNew, false));
    EXPECT_TRUE(file.write("hello", 5, XFile::fromStart));
    EXPECT_TRUE(file.write(" world", 6, XFile::fromEnd));
    EXPECT_TRUE(file.write("J", 1, XFile::fromStart));
    char buffer[32];
    bool failed = true;
    EXPECT_EQ(file.read(buffer, 4, XFile::fromCurrent, &failed), 4u);
    EXPECT_FALSE(failed);
    EXPECT_EQ(std::string(buffer, 4), "ello");
    EXPECT_EQ(file.read(buffer, sizeof buffer, XFile::fromStart, &failed), 11u);
    EXPECT_EQ(std::string(buffer, 11), "Jello world");
    EXPECT_EQ(file.read(buffer, sizeof buffer, XFile::fromCurrent, &failed), 0u);
    EXPECT_FALSE(failed);
    uint64_t written = 99;
    EXPECT_TRUE(file.write("!", 1, XFile::fromEnd, &written));
    EXPECT_EQ(written, 1u);
}

struct ReportCase {
    const char* name;
    bool report;
    std::string printed;
};

class XFileReports : public testing::TestWithParam<ReportCase> {};

TEST_P(XFileReports, FailuresPrintOneLineOnlyWhenAsked) {
    scratch::Folder folder;
    const std::string blocker = folder / "plain";
    scratch::writeFile(blocker, "x");
    const std::string missing = folder / "caf\xC3\xA9/no";
    const bool report = GetParam().report;

    testing::internal::CaptureStdout();
    XFile file;
    EXPECT_FALSE(file.open(wide(missing), XFile::readOnly, XFile::openExisting, report));
    bool failed = false;
    char byte;
    EXPECT_EQ(file.read(&byte, 1, XFile::fromStart, &failed), 0u);
    EXPECT_TRUE(failed);
    EXPECT_TRUE(file.open(wide(blocker), XFile::readOnly, XFile::openExisting, report));
    EXPECT_FALSE(file.write("y", 1, XFile::fromEnd));
    EXPECT_TRUE(file.write(nullptr, 0, XFile::fromEnd));
    EXPECT_FALSE(file.write(nullptr, 3, XFile::fromEnd));
    std::fflush(stdout);
    const std::string expected = report ? "Unable to open '" + missing + "'\nUnable to read from '" + missing +
                                              "'\nUnable to write to '" + blocker +
                                              "'\nError writing a NULL buffer to file\n"
                                        : "Error writing a NULL buffer to file\n";
    EXPECT_EQ(testing::internal::GetCapturedStdout(), expected);
}

INSTANTIATE_TEST_SUITE_P(Table, XFileReports,
                         testing::Values(ReportCase{"Reporting", true, {}}, ReportCase{"Quiet", false, {}}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(XFile, UnopenablePathsFailForEveryMode) {
    scratch::Folder folder;
    scratch::writeFile(folder / "plain", "x");
    for (const std::string& path : {folder / "plain/below", folder / "missing/parent/file", std::string()}) {
        for (uint32_t mode = 0; mode < 8; ++mode) {
            XFile file;
            EXPECT_FALSE(file.open(wide(path), XFile::readWrite, mode | XFile::noLock, false)) << path << mode;
            EXPECT_FALSE(file.isOpen());
        }
    }
}

TEST(XFile, NonAsciiNamesReachTheFileSystemAsUtf8) {
    scratch::Folder folder;
    const std::wstring name = L"\u00e9t\u00e9 \u266b \U0001F3B5.txt";
    XFile file;
    ASSERT_TRUE(file.open(wide(folder.path()) + L"/" + name, XFile::readWrite, XFile::createNew, false));
    EXPECT_TRUE(file.write("ok", 2, XFile::fromStart));
    EXPECT_EQ(scratch::readFile(folder / Vesk::toUtf8(name)), "ok");
}

TEST(XFile, CloseOnExecAndMovable) {
    scratch::Folder folder;
    XFile file;
    ASSERT_TRUE(file.open(wide(folder / "f"), XFile::readWrite, XFile::createNew, false));
    EXPECT_TRUE(::fcntl(file.fd(), F_GETFD) & FD_CLOEXEC);
    XFile moved = std::move(file);
    EXPECT_TRUE(moved.isOpen());
    EXPECT_TRUE(moved.write("m", 1, XFile::fromStart));
}

} // namespace
