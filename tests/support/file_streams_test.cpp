#include "support/errors.h"
#include "support/file_stream.h"
#include "tests/common/case_name.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <sys/stat.h>

namespace {

using testing_support::caseName;

class FileStreams : public testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/vesk-files-XXXXXX";
        ASSERT_NE(::mkdtemp(pattern), nullptr);
        folder = pattern;
    }
    void TearDown() override { std::filesystem::remove_all(folder); }
    std::string path(const std::string& name) const { return folder + "/" + name; }
    std::string folder;
};

TEST_F(FileStreams, WriteSeekReadAndSizeKeepsPosition) {
    auto file = Vesk::openFileForWriting(path("a.bin"));
    file->write("hello world", 11);
    file->seek(6);
    EXPECT_EQ(file->size(), 11u);
    EXPECT_EQ(file->tell(), 6u);
    char buffer[16];
    EXPECT_EQ(file->read(buffer, 16), 5u);
    EXPECT_EQ(std::string(buffer, 5), "world");
}

TEST_F(FileStreams, SetLengthGrowsWithZerosAndShrinks) {
    auto file = Vesk::openFileForWriting(path("b.bin"));
    file->write("abc", 3);
    file->setLength(6);
    EXPECT_EQ(file->size(), 6u);
    file->seek(0);
    char buffer[8];
    ASSERT_EQ(file->read(buffer, 8), 6u);
    EXPECT_EQ(std::string(buffer, 6), std::string("abc\0\0\0", 6));
    file->setLength(1);
    EXPECT_EQ(file->size(), 1u);
}

TEST_F(FileStreams, WritingTruncatesAnExistingFile) {
    std::ofstream(path("c.bin")) << "old content";
    Vesk::openFileForWriting(path("c.bin"))->write("new", 3);
    auto in = Vesk::openFileForReading(path("c.bin"));
    EXPECT_EQ(in->size(), 3u);
}

struct OpenFailure {
    const char* name;
    bool forWriting;
    const char* message;
};

class FileOpenFailures : public FileStreams, public testing::WithParamInterface<OpenFailure> {};

TEST_P(FileOpenFailures, MapToFileErrors) {
    const std::string target = path(GetParam().name);
    ::mkdir(path("folder").c_str(), 0755);
    try {
        if (GetParam().forWriting)
            Vesk::openFileForWriting(target);
        else
            Vesk::openFileForReading(target);
        FAIL() << "opened " << target;
    } catch (const Vesk::file_access_error& error) {
        EXPECT_STREQ(error.what(), GetParam().message);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Table, FileOpenFailures,
    testing::Values(OpenFailure{"missing", false, "file not found"},
                    OpenFailure{"no/such/dir/x", true, "file not found"},
                    OpenFailure{"folder", true, "file access error: Is a directory"}),
    [](const auto& info) {
        const auto& c = info.param;
        return std::string(caseName({c.forWriting ? "Write" : "Read", c.name}));
    });

TEST(NetworkNames, SchemeIsCaseInsensitive) {
    EXPECT_TRUE(Vesk::isNetworkName("http://x"));
    EXPECT_TRUE(Vesk::isNetworkName("HTTPS://x"));
    EXPECT_TRUE(Vesk::isNetworkName("hTtP://x"));
    EXPECT_FALSE(Vesk::isNetworkName("httpx://x"));
    EXPECT_FALSE(Vesk::isNetworkName("/tmp/http://x"));
    EXPECT_FALSE(Vesk::isNetworkName("ftp://x"));
}

} // namespace
