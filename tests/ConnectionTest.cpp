#include "HVX/Visa/Connection.h"

#include <gtest/gtest.h>

#include <cstring>
#include <deque>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

namespace nrq {
namespace {

using namespace std::chrono_literals;

struct ReadCall {
    size_t size;
    std::chrono::nanoseconds timeout;
};

// A link that hands out scripted chunks and remembers how it was called.
class ScriptedIO : public IO {
public:
    std::deque<std::string> chunks;
    std::vector<ReadCall> reads;
    std::vector<std::string> writes;
    std::vector<const void*> writePointers;
    bool throwWhenEmpty = false;

    size_t Write(const void* data, size_t size) override {
        writePointers.push_back(data);
        writes.emplace_back(static_cast<const char*>(data), size);
        return size;
    }

    size_t Read(void* data, size_t size, std::chrono::nanoseconds timeout) override {
        reads.push_back({size, timeout});
        if (chunks.empty()) {
            if (throwWhenEmpty)
                throw std::runtime_error("Timed out while reading serial port");
            return 0;
        }
        const std::string chunk = chunks.front();
        chunks.pop_front();
        std::memcpy(data, chunk.data(), chunk.size());
        return chunk.size();
    }
};

// Only the two operations a Connection must have.
class BareConnection : public Connection {
public:
    size_t Write(const void*, size_t size) override { return size; }
    size_t Read(void*, size_t, std::chrono::nanoseconds) override { return 0; }
};

TEST(IO, ReadUntilEofIsTheLargestSize) {
    EXPECT_EQ(IO::READ_UNTIL_EOF, std::numeric_limits<size_t>::max());
}

TEST(IO, BaseWriteAndReadDoNothing) {
    IO io;
    char byte = 'x';
    EXPECT_EQ(io.Write(&byte, 1), 0u);
    EXPECT_EQ(io.Read(&byte, 1, 1ms), 0u);
    EXPECT_EQ(byte, 'x');
    EXPECT_EQ(io.ReadData(1ms), "");
}

TEST(IO, ReadDataWhenTheFirstReadReturnsNothingIsEmpty) {
    ScriptedIO io;
    EXPECT_EQ(io.ReadData(5ms), "");
    ASSERT_EQ(io.reads.size(), 1u);
    EXPECT_EQ(io.reads[0].size, 1024u);
    EXPECT_EQ(io.reads[0].timeout, 5ms);
}

TEST(IO, ReadDataCollectsUntilAnEmptyReadEachWithTheFullTimeout) {
    ScriptedIO io;
    const std::string full(1024, 'f');
    io.chunks = {"abc", full, std::string("\0z", 2)};
    EXPECT_EQ(io.ReadData(250ms), "abc" + full + std::string("\0z", 2));
    ASSERT_EQ(io.reads.size(), 4u);
    for (const ReadCall& call : io.reads) {
        EXPECT_EQ(call.size, 1024u);
        EXPECT_EQ(call.timeout, 250ms);
    }
}

TEST(IO, ReadDataPassesAReadExceptionAndDropsWhatCame) {
    ScriptedIO io;
    io.chunks = {"partial"};
    io.throwWhenEmpty = true;
    EXPECT_THROW(io.ReadData(1ms), std::runtime_error);
    EXPECT_EQ(io.reads.size(), 2u);
}

TEST(IO, WriteDataOfAnEmptyViewWritesSizeZero) {
    ScriptedIO io;
    EXPECT_EQ(io.WriteData(std::string_view()), 0u);
    ASSERT_EQ(io.writes.size(), 1u);
    EXPECT_EQ(io.writes[0], "");
}

TEST(IO, WriteDataHandsOverTheViewsBytes) {
    ScriptedIO io;
    const std::string command("*IDN?\n\0x", 8);
    EXPECT_EQ(io.WriteData(command), 8u);
    ASSERT_EQ(io.writes.size(), 1u);
    EXPECT_EQ(io.writes[0], command);
    EXPECT_EQ(io.writePointers[0], command.data());
}

TEST(Connection, OverridingNothingIsNeverConnectedNorReachable) {
    BareConnection connection;
    EXPECT_FALSE(connection.IsConnected());
    EXPECT_FALSE(connection.Ping());
    EXPECT_FALSE(connection.Connect());
    EXPECT_NO_THROW(connection.Disconnect());
    EXPECT_FALSE(connection.IsConnected());
}

TEST(Connection, InheritsTheReadLoop) {
    BareConnection connection;
    IO& io = connection;
    EXPECT_EQ(io.ReadData(1ms), "");
}

} // namespace
} // namespace nrq
