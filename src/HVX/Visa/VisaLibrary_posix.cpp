#include "HVX/Visa/VisaDetail.h"

#include <dlfcn.h>

namespace nrq::Visa::detail {

// The name VISA implementations install on this platform, then an alternative one.
const std::vector<std::string>& LibraryCandidates() {
    static const std::vector<std::string> names{"libvisa.so", "libiovisa.so"};
    return names;
}

void* LoadLibrary(const std::string& path) { return ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL); }

void* FindSymbol(void* library, const char* name) { return ::dlsym(library, name); }

void UnloadLibrary(void* library) { ::dlclose(library); }

} // namespace nrq::Visa::detail
