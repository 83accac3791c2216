#pragma once

#include <string>

namespace nrq::fs {

enum class KnownFolderId { RoamingData, ProgramData, Fonts };

// The platform's base folder, UTF-8; raises "Could not obtain known folder path: ...".
std::string KnownFolder(KnownFolderId id);

} // namespace nrq::fs
