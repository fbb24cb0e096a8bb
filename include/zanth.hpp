// zanth.hpp: the C++17 face of libzanth, header-only, on the exports of zanth.h alone.
//
//   zanth::Session::Options o;
//   o.port = 3001;
//   o.valid = "C0:00:01";
//   o.onEvent = [](const std::string& text) { std::cout << "event " << text << "\n"; };
//   zanth::Session session(o);                          // Initialization; Shutdown at the end
//   session.WaitConnected("C0:00:01", std::chrono::seconds(30));
//   std::string info = zanth::lib::ControllerInfo("C0:00:01");
//   zanth::CardRecord card = zanth::lib::GetCardRecord4("C0:00:01", 7, 0, "1001", "1234");
//
// What is in it:
// - zanth::lib: one typed wrapper per export (zanth_api.hpp, generated from the API model):
//   std::string in place of a buffer and its size, a struct where there are several outputs,
//   CardRecord for the card commands, writable texts always copied into buffers of their own,
//   std::optional for the polls, and zanth::Error for a result that the export's rule calls a
//   failure.
// - zanth::dynamic: every export by name with checked, named arguments, and the decoding of Rsp
//   replies (zanth_dynamic.hpp); what a command line or a gateway stands on.
// - zanth::Session: the library's start and end, and callbacks as std::function.
//
// The library keeps one central object per process: one Session at a time.

#ifndef ZANTH_HPP
#define ZANTH_HPP

#include <algorithm>
#include <atomic>
#include <cctype>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <tuple>
#include <thread>
#include <utility>
#include <variant>
#include <vector>

#include "zanth.h"

namespace zanth {

// A value of the dynamic layer: every integer of the C interface (int32, uint32, uint16, uint64,
// a character), a text, or bytes (file chunks).
using Bytes = std::vector<unsigned char>;
using Value = std::variant<int64_t, std::string, Bytes>;
// Arguments and outputs by the header's parameter names.
using Args = std::map<std::string, Value, std::less<>>;
using Outputs = std::map<std::string, Value, std::less<>>;

// A controller's card record, as the add commands take it and the get commands give it. The
// fields a generation doesn't know are not sent (pinExempt before generation 2, cardRole before
// 3) and stay as they are when read.
struct CardRecord {
    int32_t cardSetId = 0;
    int32_t noFormat = 0;
    std::string cardNumber;
    std::string pin;
    int32_t accessType = 1;
    uint32_t uniqueId = 0;
    int32_t accessGroup1 = 0, accessGroup2 = 0, accessGroup3 = 0, accessGroup4 = 0;
    int32_t accessGroup5 = 0, accessGroup6 = 0, accessGroup7 = 0, accessGroup8 = 0;
    int32_t extendedAccess = 0;
    int32_t passbackExempt = 0;
    int32_t pinCommands = 0;
    std::string startDate = "0", startTime = "0", endDate = "0", endTime = "0";
    uint32_t escortId = 0;
    int32_t inScheduleElevatorGroup = 0;
    int32_t outScheduleElevatorGroup = 0;
    int32_t pinExempt = 0;
    uint32_t cardRole = 0;
    int32_t field7Value = 0;  // a field of the reply the add commands have no counterpart for
};

inline bool operator==(const CardRecord& a, const CardRecord& b) {
    auto tie = [](const CardRecord& r) {
        return std::tie(r.cardSetId, r.noFormat, r.cardNumber, r.pin, r.accessType, r.uniqueId,
                        r.accessGroup1, r.accessGroup2, r.accessGroup3, r.accessGroup4,
                        r.accessGroup5, r.accessGroup6, r.accessGroup7, r.accessGroup8,
                        r.extendedAccess, r.passbackExempt, r.pinCommands, r.startDate,
                        r.startTime, r.endDate, r.endTime, r.escortId, r.inScheduleElevatorGroup,
                        r.outScheduleElevatorGroup, r.pinExempt, r.cardRole, r.field7Value);
    };
    return tie(a) == tie(b);
}
inline bool operator!=(const CardRecord& a, const CardRecord& b) { return !(a == b); }

}  // namespace zanth

// How the layer reaches the exports. By default it calls them by name, and the host links
// libzanth. The library opens its log and message files in the working directory (or the
// per-user log folder) the moment it is loaded, so a program that must first choose where those
// go (a command line, a daemon) defines ZANTH_HPP_LOAD_AT_RUNTIME before including this header,
// links nothing, and calls zanth::Load once it is ready: the exports are then reached through a
// table of pointers that Load fills.
#ifdef ZANTH_HPP_LOAD_AT_RUNTIME
#define ZANTH_CALL(name) (::zanth::detail::Loaded().name)
#else
#define ZANTH_CALL(name) ::name
#endif

#define ZANTH_HPP_INSIDE
#include "zanth_dynamic.hpp"

namespace zanth {
namespace detail {

// An output text: `size` bytes for the library and one more that stays zero.
class OutText {
  public:
    explicit OutText(size_t size) : buffer_(size + 1, '\0') {}
    OutText(const std::string& initial, size_t size)
        : buffer_(std::max(size, initial.size()) + 1, '\0') {
        std::memcpy(buffer_.data(), initial.data(), initial.size());
    }
    char* data() { return buffer_.data(); }
    int32_t size() const { return static_cast<int32_t>(buffer_.size() - 1); }
    std::string str() const { return std::string(buffer_.data(), ::strnlen(buffer_.data(), buffer_.size())); }
    // A reply frame, measured by its length field (it may hold binary bytes).
    std::string frame() const {
        return std::string(buffer_.data(), dynamic::FrameLength(buffer_.data(), buffer_.size() - 1));
    }
    Bytes bytes(int32_t count) const {
        size_t n = static_cast<size_t>(std::clamp<int32_t>(count, 0, size()));
        return Bytes(buffer_.begin(), buffer_.begin() + static_cast<std::ptrdiff_t>(n));
    }

  private:
    std::vector<char> buffer_;
};

// A text the library may write to: a copy of the caller's, in a buffer of at least `capacity`.
class Writable {
  public:
    explicit Writable(const std::string& text, size_t capacity = 0)
        : buffer_(std::max(capacity, text.size() + 1), '\0') {
        std::memcpy(buffer_.data(), text.data(), text.size());
    }
    char* data() { return buffer_.data(); }

  private:
    std::vector<char> buffer_;
};

template <class T>
T Narrow(const char* exportName, const char* name, uint64_t value, uint64_t max) {
    if (value > max) {
        throw ArgumentError(exportName, name, "must be at most " + std::to_string(max) +
                                                  " (got " + std::to_string(value) + ")");
    }
    return static_cast<T>(value);
}

}  // namespace detail
}  // namespace zanth

#include "zanth_api.hpp"
#undef ZANTH_HPP_INSIDE

#ifdef ZANTH_HPP_LOAD_AT_RUNTIME
#ifdef _WIN32
#include <windows.h>
#else
#include <dlfcn.h>
#endif

namespace zanth {

// Loads the library (a path, or a bare name for the system's search) and resolves every export.
// Call it once, after the working directory and the per-user store are where the library's
// files belong; a second call does nothing. Throws std::runtime_error naming the library or the
// missing export.
inline void Load(const std::string& library) {
    detail::LoadedExports& t = detail::LoadedTable();
    if (t.ready) return;
#ifdef _WIN32
    HMODULE handle = ::LoadLibraryA(library.c_str());
    if (handle == nullptr) {
        throw std::runtime_error("can't load " + library + " (error " +
                                 std::to_string(::GetLastError()) + ")");
    }
    auto find = [handle](const char* name) {
        return reinterpret_cast<void*>(::GetProcAddress(handle, name));
    };
#else
    void* handle = ::dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        const char* why = ::dlerror();
        throw std::runtime_error("can't load " + library + ": " + (why ? why : "unknown error"));
    }
    auto find = [handle](const char* name) { return ::dlsym(handle, name); };
#endif
    const char* missing = nullptr;
    if (!detail::ResolveExports(t, find, &missing)) {
        throw std::runtime_error(library + " lacks the export " + missing);
    }
    // The library stays loaded for the process's life: its threads may still run at exit.
    t.ready = true;
}

// True once Load has succeeded.
inline bool Loaded() { return detail::LoadedTable().ready; }

}  // namespace zanth
#endif

namespace zanth {

// The card record in a decoded reply's or a call's outputs (DecodeReply of RspGetCardRecord4).
inline CardRecord CardRecordFrom(const Outputs& o) {
    CardRecord r;
    auto number = [&o](const char* name, auto& field) {
        auto it = o.find(name);
        if (it != o.end()) {
            if (const int64_t* v = std::get_if<int64_t>(&it->second)) {
                field = static_cast<std::decay_t<decltype(field)>>(*v);
            }
        }
    };
    auto text = [&o](const char* name, std::string& field) {
        auto it = o.find(name);
        if (it != o.end()) {
            if (const std::string* v = std::get_if<std::string>(&it->second)) field = *v;
        }
    };
    number("cardSetId", r.cardSetId);
    number("noFormat", r.noFormat);
    text("cardNumber", r.cardNumber);
    text("pin", r.pin);
    number("accessType", r.accessType);
    number("uniqueId", r.uniqueId);
    number("accessGroup1", r.accessGroup1);
    number("accessGroup2", r.accessGroup2);
    number("accessGroup3", r.accessGroup3);
    number("accessGroup4", r.accessGroup4);
    number("accessGroup5", r.accessGroup5);
    number("accessGroup6", r.accessGroup6);
    number("accessGroup7", r.accessGroup7);
    number("accessGroup8", r.accessGroup8);
    number("extendedAccess", r.extendedAccess);
    number("passbackExempt", r.passbackExempt);
    number("pinCommands", r.pinCommands);
    text("startDate", r.startDate);
    text("startTime", r.startTime);
    text("endDate", r.endDate);
    text("endTime", r.endTime);
    number("escortId", r.escortId);
    number("inScheduleElevatorGroup", r.inScheduleElevatorGroup);
    number("outScheduleElevatorGroup", r.outScheduleElevatorGroup);
    number("pinExempt", r.pinExempt);
    number("role", r.cardRole);
    number("field7Value", r.field7Value);
    return r;
}

class Session;

namespace detail {

// The host's callbacks, reached from the library's threads through one trampoline per kind: the
// C callbacks carry no user pointer. The table is made once and never destroyed, because a
// library thread may still call in while the process ends.
enum CallbackKind : int {
    kHereIAm, kLookup, kKeyPad, kCommandKey, kAlarm, kEvent, kPostAccess, kSmartCard,
    kResponse, kConnected, kDisconnected, kCallbackKinds
};

struct Handlers {
    using Text = std::function<void(const std::string&)>;
    using Response = std::function<void(int32_t, const std::string&)>;
    using Error = std::function<void(const std::string&, const std::string&)>;

    std::mutex mutex;
    std::condition_variable idle;
    int running = 0;  // host callbacks under way
    Text text[kCallbackKinds];
    Response response;
    Error error;
    bool registered[kCallbackKinds] = {};
};

inline Handlers& TheHandlers() {
    static Handlers* handlers = new Handlers();
    return *handlers;
}

inline const char* KindName(int kind) {
    static const char* const names[] = {"here-I-am", "look-up", "key pad", "command key",
                                        "alarm", "event", "post-access", "smart card",
                                        "response", "connected", "disconnected"};
    return names[kind];
}

// Runs a host callback: counted, so that a Session can wait for the last one to end, and fenced,
// so that nothing it throws enters the library's thread.
template <class Body>
void RunHandler(int kind, Body&& body) noexcept {
    Handlers& h = TheHandlers();
    {
        std::lock_guard<std::mutex> lock(h.mutex);
        ++h.running;
    }
    std::string failure;
    try {
        body();
    } catch (const std::exception& e) {
        failure = e.what();
    } catch (...) {
        failure = "an exception that is no std::exception";
    }
    Handlers::Error report;
    {
        std::lock_guard<std::mutex> lock(h.mutex);
        if (!failure.empty()) report = h.error;
    }
    if (!failure.empty()) {
        try {
            if (report) {
                report(KindName(kind), failure);
            } else {
                std::fprintf(stderr, "zanth: the %s callback threw: %s\n", KindName(kind),
                             failure.c_str());
            }
        } catch (...) {
        }
    }
    {
        std::lock_guard<std::mutex> lock(h.mutex);
        if (--h.running == 0) h.idle.notify_all();
    }
}

template <int Kind>
Handlers::Text HandlerOf() {
    Handlers& h = TheHandlers();
    std::lock_guard<std::mutex> lock(h.mutex);
    return h.text[Kind];
}

template <int Kind>
int32_t TextTrampoline(char* text) noexcept {
    RunHandler(Kind, [text] {
        Handlers::Text handler = HandlerOf<Kind>();
        if (!handler || text == nullptr) return;
        std::string t(text);
        // Post-access and smart-card data come padded with blanks to 4117 bytes.
        if (Kind == kPostAccess || Kind == kSmartCard) {
            t.erase(t.find_last_not_of(' ') + 1);
        }
        handler(t);
    });
    return 0;
}

inline int32_t ResponseTrampoline(ZanthResponse* response) noexcept {
    RunHandler(kResponse, [response] {
        Handlers& h = TheHandlers();
        Handlers::Response handler;
        {
            std::lock_guard<std::mutex> lock(h.mutex);
            handler = h.response;
        }
        if (!handler || response == nullptr) return;
        size_t n = dynamic::FrameLength(response->text, sizeof response->text);
        handler(response->rspid, std::string(response->text, n));
    });
    return 0;
}

}  // namespace detail

// Starts the library and ends it: the valid list, Initialization on a port, the callbacks
// given as std::function. The destructor calls Shutdown. Callbacks run on the library's threads;
// one that throws is reported to onCallbackError (or stderr) and the library goes on.
class Session {
  public:
    using TextHandler = std::function<void(const std::string& text)>;
    using ResponseHandler = std::function<void(int32_t rspid, const std::string& frame)>;
    using MacHandler = std::function<void(const std::string& mac)>;
    using ErrorHandler = std::function<void(const std::string& callback, const std::string& what)>;

    struct Options {
        int32_t port = 0;    // the port the controllers connect to, 1025 to 65535
        std::string valid;   // the valid list ("ALL" for every controller); empty: not set
        TextHandler onHereIAm, onLookup, onKeyPad, onCommandKey, onAlarm, onEvent;
        TextHandler onPostAccess, onSmartCard;
        ResponseHandler onResponse;  // takes the response queue: GetNextResponse then finds nothing
        MacHandler onConnected, onDisconnected;
        ErrorHandler onCallbackError;
    };

    explicit Session(Options options) {
        if (active().exchange(true)) {
            throw std::logic_error("zanth::Session: the library runs one session at a time");
        }
        try {
            Start(options);
        } catch (...) {
            Clear();
            active() = false;
            throw;
        }
    }

    ~Session() {
        // No host callback starts after this, and those under way end first.
        Clear();
        ZANTH_CALL(Shutdown)();
        active() = false;
    }

    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // The MACs of the identified controllers.
    static std::vector<std::string> Connected() {
        std::string list = lib::GetConnectedControllers();
        std::vector<std::string> macs;
        size_t pos = 0;
        while (pos <= list.size()) {
            size_t comma = list.find(',', pos);
            std::string item = list.substr(pos, comma == std::string::npos ? std::string::npos : comma - pos);
            if (!item.empty()) macs.push_back(item);
            if (comma == std::string::npos) break;
            pos = comma + 1;
        }
        return macs;
    }

    static bool IsConnected(const std::string& mac) {
        for (const std::string& m : Connected()) {
            if (SameMac(m, mac)) return true;
        }
        return false;
    }

    // Waits until the controller has identified itself, polling every 20 ms; false at the deadline.
    static bool WaitConnected(const std::string& mac, std::chrono::milliseconds timeout) {
        auto deadline = std::chrono::steady_clock::now() + timeout;
        while (!IsConnected(mac)) {
            if (std::chrono::steady_clock::now() >= deadline) return false;
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        return true;
    }

    // Two MACs name the same controller: case and separators don't matter.
    static bool SameMac(std::string_view a, std::string_view b) {
        auto digits = [](std::string_view m) {
            std::string d;
            for (char c : m) {
                if (std::isxdigit(static_cast<unsigned char>(c))) {
                    d += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
                }
            }
            return d;
        };
        return digits(a) == digits(b);
    }

  private:
    static std::atomic<bool>& active() {
        static std::atomic<bool> flag{false};
        return flag;
    }

    void Start(const Options& o) {
        detail::Handlers& h = detail::TheHandlers();
        {
            std::lock_guard<std::mutex> lock(h.mutex);
            h.text[detail::kHereIAm] = o.onHereIAm;
            h.text[detail::kLookup] = o.onLookup;
            h.text[detail::kKeyPad] = o.onKeyPad;
            h.text[detail::kCommandKey] = o.onCommandKey;
            h.text[detail::kAlarm] = o.onAlarm;
            h.text[detail::kEvent] = o.onEvent;
            h.text[detail::kPostAccess] = o.onPostAccess;
            h.text[detail::kSmartCard] = o.onSmartCard;
            h.text[detail::kConnected] = o.onConnected;
            h.text[detail::kDisconnected] = o.onDisconnected;
            h.response = o.onResponse;
            h.error = o.onCallbackError;
        }
        if (!o.valid.empty()) lib::SetValidControllers(o.valid);
        // Each kind is registered once per process: the trampoline stays, the handler changes.
        // Registering again would cost the library two seconds and change nothing.
        Register(detail::kHereIAm, bool(o.onHereIAm), [] { return ZANTH_CALL(SetHereIAmCallback)(&detail::TextTrampoline<detail::kHereIAm>); });
        Register(detail::kLookup, bool(o.onLookup), [] { return ZANTH_CALL(SetLookupCallback)(&detail::TextTrampoline<detail::kLookup>); });
        Register(detail::kKeyPad, bool(o.onKeyPad), [] { return ZANTH_CALL(SetKeyPadDataCallback)(&detail::TextTrampoline<detail::kKeyPad>); });
        Register(detail::kCommandKey, bool(o.onCommandKey), [] { return ZANTH_CALL(SetCommandKeyDataCallback)(&detail::TextTrampoline<detail::kCommandKey>); });
        Register(detail::kAlarm, bool(o.onAlarm), [] { return ZANTH_CALL(SetAlarmCallback)(&detail::TextTrampoline<detail::kAlarm>); });
        Register(detail::kEvent, bool(o.onEvent), [] { return ZANTH_CALL(SetEventCallback)(&detail::TextTrampoline<detail::kEvent>); });
        Register(detail::kPostAccess, bool(o.onPostAccess), [] { return ZANTH_CALL(SetPostAccessCallback)(&detail::TextTrampoline<detail::kPostAccess>); });
        Register(detail::kSmartCard, bool(o.onSmartCard), [] { return ZANTH_CALL(SetSmartCardDataCallback)(&detail::TextTrampoline<detail::kSmartCard>); });
        Register(detail::kResponse, bool(o.onResponse), [] { return ZANTH_CALL(SetResponseCallback)(&detail::ResponseTrampoline); });
        Register(detail::kConnected, bool(o.onConnected), [] { return ZANTH_CALL(SetConnectedControllersCallback)(&detail::TextTrampoline<detail::kConnected>); });
        Register(detail::kDisconnected, bool(o.onDisconnected), [] { return ZANTH_CALL(SetDisconnectedControllersCallback)(&detail::TextTrampoline<detail::kDisconnected>); });
        int32_t result = ZANTH_CALL(Initialization)(o.port, nullptr, nullptr);
        if (result != 0) throw Error("Initialization", result);
    }

    template <class SetCallback>
    static void Register(int kind, bool wanted, SetCallback set) {
        detail::Handlers& h = detail::TheHandlers();
        {
            std::lock_guard<std::mutex> lock(h.mutex);
            if (!wanted || h.registered[kind]) return;
        }
        int32_t result = set();
        if (result != 0) throw Error("Set callback", result);
        std::lock_guard<std::mutex> lock(h.mutex);
        h.registered[kind] = true;
    }

    static void Clear() {
        detail::Handlers& h = detail::TheHandlers();
        std::unique_lock<std::mutex> lock(h.mutex);
        for (auto& t : h.text) t = nullptr;
        h.response = nullptr;
        h.error = nullptr;
        h.idle.wait(lock, [&h] { return h.running == 0; });
    }
};

}  // namespace zanth

#endif  // ZANTH_HPP
