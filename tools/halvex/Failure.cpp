#include "Failure.h"

#include "Library.h"
#include "LibraryText.h"

#include <HVX/Base/Error.h>
#include <HVX/Base/Log.h>

#include <fmt/format.h>

#include <ios>
#include <new>
#include <stdexcept>

namespace halvex {
namespace {

std::string Describe(const std::exception& error) {
    if (dynamic_cast<const nrq::Error*>(&error))
        return PlainLibraryMessage(error.what());
    if (dynamic_cast<const std::bad_alloc*>(&error))
        return "not enough memory for this work";
    if (dynamic_cast<const std::range_error*>(&error))
        return "a text is not valid UTF-8";
    if (dynamic_cast<const std::ios_base::failure*>(&error))
        return "a file could not be read or written";
    if (dynamic_cast<const std::invalid_argument*>(&error) || dynamic_cast<const std::out_of_range*>(&error))
        return "a number could not be read";
    return error.what();
}

} // namespace

std::string DescribeFailure(std::exception_ptr failure) {
    try {
        std::rethrow_exception(failure);
    } catch (const std::exception& error) {
        if (LibraryRuns())
            nrq::Log::Error(fmt::format("halvex: {}", error.what()));
        return Describe(error);
    } catch (...) {
        return "an unknown failure";
    }
}

} // namespace halvex
