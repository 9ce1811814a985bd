#include "support/errors.h"
#include "support/stream_chain.h"
#include "support/stream_memory.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(MemoryStreams, ReadPastEndReturnsZeroAndReadExactThrows) {
    const std::string data = "abc";
    Vesk::streamInMemRef in(data.data(), data.size());
    char buffer[8];
    EXPECT_EQ(in.read(buffer, 8), 3u);
    EXPECT_EQ(in.read(buffer, 8), 0u);
    EXPECT_THROW(in.readExact(buffer, 1), Vesk::invalid_input);
}

TEST(MemoryStreams, SkipStopsAtTheEnd) {
    const std::string data(300, 'x');
    Vesk::streamInMemRef in(data.data(), data.size());
    EXPECT_EQ(in.skip(600), 300u);
    Vesk::streamInMemRef again(data.data(), data.size());
    EXPECT_THROW(again.skipExact(301), Vesk::invalid_input);
}

// The default skip goes through read in 256-byte pieces.
class CountingSource : public Vesk::streamIn {
public:
    explicit CountingSource(uint64_t available) : available(available) {}
    uint64_t read(void*, uint64_t length) override {
        const uint64_t count = std::min(length, available);
        available -= count;
        pieces.push_back(count);
        return count;
    }
    uint64_t available;
    std::vector<uint64_t> pieces;
};

TEST(MemoryStreams, DefaultSkipReadsInPiecesOf256) {
    CountingSource source(300);
    EXPECT_EQ(source.skip(600), 300u);
    EXPECT_EQ(source.pieces, (std::vector<uint64_t>{256, 44}));
}

TEST(MemoryStreams, RepeatWrapsAndContinues) {
    const char pattern[] = {'a', 'b'};
    Vesk::streamInRepeat in(pattern, 2);
    char buffer[5];
    ASSERT_EQ(in.read(buffer, 5), 5u);
    EXPECT_EQ(std::string(buffer, 5), "ababa");
    ASSERT_EQ(in.read(buffer, 1), 1u);
    EXPECT_EQ(buffer[0], 'b');
}

TEST(MemoryStreams, FileViewSeeksWithinBounds) {
    const std::string data = "0123456789";
    Vesk::fileInMemRef file(data.data(), data.size());
    file.seek(7);
    char buffer[8];
    EXPECT_EQ(file.read(buffer, 8), 3u);
    EXPECT_EQ(file.tell(), 10u);
    EXPECT_EQ(file.size(), 10u);
    file.seek(10);
    EXPECT_THROW(file.seek(11), Vesk::invalid_input);
    std::string property;
    EXPECT_FALSE(file.queryProperty("anything", property));
}

TEST(MemoryStreams, ChainReadsSourcesInOrderAndEnds) {
    const std::string first = "abc", second = "de";
    auto chain = std::make_shared<Vesk::streamInChain>(std::deque<std::shared_ptr<Vesk::streamIn>>{
        std::make_shared<Vesk::streamInMemRef>(first.data(), first.size()),
        std::make_shared<Vesk::streamInMemRef>(second.data(), second.size())});
    char buffer[10];
    ASSERT_EQ(chain->read(buffer, 10), 5u);
    EXPECT_EQ(std::string(buffer, 5), "abcde");
    EXPECT_EQ(chain->read(buffer, 10), 0u);
    EXPECT_TRUE(chain->isReady());
}

TEST(MemoryStreams, ChainLookAheadByteIsDeliveredFirst) {
    const std::string first = "xy";
    Vesk::streamInChain chain({std::make_shared<Vesk::streamInMemRef>(first.data(), first.size())});
    EXPECT_TRUE(chain.isReady());  // takes 'x' as look-ahead
    char buffer[4];
    ASSERT_EQ(chain.readSome(buffer, 1), 1u);
    EXPECT_EQ(buffer[0], 'x');
    EXPECT_EQ(chain.skip(5), 1u);
}

} // namespace
