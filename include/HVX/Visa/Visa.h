#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace nrq {

// A failed call into VISA; the text is the library's description of the status.
class VisaError : public std::runtime_error {
public:
    explicit VisaError(long status);
    long GetStatus() const noexcept { return status; }

private:
    long status;
};

// Restricts loading to one of the known library names; any other name loads nothing.
void SetVISADLLName(std::string_view name);
// Loads the VISA library and its entry points; false when it or one entry point is missing.
bool TryLoadVISAFunctions();

// The VISA implementation found at run time. Without one, SCPI instruments are
// simply unavailable: searches come back empty and other calls throw.
namespace Visa {

bool Init();
void Terminate();
bool IsInitialised();

std::vector<std::string> FindRsrc(const std::string& expression);
bool HasRsrc(const std::string& resource);
unsigned long Open(const std::string& resource);
void Close(unsigned long session);
bool IsOpen(unsigned long session);
// One whole message; a time-out is an error here.
std::string Read(unsigned long session);
// One raw read; a time-out returns what arrived.
uint64_t Read(unsigned long session, void* buffer, uint64_t size);
// One raw read with the termination character switched off.
uint64_t ReadExact(unsigned long session, void* buffer, uint64_t size);
uint64_t Write(unsigned long session, std::string_view data);
void Clear(unsigned long session);
void Flush(unsigned long session);
uint64_t GetTimeout(unsigned long session);
void SetTimeout(unsigned long session, uint64_t milliseconds);
std::string StatusDesc(unsigned long session, long status);
// Recovery when VISA has run out of sessions: closes everything and starts again.
void PurgeSessions();

} // namespace Visa
} // namespace nrq
