#pragma once

#include "support/stream_unix.h"

#include <deque>
#include <memory>

// Reads its sources one after another; ends when the last one ends.
namespace Vesk {

class streamInChain : public streamInAsync {
  public:
    explicit streamInChain(std::deque<std::shared_ptr<streamIn>> sources)
        : sources(std::move(sources)) {}
    uint64_t readSome(void* buffer, uint64_t length) override;
    uint64_t skipSome(uint64_t count) override;
    void waitReady() override;
    bool isReady() override;

  private:
    std::deque<std::shared_ptr<streamIn>> sources;
    unsigned char lookAhead = 0;
    bool holdsLookAhead = false;
};

} // namespace Vesk
