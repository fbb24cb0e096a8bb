#pragma once
// The journal's one writer. Its thread takes events and alarms from the library's message files
// (GetNextEvent, GetNextAlarm), puts each in the intake file before it takes the next, and
// commits them in batches together with the records the rest of the gateway submits (look-ups
// with their decisions, door and PIN reports, connects, operator actions).
//
// When the journal can't take a batch (a full disk, a database locked by someone else), the
// batch stays in hand and in the intake file, nothing more is taken from the message files, and
// Healthy() turns false until a commit goes through again: the events wait in the library's
// ring, which is sized for that.

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "gateway/Intake.h"
#include "gateway/Journal.h"

namespace zanthd {

class Library;
class Metrics;
class PayloadCodec;

class Ingest {
  public:
    using Done = std::function<void(bool stored, int64_t id)>;
    struct Options {
        int batchMax = 512;
        int pollMs = 5;
        Journal::Retention retention;
    };

    Ingest(Journal& journal, Intake& intake, const PayloadCodec& codec, Metrics& metrics,
           Options options);
    ~Ingest();

    // Takes into the journal what the intake file holds beyond the journal's mark (the batch a
    // former run had taken but not committed). Before Start. False when the journal refused.
    bool Recover(std::string* error);
    // Takes events and alarms from the message files until none is unread, while the library
    // is loaded but not yet started (before a resize of the rings would discard them).
    bool DrainRings(Library& library, std::string* error);

    void Start(Library* library);
    // Stops taking from the library, commits what is in hand and submitted (for up to
    // `graceMs`), and ends the thread.
    void Stop(int graceMs);

    // A record from elsewhere in the gateway; `done` runs on the writer's thread after the
    // commit (or with false when the gateway stops before the record could be stored).
    void Submit(Record record, Done done = {});

    bool Healthy() const { return healthy_.load(); }
    std::string Problem() const;
    // Records submitted and not yet committed, and events/alarms in hand.
    size_t Backlog() const;

    // A ring text as a journal record: kind, MAC and parsed fields.
    static Record FromRing(const PayloadCodec& codec, char kind, const std::string& text,
                           int64_t receivedMs);

  private:
    struct Pending {
        Record record;
        Done done;
    };
    void Run();
    // Takes up to `max` ring records into `out`, each through the intake file.
    void TakeFromRings(size_t max, std::vector<Record>* out);
    bool Commit(std::vector<Record>& ring, std::vector<Pending>& batch);
    void SetProblem(const std::string& problem);

    Journal& journal_;
    Intake& intake_;
    const PayloadCodec& codec_;
    Metrics& metrics_;
    const Options options_;
    std::atomic<Library*> api_{nullptr};

    std::thread thread_;
    std::atomic<bool> stopping_{false};
    std::atomic<bool> healthy_{true};
    mutable std::mutex mutex_;
    std::condition_variable cv_;
    std::deque<Pending> pending_;
    std::string problem_;
    std::atomic<size_t> inHand_{0};
    uint64_t nextSeq_ = 0;
    bool alarmsFirst_ = false;
    int64_t lastRetentionMs_ = 0;
};

}  // namespace zanthd
