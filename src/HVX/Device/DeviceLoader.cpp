#include "HVX/Device/DeviceLoader.h"

namespace nrq {

void DeviceLoader::Reset() {}

} // namespace nrq
