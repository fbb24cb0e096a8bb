#pragma once
// What a client sends zanthd over the message bus, read and checked before anything runs: a
// command request, its optional HMAC, and the memory of request ids that makes a repeat harmless.
// No broker is involved here (MqttBus.h holds the link); nothing here throws.
//
// A request is published on <prefix>/<mac>/call/<export> (<prefix>/gateway/call/<export> for the
// local exports) with a JSON object:
//   {"id": "...", "args": {...}, "reply_to": "<prefix>/reply/...", "deadline_ms": 2000,
//    "ts": 1732450000, "hmac": "..."}
// `id` (1 to 128 characters) names the request: a repeat of an id is answered again, not run
// again. `args` are the export's parameters under the header's names (the controller comes from
// the topic). `reply_to` is where the answer goes; it must lie under <prefix>/reply/, so that
// nobody can make the gateway publish on a topic of its own choosing. `deadline_ms` is optional.
// `ts` (Unix seconds) and `hmac` are required when the gateway has an HMAC secret: lower-case
// hex of HMAC-SHA256(secret, id "\n" ts "\n" topic "\n" reply_to "\n" args), where args is the
// arguments object as compact JSON with its keys sorted (Python: json.dumps(args,
// sort_keys=True, separators=(",", ":"), ensure_ascii=False); "{}" when there are none).

#include <chrono>
#include <cstdint>
#include <deque>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace zanthd {

struct BusRequestOptions {
    std::string prefix;      // "zanth/site"
    std::string hmacSecret;  // empty: requests carry no HMAC
    int hmacWindowS = 30;
};

struct BusRequest {
    std::string id;
    std::string exportName;
    std::string mac;  // normalised; empty for <prefix>/gateway/call/<export>
    nlohmann::json args = nlohmann::json::object();  // "mac" set from the topic
    std::string replyTo;
    int deadlineMs = 0;  // 0: the gateway's default
};

// A request refused before it ran: 400 (the field named), 401 (its HMAC), 503 (stopping).
struct BusRefusal {
    int status = 400;
    std::string error;
    std::string field;
    std::string id;       // when the request had a usable one
    std::string replyTo;  // empty: the request named no usable reply topic
};

// The topic's export when it has the form <prefix>/<level>/call/<export>; empty otherwise.
std::string CallTopicExport(std::string_view prefix, std::string_view topic);

bool ParseBusRequest(const BusRequestOptions& options, std::string_view topic, std::string_view payload,
                     int64_t nowS, BusRequest* out, BusRefusal* refusal);

// What the HMAC covers, and the HMAC itself (lower-case hex).
std::string SigningText(const std::string& id, int64_t ts, std::string_view topic, const std::string& replyTo,
                        const nlohmann::json& args);
std::string HmacSha256Hex(const std::string& secret, const std::string& text);

// A topic prefix: one or more levels, none empty, no wildcard, no NUL; false with the reason.
bool ValidTopicPrefix(const std::string& prefix, std::string* why);
// A topic a reply may be published on: under <prefix>/reply/, no wildcard, no NUL.
bool ValidReplyTopic(std::string_view prefix, std::string_view topic);

// The ids of recent requests and their answers. A request id is taken once: a repeat that comes
// while it runs waits for its answer, and one that comes later gets the stored answer again. An
// answer is kept for `keep` and until `capacity` newer ones push it out; an id still running is
// never forgotten.
class RequestMemory {
  public:
    using Clock = std::chrono::steady_clock;
    enum class Seen { kNew, kRunning, kAnswered };

    RequestMemory(size_t capacity, Clock::duration keep) : capacity_(capacity), keep_(keep) {}

    // kNew: the caller runs it and calls Finish. kRunning: `replyTo` hears the answer when it
    // comes (Finish returns it). kAnswered: `*answer` is the answer given.
    Seen Begin(const std::string& id, const std::string& replyTo, Clock::time_point now, nlohmann::json* answer);
    // Stores the answer; the reply topics of the repeats that came while it ran.
    std::vector<std::string> Finish(const std::string& id, const nlohmann::json& answer, Clock::time_point now);
    size_t Size() const;

  private:
    struct Entry {
        bool answered = false;
        Clock::time_point at;
        nlohmann::json answer;
        std::vector<std::string> waiting;
    };
    void Forget(Clock::time_point now);

    const size_t capacity_;
    const Clock::duration keep_;
    mutable std::mutex mutex_;
    std::unordered_map<std::string, Entry> entries_;
    std::deque<std::pair<Clock::time_point, std::string>> answeredOrder_;  // oldest first
    size_t answeredCount_ = 0;
};

}  // namespace zanthd
