#pragma once
// The intake file: each event or alarm taken from the library's message files is written here
// (one write, no sync) before the next one is taken, and the file is emptied once the journal
// has committed them. A record taken from the library thus lives in the OS's hands within
// microseconds, and a kill -9 loses at most the one between GetNextEvent and this write, while
// the journal commits in batches. At start the entries the journal lacks (sequence numbers
// above the journal's intake mark) are taken in first.

#include <cstdint>
#include <string>
#include <vector>

namespace zanthd {

struct IntakeEntry {
    uint64_t seq = 0;
    int64_t receivedMs = 0;
    char kind = 'e';  // 'e' event, 'a' alarm
    std::string text;
};

class Intake {
  public:
    static constexpr size_t kTextMax = 144;

    ~Intake();
    bool Open(const std::string& path, std::string* error);
    // Every whole entry in the file, in order.
    std::vector<IntakeEntry> ReadAll();
    // Appends one entry; false (errno kept in `error`) when the write did not go through whole.
    bool Append(const IntakeEntry& entry, std::string* error);
    // Empties the file once everything in it is in the journal.
    bool Clear();
    uint64_t Bytes() const { return bytes_; }

  private:
    int fd_ = -1;
    uint64_t bytes_ = 0;
};

}  // namespace zanthd
