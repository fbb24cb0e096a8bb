#include "tools/sim/families/SmartCard.h"

#include <cctype>

#include "protocol/Codes.h"

namespace zanth::sim {
namespace {

bool IsHexBytes(std::string_view s) {
    if (s.empty() || s.size() % 2 != 0) return false;
    for (char c : s) {
        if (std::isxdigit(static_cast<unsigned char>(c)) == 0) return false;
    }
    return true;
}

bool IsPrintable(std::string_view s) {
    for (char c : s) {
        if (c < 0x20 || c >= 0x7f) return false;
    }
    return true;
}

}  // namespace

bool SmartCard::Handle(FamilyContext& context, int code, std::string_view payload) {
    if (code != ZANTH_SMART_CARD_RAW_MODE && code != ZANTH_SMART_CARD_COMMAND_MODE) return false;
    std::string answer;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        answer = Answer(code, payload);
    }
    context.Reply(code + 1000, answer);
    return true;
}

std::string SmartCard::Answer(int code, std::string_view payload) {
    static const std::string kBad = std::to_string(kResultBadArgument) + ";";
    // The reader's number, then the data as one text: a command may hold ';' of its own.
    size_t semicolon = payload.find(';');
    if (semicolon == std::string_view::npos) return kBad;
    auto reader = FieldInRange(payload.substr(0, semicolon), 0, kMaxReader);
    std::string_view data = payload.substr(semicolon + 1);
    if (!data.empty() && data.back() == ';') data.remove_suffix(1);
    if (!reader || data.size() > kMaxData || !IsPrintable(data)) return kBad;
    bool raw = code == ZANTH_SMART_CARD_RAW_MODE;
    if (raw && !IsHexBytes(data)) return kBad;

    SmartCardReader& r = readers_[static_cast<int>(*reader)];
    r.mode = raw ? SmartCardReader::Mode::Raw : SmartCardReader::Mode::Command;
    r.lastData = std::string(data);
    ++r.exchanges;
    std::string answer = "0;" + std::to_string(*reader) + ";";
    if (raw) answer += r.answer + ";";
    return answer;
}

std::optional<SmartCardReader> SmartCard::Reader(int reader) const {
    std::lock_guard<std::mutex> lock(mutex_);
    auto it = readers_.find(reader);
    if (it == readers_.end()) return std::nullopt;
    return it->second;
}

void SmartCard::SetAnswer(int reader, std::string hexAnswer) {
    std::lock_guard<std::mutex> lock(mutex_);
    readers_[reader].answer = std::move(hexAnswer);
}

}  // namespace zanth::sim
