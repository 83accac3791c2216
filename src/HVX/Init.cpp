#include "HVX/Init.h"

#include "HVX/Base/Log.h"
#include "HVX/Device/DeviceLoader.h"
#include "HVX/Filesystem/Filesystem.h"
#include "HVX/Graphics/State.h"
#include "HVX/Visa/Visa.h"

namespace nrq {

void HVXInit(bool withGraphics) {
    // The log file lies in the user's data folder, so that comes first.
    fs::MakeDirectory(fs::GetUserSaveDataDirectory());
    Log::Init();
    Visa::Init();
    if (withGraphics)
        Graphics::Load(nullptr);
}

void HVXTerminate() {
    // Devices go while graphics, VISA and the log still work for their destructors.
    DeviceLoader::Reset();
    Graphics::Unload();
    Visa::Terminate();
    Log::Terminate();
}

} // namespace nrq
