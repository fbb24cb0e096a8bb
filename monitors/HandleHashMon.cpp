#include "monitors/HandleHashMon.h"

#include <cerrno>
#include <cstring>

#include "monitors/ThreadHashMon.h"
#include "monitors/ValidMon.h"
#include "platform/Thread.h"
#include "protocol/Codes.h"
#include "protocol/Result.h"
#include "protocol/Text.h"
#include "stores/LogMon.h"

namespace zanth {

HandleHashMon::HandleHashMon(const char* name, ThreadHashMon& sendMon)
    : HashTable<HandleEntry>(kBuckets), name_(name ? name : ""), sendMon_(sendMon), workers_(10) {
    msgBuffer_[0] = '\0';
}

HandleHashMon::~HandleHashMon() {
    {
        std::lock_guard<std::mutex> g(lock_);
        for (int32_t b = 0; b < BucketCount(); ++b) {
            while (Pop(b, nullptr)) {
            }
        }
        workers_.clear();
    }
    Log(name_.c_str(), kLogTrace, "[HandleHashMon::~HandleHashMon] HandleHashMon terminated");
}

void HandleHashMon::Rebuild() {
    {
        std::lock_guard<std::mutex> g(lock_);
        for (int32_t b = 0; b < BucketCount(); ++b) {
            while (Pop(b, nullptr)) {
            }
        }
        workers_.assign(10, HandleEntry{});
        size_ = 10;
        num_ = 0;
    }
    Log(name_.c_str(), kLogTrace, "[HandleHashMon::~HandleHashMon] HandleHashMon terminated");
}

// Grows the anonymous array by ten; entered with the mutex held. Growth comes one entry early:
// the last slot never fills.
void HandleHashMon::Increase() {
    char text[kLogTextSize];
    FormatText(text, sizeof text, "[HandleHashMon::Increase] size =%d, num =%d", size_, num_);
    Log(name_.c_str(), kLogError, text);
    for (int32_t ii = 0; ii < num_; ++ii) {
        FormatText(text, sizeof text, " ii =%d", ii);
        Log(name_.c_str(), kLogTrace, text);
    }
    size_ += 10;
    workers_.resize(static_cast<size_t>(size_));
    for (int32_t i = num_; i < size_; ++i) workers_[static_cast<size_t>(i)].Clear();
}

void HandleHashMon::AddUnidentified(uint32_t threadId) {
    std::lock_guard<std::mutex> g(lock_);
    if (num_ == size_ - 1) Increase();
    workers_[static_cast<size_t>(num_)] = HandleEntry{"worker", threadId, 0};
    ++num_;
}

void HandleHashMon::AddWorker(const char* mac, uint32_t threadId) {
    std::lock_guard<std::mutex> g(lock_);
    for (int32_t i = 0; i < num_; ++i) {
        if (workers_[static_cast<size_t>(i)].threadId == threadId) {
            workers_.erase(workers_.begin() + i);
            workers_.resize(static_cast<size_t>(size_));
            --num_;
            break;
        }
    }
    Insert(HandleEntry{mac, threadId, 0}, MessageUtil::MacHash(mac));
}

void HandleHashMon::AddPlaceholder(const char* mac, uint32_t threadId) {
    std::lock_guard<std::mutex> g(lock_);
    Insert(HandleEntry{mac, threadId, 0}, MessageUtil::MacHash(mac));
}

void HandleHashMon::IsConnected(const char* mac, uint8_t* flag) {
    std::lock_guard<std::mutex> g(lock_);
    *flag = Find(MessageUtil::MacHash(mac)) != nullptr ? 1 : 0;
}

void HandleHashMon::PostWorkerMsg(const char* mac, uint32_t message, int32_t* result) {
    std::lock_guard<std::mutex> g(lock_);
    HandleEntry* entry = Find(MessageUtil::MacHash(mac));
    if (entry == nullptr) {
        *result = kNoWorker;
        return;
    }
    *result = 0;
    if (!platform::PostThreadMessage(entry->threadId, message)) {
        *result = kPostFailed;
        char text[kLogTextSize], text2[kLogTextSize];
        FormatText(text, sizeof text,
                   "[HandleHashMon::PostWorkerMsg] Error on PostThreadMessage mac=%s", mac);
        FormatText(text2, sizeof text2, "Error code = %d", ESRCH);
        Log(name_.c_str(), kLogError, text, text2);
    }
}

void HandleHashMon::GetConnected(char* buffer, int32_t size, int32_t* error) {
    std::lock_guard<std::mutex> g(lock_);
    *error = 0;
    if (buffer == nullptr || size <= 0) {
        *error = kTooLarge;
        return;
    }
    std::memset(buffer, 0, static_cast<size_t>(size));
    ForEach([&](HandleEntry& e) {
        if (e.name == "0001") return true;
        size_t used = std::strlen(buffer);
        if (used > 0) {
            if (static_cast<size_t>(size) <= used + 1) {
                *error = kTooLarge;
                return false;
            }
            std::strcat(buffer, ",");
            ++used;
        }
        if (static_cast<size_t>(size) <= used + e.name.size() + 2) {
            *error = kTooLarge;
            return false;
        }
        std::strcat(buffer, e.name.c_str());
        return true;
    });
}

void HandleHashMon::RemoveWorker(const char* mac, int32_t* error) {
    std::lock_guard<std::mutex> g(lock_);
    *error = Remove(MessageUtil::MacHash(mac), nullptr) ? 0 : kNoEntry;
}

void HandleHashMon::RemoveWorkerOf(const char* mac, uint32_t threadId, int32_t* error) {
    std::lock_guard<std::mutex> g(lock_);
    bool removed = RemoveIf(
        MessageUtil::MacHash(mac),
        [threadId](const HandleEntry& e) { return e.threadId == threadId; }, nullptr);
    *error = removed ? 0 : kNoEntry;
}

uint32_t HandleHashMon::WorkerThreadOf(const char* mac) {
    std::lock_guard<std::mutex> g(lock_);
    HandleEntry* entry = Find(MessageUtil::MacHash(mac));
    return entry ? entry->threadId : 0;
}

void HandleHashMon::RemoveUnidentified(uint32_t threadId, const void*, int32_t* result) {
    std::lock_guard<std::mutex> g(lock_);
    for (int32_t i = 0; i < num_; ++i) {
        if (workers_[static_cast<size_t>(i)].threadId == threadId) {
            workers_.erase(workers_.begin() + i);
            workers_.resize(static_cast<size_t>(size_));
            --num_;
            *result = i;
            return;
        }
    }
    *result = kNoWorker;
}

int32_t HandleHashMon::UnidentifiedCount() {
    std::lock_guard<std::mutex> g(lock_);
    return num_;
}

// Entered with the mutex held: the order is workerMon before sendMon.
void HandleHashMon::QueueTerminateFor(const char* mac) {
    sendMon_.Queue(record_, mac, 0, 0, msgBuffer_, "", "");
}

void HandleHashMon::SendTerminateAll() {
    std::lock_guard<std::mutex> g(lock_);
    util_.BuildMessage(ZANTH_TERMINATE, "", 0, msgBuffer_, kMessageBufferSize);
    ForEach([this](HandleEntry& e) {
        QueueTerminateFor(e.name.c_str());
        return true;
    });
}

void HandleHashMon::SendTerminateInvalid(ValidMon& validMon) {
    std::lock_guard<std::mutex> g(lock_);
    util_.BuildMessage(ZANTH_TERMINATE, "", 0, msgBuffer_, kMessageBufferSize);
    ForEach([this, &validMon](HandleEntry& e) {
        // Contains raises the text it is given, so it gets a copy.
        std::string mac = e.name;
        uint8_t valid = 0;
        validMon.Contains(mac.data(), &valid);
        if (!valid) QueueTerminateFor(e.name.c_str());
        return true;
    });
}

void HandleHashMon::TerminateAll() {
    std::lock_guard<std::mutex> g(lock_);
    for (int32_t b = 0; b < BucketCount(); ++b) {
        HandleEntry entry;
        while (Pop(b, &entry)) {
            if (!platform::TerminateThread(entry.threadId)) {
                char text2[kLogTextSize];
                FormatText(text2, sizeof text2, "Error code = %d", ESRCH);
                Log(name_.c_str(), kLogError,
                    "[HandleHashMon::TerminateAll] Error on TerminateThread (hash)", text2);
            }
        }
    }
    // Workers without a MAC only lose their entries; they run on until their sockets end them.
    for (HandleEntry& e : workers_) e.Clear();
    num_ = 0;
}

void HandleHashMon::TerminateByName(const char* mac) {
    std::lock_guard<std::mutex> g(lock_);
    HandleEntry entry;
    if (!Remove(MessageUtil::MacHash(mac), &entry)) return;
    if (!platform::TerminateThread(entry.threadId)) {
        char text2[kLogTextSize];
        FormatText(text2, sizeof text2, "Error code = %d", ESRCH);
        Log(name_.c_str(), kLogError, "[HandleHashMon::TerminateByName] Error on TerminateThread",
            text2);
    }
}

void HandleHashMon::DropSilentWorker(const char* mac) {
    if (mac == nullptr) return;
    uint32_t worker = WorkerThreadOf(mac);
    if (worker == 0) return;
    int32_t postResult = 0;
    PostWorkerMsg(mac, platform::WM_WORKER_KILL, &postResult);
    platform::Sleep(5000);
    // Only the Worker that was told to go loses its entry; one that has identified since stays.
    int32_t error = 0;
    RemoveWorkerOf(mac, worker, &error);
    // Unlisted, it no longer answers for its MAC, and a controller that still hears its
    // acknowledgements would never call again: woken, it ends its link at its next turn.
    if (error == 0) platform::WakeThread(worker);
}

}  // namespace zanth
