#include "stores/MsgMon.h"

#include <cstdint>
#include <cstdio>
#include <cstring>

#include "platform/File.h"
#include "protocol/Result.h"
#include "protocol/Text.h"
#include "stores/LogMon.h"

namespace zanth {
namespace {

// File offsets are computed in 64 bits; a slot index read from a damaged header that would
// overflow them makes the seek fail rather than wrap.
int64_t SlotOffset(uint64_t slot, int32_t recordSize) {
    if (recordSize <= 0 || slot > static_cast<uint64_t>(INT64_MAX / recordSize)) return -1;
    return static_cast<int64_t>(slot) * recordSize;
}

}  // namespace

MsgMon::MsgMon(const char* name, const char* fileName, const char* folder)
    : name_(name ? name : ""), fileName_(fileName ? fileName : "") {
    logText_[0] = '\0';
    opened_ = Open(folder);
}

MsgMon::~MsgMon() {
    FormatText(logText_, sizeof logText_, "[MsgMon::~MsgMon] MsgMon terminated %s", path_.c_str());
    Log(name_.c_str(), kLogTrace, logText_);
}

void MsgMon::ResetFields() {
    logSize_ = kInitialLogSize;
    recordSize_ = kRecordSize;
    readIndex_ = 1;
    writeIndex_ = 1;
    numEntries_ = 0;
    numUnread_ = 0;
}

bool MsgMon::Open(const char* folder) {
    ResetFields();
    path_ = std::string(folder ? folder : "") + fileName_;

    int fd = platform::OpenReadWrite(path_.c_str());
    if (fd < 0) {
        // Taken to be missing: a new store.
        fd = platform::OpenCreateTruncate(path_.c_str());
        if (fd < 0) {
            FormatText(logText_, sizeof logText_, "[MsgMon::MsgMon] Error on _open (create) %s",
                       path_.c_str());
            Log(name_.c_str(), kLogFatal, logText_);
            return false;
        }
    } else {
        std::memset(record_, 0, sizeof record_);
        if (platform::Seek(fd, 0) != 0) {
            platform::CloseFile(fd);
            FormatText(logText_, sizeof logText_, "[MsgMon::MsgMon] Error on _lseek %s",
                       path_.c_str());
            Log(name_.c_str(), kLogFatal, logText_);
            return false;
        }
        int32_t expected = kRecordSize;
        if (platform::ReadFile(fd, record_, kRecordSize) == kRecordSize) {
            int values[6] = {static_cast<int>(logSize_),    expected,
                             static_cast<int>(readIndex_),  static_cast<int>(writeIndex_),
                             static_cast<int>(numEntries_), static_cast<int>(numUnread_)};
            // The scan stops at the first field that can't be read; the rest keep their values.
            std::sscanf(record_, "%d%d%d%d%d%d", &values[0], &values[1], &values[2], &values[3],
                        &values[4], &values[5]);
            logSize_ = static_cast<uint64_t>(static_cast<int64_t>(values[0]));
            expected = values[1];
            readIndex_ = static_cast<uint64_t>(static_cast<int64_t>(values[2]));
            writeIndex_ = static_cast<uint64_t>(static_cast<int64_t>(values[3]));
            numEntries_ = static_cast<uint64_t>(static_cast<int64_t>(values[4]));
            numUnread_ = static_cast<uint64_t>(static_cast<int64_t>(values[5]));
        } else {
            expected = 0;
        }
        if (expected == kRecordSize && !InsideTheRing()) {
            // A header whose slots or counts lie outside its own ring would send the next read
            // or write anywhere in (or far past) the file: it is no store either.
            expected = 0;
        }
        if (expected != kRecordSize) {
            // A short header, another record size or a damaged ring: the contents go, an empty
            // store begins.
            platform::CloseFile(fd);
            fd = platform::OpenCreateTruncate(path_.c_str());
            if (fd < 0) {
                FormatText(logText_, sizeof logText_,
                           "[MsgMon::MsgMon] Error on _open (recreate) %s", path_.c_str());
                Log(name_.c_str(), kLogFatal, logText_);
                return false;
            }
            ResetFields();
        }
    }
    if (WriteParams(fd) != 0) {
        platform::CloseFile(fd);
        return false;
    }
    platform::CloseFile(fd);
    return true;
}

bool MsgMon::InsideTheRing() const {
    // The header prints and parses 32-bit values: a ring of more slots than that can't be named.
    if (logSize_ < 1 || logSize_ > static_cast<uint64_t>(INT32_MAX)) return false;
    auto slot = [this](uint64_t index) { return index >= 1 && index <= logSize_; };
    return slot(readIndex_) && slot(writeIndex_) && numEntries_ <= logSize_ &&
           numUnread_ <= logSize_;
}

int32_t MsgMon::WriteParams(int fd) {
    std::memset(record_, 0, sizeof record_);
    if (platform::Seek(fd, 0) != 0) {
        FormatText(logText_, sizeof logText_, "[MsgMon::WriteParams] Error on _lseek %s",
                   path_.c_str());
        Log(name_.c_str(), kLogError, logText_);
        return kFileError;
    }
    FormatText(record_, sizeof record_, "%d %d %d %d %d %d", static_cast<int>(logSize_),
               recordSize_, static_cast<int>(readIndex_), static_cast<int>(writeIndex_),
               static_cast<int>(numEntries_), static_cast<int>(numUnread_));
    if (platform::WriteFile(fd, record_, kRecordSize) != kRecordSize) {
        FormatText(logText_, sizeof logText_, "[MsgMon::WriteParams] Error on _write %s",
                   path_.c_str());
        Log(name_.c_str(), kLogError, logText_);
        return kFileError;
    }
    return 0;
}

void MsgMon::WriteMsg(const char* text, int32_t length, int32_t* error) {
    std::lock_guard<std::mutex> g(lock_);
    *error = 0;
    if (length > recordSize_ || length > kRecordSize) {
        // Refused whole, not cut.
        FormatText(logText_, sizeof logText_, "[MsgMon::WriteMsg] msg is too big (%s)",
                   path_.c_str());
        Log(name_.c_str(), kLogError, logText_);
        *error = kTooLarge;
        return;
    }
    int fd = platform::OpenReadWrite(path_.c_str());
    if (fd < 0) {
        FormatText(logText_, sizeof logText_, "[MsgMon::WriteMsg] Error on _open %s",
                   path_.c_str());
        Log(name_.c_str(), kLogError, logText_);
        *error = kFileError;
        return;
    }
    if (numEntries_ >= logSize_) {
        --numEntries_;
        // The ring is full: when the oldest unread record is the one about to go, the reader
        // moves on past it. The file must stop naming that slot as unread before the slot is
        // overwritten; otherwise a crash between the slot's write and the header's would leave
        // the newest record first in line, ahead of the older ones.
        if (readIndex_ == writeIndex_ && numUnread_ != 0) {
            ++readIndex_;
            if (readIndex_ > logSize_) readIndex_ = 1;
            --numUnread_;
            if (WriteParams(fd) != 0) *error = kFileError;
        }
    }
    // The header shares the scratch buffer, so the record goes into it only now.
    std::memset(record_, 0, sizeof record_);
    if (text && length > 0) std::memcpy(record_, text, static_cast<size_t>(length));
    if (*error != 0) {
        // The header still names the slot as unread: it is left alone, and this record lost.
    } else if (platform::Seek(fd, SlotOffset(writeIndex_, recordSize_)) < 0) {
        FormatText(logText_, sizeof logText_, "[MsgMon::WriteMsg] Error on _lseek %s",
                   path_.c_str());
        Log(name_.c_str(), kLogError, logText_);
        *error = kFileError;
    } else if (platform::WriteFile(fd, record_, kRecordSize) != kRecordSize) {
        FormatText(logText_, sizeof logText_, "[MsgMon::WriteMsg] Error on _write %s",
                   path_.c_str());
        Log(name_.c_str(), kLogError, logText_);
        *error = kFileError;
    }
    if (*error == 0) {
        ++numEntries_;
        ++writeIndex_;
        if (writeIndex_ > logSize_) writeIndex_ = 1;
        ++numUnread_;
        if (numUnread_ > logSize_) numUnread_ = logSize_;
        if (WriteParams(fd) != 0) *error = kFileError;
    }
    platform::CloseFile(fd);
}

void MsgMon::GetMsg(char* dest, int32_t size, int32_t* error) {
    std::lock_guard<std::mutex> g(lock_);
    *error = 0;
    if (numUnread_ == 0) *error = kNoMessage;
    if (*error == 0 && size < recordSize_) {
        FormatText(logText_, sizeof logText_, "[MsgMon::GetMsg] msg is not large enough (%s)",
                   path_.c_str());
        Log(name_.c_str(), kLogError, logText_);
        *error = kTooLarge;
    }
    if (*error != 0) return;
    std::memset(record_, 0, sizeof record_);
    std::memset(dest, 0, static_cast<size_t>(size));
    int fd = platform::OpenReadWrite(path_.c_str());
    if (fd < 0) {
        FormatText(logText_, sizeof logText_, "[MsgMon::GetMsg] Error on _open %s", path_.c_str());
        Log(name_.c_str(), kLogError, logText_);
        *error = kFileError;
        return;
    }
    if (platform::Seek(fd, SlotOffset(readIndex_, recordSize_)) < 0) {
        FormatText(logText_, sizeof logText_, "[MsgMon::GetMsg] Error on _lseek %s", path_.c_str());
        Log(name_.c_str(), kLogError, logText_);
        *error = kFileError;
    } else if (platform::ReadFile(fd, record_, kRecordSize) != kRecordSize) {
        FormatText(logText_, sizeof logText_, "[MsgMon::GetMsg] Error on _read %s", path_.c_str());
        Log(name_.c_str(), kLogError, logText_);
        *error = kFileError;
    } else {
        std::memcpy(dest, record_, kRecordSize);
        ++readIndex_;
        if (readIndex_ > logSize_) readIndex_ = 1;
        --numUnread_;
        // The record is delivered even when the header can't be rewritten.
        if (WriteParams(fd) != 0) *error = kFileError;
    }
    platform::CloseFile(fd);
}

void MsgMon::SetLogSize(uint64_t newSize, int32_t* error) {
    std::lock_guard<std::mutex> g(lock_);
    *error = 0;
    if (newSize == logSize_) return;
    int fd = platform::OpenCreateTruncate(path_.c_str());
    if (fd < 0) {
        FormatText(logText_, sizeof logText_, "[MsgMon::SetLogSize] Error on _open %s",
                   path_.c_str());
        Log(name_.c_str(), kLogError, logText_);
        *error = kFileError;
        return;
    }
    // Any change of size discards every record.
    logSize_ = newSize;
    recordSize_ = kRecordSize;
    readIndex_ = writeIndex_ = 1;
    numEntries_ = numUnread_ = 0;
    if (WriteParams(fd) != 0) *error = kFileError;
    platform::CloseFile(fd);
}

void MsgMon::GetLogSize(uint64_t* result) {
    std::lock_guard<std::mutex> g(lock_);
    *result = logSize_;
}

void MsgMon::GetUnread(uint64_t* result) {
    std::lock_guard<std::mutex> g(lock_);
    *result = numUnread_;
}

bool MsgMon::Rebuild(const char* folder) {
    std::lock_guard<std::mutex> g(lock_);
    FormatText(logText_, sizeof logText_, "[MsgMon::~MsgMon] MsgMon terminated %s", path_.c_str());
    Log(name_.c_str(), kLogTrace, logText_);
    opened_ = Open(folder);
    return opened_;
}

bool MsgMon::Opened() {
    std::lock_guard<std::mutex> g(lock_);
    return opened_;
}

std::string MsgMon::Path() {
    std::lock_guard<std::mutex> g(lock_);
    return path_;
}

}  // namespace zanth
