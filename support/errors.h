#pragma once

#include <stdexcept>
#include <string>

// Exception classes of the support library. Each carries a fixed text; callers test the class,
// the front end prints the text. Immutable, so they may cross threads.
namespace Vesk {

struct invalid_input : std::runtime_error {
    invalid_input() : std::runtime_error("invalid input") {}

  protected:
    explicit invalid_input(const char* message) : std::runtime_error(message) {}
};

struct invalid_url : invalid_input {
    invalid_url() : invalid_input("invalid URL") {}

  protected:
    explicit invalid_url(const char* message) : invalid_input(message) {}
};

struct invalid_proxy_url : invalid_url {
    invalid_proxy_url() : invalid_url("invalid proxy URL") {}
};

struct file_access_error : std::runtime_error {
    file_access_error() : std::runtime_error("file access error") {}
    // The fixed text and the system's reason for errno `code`, so that the user learns why:
    // "file access error: No space left on device".
    explicit file_access_error(int code);

  protected:
    explicit file_access_error(const char* message) : std::runtime_error(message) {}
};

struct file_not_found : file_access_error {
    file_not_found() : file_access_error("file not found") {}
};

struct file_already_exists : file_access_error {
    file_already_exists() : file_access_error("file already exists") {}
};

struct directory_not_empty : file_access_error {
    directory_not_empty() : file_access_error("directory not empty") {}
};

struct overflow : std::overflow_error {
    overflow() : std::overflow_error("overflow") {}
};

struct not_implemented : std::runtime_error {
    not_implemented() : std::runtime_error("not implemented") {}
};

struct bug_check : std::runtime_error {
    bug_check() : std::runtime_error("bug check") {}
};

struct user_abort : std::runtime_error {
    user_abort() : std::runtime_error("user abort") {}
};

struct function_interrupted : std::runtime_error {
    function_interrupted() : std::runtime_error("function interrupted") {}
};

struct network_error : std::runtime_error {
    network_error() : std::runtime_error("network error") {}

  protected:
    explicit network_error(const char* message) : std::runtime_error(message) {}
};

struct network_error_connect : network_error {
    network_error_connect() : network_error("could not connect") {}
};

struct network_error_timeout : network_error {
    network_error_timeout() : network_error("network timeout") {}
};

struct exception_network_authentication : std::runtime_error {
    exception_network_authentication() : std::runtime_error("Network authentication error") {}
};

struct denied : std::runtime_error {
    explicit denied(const std::string& message) : std::runtime_error(message) {}
};

// Reads errno and throws the matching file error; errno 0 gives file_access_error. The general
// class names the system's reason.
[[noreturn]] void throwFileError();

// "<system text> (errno:N)", the space only when the system text has two or more characters.
std::wstring errnoDescription(int code);
std::wstring errnoDescription();

// The message for a failed open of `path`, with the current errno described.
std::wstring openErrorMessage(const std::wstring& path);

} // namespace Vesk
