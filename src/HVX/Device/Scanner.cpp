#include "HVX/Device/Scanner.h"

namespace nrq {

bool Scanner::GetProgress(float& progress) const {
    const ScannerState* state = GetState();
    if (!state)
        return false;
    return state->GetProgress(progress);
}

} // namespace nrq
