#pragma once

#include <stdexcept>
#include <string>

// A failure the front end reports with exactly this text on standard error (nothing added, not
// even a line end) and status 255. Every other exception is printed with a line end.
class CommandFailure : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};
