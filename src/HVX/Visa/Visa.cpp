#include "HVX/Visa/Visa.h"

#include "HVX/Base/Error.h"
#include "HVX/Base/Log.h"
#include "HVX/Visa/VisaDetail.h"
#include "HVX/Visa/VisaTypes.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>
#include <set>

namespace nrq {
namespace {

using namespace visa_c;

struct FunctionTable {
    ViOpenDefaultRMFn openDefaultRM = nullptr;
    ViFindRsrcFn findRsrc = nullptr;
    ViFindNextFn findNext = nullptr;
    ViOpenFn open = nullptr;
    ViCloseFn close = nullptr;
    ViSetAttributeFn setAttribute = nullptr;
    ViGetAttributeFn getAttribute = nullptr;
    ViStatusDescFn statusDesc = nullptr;
    ViTerminateFn terminate = nullptr;
    ViReadFn read = nullptr;
    ViReadAsyncFn readAsync = nullptr;
    ViWriteFn write = nullptr;
    ViWriteAsyncFn writeAsync = nullptr;
    ViClearFn clear = nullptr;
    ViFlushFn flush = nullptr;
};

// No lock: callers keep one device on one thread, and Init, Terminate and the
// purge run on the calling thread.
struct Binding {
    std::string overrideName;
    std::string directory;
    void* library = nullptr;
    FunctionTable functions;
    bool initialised = false;
    ViSession resourceManager = 0;
    std::set<ViSession> sessions;
};

Binding& State() {
    static Binding binding;
    return binding;
}

const FunctionTable& Functions() { return State().functions; }

template <typename Function>
bool LookUp(void* library, const char* name, Function& slot) {
    slot = reinterpret_cast<Function>(Visa::detail::FindSymbol(library, name));
    return slot != nullptr;
}

bool LookUpAll(void* library, FunctionTable& table) {
    return LookUp(library, "viOpenDefaultRM", table.openDefaultRM) && LookUp(library, "viFindRsrc", table.findRsrc) &&
           LookUp(library, "viFindNext", table.findNext) && LookUp(library, "viOpen", table.open) &&
           LookUp(library, "viClose", table.close) && LookUp(library, "viSetAttribute", table.setAttribute) &&
           LookUp(library, "viGetAttribute", table.getAttribute) &&
           LookUp(library, "viStatusDesc", table.statusDesc) && LookUp(library, "viTerminate", table.terminate) &&
           LookUp(library, "viRead", table.read) && LookUp(library, "viReadAsync", table.readAsync) &&
           LookUp(library, "viWrite", table.write) && LookUp(library, "viWriteAsync", table.writeAsync) &&
           LookUp(library, "viClear", table.clear) && LookUp(library, "viFlush", table.flush);
}

void RequireInitialised() {
    if (!State().initialised)
        throw Error("VISA is not present on the system");
}

void CheckStatus(ViStatus status) {
    switch (Visa::detail::ClassifyStatus(status)) {
    case Visa::detail::StatusOutcome::Success:
        return;
    case Visa::detail::StatusOutcome::PurgeAndThrow:
        Visa::PurgeSessions();
        throw VisaError(status);
    case Visa::detail::StatusOutcome::Throw:
        throw VisaError(status);
    }
}

ViUInt32 ClampCount(uint64_t size) {
    return static_cast<ViUInt32>(std::min<uint64_t>(size, std::numeric_limits<ViUInt32>::max()));
}

std::string DescriptionText(const std::array<ViChar, VI_FIND_BUFLEN>& description) {
    return std::string(description.data(), strnlen(description.data(), description.size()));
}

// A search that found nothing may hand back no list at all; there is nothing to close then.
void CloseFindList(ViFindList list) {
    if (list == 0) {
        State().sessions.erase(list);
        return;
    }
    Visa::Close(list);
}

uint64_t GetAttribute(unsigned long session, ViAttr attribute) {
    // Attributes are narrower than the widest state: the rest stays zero.
    ViAttrState value = 0;
    CheckStatus(Functions().getAttribute(static_cast<ViObject>(session), attribute, &value));
    return value;
}

void SetAttribute(unsigned long session, ViAttr attribute, ViAttrState value) {
    CheckStatus(Functions().setAttribute(static_cast<ViObject>(session), attribute, value));
}

} // namespace

namespace Visa::detail {

StatusOutcome ClassifyStatus(long wideStatus) {
    // A status is 32 bits wide, whether it came signed or unsigned.
    const auto status = static_cast<ViStatus>(static_cast<uint32_t>(wideStatus));
    if (status == VI_ERROR_ALLOC)
        return StatusOutcome::PurgeAndThrow;
    if (status == VI_SUCCESS || status == VI_SUCCESS_TERM_CHAR || status == VI_SUCCESS_MAX_CNT)
        return StatusOutcome::Success;
    return StatusOutcome::Throw;
}

void SetLibraryDirectory(std::string directory) { State().directory = std::move(directory); }

void Reset() {
    Binding& state = State();
    if (state.library)
        UnloadLibrary(state.library);
    state = Binding{};
}

} // namespace Visa::detail

VisaError::VisaError(long status)
    : std::runtime_error(Visa::StatusDesc(State().resourceManager, status)), status(status) {}

void SetVISADLLName(std::string_view name) { State().overrideName = name; }

bool TryLoadVISAFunctions() {
    Binding& state = State();
    if (state.library) {
        Visa::detail::UnloadLibrary(state.library);
        state.library = nullptr;
        state.functions = {};
    }
    std::string loadedName;
    for (const std::string& name : Visa::detail::LibraryCandidates()) {
        // An override selects one of the known names; any other name loads nothing.
        if (!state.overrideName.empty() && name != state.overrideName)
            continue;
        const std::string path = state.directory.empty() ? name : state.directory + "/" + name;
        if ((state.library = Visa::detail::LoadLibrary(path))) {
            loadedName = name;
            break;
        }
    }
    if (!state.library) {
        Log::Warn("NI-VISA is not installed on the system.");
        return false;
    }
    Log::Success(fmt::format("Loaded NI-VISA: {}", loadedName));
    // A library without one of the entry points stays loaded, but unused.
    return LookUpAll(state.library, state.functions);
}

namespace Visa {

bool Init() {
    Binding& state = State();
    if (!state.initialised) {
        state.initialised = TryLoadVISAFunctions();
        if (!state.initialised)
            return false;
    }
    const ViStatus status = state.functions.openDefaultRM(&state.resourceManager);
    CheckStatus(status);
    state.sessions.insert(state.resourceManager);
    return true;
}

void Terminate() {
    Binding& state = State();
    if (!state.initialised)
        return;
    for (const ViSession session : state.sessions)
        state.functions.close(session);
    state.functions.close(state.resourceManager);
    state.sessions.clear();
}

bool IsInitialised() { return State().initialised; }

std::vector<std::string> FindRsrc(const std::string& expression) {
    Binding& state = State();
    if (!state.initialised)
        return {};
    ViFindList list = 0;
    ViUInt32 count = 0;
    std::array<ViChar, VI_FIND_BUFLEN> description{};
    const ViStatus status =
        state.functions.findRsrc(state.resourceManager, expression.c_str(), &list, &count, description.data());
    state.sessions.insert(list);
    std::vector<std::string> found;
    if (status != VI_ERROR_RSRC_NFOUND) {
        CheckStatus(status);
        found.push_back(DescriptionText(description));
        while (found.size() < count) {
            description.fill('\0');
            CheckStatus(state.functions.findNext(list, description.data()));
            found.push_back(DescriptionText(description));
        }
    }
    CloseFindList(list);
    return found;
}

bool HasRsrc(const std::string& resource) {
    Binding& state = State();
    if (!state.initialised)
        return false;
    ViFindList list = 0;
    ViUInt32 count = 0;
    std::array<ViChar, VI_FIND_BUFLEN> description{};
    const ViStatus status =
        state.functions.findRsrc(state.resourceManager, resource.c_str(), &list, &count, description.data());
    state.sessions.insert(list);
    CloseFindList(list);
    if (status == VI_ERROR_RSRC_NFOUND)
        return false;
    CheckStatus(status);
    return true;
}

unsigned long Open(const std::string& resource) {
    RequireInitialised();
    Binding& state = State();
    ViSession session = 0;
    // A short open time-out: an absent instrument must not stall the caller.
    CheckStatus(state.functions.open(state.resourceManager, resource.c_str(), VI_NULL, 200, &session));
    state.sessions.insert(session);
    state.functions.setAttribute(session, VI_ATTR_TMO_VALUE, 10000);
    state.functions.setAttribute(session, VI_ATTR_TERMCHAR_EN, 1);
    return session;
}

void Close(unsigned long session) {
    RequireInitialised();
    State().sessions.erase(static_cast<ViSession>(session));
    CheckStatus(Functions().close(static_cast<ViObject>(session)));
}

bool IsOpen(unsigned long session) {
    const Binding& state = State();
    if (!state.functions.getAttribute)
        return false;
    ViAttrState value = 0;
    const ViStatus status = state.functions.getAttribute(static_cast<ViObject>(session), VI_ATTR_RM_SESSION, &value);
    return status == VI_SUCCESS && value == state.resourceManager;
}

std::string Read(unsigned long session) {
    RequireInitialised();
    constexpr ViUInt32 CHUNK_SIZE = 2048;
    std::string message;
    message.reserve(CHUNK_SIZE);
    std::array<unsigned char, CHUNK_SIZE> chunk;
    ViStatus status;
    do {
        ViUInt32 count = 0;
        status = Functions().read(static_cast<ViSession>(session), chunk.data(), CHUNK_SIZE, &count);
        message.append(reinterpret_cast<const char*>(chunk.data()), std::min(count, CHUNK_SIZE));
    } while (status == VI_SUCCESS_MAX_CNT);
    if (status == VI_ERROR_ALLOC) {
        PurgeSessions();
        throw VisaError(status);
    }
    if (status != VI_SUCCESS && status != VI_SUCCESS_TERM_CHAR)
        throw VisaError(status);
    message.shrink_to_fit();
    return message;
}

uint64_t Read(unsigned long session, void* buffer, uint64_t size) {
    RequireInitialised();
    const ViUInt32 limit = ClampCount(size);
    ViUInt32 count = 0;
    const ViStatus status =
        Functions().read(static_cast<ViSession>(session), static_cast<unsigned char*>(buffer), limit, &count);
    if (status != VI_ERROR_TMO)
        CheckStatus(status);
    return std::min(count, limit);
}

uint64_t ReadExact(unsigned long session, void* buffer, uint64_t size) {
    RequireInitialised();
    const uint64_t termCharEnabled = GetAttribute(session, VI_ATTR_TERMCHAR_EN);
    SetAttribute(session, VI_ATTR_TERMCHAR_EN, 0);
    const uint64_t count = Read(session, buffer, size);
    SetAttribute(session, VI_ATTR_TERMCHAR_EN, termCharEnabled);
    return count;
}

uint64_t Write(unsigned long session, std::string_view data) {
    RequireInitialised();
    ViUInt32 count = 0;
    CheckStatus(Functions().write(static_cast<ViSession>(session), reinterpret_cast<const unsigned char*>(data.data()),
                                  ClampCount(data.size()), &count));
    return count;
}

void Clear(unsigned long session) {
    RequireInitialised();
    CheckStatus(Functions().clear(static_cast<ViSession>(session)));
}

void Flush(unsigned long session) {
    RequireInitialised();
    CheckStatus(Functions().flush(static_cast<ViSession>(session), VI_READ_BUF_DISCARD));
}

uint64_t GetTimeout(unsigned long session) {
    RequireInitialised();
    return GetAttribute(session, VI_ATTR_TMO_VALUE);
}

void SetTimeout(unsigned long session, uint64_t milliseconds) {
    RequireInitialised();
    SetAttribute(session, VI_ATTR_TMO_VALUE, milliseconds);
}

// The description's own status is not checked: a failure here would need this very text.
std::string StatusDesc(unsigned long session, long status) {
    RequireInitialised();
    std::array<ViChar, VI_FIND_BUFLEN> description{};
    Functions().statusDesc(static_cast<ViObject>(session), static_cast<ViStatus>(status), description.data());
    return DescriptionText(description);
}

void PurgeSessions() {
    Log::Warn("We can't obtain any VISA instruments due to allocation issues; closing existing sessions.");
    Terminate();
    State().sessions.clear();
    if (!State().initialised)
        return;
    // Sessions of this process that the library lost track of still hold VISA's resources.
    constexpr ViSession HIGHEST_ID = 2048;
    for (ViSession id = 0; id <= HIGHEST_ID; ++id)
        if (Functions().close(id) == VI_SUCCESS)
            Log::Warn(fmt::format("Closed dangling VISA session id: {}", id));
    Init();
}

} // namespace Visa
} // namespace nrq
