// A stand-in VISA library for tests: canned answers, and a record of every call.
// Built twice: as libvisa.so with all entry points, and as libiovisa.so
// without viTerminate.

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <deque>
#include <map>
#include <string>
#include <vector>

namespace {

using ViStatus = int32_t;
using ViUInt32 = uint32_t;
using ViAttrState = uint64_t;

constexpr ViStatus VI_ERROR_INV_OBJECT = static_cast<ViStatus>(0xBFFF000E);
constexpr ViStatus VI_ERROR_RSRC_NFOUND = static_cast<ViStatus>(0xBFFF0011);
constexpr ViStatus VI_ERROR_TMO = static_cast<ViStatus>(0xBFFF0015);
constexpr ViUInt32 VI_ATTR_TMO_VALUE = 0x3FFF001A;
constexpr ViUInt32 VI_ATTR_TERMCHAR_EN = 0x3FFF0038;
constexpr ViUInt32 VI_ATTR_RM_SESSION = 0x3FFF00C4;

struct Session {
    ViUInt32 resourceManager = 0;
    std::map<ViUInt32, ViAttrState> attributes;
    std::vector<std::string> found; // a find list's remaining descriptions
};

struct ReadResult {
    std::string bytes;
    ViStatus status;
};

struct Fake {
    ViUInt32 nextId = 1;
    std::map<ViUInt32, Session> open;
    std::map<std::string, std::deque<ViStatus>> statuses;
    std::deque<ReadResult> reads;
    std::vector<std::string> resources;
    std::string calls;
};

Fake fake;

void Record(const std::string& line) { fake.calls += line + "\n"; }

// A queued status for the function's next call, or 0.
ViStatus NextStatus(const char* function) {
    auto& queue = fake.statuses[function];
    if (queue.empty())
        return 0;
    const ViStatus status = queue.front();
    queue.pop_front();
    return status;
}

ViUInt32 OpenSession(ViUInt32 resourceManager) {
    const ViUInt32 id = fake.nextId++;
    fake.open[id].resourceManager = resourceManager;
    fake.open[id].attributes[VI_ATTR_TMO_VALUE] = 2000;
    fake.open[id].attributes[VI_ATTR_TERMCHAR_EN] = 0;
    return id;
}

void CopyDescription(char* description, const std::string& text) {
    std::snprintf(description, 256, "%s", text.c_str());
}

} // namespace

extern "C" {

// Control side, for the tests.
void FakeVisa_Reset() { fake = Fake{}; }
void FakeVisa_QueueStatus(const char* function, int32_t status) { fake.statuses[function].push_back(status); }
void FakeVisa_QueueRead(const char* bytes, uint32_t size, int32_t status) {
    fake.reads.push_back({std::string(bytes, size), status});
}
void FakeVisa_AddResource(const char* resource) { fake.resources.emplace_back(resource); }
uint32_t FakeVisa_OpenDangling() { return OpenSession(0); }
bool FakeVisa_IsOpen(uint32_t id) { return fake.open.count(id) != 0; }
uint64_t FakeVisa_Attribute(uint32_t id, uint32_t attribute) { return fake.open[id].attributes[attribute]; }
const char* FakeVisa_Calls() { return fake.calls.c_str(); }
void FakeVisa_ClearCalls() { fake.calls.clear(); }

// The VISA side.
ViStatus viOpenDefaultRM(ViUInt32* session) {
    const ViStatus status = NextStatus("viOpenDefaultRM");
    *session = OpenSession(0);
    Record("viOpenDefaultRM -> " + std::to_string(*session));
    return status;
}

ViStatus viFindRsrc(ViUInt32 session, const char* expression, ViUInt32* list, ViUInt32* count, char* description) {
    Record("viFindRsrc " + std::to_string(session) + " " + expression);
    std::vector<std::string> found;
    for (const auto& resource : fake.resources)
        if (std::string(expression) == "?*" || resource == expression)
            found.push_back(resource);
    const ViStatus status = NextStatus("viFindRsrc");
    *count = static_cast<ViUInt32>(found.size());
    if (found.empty()) {
        *list = 0;
        return status ? status : VI_ERROR_RSRC_NFOUND;
    }
    *list = OpenSession(session);
    CopyDescription(description, found.front());
    fake.open[*list].found.assign(found.begin() + 1, found.end());
    return status;
}

ViStatus viFindNext(ViUInt32 list, char* description) {
    Record("viFindNext " + std::to_string(list));
    auto& remaining = fake.open[list].found;
    if (remaining.empty())
        return VI_ERROR_RSRC_NFOUND;
    CopyDescription(description, remaining.front());
    remaining.erase(remaining.begin());
    return NextStatus("viFindNext");
}

ViStatus viOpen(ViUInt32 session, const char* resource, ViUInt32 mode, ViUInt32 timeout, ViUInt32* opened) {
    Record("viOpen " + std::to_string(session) + " " + resource + " " + std::to_string(mode) + " " +
           std::to_string(timeout));
    const ViStatus status = NextStatus("viOpen");
    if (status < 0)
        return status;
    *opened = OpenSession(session);
    return status;
}

ViStatus viClose(ViUInt32 object) {
    if (!fake.open.erase(object))
        return VI_ERROR_INV_OBJECT;
    Record("viClose " + std::to_string(object));
    return NextStatus("viClose");
}

ViStatus viSetAttribute(ViUInt32 object, ViUInt32 attribute, ViAttrState value) {
    Record("viSetAttribute " + std::to_string(object) + " " + std::to_string(attribute) + " " + std::to_string(value));
    if (!fake.open.count(object))
        return VI_ERROR_INV_OBJECT;
    fake.open[object].attributes[attribute] = value;
    return NextStatus("viSetAttribute");
}

// Writes only the attribute's own width, as a VISA library does.
ViStatus viGetAttribute(ViUInt32 object, ViUInt32 attribute, void* value) {
    const auto found = fake.open.find(object);
    if (found == fake.open.end())
        return VI_ERROR_INV_OBJECT;
    if (attribute == VI_ATTR_RM_SESSION) {
        std::memcpy(value, &found->second.resourceManager, sizeof(ViUInt32));
    } else if (attribute == VI_ATTR_TERMCHAR_EN) {
        const uint16_t enabled = static_cast<uint16_t>(found->second.attributes[attribute]);
        std::memcpy(value, &enabled, sizeof(enabled));
    } else {
        const ViUInt32 narrow = static_cast<ViUInt32>(found->second.attributes[attribute]);
        std::memcpy(value, &narrow, sizeof(narrow));
    }
    return NextStatus("viGetAttribute");
}

ViStatus viStatusDesc(ViUInt32, ViStatus status, char* description) {
    std::snprintf(description, 256, "fake status 0x%08X", static_cast<unsigned>(status));
    return 0;
}

#ifndef FAKE_VISA_LACKS_TERMINATE
ViStatus viTerminate(ViUInt32, uint16_t, ViUInt32) { return 0; }
#endif

ViStatus viRead(ViUInt32 session, unsigned char* buffer, ViUInt32 count, ViUInt32* returned) {
    Record("viRead " + std::to_string(session) + " " + std::to_string(count) + " termchar " +
           std::to_string(fake.open[session].attributes[VI_ATTR_TERMCHAR_EN]));
    if (fake.reads.empty()) {
        *returned = 0;
        return VI_ERROR_TMO;
    }
    const ReadResult result = fake.reads.front();
    fake.reads.pop_front();
    const size_t size = std::min<size_t>(result.bytes.size(), count);
    std::memcpy(buffer, result.bytes.data(), size);
    *returned = static_cast<ViUInt32>(size);
    return result.status;
}

ViStatus viReadAsync(ViUInt32, unsigned char*, ViUInt32, ViUInt32*) { return 0; }

ViStatus viWrite(ViUInt32 session, const unsigned char* buffer, ViUInt32 count, ViUInt32* returned) {
    Record("viWrite " + std::to_string(session) + " " + std::string(reinterpret_cast<const char*>(buffer), count));
    *returned = count;
    return NextStatus("viWrite");
}

ViStatus viWriteAsync(ViUInt32, const unsigned char*, ViUInt32, ViUInt32*) { return 0; }

ViStatus viClear(ViUInt32 session) {
    Record("viClear " + std::to_string(session));
    return NextStatus("viClear");
}

ViStatus viFlush(ViUInt32 session, uint16_t mask) {
    Record("viFlush " + std::to_string(session) + " " + std::to_string(mask));
    return NextStatus("viFlush");
}

} // extern "C"
