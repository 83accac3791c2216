#pragma once

namespace nrq::Visa {

// Loads an instrument library when one is present; its absence is no failure.
bool Init();
void Terminate();
bool IsInitialised();

} // namespace nrq::Visa
