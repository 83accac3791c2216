#pragma once

// Pieces of the VISA binding that tests reach directly.

#include <string>
#include <string_view>
#include <vector>

namespace nrq::Visa::detail {

// What the binding does with the status of a call into VISA.
enum class StatusOutcome { Success, PurgeAndThrow, Throw };
StatusOutcome ClassifyStatus(long status);

// The library names tried, in order.
const std::vector<std::string>& LibraryCandidates();

// Where the loader looks for the candidates; empty means the system's search.
void SetLibraryDirectory(std::string directory);

// Forgets the loaded library, the table, the sessions and the override name,
// as if the process had just started.
void Reset();

// Platform side of loading: a handle, or null when the file can't be loaded.
void* LoadLibrary(const std::string& path);
void* FindSymbol(void* library, const char* name);
void UnloadLibrary(void* library);

} // namespace nrq::Visa::detail
