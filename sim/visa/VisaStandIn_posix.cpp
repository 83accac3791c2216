// The VISA entry points over plain TCP sockets: enough of a VISA library for
// LAN instruments on a machine without a vendor's.

#include "hvxvisa/VisaResourceName.h"
#include "hvxvisa/VisaStatusText.h"
#include "hvxvisa/VisaTypes.h"

#include <arpa/inet.h>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <memory>
#include <mutex>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

#define HVX_VISA_EXPORT extern "C" __attribute__((visibility("default")))

namespace hvxvisa {

namespace {

constexpr ViSession kMaxSessionId = 0x7FFFFFFF;
constexpr int kMinConnectTimeoutMs = 2000;

enum class ObjectKind { ResourceManager, Instrument, FindList };

struct Instrument {
    std::mutex io;
    int fd = -1;
    std::string pending; // received, not yet handed out
    std::string resource;
    std::string host;
    std::string address;
    uint16_t port = 0;
    unsigned board = 0;
    ViUInt32 timeoutMs = 2000;
    ViUInt8 termChar = '\n';
    bool termCharEnabled = false;
    bool sendEnd = true;
    bool suppressEnd = true; // a socket has no END: reads run to the term char, the count or the time-out

    ~Instrument() {
        if (fd >= 0)
            ::close(fd);
    }
};

struct Object {
    ObjectKind kind = ObjectKind::ResourceManager;
    ViSession resourceManager = 0;
    std::shared_ptr<Instrument> instrument;
    std::vector<std::string> found;
    size_t next = 0;
};

struct Table {
    std::mutex mutex;
    std::map<ViSession, Object> objects;
};

Table& Sessions() {
    static Table table;
    return table;
}

size_t MaxSessions() {
    const char* text = std::getenv(kMaxSessionsVariable);
    if (!text || !*text)
        return static_cast<size_t>(-1);
    char* end = nullptr;
    const unsigned long long value = std::strtoull(text, &end, 10);
    return *end == '\0' ? static_cast<size_t>(value) : static_cast<size_t>(-1);
}

// The lowest free id, so that ids stay small as with the vendors' libraries.
// Call with the table locked.
ViStatus Allocate(Table& table, Object object, ViSession& id) {
    if (table.objects.size() >= MaxSessions())
        return kViErrorAlloc;
    ViSession candidate = 1;
    for (const auto& entry : table.objects) {
        if (entry.first != candidate)
            break;
        ++candidate;
    }
    if (candidate > kMaxSessionId)
        return kViErrorAlloc;
    table.objects.emplace(candidate, std::move(object));
    id = candidate;
    return kViSuccess;
}

Object* Find(Table& table, ViObject id) {
    const auto it = table.objects.find(id);
    return it == table.objects.end() ? nullptr : &it->second;
}

std::shared_ptr<Instrument> FindInstrument(ViObject id) {
    Table& table = Sessions();
    std::lock_guard lock(table.mutex);
    Object* object = Find(table, id);
    return object && object->kind == ObjectKind::Instrument ? object->instrument : nullptr;
}

void CopyText(ViChar* to, const std::string& text) {
    if (!to)
        return;
    const size_t length = std::min<size_t>(text.size(), kViFindBufLen - 1);
    std::memcpy(to, text.data(), length);
    to[length] = '\0';
}

int PollTimeout(ViUInt32 timeoutMs, std::chrono::steady_clock::time_point deadline) {
    if (timeoutMs == kViTmoInfinite)
        return -1;
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    return left.count() > 0 ? static_cast<int>(left.count()) : 0;
}

int Connect(const std::string& host, uint16_t port, int timeoutMs, std::string& address) {
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* results = nullptr;
    if (::getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &results) != 0 || !results)
        return -1;
    int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    char text[INET_ADDRSTRLEN] = {};
    ::inet_ntop(AF_INET, &reinterpret_cast<sockaddr_in*>(results->ai_addr)->sin_addr, text, sizeof text);
    address = text;
    bool connected = fd >= 0 && ::connect(fd, results->ai_addr, results->ai_addrlen) == 0;
    if (fd >= 0 && !connected && errno == EINPROGRESS) {
        pollfd waiting{fd, POLLOUT, 0};
        int error = 0;
        socklen_t length = sizeof error;
        connected = ::poll(&waiting, 1, timeoutMs) == 1 &&
                    ::getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &length) == 0 && error == 0;
    }
    ::freeaddrinfo(results);
    if (!connected) {
        if (fd >= 0)
            ::close(fd);
        return -1;
    }
    const int yes = 1;
    ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
    return fd;
}

// Hands out what the buffer holds, if that ends the read.
bool TakeFromPending(Instrument& instrument, ViPBuf buffer, ViUInt32 count, ViUInt32& taken, ViStatus& status) {
    std::string& pending = instrument.pending;
    if (instrument.termCharEnabled) {
        const size_t at = pending.find(static_cast<char>(instrument.termChar));
        if (at != std::string::npos && at < count) {
            taken = static_cast<ViUInt32>(at + 1);
            status = kViSuccessTermChar;
        }
    }
    if (status != kViSuccessTermChar) {
        if (pending.size() >= count) {
            taken = count;
            status = kViSuccessMaxCnt;
        } else if (!instrument.suppressEnd && !pending.empty()) {
            taken = static_cast<ViUInt32>(pending.size());
            status = kViSuccess;
        } else {
            return false;
        }
    }
    std::memcpy(buffer, pending.data(), taken);
    pending.erase(0, taken);
    return true;
}

// A read that ends early: hand out everything that came.
ViStatus TakeAll(Instrument& instrument, ViPBuf buffer, ViUInt32& taken, ViStatus status) {
    taken = static_cast<ViUInt32>(instrument.pending.size());
    std::memcpy(buffer, instrument.pending.data(), taken);
    instrument.pending.clear();
    return status;
}

ViStatus ReadInstrument(Instrument& instrument, ViPBuf buffer, ViUInt32 count, ViUInt32& taken) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(instrument.timeoutMs);
    for (;;) {
        ViStatus status = kViErrorSystemError;
        if (TakeFromPending(instrument, buffer, count, taken, status))
            return status;
        pollfd waiting{instrument.fd, POLLIN, 0};
        const int ready = ::poll(&waiting, 1, PollTimeout(instrument.timeoutMs, deadline));
        if (ready < 0 && errno == EINTR)
            continue;
        if (ready <= 0)
            return TakeAll(instrument, buffer, taken, ready == 0 ? kViErrorTmo : kViErrorIo);
        char chunk[65536];
        const ssize_t got = ::recv(instrument.fd, chunk, sizeof chunk, MSG_DONTWAIT);
        if (got < 0 && (errno == EAGAIN || errno == EINTR))
            continue;
        if (got <= 0)
            return TakeAll(instrument, buffer, taken, kViErrorConnLost);
        instrument.pending.append(chunk, static_cast<size_t>(got));
    }
}

ViStatus WriteInstrument(Instrument& instrument, ViConstBuf buffer, ViUInt32 count, ViUInt32& sent) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(instrument.timeoutMs);
    sent = 0;
    while (sent < count) {
        const ssize_t done = ::send(instrument.fd, buffer + sent, count - sent, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (done > 0) {
            sent += static_cast<ViUInt32>(done);
            continue;
        }
        if (done < 0 && errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR)
            return errno == EPIPE || errno == ECONNRESET ? kViErrorConnLost : kViErrorIo;
        pollfd waiting{instrument.fd, POLLOUT, 0};
        if (::poll(&waiting, 1, PollTimeout(instrument.timeoutMs, deadline)) == 0)
            return kViErrorTmo;
    }
    return kViSuccess;
}

// Drops what the instrument sent and nobody read.
void DiscardInput(Instrument& instrument) {
    instrument.pending.clear();
    char chunk[4096];
    while (::recv(instrument.fd, chunk, sizeof chunk, MSG_DONTWAIT) > 0) {
    }
}

ViStatus SetInstrumentAttribute(Instrument& instrument, ViAttr attribute, ViAttrState value) {
    const auto boolean = [&](bool& target) {
        if (value > 1)
            return kViErrorNsupAttrState;
        target = value == 1;
        return kViSuccess;
    };
    switch (attribute) {
    case kViAttrTmoValue:
        if (value > kViTmoInfinite)
            return kViErrorNsupAttrState;
        instrument.timeoutMs = static_cast<ViUInt32>(value);
        return kViSuccess;
    case kViAttrTermchar:
        if (value > 0xFF)
            return kViErrorNsupAttrState;
        instrument.termChar = static_cast<ViUInt8>(value);
        return kViSuccess;
    case kViAttrTermcharEn: return boolean(instrument.termCharEnabled);
    case kViAttrSendEndEn: return boolean(instrument.sendEnd);
    case kViAttrSuppressEndEn: return boolean(instrument.suppressEnd);
    case kViAttrRmSession:
    case kViAttrRsrcName:
    case kViAttrRsrcClass:
    case kViAttrIntfType:
    case kViAttrIntfNum:
    case kViAttrTcpipAddr:
    case kViAttrTcpipHostname:
    case kViAttrTcpipPort: return kViErrorAttrReadonly;
    default: return kViErrorNsupAttr;
    }
}

template <typename T>
ViStatus Store(void* to, T value) {
    std::memcpy(to, &value, sizeof value);
    return kViSuccess;
}

ViStatus GetInstrumentAttribute(Instrument& instrument, ViAttr attribute, void* value) {
    switch (attribute) {
    case kViAttrTmoValue: return Store<ViUInt32>(value, instrument.timeoutMs);
    case kViAttrTermchar: return Store<ViUInt8>(value, instrument.termChar);
    case kViAttrTermcharEn: return Store<ViBoolean>(value, instrument.termCharEnabled);
    case kViAttrSendEndEn: return Store<ViBoolean>(value, instrument.sendEnd);
    case kViAttrSuppressEndEn: return Store<ViBoolean>(value, instrument.suppressEnd);
    case kViAttrIntfType: return Store<ViUInt16>(value, kViIntfTcpip);
    case kViAttrIntfNum: return Store<ViUInt16>(value, static_cast<ViUInt16>(instrument.board));
    case kViAttrTcpipPort: return Store<ViUInt16>(value, instrument.port);
    case kViAttrRsrcName: CopyText(static_cast<ViChar*>(value), instrument.resource); return kViSuccess;
    case kViAttrRsrcClass: CopyText(static_cast<ViChar*>(value), "SOCKET"); return kViSuccess;
    case kViAttrTcpipAddr: CopyText(static_cast<ViChar*>(value), instrument.address); return kViSuccess;
    case kViAttrTcpipHostname: CopyText(static_cast<ViChar*>(value), instrument.host); return kViSuccess;
    default: return kViErrorNsupAttr;
    }
}

// The checks and locking that reads and writes share; `move` does the transfer.
template <class Buffer, class Move>
ViStatus Transfer(ViSession id, Buffer buffer, ViUInt32 count, ViPUInt32 returned, Move move) {
    if (returned)
        *returned = 0;
    const std::shared_ptr<Instrument> instrument = FindInstrument(id);
    if (!instrument)
        return kViErrorInvObject;
    if (!buffer && count > 0)
        return kViErrorUserBuf;
    std::lock_guard lock(instrument->io);
    ViUInt32 done = 0;
    const ViStatus status = move(*instrument, buffer, count, done);
    if (returned)
        *returned = done;
    return status;
}

} // namespace

} // namespace hvxvisa

using namespace hvxvisa;

HVX_VISA_EXPORT ViStatus viOpenDefaultRM(ViPSession session) {
    if (!session)
        return kViErrorUserBuf;
    Table& table = Sessions();
    std::lock_guard lock(table.mutex);
    ViSession id = 0;
    const ViStatus status = Allocate(table, Object{}, id);
    *session = status == kViSuccess ? id : kViNull;
    if (status == kViSuccess)
        table.objects[id].resourceManager = id;
    return status;
}

HVX_VISA_EXPORT ViStatus viFindRsrc(ViSession session, ViConstString expression, ViPFindList findList,
                                    ViPUInt32 count, ViChar description[]) {
    if (findList)
        *findList = kViNull;
    if (count)
        *count = 0;
    CopyText(description, "");
    if (!expression)
        return kViErrorUserBuf;
    const char* list = std::getenv(kResourcesVariable);
    Object search;
    search.kind = ObjectKind::FindList;
    search.resourceManager = session;
    bool valid = *expression != '\0';
    for (const std::string& name : SplitResourceList(list ? list : ""))
        if (valid && MatchesVisaExpression(expression, name, valid))
            search.found.push_back(name);
    if (!valid)
        return kViErrorInvExpr;
    Table& table = Sessions();
    std::lock_guard lock(table.mutex);
    const Object* manager = Find(table, session);
    if (!manager || manager->kind != ObjectKind::ResourceManager)
        return kViErrorInvObject;
    const bool any = !search.found.empty();
    const size_t total = search.found.size();
    const std::string first = any ? search.found.front() : std::string();
    search.next = any ? 1 : 0;
    // An empty search still gets its handle, which the caller closes as usual.
    ViSession id = 0;
    const ViStatus status = Allocate(table, std::move(search), id);
    if (status != kViSuccess)
        return status;
    if (findList)
        *findList = id;
    if (count)
        *count = static_cast<ViUInt32>(total);
    CopyText(description, first);
    return any ? kViSuccess : kViErrorRsrcNfound;
}

HVX_VISA_EXPORT ViStatus viFindNext(ViFindList findList, ViChar description[]) {
    Table& table = Sessions();
    std::lock_guard lock(table.mutex);
    Object* search = Find(table, findList);
    if (!search || search->kind != ObjectKind::FindList)
        return kViErrorInvObject;
    if (search->next >= search->found.size()) {
        CopyText(description, "");
        return kViErrorRsrcNfound;
    }
    CopyText(description, search->found[search->next++]);
    return kViSuccess;
}

HVX_VISA_EXPORT ViStatus viOpen(ViSession session, ViConstRsrc name, ViAccessMode mode, ViUInt32 timeout,
                                ViPSession instrumentSession) {
    if (!instrumentSession || !name)
        return kViErrorUserBuf;
    *instrumentSession = kViNull;
    Table& table = Sessions();
    {
        std::lock_guard lock(table.mutex);
        const Object* manager = Find(table, session);
        if (!manager || manager->kind != ObjectKind::ResourceManager)
            return kViErrorInvObject;
        if (table.objects.size() >= MaxSessions())
            return kViErrorAlloc;
    }
    if ((mode & ~kViAccessModes) != 0)
        return kViErrorInvAccMode;
    const VisaResourceName parsed = ParseVisaResourceName(name);
    if (parsed.status != kViSuccess)
        return parsed.status;
    auto instrument = std::make_shared<Instrument>();
    instrument->resource = name;
    instrument->host = parsed.host;
    instrument->port = parsed.port;
    instrument->board = parsed.board;
    const int connectTimeout = std::max<int>(kMinConnectTimeoutMs, static_cast<int>(std::min<ViUInt32>(timeout, 60000)));
    instrument->fd = Connect(parsed.host, parsed.port, connectTimeout, instrument->address);
    if (instrument->fd < 0)
        return kViErrorRsrcNfound;
    Object object;
    object.kind = ObjectKind::Instrument;
    object.resourceManager = session;
    object.instrument = std::move(instrument);
    std::lock_guard lock(table.mutex);
    if (!Find(table, session))
        return kViErrorInvObject;
    ViSession id = 0;
    const ViStatus status = Allocate(table, std::move(object), id);
    if (status == kViSuccess)
        *instrumentSession = id;
    return status;
}

HVX_VISA_EXPORT ViStatus viClose(ViObject id) {
    if (id == kViNull)
        return kViWarnNullObject;
    std::vector<std::shared_ptr<Instrument>> closing;
    {
        Table& table = Sessions();
        std::lock_guard lock(table.mutex);
        Object* object = Find(table, id);
        if (!object)
            return kViErrorInvObject;
        // Closing a resource manager closes everything opened through it.
        if (object->kind == ObjectKind::ResourceManager) {
            for (auto it = table.objects.begin(); it != table.objects.end();) {
                if (it->first != id && it->second.resourceManager == id) {
                    if (it->second.instrument)
                        closing.push_back(it->second.instrument);
                    it = table.objects.erase(it);
                } else {
                    ++it;
                }
            }
        } else if (object->instrument) {
            closing.push_back(object->instrument);
        }
        table.objects.erase(id);
    }
    // A read blocked on another thread wakes up with a lost connection.
    for (const auto& instrument : closing)
        ::shutdown(instrument->fd, SHUT_RDWR);
    return kViSuccess;
}

HVX_VISA_EXPORT ViStatus viSetAttribute(ViObject id, ViAttr attribute, ViAttrState value) {
    const std::shared_ptr<Instrument> instrument = FindInstrument(id);
    if (!instrument) {
        Table& table = Sessions();
        std::lock_guard lock(table.mutex);
        if (!Find(table, id))
            return kViErrorInvObject;
        return attribute == kViAttrRmSession ? kViErrorAttrReadonly : kViErrorNsupAttr;
    }
    std::lock_guard lock(instrument->io);
    return SetInstrumentAttribute(*instrument, attribute, value);
}

HVX_VISA_EXPORT ViStatus viGetAttribute(ViObject id, ViAttr attribute, void* value) {
    if (!value)
        return kViErrorUserBuf;
    std::shared_ptr<Instrument> instrument;
    {
        Table& table = Sessions();
        std::lock_guard lock(table.mutex);
        const Object* object = Find(table, id);
        if (!object)
            return kViErrorInvObject;
        if (attribute == kViAttrRmSession)
            return Store<ViSession>(value, object->resourceManager);
        if (object->kind != ObjectKind::Instrument)
            return kViErrorNsupAttr;
        instrument = object->instrument;
    }
    std::lock_guard lock(instrument->io);
    return GetInstrumentAttribute(*instrument, attribute, value);
}

HVX_VISA_EXPORT ViStatus viStatusDesc(ViObject, ViStatus status, ViChar description[]) {
    if (!description)
        return kViErrorUserBuf;
    bool known = false;
    const char* text = VisaStatusText(status, known);
    if (known) {
        CopyText(description, text);
        return kViSuccess;
    }
    char unknown[64];
    std::snprintf(unknown, sizeof unknown, "Unknown status code 0x%08X.", static_cast<unsigned>(status));
    CopyText(description, unknown);
    return kViWarnUnknownStatus;
}

HVX_VISA_EXPORT ViStatus viTerminate(ViObject id, ViUInt16, ViJobId) {
    Table& table = Sessions();
    std::lock_guard lock(table.mutex);
    return Find(table, id) ? kViErrorNsupOper : kViErrorInvObject;
}

HVX_VISA_EXPORT ViStatus viRead(ViSession id, ViPBuf buffer, ViUInt32 count, ViPUInt32 returned) {
    return Transfer(id, buffer, count, returned, ReadInstrument);
}

HVX_VISA_EXPORT ViStatus viReadAsync(ViSession id, ViPBuf, ViUInt32, ViPJobId job) {
    if (job)
        *job = 0;
    return FindInstrument(id) ? kViErrorNsupOper : kViErrorInvObject;
}

HVX_VISA_EXPORT ViStatus viWrite(ViSession id, ViConstBuf buffer, ViUInt32 count, ViPUInt32 returned) {
    return Transfer(id, buffer, count, returned, WriteInstrument);
}

HVX_VISA_EXPORT ViStatus viWriteAsync(ViSession id, ViConstBuf, ViUInt32, ViPJobId job) {
    if (job)
        *job = 0;
    return FindInstrument(id) ? kViErrorNsupOper : kViErrorInvObject;
}

HVX_VISA_EXPORT ViStatus viClear(ViSession id) {
    const std::shared_ptr<Instrument> instrument = FindInstrument(id);
    if (!instrument) {
        Table& table = Sessions();
        std::lock_guard lock(table.mutex);
        return Find(table, id) ? kViErrorNsupOper : kViErrorInvObject;
    }
    std::lock_guard lock(instrument->io);
    DiscardInput(*instrument);
    return kViSuccess;
}

HVX_VISA_EXPORT ViStatus viFlush(ViSession id, ViUInt16 mask) {
    const std::shared_ptr<Instrument> instrument = FindInstrument(id);
    if (!instrument) {
        Table& table = Sessions();
        std::lock_guard lock(table.mutex);
        return Find(table, id) ? kViErrorNsupOper : kViErrorInvObject;
    }
    if (mask == 0)
        return kViErrorInvMask;
    // Writes go out at once, so only the read side has something to drop.
    std::lock_guard lock(instrument->io);
    if (mask & (kViReadBuf | kViReadBufDiscard | kViIoInBuf | kViIoInBufDiscard))
        instrument->pending.clear();
    return kViSuccess;
}
