#include "support/buffered_streams.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

namespace {

class recordingSink : public Vesk::streamOut {
  public:
    void write(const void* buffer, uint64_t length) override {
        all.append(static_cast<const char*>(buffer), length);
    }
    std::string all;
};

// A source of four bytes per read that says whether more is at hand, and notes what the
// watched sink had received when it was read.
class tricklingSource : public Vesk::streamIn {
  public:
    explicit tricklingSource(std::shared_ptr<recordingSink> watched)
        : watched(std::move(watched)) {}
    uint64_t read(void* buffer, uint64_t length) override { return readSome(buffer, length); }
    uint64_t readSome(void* buffer, uint64_t length) override {
        const uint64_t count = std::min<uint64_t>(length, 4);
        std::fill_n(static_cast<char*>(buffer), count, 'x');
        seenAtLastRead = watched->all;
        return count;
    }
    bool isReady() override { return ready; }

    bool ready = true;
    std::shared_ptr<recordingSink> watched;
    std::string seenAtLastRead;
};

TEST(BufferedStreamIn, FlushesTheLinkedOutputOnlyBeforeWaiting) {
    auto sink = std::make_shared<recordingSink>();
    auto out = std::make_shared<Vesk::bufferedStreamOut>(sink, 64);
    auto source = std::make_shared<tricklingSource>(sink);
    Vesk::bufferedStreamIn in(source, out, 4);
    char buffer[8];
    out->write("reply", 5);
    EXPECT_EQ(in.read(buffer, 4), 4u);
    EXPECT_EQ(source->seenAtLastRead, "") << "data at hand: no flush";
    source->ready = false;
    EXPECT_EQ(in.read(buffer, 4), 4u);
    EXPECT_EQ(source->seenAtLastRead, "reply") << "about to wait: flushed first";
}

TEST(BufferedStreamOut, KeepsEveryByteInOrderAcrossFullBuffers) {
    auto sink = std::make_shared<recordingSink>();
    Vesk::bufferedStreamOut out(sink, 8);
    for (const std::string piece : {"abc", "defgh", "ij", "klmnopqrstu", "v"})
        out.write(piece.data(), piece.size());
    out.flush();
    EXPECT_EQ(sink->all, "abcdefghijklmnopqrstuv");
}

} // namespace
