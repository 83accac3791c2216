#pragma once

// The one place where a failure becomes the line a person reads.

#include <exception>
#include <string>

namespace halvex {

// One line in plain words for any exception: the library's "(line)" prefix and
// raw standard-library texts never reach the user. Where the library runs, the
// full text goes to its log.
std::string DescribeFailure(std::exception_ptr failure);

} // namespace halvex
