#include "gateway/Journal.h"

namespace zanthd {
namespace {

constexpr const char* kSchema = R"(
CREATE TABLE IF NOT EXISTS records(
  id INTEGER PRIMARY KEY,
  kind TEXT NOT NULL,
  mac TEXT NOT NULL DEFAULT '',
  received_ms INTEGER NOT NULL,
  raw TEXT NOT NULL,
  fields TEXT NOT NULL DEFAULT '{}',
  decision TEXT,
  source TEXT,
  latency_ms REAL,
  actor TEXT
);
CREATE TABLE IF NOT EXISTS meta(key TEXT PRIMARY KEY, value INTEGER NOT NULL);
INSERT OR IGNORE INTO meta VALUES('last_id', 0), ('intake_seq', 0), ('published_upto', 0);
)";

constexpr const char* kColumns =
    "id, kind, mac, received_ms, raw, fields, decision, source, latency_ms, actor";

void ReadRow(const Statement& s, Record* r) {
    r->id = s.Int(0);
    r->kind = s.Text(1);
    r->mac = s.Text(2);
    r->receivedMs = s.Int(3);
    r->raw = s.Text(4);
    r->fields = s.Text(5);
    r->decision = s.Text(6);
    r->source = s.Text(7);
    r->latencyMs = s.IsNull(8) ? -1 : s.Real(8);
    r->actor = s.Text(9);
}

}  // namespace

int64_t NowMs() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

bool JournalReader::Open(const std::string& path, std::string* error) {
    if (!db_.Open(path, true, 1000)) {
        *error = db_.Error();
        return false;
    }
    all_ = db_.Prepare(std::string("SELECT ") + kColumns +
                       " FROM records WHERE id > ?1 ORDER BY id LIMIT ?2");
    byKind_ = db_.Prepare(std::string("SELECT ") + kColumns +
                          " FROM records WHERE id > ?1 AND kind = ?3 ORDER BY id LIMIT ?2");
    oldest_ = db_.Prepare("SELECT MIN(id) FROM records");
    if (!all_.Ok() || !byKind_.Ok() || !oldest_.Ok()) {
        *error = db_.Error();
        return false;
    }
    return true;
}

bool JournalReader::Read(int64_t after, int limit, const std::string& kind,
                         std::vector<Record>* out) {
    Statement& s = kind.empty() ? all_ : byKind_;
    s.Bind(1, after).Bind(2, static_cast<int64_t>(limit));
    if (!kind.empty()) s.Bind(3, kind);
    int rc;
    while ((rc = s.Step()) == SQLITE_ROW) {
        Record r;
        ReadRow(s, &r);
        out->push_back(std::move(r));
    }
    s.Reset();
    return rc == SQLITE_DONE;
}

bool JournalReader::Search(const JournalSearch& q, std::vector<Record>* out) {
    if (!search_.Ok()) {
        // Kinds come as ",event,lookup," so that each is found by instr; a heartbeat is an alarm
        // that its fields call one.
        search_ = db_.Prepare(std::string("SELECT ") + kColumns + " FROM records"
            " WHERE id < ?1 AND id >= ?2"
            " AND (?3 = '' OR (CASE WHEN kind = 'alarm' AND json_valid(fields)"
            "      AND json_extract(fields, '$.type') = 'heartbeat' THEN 'heartbeat' ELSE kind END)"
            "      IN (SELECT value FROM json_each(?3)))"
            " AND (?4 = '' OR mac = ?4)"
            " AND (?5 < 0 OR (json_valid(fields) AND CAST(json_extract(fields, '$.door') AS INTEGER) = ?5"
            "      AND json_extract(fields, '$.door') IS NOT NULL))"
            " AND (?6 = '' OR instr(raw, ?6) > 0)"
            " ORDER BY id DESC LIMIT ?7");
        if (!search_.Ok()) return false;
    }
    std::string kinds;
    if (!q.kinds.empty()) {
        kinds = "[";
        for (const std::string& k : q.kinds) kinds += (kinds.size() > 1 ? ",\"" : "\"") + k + "\"";
        kinds += "]";
    }
    search_.Bind(1, q.before).Bind(2, q.floor).Bind(3, kinds).Bind(4, q.mac)
        .Bind(5, static_cast<int64_t>(q.door)).Bind(6, q.text).Bind(7, static_cast<int64_t>(q.limit));
    int rc;
    while ((rc = search_.Step()) == SQLITE_ROW) {
        Record r;
        ReadRow(search_, &r);
        out->push_back(std::move(r));
    }
    search_.Reset();
    return rc == SQLITE_DONE;
}

int64_t JournalReader::OldestId() {
    int64_t id = 0;
    if (oldest_.Step() == SQLITE_ROW) id = oldest_.Int(0);
    oldest_.Reset();
    return id;
}

bool Journal::Open(const Options& options, std::string* error) {
    options_ = options;
    std::lock_guard<std::mutex> lock(writeMutex_);
    if (!db_.Open(options.path, false, options.busyMs)) {
        *error = db_.Error();
        return false;
    }
    // WAL: readers never wait for the writer. NORMAL: a commit is durable against a crash of
    // the process (it is in the OS's hands once written); FULL also syncs each commit to the
    // disk, which a power cut needs. The choice is the config's.
    std::string pragmas = std::string("PRAGMA journal_mode=WAL; PRAGMA synchronous=") +
                          (options.synchronousFull ? "FULL" : "NORMAL") + ";";
    if (!db_.Exec(pragmas.c_str()) || !db_.Exec(kSchema)) {
        *error = db_.Error();
        return false;
    }
    insert_ = db_.Prepare(
        "INSERT INTO records(id, kind, mac, received_ms, raw, fields, decision, source, "
        "latency_ms, actor) VALUES(?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10)");
    setMeta_ = db_.Prepare("UPDATE meta SET value = ?2 WHERE key = ?1");
    getMeta_ = db_.Prepare("SELECT value FROM meta WHERE key = ?1");
    oldest_ = db_.Prepare("SELECT MIN(id) FROM records");
    receivedAt_ = db_.Prepare("SELECT received_ms FROM records WHERE id = ?1");
    deleteUpto_ = db_.Prepare("DELETE FROM records WHERE id <= ?1");
    pageCount_ = db_.Prepare("PRAGMA page_count");
    freePages_ = db_.Prepare("PRAGMA freelist_count");
    pageSize_ = db_.Prepare("PRAGMA page_size");
    int64_t last = 0, seq = 0, published = 0;
    if (!insert_.Ok() || !setMeta_.Ok() || !getMeta_.Ok() || !ReadMeta("last_id", &last) ||
        !ReadMeta("intake_seq", &seq) || !ReadMeta("published_upto", &published)) {
        *error = db_.Error();
        return false;
    }
    lastId_ = last;
    intakeSeq_ = static_cast<uint64_t>(seq);
    publishedUpto_ = published;
    return true;
}

void Journal::Close() {
    std::lock_guard<std::mutex> lock(writeMutex_);
    insert_ = Statement();
    setMeta_ = Statement();
    getMeta_ = Statement();
    oldest_ = Statement();
    receivedAt_ = Statement();
    deleteUpto_ = Statement();
    pageCount_ = Statement();
    freePages_ = Statement();
    pageSize_ = Statement();
    // The last connection's close checkpoints the WAL into the database file.
    db_.Close();
}

bool Journal::ReadMeta(const char* key, int64_t* value) {
    getMeta_.Bind(1, std::string_view(key));
    bool found = getMeta_.Step() == SQLITE_ROW;
    if (found) *value = getMeta_.Int(0);
    getMeta_.Reset();
    return found;
}

bool Journal::Append(std::vector<Record>& records, uint64_t intakeSeq, std::string* error) {
    if (records.empty() && intakeSeq == 0) return true;
    auto start = std::chrono::steady_clock::now();
    std::vector<Record> stored;
    {
        std::lock_guard<std::mutex> lock(writeMutex_);
        if (!db_.Exec("BEGIN IMMEDIATE")) {
            *error = db_.Error();
            return false;
        }
        int64_t id = lastId_.load();
        bool ok = true;
        for (Record& r : records) {
            ++id;
            insert_.Bind(1, id).Bind(2, r.kind).Bind(3, r.mac).Bind(4, r.receivedMs).Bind(5, r.raw);
            insert_.Bind(6, r.fields.empty() ? std::string_view("{}") : std::string_view(r.fields));
            if (r.decision.empty()) insert_.BindNull(7); else insert_.Bind(7, r.decision);
            if (r.source.empty()) insert_.BindNull(8); else insert_.Bind(8, r.source);
            if (r.latencyMs < 0) insert_.BindNull(9); else insert_.Bind(9, r.latencyMs);
            if (r.actor.empty()) insert_.BindNull(10); else insert_.Bind(10, r.actor);
            if (!insert_.Run()) {
                ok = false;
                break;
            }
        }
        ok = ok && setMeta_.Bind(1, std::string_view("last_id")).Bind(2, id).Run();
        if (ok && intakeSeq != 0) {
            ok = setMeta_.Bind(1, std::string_view("intake_seq"))
                     .Bind(2, static_cast<int64_t>(intakeSeq))
                     .Run();
        }
        if (ok) ok = db_.Exec("COMMIT");
        if (!ok) {
            *error = db_.Error();
            db_.Exec("ROLLBACK");
            return false;
        }
        int64_t first = lastId_.load() + 1;
        for (size_t i = 0; i < records.size(); ++i) records[i].id = first + static_cast<int64_t>(i);
        lastId_ = id;
        if (intakeSeq != 0) intakeSeq_ = intakeSeq;
    }
    commits_.fetch_add(1);
    commitNanos_.fetch_add(static_cast<uint64_t>(
        std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now() - start)
            .count()));
    {
        std::lock_guard<std::mutex> lock(listenersMutex_);
        for (const Listener& l : listeners_) l(records);
    }
    WakeWaiters();
    return true;
}

void Journal::WakeWaiters() {
    std::lock_guard<std::mutex> lock(waitMutex_);
    waitCv_.notify_all();
}

int64_t Journal::WaitBeyond(int64_t id, std::chrono::steady_clock::time_point deadline) {
    std::unique_lock<std::mutex> lock(waitMutex_);
    waitCv_.wait_until(lock, deadline, [&] { return lastId_.load() > id; });
    return lastId_.load();
}

void Journal::Subscribe(Listener listener) {
    std::lock_guard<std::mutex> lock(listenersMutex_);
    listeners_.push_back(std::move(listener));
}

int64_t Journal::PublishedUpto() const {
    std::lock_guard<std::mutex> lock(writeMutex_);
    return publisherAttached_ ? publishedUpto_ : lastId_.load();
}

bool Journal::MarkPublished(int64_t id, std::string* error) {
    std::lock_guard<std::mutex> lock(writeMutex_);
    if (id <= publishedUpto_) return true;
    if (!setMeta_.Bind(1, std::string_view("published_upto")).Bind(2, id).Run()) {
        *error = db_.Error();
        return false;
    }
    publishedUpto_ = id;
    return true;
}

int64_t Journal::ReceivedAt(int64_t id) {
    receivedAt_.Bind(1, id);
    int64_t at = receivedAt_.Step() == SQLITE_ROW ? receivedAt_.Int(0) : -1;
    receivedAt_.Reset();
    return at;
}

int64_t Journal::ApplyRetention(const Retention& retention, int64_t nowMs, int64_t budget) {
    std::lock_guard<std::mutex> lock(writeMutex_);
    int64_t oldest = 0;
    if (oldest_.Step() == SQLITE_ROW) oldest = oldest_.Int(0);
    oldest_.Reset();
    if (oldest == 0) return 0;
    int64_t last = lastId_.load();
    // Nothing beyond what has been published may go.
    int64_t bound = publisherAttached_ ? std::min(publishedUpto_, last) : last;
    int64_t cut = oldest - 1;  // the records up to `cut` go
    if (retention.maxRecords > 0 && last - retention.maxRecords > cut) {
        cut = last - retention.maxRecords;
    }
    if (retention.days > 0) {
        int64_t cutoff = nowMs - int64_t{retention.days} * 86400000;
        // Ids run without gaps from the oldest to the last and their times grow with them, so
        // the last record older than the cutoff is found by halving.
        int64_t lo = oldest, hi = last, found = oldest - 1;
        while (lo <= hi) {
            int64_t mid = lo + (hi - lo) / 2;
            int64_t at = ReceivedAt(mid);
            if (at < 0) return -1;
            if (at < cutoff) {
                found = mid;
                lo = mid + 1;
            } else {
                hi = mid - 1;
            }
        }
        cut = std::max(cut, found);
    }
    if (retention.maxBytes > 0) {
        int64_t pages = 0, freePages = 0, pageSize = 4096;
        if (pageCount_.Step() == SQLITE_ROW) pages = pageCount_.Int(0);
        pageCount_.Reset();
        if (freePages_.Step() == SQLITE_ROW) freePages = freePages_.Int(0);
        freePages_.Reset();
        if (pageSize_.Step() == SQLITE_ROW) pageSize = pageSize_.Int(0);
        pageSize_.Reset();
        int64_t used = (pages - freePages) * pageSize;
        if (used > retention.maxBytes && last >= oldest) {
            // Drop the share of the records that the excess is of the whole, and a tenth more
            // so that the next round has room.
            double share = static_cast<double>(used - retention.maxBytes) / static_cast<double>(used);
            int64_t count = static_cast<int64_t>(static_cast<double>(last - oldest + 1) * share * 1.1) + 1;
            cut = std::max(cut, oldest - 1 + count);
        }
    }
    cut = std::min({cut, bound, oldest - 1 + budget});
    if (cut < oldest) return 0;
    if (!db_.Exec("BEGIN IMMEDIATE")) return -1;
    if (!deleteUpto_.Bind(1, cut).Run() || !db_.Exec("COMMIT")) {
        db_.Exec("ROLLBACK");
        return -1;
    }
    return cut - oldest + 1;
}

}  // namespace zanthd
