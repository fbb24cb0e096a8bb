#include "gateway/Ingest.h"

#include <cstring>
#include <chrono>
#include <nlohmann/json.hpp>

#include "gateway/Library.h"
#include "gateway/Log.h"
#include "gateway/Metrics.h"
#include "gateway/PayloadCodec.h"

namespace zanthd {
namespace {

std::string FieldsJson(const std::map<std::string, std::string>& fields) {
    nlohmann::json j = nlohmann::json::object();
    for (const auto& [k, v] : fields) j[k] = v;
    return j.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

}  // namespace

Ingest::Ingest(Journal& journal, Intake& intake, const PayloadCodec& codec, Metrics& metrics,
               Options options)
    : journal_(journal), intake_(intake), codec_(codec), metrics_(metrics), options_(options) {
    nextSeq_ = journal_.IntakeSeq() + 1;
}

Ingest::~Ingest() { Stop(0); }

Record Ingest::FromRing(const PayloadCodec& codec, char kind, const std::string& text,
                        int64_t receivedMs) {
    Record r;
    r.kind = kind == 'a' ? "alarm" : "event";
    r.receivedMs = receivedMs;
    // A record is its text up to the first NUL: the slot is padded with them.
    r.raw = text.substr(0, text.find('\0'));
    if (auto parsed = codec.ParseRecord(r.raw)) {
        r.mac = parsed->mac;
        r.fields = FieldsJson(parsed->fields);
    } else {
        r.fields = "{}";
    }
    return r;
}

bool Ingest::Recover(std::string* error) {
    std::vector<IntakeEntry> entries = intake_.ReadAll();
    std::vector<Record> records;
    uint64_t last = journal_.IntakeSeq();
    for (const IntakeEntry& e : entries) {
        if (e.seq <= journal_.IntakeSeq()) continue;  // committed before the stop
        records.push_back(FromRing(codec_, e.kind, e.text, e.receivedMs));
        last = std::max(last, e.seq);
    }
    if (!records.empty()) {
        if (!journal_.Append(records, last, error)) return false;
        Log(Level::Info, "journal", "took %zu records from the intake file that the journal lacked",
            records.size());
        for (const Record& r : records) metrics_.Count("zanthd_records_total", Metrics::Label("kind", r.kind));
    }
    nextSeq_ = std::max(last, journal_.IntakeSeq()) + 1;
    intake_.Clear();
    return true;
}

bool Ingest::DrainRings(Library& library, std::string* error) {
    api_ = &library;
    size_t total = 0;
    for (;;) {
        std::vector<Record> ring;
        TakeFromRings(static_cast<size_t>(options_.batchMax), &ring);
        if (ring.empty()) break;
        std::vector<Pending> none;
        if (!Commit(ring, none)) {
            *error = Problem();
            return false;
        }
        total += ring.size();
    }
    if (total > 0) Log(Level::Info, "journal", "took %zu unread records from the message files", total);
    return true;
}

void Ingest::Start(Library* library) {
    api_ = library;
    stopping_ = false;
    thread_ = std::thread([this] { Run(); });
}

void Ingest::Stop(int graceMs) {
    if (!thread_.joinable()) return;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
    }
    cv_.notify_all();
    // The thread commits what it holds; past the grace it gives up on a journal that refuses.
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(graceMs);
    while (std::chrono::steady_clock::now() < deadline) {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            if (pending_.empty() && inHand_ == 0) break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    {
        std::lock_guard<std::mutex> lock(mutex_);
        problem_ = problem_.empty() ? "stopping" : problem_;
    }
    api_ = nullptr;
    thread_.join();
    std::deque<Pending> left;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        left.swap(pending_);
    }
    for (Pending& p : left) {
        if (p.done) p.done(false, 0);
    }
    if (!left.empty()) {
        Log(Level::Warn, "journal", "%zu submitted records could not be stored before the stop",
            left.size());
    }
}

void Ingest::Submit(Record record, Done done) {
    if (record.receivedMs == 0) record.receivedMs = NowMs();
    {
        std::lock_guard<std::mutex> lock(mutex_);
        pending_.push_back({std::move(record), std::move(done)});
    }
    cv_.notify_one();
}

std::string Ingest::Problem() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return problem_;
}

size_t Ingest::Backlog() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return pending_.size() + inHand_.load();
}

void Ingest::SetProblem(const std::string& problem) {
    std::lock_guard<std::mutex> lock(mutex_);
    problem_ = problem;
}

void Ingest::TakeFromRings(size_t max, std::vector<Record>* out) {
    Library* api = api_.load();
    if (api == nullptr) return;
    bool eventsEmpty = false, alarmsEmpty = false;
    // Alternate so that a flood of one kind doesn't starve the other.
    bool alarmTurn = alarmsFirst_;
    alarmsFirst_ = !alarmsFirst_;
    while (out->size() < max && !(eventsEmpty && alarmsEmpty)) {
        if ((alarmTurn && alarmsEmpty) || (!alarmTurn && eventsEmpty)) alarmTurn = !alarmTurn;
        std::optional<std::string> text = alarmTurn ? api->NextAlarm() : api->NextEvent();
        if (!text) {
            (alarmTurn ? alarmsEmpty : eventsEmpty) = true;
            alarmTurn = !alarmTurn;
            continue;
        }
        // The record is ours now: into the intake file before anything else is taken.
        IntakeEntry entry;
        entry.seq = nextSeq_++;
        entry.receivedMs = NowMs();
        entry.kind = alarmTurn ? 'a' : 'e';
        entry.text = text->substr(0, std::min(text->find('\0'), Intake::kTextMax));
        out->push_back(FromRing(codec_, entry.kind, entry.text, entry.receivedMs));
        inHand_ = out->size();
        std::string error;
        if (!intake_.Append(entry, &error)) {
            // Held in memory only: take nothing more until it is in the journal.
            SetProblem("intake file: " + error);
            healthy_ = false;
            break;
        }
        alarmTurn = !alarmTurn;
    }
}

bool Ingest::Commit(std::vector<Record>& ring, std::vector<Pending>& batch) {
    std::vector<Record> records;
    records.reserve(ring.size() + batch.size());
    for (Record& r : ring) records.push_back(r);
    for (Pending& p : batch) records.push_back(p.record);
    uint64_t seq = ring.empty() ? 0 : nextSeq_ - 1;
    std::string error;
    if (!journal_.Append(records, seq, &error)) {
        if (healthy_.exchange(false) || Problem() != error) {
            Log(Level::Error, "journal", "cannot store %zu records: %s (they wait and are tried again)",
                records.size(), error.c_str());
        }
        SetProblem(error);
        metrics_.Count("zanthd_journal_errors_total", "");
        return false;
    }
    if (!ring.empty()) intake_.Clear();
    if (!healthy_.exchange(true)) Log(Level::Info, "journal", "storing again");
    SetProblem("");
    metrics_.Count("zanthd_journal_commits_total", "");
    for (const Record& r : records) {
        metrics_.Count("zanthd_records_total", Metrics::Label("kind", r.kind));
    }
    for (size_t i = 0; i < batch.size(); ++i) {
        if (batch[i].done) batch[i].done(true, records[ring.size() + i].id);
    }
    ring.clear();
    batch.clear();
    inHand_ = 0;
    return true;
}

void Ingest::Run() {
    std::vector<Record> ring;  // taken from the message files, not yet committed
    std::vector<Pending> batch;
    int backoffMs = 0;
    for (;;) {
        {
            std::unique_lock<std::mutex> lock(mutex_);
            if (stopping_ && pending_.empty() && ring.empty() && batch.empty()) break;
            if (api_ == nullptr && stopping_) break;
            while (!pending_.empty() && batch.size() < static_cast<size_t>(options_.batchMax)) {
                batch.push_back(std::move(pending_.front()));
                pending_.pop_front();
            }
        }
        // Nothing new is taken while a batch waits for the journal.
        if (ring.empty() && !stopping_) {
            TakeFromRings(static_cast<size_t>(options_.batchMax), &ring);
        }
        if (ring.empty() && batch.empty()) {
            int64_t now = NowMs();
            if (now - lastRetentionMs_ >= 60000) {
                lastRetentionMs_ = now;
                int64_t dropped = journal_.ApplyRetention(options_.retention, now, 100000);
                if (dropped > 0) Log(Level::Info, "journal", "retention dropped %lld records", static_cast<long long>(dropped));
            }
            std::unique_lock<std::mutex> lock(mutex_);
            cv_.wait_for(lock, std::chrono::milliseconds(options_.pollMs),
                         [&] { return stopping_.load() || !pending_.empty(); });
            continue;
        }
        if (Commit(ring, batch)) {
            backoffMs = 0;
            continue;
        }
        backoffMs = std::min(backoffMs == 0 ? 50 : backoffMs * 2, 1000);
        std::unique_lock<std::mutex> lock(mutex_);
        cv_.wait_for(lock, std::chrono::milliseconds(backoffMs),
                     [&] { return stopping_ && api_ == nullptr; });
        if (stopping_ && api_ == nullptr) break;
    }
    inHand_ = ring.size();
    // What could not be committed goes back, so that Stop reports it.
    std::lock_guard<std::mutex> lock(mutex_);
    for (auto it = batch.rbegin(); it != batch.rend(); ++it) pending_.push_front(std::move(*it));
}

}  // namespace zanthd
