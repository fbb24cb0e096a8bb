#pragma once
// The journal: every record the site produced, in one SQLite file (WAL), under ids that increase
// by one without gaps and never mean two things. One writer (the Ingest thread and the calls it
// serialises) appends in transactions; readers page through it on connections of their own.
//
// Retention drops the oldest records by age and by size, but never one beyond the "published up
// to" mark: a message bus moves that mark once the broker holds a record. Until a publisher is
// attached, everything counts as published.

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "gateway/Sqlite.h"

namespace zanthd {

struct Record {
    int64_t id = 0;
    std::string kind;  // event alarm lookup door pin connect disconnect decision audit
    std::string mac;
    int64_t receivedMs = 0;  // Unix time, milliseconds
    std::string raw;
    std::string fields;  // a JSON object, "{}" when the format is unknown
    // Look-ups and PINs: the decision, who took it, and how long it took.
    std::string decision;
    std::string source;
    double latencyMs = -1;
    std::string actor;  // audit: the token's name
};

int64_t NowMs();

// Reads the journal on a connection of its own: one per thread.
// A search back through the journal, newest first, over the ids in [floor, before).
struct JournalSearch {
    int64_t before = INT64_MAX;
    int64_t floor = 0;
    int limit = 50;
    // Kinds to take, empty for all; "heartbeat" names the alarms whose fields say
    // "type":"heartbeat", and "alarm" then the other alarms.
    std::vector<std::string> kinds;
    std::string mac;         // empty: any controller
    int door = -1;           // the fields' "door"; -1: any
    std::string text;        // a piece of the raw text; empty: any
};

class JournalReader {
  public:
    bool Open(const std::string& path, std::string* error);
    // Up to `limit` records with id > after, oldest first; false on a database error.
    bool Read(int64_t after, int limit, const std::string& kind, std::vector<Record>* out);
    // Up to `q.limit` records that match, newest first; false on a database error.
    bool Search(const JournalSearch& q, std::vector<Record>* out);
    // The oldest id held, 0 when none.
    int64_t OldestId();

  private:
    Database db_;
    Statement all_, byKind_, oldest_, search_;
};

class Journal {
  public:
    struct Options {
        std::string path;
        bool synchronousFull = false;
        int busyMs = 1000;
    };
    struct Retention {
        int days = 0;             // 0: no bound by age
        int64_t maxRecords = 0;   // 0: no bound by count
        int64_t maxBytes = 0;     // 0: no bound by size
    };
    using Listener = std::function<void(const std::vector<Record>&)>;

    bool Open(const Options& options, std::string* error);
    void Close();

    // One transaction: ids are given to the records in order and `intakeSeq` (when non-zero) is
    // stored as the last intake entry taken in. On failure nothing is stored, the records keep
    // id 0, and `error` says why.
    bool Append(std::vector<Record>& records, uint64_t intakeSeq, std::string* error);

    int64_t LastId() const { return lastId_.load(); }
    uint64_t IntakeSeq() const { return intakeSeq_; }
    // Blocks until a record beyond `id` is stored or the deadline passes; the last id.
    int64_t WaitBeyond(int64_t id, std::chrono::steady_clock::time_point deadline);
    void WakeWaiters();

    // Fan-out: called on the writer's thread after each commit, with the records stored. A
    // listener must return quickly (hand the records over, never block).
    void Subscribe(Listener listener);

    // The publisher's mark.
    void AttachPublisher(bool attached) { publisherAttached_ = attached; }
    int64_t PublishedUpto() const;
    bool MarkPublished(int64_t id, std::string* error);

    // Drops what the retention allows (at most `budget` records this call); the number dropped,
    // -1 on a database error.
    int64_t ApplyRetention(const Retention& retention, int64_t nowMs, int64_t budget);
    // Commit cost so far.
    uint64_t Commits() const { return commits_.load(); }
    uint64_t CommitNanos() const { return commitNanos_.load(); }
    const std::string& Path() const { return options_.path; }

  private:
    bool ReadMeta(const char* key, int64_t* value);
    int64_t ReceivedAt(int64_t id);

    Options options_;
    mutable std::mutex writeMutex_;  // the write connection and its statements
    Database db_;
    Statement insert_, setMeta_, getMeta_, oldest_, receivedAt_, deleteUpto_, pageCount_,
        freePages_, pageSize_;
    std::atomic<int64_t> lastId_{0};
    uint64_t intakeSeq_ = 0;
    int64_t publishedUpto_ = 0;
    std::atomic<bool> publisherAttached_{false};

    std::mutex waitMutex_;
    std::condition_variable waitCv_;

    std::mutex listenersMutex_;
    std::vector<Listener> listeners_;

    std::atomic<uint64_t> commits_{0};
    std::atomic<uint64_t> commitNanos_{0};
};

}  // namespace zanthd
