#include "HVX/Base/System.h"

namespace nrq {

void SetThreadName(std::string_view) {}
void SetThreadName(std::thread&, std::string_view) {}

LaunchArguments::LaunchArguments() : definitions(8), values(8) {
    definitions.max_load_factor(1.0f);
    values.max_load_factor(1.0f);
}

void LaunchArguments::AddDef(std::string_view, LaunchArgumentType) {}
void LaunchArguments::ProcessCmdLine(std::string_view) {}
size_t LaunchArguments::size() const { return 0; }

} // namespace nrq
