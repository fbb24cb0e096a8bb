#pragma once
// A circular store of fixed 144-byte records in a file, so that events and alarms survive until
// the host has read them, across restarts too. Slot 0 is a text header
// "logSize recordSize readIndex writeIndex numEntries numUnread"; slot n lies at n * 144.
// Every operation opens the file, works and closes it; the header is rewritten after each
// change, so a crash between a slot's write and the header's loses at most that record.

#include <cstdint>
#include <mutex>
#include <string>

#include "protocol/CommandRecord.h"

namespace zanth {

class MsgMon {
  public:
    static constexpr int32_t kRecordSize = 144;
    static constexpr uint64_t kInitialLogSize = 5000;

    // Opens (or creates) `fileName` in `folder` (ending in its separator), or in the current
    // directory when the folder is empty. A short header, a record size other than 144, or a
    // header whose indexes or counts lie outside its ring starts an empty store. A file that
    // can't be opened or written is logged at level 25 and leaves Opened() false: the library
    // then stops.
    MsgMon(const char* name, const char* fileName, const char* folder = "");
    ~MsgMon();
    MsgMon(const MsgMon&) = delete;
    MsgMon& operator=(const MsgMon&) = delete;

    // Copies the oldest unread record into `dest` (the whole buffer is zeroed first, then exactly
    // 144 bytes written). -10008 when nothing is unread, -10006 when size is below 144, -10007
    // on a file error.
    void GetMsg(char* dest, int32_t size, int32_t* error);
    // Stores one record; overwrites the oldest when the ring is full. -10006 when longer than
    // 144 bytes (refused whole), -10007 on a file error.
    void WriteMsg(const char* text, int32_t length, int32_t* error);
    // Any change of size discards all records. -10007 on a file error.
    void SetLogSize(uint64_t newSize, int32_t* error);
    void GetLogSize(uint64_t* result);
    void GetUnread(uint64_t* result);

    // The path setters' rebuild, in place: the store starts again from whatever is found in
    // `folder`. The old file stays where it was. False as Opened().
    bool Rebuild(const char* folder);

    bool Opened();
    std::string Path();

  private:
    // False when the file couldn't be opened, created or given its header.
    bool Open(const char* folder);
    int32_t WriteParams(int fd);
    void ResetFields();
    // The parsed header describes a ring: both indexes name one of its slots, and neither count
    // exceeds it.
    bool InsideTheRing() const;

    std::mutex lock_;
    std::string name_;
    std::string fileName_;
    uint64_t logSize_ = kInitialLogSize;
    int32_t recordSize_ = kRecordSize;
    uint64_t readIndex_ = 1;
    uint64_t writeIndex_ = 1;
    uint64_t numEntries_ = 0;
    uint64_t numUnread_ = 0;
    std::string path_;
    bool opened_ = false;
    char record_[kRecordSize + 1];
    char logText_[kLogTextSize];
};

}  // namespace zanth
