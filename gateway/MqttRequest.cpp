#include "gateway/MqttRequest.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <cstdlib>
#include <set>

#include "gateway/PayloadCodec.h"

namespace zanthd {
namespace {

using nlohmann::json;

constexpr size_t kIdMax = 128;
constexpr std::string_view kGatewayLevel = "gateway";

bool HasWildcardOrNul(std::string_view topic) {
    return topic.find_first_of(std::string_view("+#\0", 3)) != std::string_view::npos;
}

bool Refuse(BusRefusal* r, int status, std::string field, std::string error) {
    r->status = status;
    r->field = std::move(field);
    r->error = std::move(error);
    return false;
}

std::string Lower(std::string text) {
    for (char& c : text) {
        if (c >= 'A' && c <= 'F') c = static_cast<char>(c - 'A' + 'a');
    }
    return text;
}

}  // namespace

bool ValidTopicPrefix(const std::string& prefix, std::string* why) {
    if (prefix.empty()) {
        *why = "it is empty";
        return false;
    }
    if (HasWildcardOrNul(prefix)) {
        *why = "it holds a wildcard, + or #";
        return false;
    }
    if (prefix.front() == '/' || prefix.back() == '/' || prefix.find("//") != std::string::npos) {
        *why = "a level is empty (a / at either end or two together)";
        return false;
    }
    if (prefix.front() == '$') {
        *why = "topics that start with $ are the broker's";
        return false;
    }
    for (unsigned char c : prefix) {
        if (c < 0x20 || c == 0x7f) {
            *why = "it holds a control character";
            return false;
        }
    }
    return true;
}

bool ValidReplyTopic(std::string_view prefix, std::string_view topic) {
    std::string base = std::string(prefix) + "/reply/";
    if (topic.size() <= base.size() || topic.substr(0, base.size()) != base) return false;
    if (HasWildcardOrNul(topic) || topic.size() > 1024) return false;
    for (unsigned char c : topic) {
        if (c < 0x20) return false;
    }
    return true;
}

std::string CallTopicExport(std::string_view prefix, std::string_view topic) {
    if (topic.size() <= prefix.size() + 1 || topic.substr(0, prefix.size()) != prefix || topic[prefix.size()] != '/') {
        return "";
    }
    std::string_view rest = topic.substr(prefix.size() + 1);
    size_t slash = rest.find('/');
    if (slash == std::string_view::npos || slash == 0) return "";
    std::string_view tail = rest.substr(slash + 1);
    if (tail.substr(0, 5) != "call/" || tail.size() == 5) return "";
    std::string_view name = tail.substr(5);
    if (name.find('/') != std::string_view::npos) return "";
    return std::string(name);
}

std::string SigningText(const std::string& id, int64_t ts, std::string_view topic, const std::string& replyTo,
                        const json& args) {
    std::string text = id;
    text += '\n';
    text += std::to_string(ts);
    text += '\n';
    text.append(topic);
    text += '\n';
    text += replyTo;
    text += '\n';
    text += args.dump(-1, ' ', false, json::error_handler_t::replace);
    return text;
}

std::string HmacSha256Hex(const std::string& secret, const std::string& text) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    HMAC(EVP_sha256(), secret.data(), static_cast<int>(secret.size()),
         reinterpret_cast<const unsigned char*>(text.data()), text.size(), digest, &length);
    static const char kHex[] = "0123456789abcdef";
    std::string hex;
    for (unsigned int i = 0; i < length; ++i) {
        hex.push_back(kHex[digest[i] >> 4]);
        hex.push_back(kHex[digest[i] & 15]);
    }
    return hex;
}

bool ParseBusRequest(const BusRequestOptions& options, std::string_view topic, std::string_view payload,
                     int64_t nowS, BusRequest* out, BusRefusal* refusal) {
    *refusal = BusRefusal();
    std::string exportName = CallTopicExport(options.prefix, topic);
    if (exportName.empty()) {
        return Refuse(refusal, 400, "topic",
                      "a request goes to " + options.prefix + "/<mac>/call/<export> or " + options.prefix +
                          "/gateway/call/<export>");
    }
    json body = json::parse(payload, nullptr, false);
    if (body.is_discarded() || !body.is_object()) {
        return Refuse(refusal, 400, "", "the request must be a JSON object {\"id\", \"args\", \"reply_to\"}");
    }
    // The reply topic and the id first, so that every later refusal can be answered.
    if (auto it = body.find("reply_to"); it != body.end()) {
        if (!it->is_string() || !ValidReplyTopic(options.prefix, it->get_ref<const std::string&>())) {
            return Refuse(refusal, 400, "reply_to",
                          "reply_to: a topic under " + options.prefix + "/reply/ without wildcards");
        }
        refusal->replyTo = it->get<std::string>();
    } else {
        return Refuse(refusal, 400, "reply_to", "reply_to: required, a topic under " + options.prefix + "/reply/");
    }
    auto id = body.find("id");
    if (id == body.end() || !id->is_string() || id->get_ref<const std::string&>().empty() ||
        id->get_ref<const std::string&>().size() > kIdMax) {
        return Refuse(refusal, 400, "id", "id: required, a string of 1 to 128 characters that names the request");
    }
    refusal->id = id->get<std::string>();
    static const std::set<std::string> kKeys = {"id", "args", "reply_to", "deadline_ms", "ts", "hmac"};
    for (const auto& [key, value] : body.items()) {
        if (kKeys.count(key) == 0) {
            return Refuse(refusal, 400, key, key + ": not a key of a request (id, args, reply_to, deadline_ms, ts, hmac)");
        }
    }
    json args = json::object();
    if (auto it = body.find("args"); it != body.end()) {
        if (!it->is_object()) return Refuse(refusal, 400, "args", "args: an object of the export's parameters");
        args = *it;
    }
    if (!options.hmacSecret.empty()) {
        auto ts = body.find("ts");
        auto hmac = body.find("hmac");
        if (ts == body.end() || !ts->is_number_integer()) {
            return Refuse(refusal, 401, "ts", "ts: required, the request's time in Unix seconds (the gateway checks HMACs)");
        }
        if (hmac == body.end() || !hmac->is_string()) {
            return Refuse(refusal, 401, "hmac", "hmac: required, HMAC-SHA256 of the request in hex (the gateway checks HMACs)");
        }
        int64_t when = ts->get<int64_t>();
        std::string want = HmacSha256Hex(options.hmacSecret,
                                         SigningText(refusal->id, when, topic, refusal->replyTo, args));
        std::string given = Lower(hmac->get<std::string>());
        if (given.size() != want.size() || CRYPTO_memcmp(given.data(), want.data(), want.size()) != 0) {
            return Refuse(refusal, 401, "hmac", "hmac: does not match the request (wrong secret, or the request was changed)");
        }
        // Checked after the HMAC, so that a forged time is never taken for a stale one.
        if (when < nowS - options.hmacWindowS || when > nowS + options.hmacWindowS) {
            return Refuse(refusal, 401, "ts",
                          "ts: " + std::to_string(when) + " is more than " + std::to_string(options.hmacWindowS) +
                              " s from the gateway's clock (" + std::to_string(nowS) + "): replayed or a clock astray");
        }
    }
    int deadline = 0;
    if (auto it = body.find("deadline_ms"); it != body.end()) {
        if (!it->is_number_integer() || it->get<int64_t>() < 1 || it->get<int64_t>() > 3600000) {
            return Refuse(refusal, 400, "deadline_ms", "deadline_ms: an integer from 1 to 3600000");
        }
        deadline = static_cast<int>(it->get<int64_t>());
    }
    // The controller is the topic's level; "gateway" for the exports that name none.
    std::string_view rest = topic.substr(options.prefix.size() + 1);
    std::string_view level = rest.substr(0, rest.find('/'));
    std::string mac;
    if (level != kGatewayLevel) {
        mac = NormalizeMac(level);
        if (mac.empty()) {
            return Refuse(refusal, 400, "mac",
                          "mac: the topic's level \"" + std::string(level) +
                              "\" is not a controller's MAC such as 00:00:01 (or \"gateway\")");
        }
        if (auto it = args.find("mac"); it != args.end()) {
            if (!it->is_string() || NormalizeMac(it->get<std::string>()) != mac) {
                return Refuse(refusal, 400, "mac", "mac: the arguments name another controller than the topic");
            }
        }
        args["mac"] = mac;
    }
    out->id = refusal->id;
    out->exportName = std::move(exportName);
    out->mac = std::move(mac);
    out->args = std::move(args);
    out->replyTo = refusal->replyTo;
    out->deadlineMs = deadline;
    return true;
}

RequestMemory::Seen RequestMemory::Begin(const std::string& id, const std::string& replyTo, Clock::time_point now,
                                         json* answer) {
    std::lock_guard<std::mutex> lock(mutex_);
    Forget(now);
    auto [it, inserted] = entries_.try_emplace(id);
    if (inserted) {
        it->second.at = now;
        return Seen::kNew;
    }
    if (!it->second.answered) {
        it->second.waiting.push_back(replyTo);
        return Seen::kRunning;
    }
    *answer = it->second.answer;
    return Seen::kAnswered;
}

std::vector<std::string> RequestMemory::Finish(const std::string& id, const json& answer, Clock::time_point now) {
    std::lock_guard<std::mutex> lock(mutex_);
    Entry& e = entries_[id];
    std::vector<std::string> waiting;
    waiting.swap(e.waiting);
    if (!e.answered) ++answeredCount_;
    e.answered = true;
    e.answer = answer;
    e.at = now;
    answeredOrder_.emplace_back(now, id);
    Forget(now);
    return waiting;
}

size_t RequestMemory::Size() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return entries_.size();
}

void RequestMemory::Forget(Clock::time_point now) {
    while (!answeredOrder_.empty()) {
        auto& [at, id] = answeredOrder_.front();
        auto it = entries_.find(id);
        // An entry answered again since (or gone) has a later place in the order.
        if (it == entries_.end() || !it->second.answered || it->second.at != at) {
            answeredOrder_.pop_front();
            continue;
        }
        if (now - at < keep_ && answeredCount_ <= capacity_) break;
        entries_.erase(it);
        --answeredCount_;
        answeredOrder_.pop_front();
    }
}

}  // namespace zanthd
