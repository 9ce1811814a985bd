#include "support/buffered_streams.h"
#include "support/stream_memory.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

class recordingSink : public Vesk::streamOut {
  public:
    void write(const void* buffer, uint64_t length) override {
        writes.emplace_back(static_cast<const char*>(buffer), length);
    }
    std::string all() const {
        std::string joined;
        for (const auto& w : writes)
            joined += w;
        return joined;
    }
    std::vector<std::string> writes;
};

TEST(BufferedStreamOut, HoldsSmallWritesUntilFullOrFlushedAndKeepsOrder) {
    auto sink = std::make_shared<recordingSink>();
    Vesk::bufferedStreamOut out(sink, 8);
    out.write("abc", 3);
    out.write("de", 2);
    EXPECT_TRUE(sink->writes.empty());
    out.write("fghi", 4); // would overflow: the held bytes go first
    EXPECT_EQ(sink->writes, (std::vector<std::string>{"abcde"}));
    out.write("0123456789", 10); // larger than the buffer: passes straight through, in order
    EXPECT_EQ(sink->all(), "abcdefghi0123456789");
    out.write("z", 1);
    out.flush();
    EXPECT_EQ(sink->all(), "abcdefghi0123456789z");
    EXPECT_EQ(out.pending(), 0u);
}

// A source that gives at most `piece` bytes per call and says whether more is at hand.
class tricklingSource : public Vesk::streamIn {
  public:
    tricklingSource(std::string data, size_t piece, std::shared_ptr<recordingSink> watched)
        : data(std::move(data)), piece(piece), watched(std::move(watched)) {}
    uint64_t read(void* buffer, uint64_t length) override { return readSome(buffer, length); }
    uint64_t readSome(void* buffer, uint64_t length) override {
        const size_t count = std::min<size_t>({length, piece, data.size() - position});
        data.copy(static_cast<char*>(buffer), count, position);
        position += count;
        outputSeenAtRead.push_back(watched->all());
        return count;
    }
    bool isReady() override { return ready; }

    std::string data;
    size_t piece;
    size_t position = 0;
    bool ready = true;
    std::shared_ptr<recordingSink> watched;
    std::vector<std::string> outputSeenAtRead;
};

TEST(BufferedStreamIn, FlushesTheLinkedOutputOnlyBeforeWaiting) {
    auto sink = std::make_shared<recordingSink>();
    auto out = std::make_shared<Vesk::bufferedStreamOut>(sink, 64);
    auto source = std::make_shared<tricklingSource>("abcdefgh", 4, sink);
    Vesk::bufferedStreamIn in(source, out, 4);
    char buffer[8];
    out->write("reply", 5);
    EXPECT_EQ(in.read(buffer, 4), 4u);
    EXPECT_EQ(source->outputSeenAtRead.back(), "") << "data at hand: no flush";
    source->ready = false;
    EXPECT_EQ(in.read(buffer, 4), 4u);
    EXPECT_EQ(source->outputSeenAtRead.back(), "reply") << "about to wait: flushed first";
}

} // namespace
