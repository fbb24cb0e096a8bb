#include "gateway/Library.h"

#ifndef ZANTH_HPP_LOAD_AT_RUNTIME
#error "zanthd loads the library at run time: build with ZANTH_HPP_LOAD_AT_RUNTIME"
#endif
#include <zanth.hpp>

#include <filesystem>

#include "gateway/Log.h"

namespace zanthd {

struct Library::State {
    std::unique_ptr<zanth::Session> session;
};

namespace {

// A poll's failure other than "nothing there" is logged and reads as nothing.
template <class Poll>
auto Quietly(const char* what, Poll&& poll) -> decltype(poll()) {
    try {
        return poll();
    } catch (const std::exception& e) {
        Log(Level::Warn, "library", "%s: %s", what, e.what());
        return {};
    }
}

}  // namespace

Library::Library() : state_(std::make_unique<State>()) {}

Library::~Library() { Stop(); }

bool Library::Load(const std::string& path, std::string* error) {
    // The library built or installed beside the program comes first: a sanitizer that wraps
    // dlopen hides the program's own run path from the search.
    std::string chosen = path;
    if (chosen.empty()) {
        std::error_code ec;
        auto exe = std::filesystem::read_symlink("/proc/self/exe", ec);
        auto beside = exe.parent_path().parent_path() / "lib" / "libzanth.so.2";
        chosen = !ec && std::filesystem::exists(beside, ec) ? beside.string() : "libzanth.so.2";
    }
    try {
        zanth::Load(chosen);
        return true;
    } catch (const std::exception& e) {
        *error = e.what();
        return false;
    }
}

std::string Library::Version() const {
    return Quietly("GetDLLVersion", [] { return zanth::lib::GetDLLVersion(); });
}

std::string Library::LogFolder() const {
    return Quietly("GetLogFilePath", [] { return zanth::lib::GetLogFilePath(); });
}

bool Library::RingSize(bool alarms, uint64_t* size) const {
    try {
        *size = alarms ? zanth::lib::AlarmLogSize(0) : zanth::lib::EventLogSize(0);
        return true;
    } catch (const std::exception& e) {
        Log(Level::Error, "library", "%s", e.what());
        return false;
    }
}

int32_t Library::SetRingSize(bool alarms, uint64_t size) {
    try {
        alarms ? zanth::lib::AlarmLogSize(1, size) : zanth::lib::EventLogSize(1, size);
        return 0;
    } catch (const zanth::Error& e) {
        return e.code();
    }
}

uint64_t Library::Unread(bool alarms) const {
    return Quietly("NumberUnread", [alarms] {
        return alarms ? zanth::lib::NumberUnreadAlarms() : zanth::lib::NumberUnreadEvents();
    });
}

int32_t Library::SetWaitTime(int32_t ms) {
    try {
        int32_t value = ms;
        zanth::lib::RecvWaitTime(1, value);
        return 0;
    } catch (const zanth::Error& e) {
        return e.code();
    }
}

int32_t Library::SetValid(const std::string& list) {
    try {
        zanth::lib::SetValidControllers(list);
        return 0;
    } catch (const zanth::Error& e) {
        return e.code();
    }
}

int32_t Library::Start(int32_t port, MacHandler connected, MacHandler disconnected) {
    zanth::Session::Options o;
    o.port = port;
    o.onConnected = std::move(connected);
    o.onDisconnected = std::move(disconnected);
    o.onCallbackError = [](const std::string& callback, const std::string& what) {
        Log(Level::Error, "library", "the %s handler failed: %s", callback.c_str(), what.c_str());
    };
    try {
        state_->session = std::make_unique<zanth::Session>(o);
        return 0;
    } catch (const zanth::Error& e) {
        return e.code();
    } catch (const std::exception& e) {
        Log(Level::Error, "library", "cannot start: %s", e.what());
        return -10001;
    }
}

void Library::Stop() { state_->session.reset(); }

std::optional<std::string> Library::NextEvent() {
    return Quietly("GetNextEvent", [] { return zanth::lib::GetNextEvent(); });
}

std::optional<std::string> Library::NextAlarm() {
    return Quietly("GetNextAlarm", [] { return zanth::lib::GetNextAlarm(); });
}

std::optional<std::string> Library::NextLookup() {
    return Quietly("GetNextLookup", [] { return zanth::lib::GetNextLookup(); });
}

std::optional<std::string> Library::NextPin() {
    return Quietly("GetNextPin", [] { return zanth::lib::GetNextPin(); });
}

std::optional<std::string> Library::NextPostAccess() {
    return Quietly("GetNextPostAccess", [] { return zanth::lib::GetNextPostAccess(); });
}

bool Library::NextResponse(int32_t* rspid, std::string* frame) {
    auto r = Quietly("GetNextResponse", [] { return zanth::lib::GetNextResponse(); });
    if (!r) return false;
    *rspid = r->rspid;
    *frame = std::move(r->buffer);
    return true;
}

bool Library::Connected(std::string* list) const {
    try {
        *list = zanth::lib::GetConnectedControllers();
        return true;
    } catch (const std::exception& e) {
        Log(Level::Warn, "library", "%s", e.what());
        return false;
    }
}

}  // namespace zanthd
