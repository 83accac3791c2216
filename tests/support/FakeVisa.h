#pragma once

// Control of the stand-in VISA library built from tests/fakevisa, and a fixture
// that points the binding at it.

#include "HVX/Base/Log.h"
#include "HVX/Filesystem/Filesystem.h"
#include "HVX/Visa/Visa.h"
#include "HVX/Visa/VisaDetail.h"

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <cstdint>
#include <filesystem>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace nrq::test {

constexpr long VI_SUCCESS_TERM_CHAR = 0x3FFF0005;
constexpr long VI_SUCCESS_MAX_CNT = 0x3FFF0006;
constexpr long VI_WARN_NULL_OBJECT = 0x3FFF0082;
constexpr long VI_ERROR_INV_OBJECT = static_cast<int32_t>(0xBFFF000E);
constexpr long VI_ERROR_RSRC_NFOUND = static_cast<int32_t>(0xBFFF0011);
constexpr long VI_ERROR_TMO = static_cast<int32_t>(0xBFFF0015);
constexpr long VI_ERROR_ALLOC = static_cast<int32_t>(0xBFFF003C);
constexpr long VI_ERROR_IO = static_cast<int32_t>(0xBFFF003E);
constexpr uint32_t VI_ATTR_TMO_VALUE = 0x3FFF001A;
constexpr uint32_t VI_ATTR_TERMCHAR_EN = 0x3FFF0038;

class FakeVisa {
public:
    explicit FakeVisa(const std::string& path) : library(::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL)) {
        if (!library)
            throw std::runtime_error("fake VISA library missing: " + path);
        Bind("FakeVisa_Reset", Reset);
        Bind("FakeVisa_QueueStatus", QueueStatus);
        Bind("FakeVisa_QueueRead", QueueReadRaw);
        Bind("FakeVisa_AddResource", AddResource);
        Bind("FakeVisa_OpenDangling", OpenDangling);
        Bind("FakeVisa_IsOpen", IsOpen);
        Bind("FakeVisa_Attribute", Attribute);
        Bind("FakeVisa_Calls", CallsRaw);
        Bind("FakeVisa_ClearCalls", ClearCalls);
    }
    FakeVisa(const FakeVisa&) = delete;
    FakeVisa& operator=(const FakeVisa&) = delete;
    ~FakeVisa() { ::dlclose(library); }

    void (*Reset)() = nullptr;
    void (*QueueStatus)(const char* function, int32_t status) = nullptr;
    void (*AddResource)(const char* resource) = nullptr;
    uint32_t (*OpenDangling)() = nullptr;
    bool (*IsOpen)(uint32_t id) = nullptr;
    uint64_t (*Attribute)(uint32_t id, uint32_t attribute) = nullptr;
    void (*ClearCalls)() = nullptr;

    void QueueRead(const std::string& bytes, long status) {
        QueueReadRaw(bytes.data(), static_cast<uint32_t>(bytes.size()), static_cast<int32_t>(status));
    }
    std::string Calls() const { return CallsRaw(); }
    // The recorded calls, one a line, that start with the given text.
    std::vector<std::string> CallsStartingWith(const std::string& start) const {
        std::vector<std::string> lines;
        std::istringstream text(Calls());
        for (std::string line; std::getline(text, line);)
            if (line.rfind(start, 0) == 0)
                lines.push_back(line);
        return lines;
    }

private:
    template <typename Function>
    void Bind(const char* name, Function& slot) {
        slot = reinterpret_cast<Function>(::dlsym(library, name));
        if (!slot)
            throw std::runtime_error(std::string("fake VISA control missing: ") + name);
    }

    void* library;
    void (*QueueReadRaw)(const char* bytes, uint32_t size, int32_t status) = nullptr;
    const char* (*CallsRaw)() = nullptr;
};

// A fresh log file; the data folder is made by HVXInit otherwise.
inline void StartFreshLog() {
    std::filesystem::create_directories(std::string(fs::GetUserSaveDataDirectory()));
    Log::Init();
}

// The binding pointed at the stand-in library, with a fresh log; all forgotten afterwards.
class WithFakeVisa : public ::testing::Test {
protected:
    void SetUp() override {
        Visa::detail::Reset();
        Visa::detail::SetLibraryDirectory(HVX_FAKE_VISA_DIR);
        StartFreshLog();
        fake.Reset();
    }
    void TearDown() override {
        Visa::Terminate();
        Visa::detail::Reset();
    }

    FakeVisa fake{std::string(HVX_FAKE_VISA_DIR) + "/libvisa.so"};
};

} // namespace nrq::test
