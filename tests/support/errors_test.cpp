#include "support/errors.h"
#include "tests/common/case_name.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <functional>

namespace {

using testing_support::caseName;

struct ErrnoCase {
    int code;
    const char* message;
    std::function<bool(const std::exception&)> isExpectedClass;
};

template <typename T> bool is(const std::exception& error) { return dynamic_cast<const T*>(&error) != nullptr; }

class FileErrors : public testing::TestWithParam<ErrnoCase> {};

TEST_P(FileErrors, ErrnoChoosesClassAndText) {
    errno = GetParam().code;
    try {
        Vesk::throwFileError();
        FAIL() << "throwFileError returned";
    } catch (const std::exception& error) {
        EXPECT_STREQ(error.what(), GetParam().message);
        EXPECT_TRUE(GetParam().isExpectedClass(error));
        EXPECT_TRUE(is<Vesk::file_access_error>(error));
    }
}

INSTANTIATE_TEST_SUITE_P(
    Table, FileErrors,
    testing::Values(ErrnoCase{ENOTEMPTY, "directory not empty", is<Vesk::directory_not_empty>},
                    ErrnoCase{EEXIST, "file already exists", is<Vesk::file_already_exists>},
                    ErrnoCase{ENOENT, "file not found", is<Vesk::file_not_found>},
                    ErrnoCase{EACCES, "file access error: Permission denied",
                              is<Vesk::file_access_error>},
                    ErrnoCase{0, "file access error", is<Vesk::file_access_error>}),
    [](const auto& info) {
        const auto& c = info.param;
        return std::string(c.code == 0 ? "NoErrno" : caseName({c.message}));
    });

TEST(ErrorTree, BasesCatchTheirFamilies) {
    EXPECT_THROW(throw Vesk::invalid_proxy_url(), Vesk::invalid_input);
    EXPECT_THROW(throw Vesk::invalid_url(), Vesk::invalid_input);
    EXPECT_THROW(throw Vesk::network_error_timeout(), Vesk::network_error);
    EXPECT_THROW(throw Vesk::network_error_connect(), Vesk::network_error);
    EXPECT_THROW(throw Vesk::overflow(), std::overflow_error);
    EXPECT_FALSE((std::is_base_of_v<Vesk::network_error, Vesk::exception_network_authentication>));
}

TEST(ErrorTree, FixedTexts) {
    EXPECT_STREQ(Vesk::invalid_proxy_url().what(), "invalid proxy URL");
    EXPECT_STREQ(Vesk::user_abort().what(), "user abort");
    EXPECT_STREQ(Vesk::network_error_timeout().what(), "network timeout");
    EXPECT_STREQ(Vesk::network_error_connect().what(), "could not connect");
    EXPECT_STREQ(Vesk::exception_network_authentication().what(), "Network authentication error");
    EXPECT_STREQ(Vesk::function_interrupted().what(), "function interrupted");
    EXPECT_STREQ(Vesk::denied("no entry").what(), "no entry");
}

TEST(ErrorTexts, ErrnoDescriptionNamesTheCode) {
    const std::wstring text = Vesk::errnoDescription(ENOENT);
    EXPECT_NE(text.find(L"(errno:2)"), std::wstring::npos);
    EXPECT_EQ(text.find(L" (errno:2)"), text.size() - 10);
}

TEST(ErrorTexts, OpenMessage) {
    EXPECT_EQ(Vesk::openErrorMessage(L""), L"No file specified!");
    errno = ENOENT;
    const std::wstring text = Vesk::openErrorMessage(L"/x/y");
    EXPECT_EQ(text.rfind(L"Error opening file '/x/y', check no other program has it open. ", 0), 0u);
    EXPECT_NE(text.find(L"(errno:2)"), std::wstring::npos);
}

} // namespace
