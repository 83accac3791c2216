#include "HVX/Graphics/State.h"

namespace nrq {
namespace {
bool loaded = false;
}

// Without an OpenGL loader there is nothing to load; Unload is always harmless.
void Graphics::Load(void*) {}

void Graphics::Unload() { loaded = false; }

bool Graphics::IsLoaded() { return loaded; }

} // namespace nrq
