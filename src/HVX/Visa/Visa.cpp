#include "HVX/Visa/Visa.h"

namespace nrq::Visa {
namespace {
bool initialised = false;
}

// No instrument library is bound yet: start-up goes on without SCPI instruments.
bool Init() { return initialised; }

void Terminate() { initialised = false; }

bool IsInitialised() { return initialised; }

} // namespace nrq::Visa
