#pragma once

#include <cctype>
#include <cstddef>
#include <string_view>

namespace nrq::fuzz {

// A polygon's vertex count is a size request: millions of vertices are a
// resource limit, not a fault, so such definitions are left out.
inline bool HasHugePolygon(std::string_view text) {
    for (size_t at = text.find("%AD"); at != std::string_view::npos; at = text.find("%AD", at + 1)) {
        const size_t end = text.find('%', at + 1);
        const std::string_view definition = text.substr(at, end == std::string_view::npos ? end : end - at);
        const size_t count = definition.find('X');
        if (definition.find("P,") == std::string_view::npos || count == std::string_view::npos)
            continue;
        size_t digits = 0;
        for (size_t k = count + 1; k < definition.size() && std::isdigit(static_cast<unsigned char>(definition[k])); ++k)
            ++digits;
        if (digits > 4)
            return true;
    }
    return false;
}

} // namespace nrq::fuzz
