#include "HVX/System/Net.h"
#include "HVX/System/NetDetail.h"

#include <asio/ip/address.hpp>

namespace nrq {
namespace net {
namespace {

std::string_view FirstField(std::string_view line) {
    const size_t start = line.find_first_not_of(" \t");
    if (start == std::string_view::npos)
        return {};
    line.remove_prefix(start);
    return line.substr(0, line.find_first_of(" \t"));
}

} // namespace

std::vector<asio::ip::address_v4> ParseArpTable(std::string_view text) {
    std::vector<asio::ip::address_v4> addresses;
    bool heading = true;
    while (!text.empty()) {
        const size_t end = text.find('\n');
        const std::string_view line = text.substr(0, end);
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
        if (heading) {
            heading = false;
            continue;
        }
        asio::error_code error;
        const auto address = asio::ip::make_address_v4(std::string(FirstField(line)), error);
        if (!error)
            addresses.push_back(address);
    }
    return addresses;
}

std::string DisplayNameFromPasswd(std::string_view gecos, std::string_view login) {
    const std::string_view fullName = gecos.substr(0, gecos.find(','));
    return std::string(fullName.empty() ? login : fullName);
}

} // namespace net

bool Ping(std::string_view address, int timeoutMs) {
    asio::error_code error;
    const auto parsed = asio::ip::make_address_v4(std::string(address), error);
    if (error)
        return false;
    return Ping(parsed, timeoutMs);
}

} // namespace nrq
