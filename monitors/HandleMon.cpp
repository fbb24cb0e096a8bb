#include "monitors/HandleMon.h"

#include <cerrno>
#include <cstring>

#include "platform/Thread.h"
#include "protocol/CommandRecord.h"
#include "protocol/Result.h"
#include "protocol/Text.h"
#include "stores/LogMon.h"

namespace zanth {

HandleMon::HandleMon(const char* name) : name_(name ? name : "") {
    entries_.reserve(10);
}

HandleMon::~HandleMon() {
    Log(name_.c_str(), kLogTrace, "[HandleMon::~HandleMon] HandleMon terminated");
}

int32_t HandleMon::IndexOf(const char* name) const {
    for (size_t i = 0; i < entries_.size(); ++i) {
        if (entries_[i].name == name) return static_cast<int32_t>(i);
    }
    return -1;
}

void HandleMon::Add(const char* name, uint32_t threadId) {
    std::lock_guard<std::mutex> g(lock_);
    entries_.push_back(HandleEntry{name ? name : "", threadId, 0});
}

void HandleMon::IsRunning(const char* name, uint8_t* found) {
    std::lock_guard<std::mutex> g(lock_);
    *found = IndexOf(name) >= 0 ? 1 : 0;
}

void HandleMon::Remove(const char* name, int32_t* index) {
    std::lock_guard<std::mutex> g(lock_);
    int32_t i = IndexOf(name);
    if (i < 0) {
        *index = kNoWorker;
        return;
    }
    entries_.erase(entries_.begin() + i);
    *index = i;
}

void HandleMon::IsTerminating(uint8_t* flag) {
    std::lock_guard<std::mutex> g(lock_);
    *flag = (terminate_ || unloading_) ? 1 : 0;
}

bool HandleMon::Terminating() {
    uint8_t flag = 0;
    IsTerminating(&flag);
    return flag != 0;
}

void HandleMon::SetTerminating(uint8_t flag) {
    {
        std::lock_guard<std::mutex> g(lock_);
        terminate_ = flag;
    }
    // Idle Workers wait on their sockets: each must see the flag now, not at its next message.
    if (flag) platform::WakeAllThreads();
}

void HandleMon::ShouldStop(const char* name, uint8_t* stop) {
    std::lock_guard<std::mutex> g(lock_);
    int32_t i = IndexOf(name);
    if (terminate_ || unloading_ || i < 0) {
        *stop = 1;
    } else {
        *stop = entries_[static_cast<size_t>(i)].stop;
    }
}

void HandleMon::SetStop(const char* name, uint8_t stop, int32_t* index) {
    std::lock_guard<std::mutex> g(lock_);
    int32_t i = IndexOf(name);
    *index = i < 0 ? kNoWorker : i;
    if (i >= 0) entries_[static_cast<size_t>(i)].stop = stop;
}

void HandleMon::PostMsgByName(const char* name, uint32_t message, int32_t* result) {
    std::lock_guard<std::mutex> g(lock_);
    int32_t i = IndexOf(name);
    if (i < 0) {
        *result = kNoWorker;
        return;
    }
    *result = i;
    uint32_t id = entries_[static_cast<size_t>(i)].threadId;
    if (id != 0 && !platform::PostThreadMessage(id, message)) {
        *result = kPostFailed;
        char text[kLogTextSize], text2[kLogTextSize];
        FormatText(text, sizeof text, "[HandleMon::PostMsgByName] Error on PostThreadMessage %s",
                   name);
        FormatText(text2, sizeof text2, "Error code = %d", ESRCH);
        Log(name_.c_str(), kLogError, text, text2);
    }
}

void HandleMon::TerminateByName(const char* name) {
    std::lock_guard<std::mutex> g(lock_);
    int32_t i = IndexOf(name);
    if (i < 0) return;
    uint32_t id = entries_[static_cast<size_t>(i)].threadId;
    if (!platform::TerminateThread(id)) {
        char text2[kLogTextSize];
        FormatText(text2, sizeof text2, "Error code = %d", ESRCH);
        Log(name_.c_str(), kLogError, "[HandleMon::TerminateByName] Error on TerminateThread",
            text2);
    }
    entries_.erase(entries_.begin() + i);
}

void HandleMon::TerminateAll() {
    std::lock_guard<std::mutex> g(lock_);
    for (HandleEntry& e : entries_) {
        if (e.threadId != 0 && !platform::TerminateThread(e.threadId)) {
            char text2[kLogTextSize];
            FormatText(text2, sizeof text2, "Error code = %d", ESRCH);
            Log(name_.c_str(), kLogError, "[HandleMon::TerminateByName] Error on TerminateThread",
                text2);
        }
    }
    entries_.clear();
}

void HandleMon::RemoveIfThread(const char* name, uint32_t threadId) {
    std::lock_guard<std::mutex> g(lock_);
    int32_t i = IndexOf(name);
    if (i >= 0 && entries_[static_cast<size_t>(i)].threadId == threadId) {
        entries_.erase(entries_.begin() + i);
    }
}

void HandleMon::SetUnloading(bool unloading) {
    std::lock_guard<std::mutex> g(lock_);
    unloading_ = unloading;
}

uint32_t HandleMon::ThreadIdOf(const char* name) {
    std::lock_guard<std::mutex> g(lock_);
    int32_t i = IndexOf(name);
    return i < 0 ? 0 : entries_[static_cast<size_t>(i)].threadId;
}

}  // namespace zanth
