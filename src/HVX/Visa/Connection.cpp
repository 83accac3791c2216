#include "HVX/Visa/Connection.h"

#include <array>
#include <limits>
#include <sstream>

namespace nrq {

const size_t IO::READ_UNTIL_EOF = std::numeric_limits<size_t>::max();

size_t IO::Write(const void*, size_t) { return 0; }

size_t IO::Read(void*, size_t, std::chrono::nanoseconds) { return 0; }

std::string IO::ReadData(std::chrono::nanoseconds timeout) {
    std::array<char, 1024> chunk;
    std::ostringstream collected;
    // Each Read gets the whole time-out: the message ends at the first empty read.
    while (const size_t got = Read(chunk.data(), chunk.size(), timeout))
        collected.write(chunk.data(), static_cast<std::streamsize>(got));
    return collected.str();
}

size_t IO::WriteData(std::string_view data) { return Write(data.data(), data.size()); }

bool Connection::Connect() { return false; }

void Connection::Disconnect() {}

bool Connection::IsConnected() { return false; }

bool Connection::Ping() { return false; }

} // namespace nrq
