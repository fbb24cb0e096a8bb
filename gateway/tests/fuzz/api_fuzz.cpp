// What a client can send zanthd, fuzzed: the JSON bodies of the rules API, the events queries,
// ids and MACs from paths. Each parser must answer with a result or a named error, never crash,
// and a body it accepts must read back the same after a round trip through its JSON.

#include <cstdint>
#include <cstdlib>
#include <string>

#include "gateway/ApiInput.h"
#include "gateway/PayloadCodec.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) { return 0; }

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string text(reinterpret_cast<const char*>(data), size);
    zanthd::ApiError error;
    zanthd::CardholderInput holder;
    if (zanthd::ParseCardholder(text, &holder, &error)) {
        zanthd::CardholderInput again;
        if (!zanthd::ParseCardholder(zanthd::ToJson(holder), &again, &error) ||
            zanthd::ToJson(again) != zanthd::ToJson(holder)) {
            std::abort();
        }
    } else if (error.status < 400 || error.status > 499 || error.message.empty()) {
        std::abort();
    }
    zanthd::ScheduleInput schedule;
    if (zanthd::ParseSchedule(text, &schedule, &error)) {
        zanthd::ScheduleInput again;
        if (!zanthd::ParseSchedule(zanthd::ToJson(schedule), &again, &error)) std::abort();
    }
    // The query's parts: the text cut in three at its first two '&'.
    size_t a = text.find('&');
    size_t b = a == std::string::npos ? std::string::npos : text.find('&', a + 1);
    std::string after = text.substr(0, a);
    std::string limit = a == std::string::npos ? "" : text.substr(a + 1, b == std::string::npos ? std::string::npos : b - a - 1);
    std::string kind = b == std::string::npos ? "" : text.substr(b + 1);
    zanthd::EventsQuery q;
    if (zanthd::ParseEventsQuery(&after, &limit, &kind, &q, &error)) {
        if (q.limit < 1 || q.limit > 1000 || q.after < 0) std::abort();
    }
    int64_t id = 0;
    if (zanthd::ParseId(text, &id) && id < 1) std::abort();
    std::string mac = zanthd::NormalizeMac(text);
    if (!mac.empty() && (mac.size() != 8 || zanthd::NormalizeMac(mac) != mac)) std::abort();
    zanthd::ZanthPayloadCodec codec;
    codec.ParseRecord(text);
    codec.ParseLookup(text);
    codec.ParsePin(text);
    codec.ParseDoorReport(text);
    return 0;
}
