#pragma once

#include "HVX/ESC/Store.h"

#include <memory>

namespace nrq {

// The store is a process-wide singleton; tests need fresh ones, unset too.
class ESCMapStoreTestAccess {
public:
    static std::unique_ptr<ESCMapStore> MakeStore() { return std::unique_ptr<ESCMapStore>(new ESCMapStore()); }
};

} // namespace nrq
