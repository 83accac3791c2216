#pragma once

namespace nrq {

// Start the library: data folder, log, VISA, and OpenGL when asked.
void HVXInit(bool withGraphics);
// Stop it: devices first, then graphics and VISA, the log last.
void HVXTerminate();

} // namespace nrq
