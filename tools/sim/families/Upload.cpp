#include "tools/sim/families/Upload.h"

#include <algorithm>

#include "protocol/Codes.h"

namespace zanth::sim {
namespace {

struct Filter {
    bool currentOnly = false;
    enum class By { All, Class, Priority, MessageId } by = By::All;
    int64_t value1 = 0;
    int64_t value2 = 0;

    bool Takes(const StoredMessage& m) const {
        if (currentOnly && m.delivered) return false;
        const MessageRecord& r = m.record;
        switch (by) {
            case By::Class:
                return r.eventClass == value1;
            case By::Priority:
                return r.priority == value1;
            case By::MessageId:
                return value1 <= value2 ? (r.msgId >= value1 && r.msgId <= value2)
                                        : (r.msgId >= value1 || r.msgId <= value2);
            case By::All:
                break;
        }
        return true;
    }
};

bool ReadFilter(int code, std::string_view payload, Filter* f) {
    PayloadReader in(payload);
    switch (code) {
        case ZANTH_UPLOAD_CURRENT_MSGS:
            f->currentOnly = true;
            break;
        case ZANTH_UPLOAD_ALL_MSGS:
            break;
        case ZANTH_UPLOAD_CURRENT_MSGS_BY_CLASS_CODE:
        case ZANTH_UPLOAD_ALL_MSGS_BY_CLASS_CODE:
            f->currentOnly = code == ZANTH_UPLOAD_CURRENT_MSGS_BY_CLASS_CODE;
            f->by = Filter::By::Class;
            f->value1 = in.Number(0, 0, 255);
            break;
        case ZANTH_UPLOAD_CURRENT_MSGS_BY_PRIORITY:
        case ZANTH_UPLOAD_ALL_MSGS_BY_PRIORITY:
            f->currentOnly = code == ZANTH_UPLOAD_CURRENT_MSGS_BY_PRIORITY;
            f->by = Filter::By::Priority;
            f->value1 = in.Number(0, 0, 255);
            break;
        case ZANTH_UPLOAD_MSGS_BY_MSG_ID:
            f->by = Filter::By::MessageId;
            f->value1 = in.Number(0, 1, kMaxMessageId);
            f->value2 = in.Number(1, 1, kMaxMessageId);
            break;
        default:
            return false;
    }
    return in.Ok();
}

bool IsUpload(int code) {
    return code >= ZANTH_UPLOAD_CURRENT_MSGS && code <= ZANTH_UPLOAD_MSGS_BY_MSG_ID;
}

}  // namespace

bool MessageStore::Handle(FamilyContext& context, int code, std::string_view payload) {
    if (!IsUpload(code)) return false;
    Filter filter;
    if (!ReadFilter(code, payload, &filter)) {
        context.Reply(ZANTH_EVENT_LOG_RSP, std::to_string(kResultBadArgument) + ";");
        return true;
    }
    struct Bundle {
        std::string payload;
        std::vector<uint32_t> msgIds;
    };
    std::vector<Bundle> bundles;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        Bundle bundle;
        for (const StoredMessage& m : log_) {
            if (!filter.Takes(m)) continue;
            std::string entry = BundlePayload({{m.record.code, MessageText(m.record)}});
            if (bundle.payload.size() + entry.size() > kPayloadLimit) {
                bundles.push_back(std::move(bundle));
                bundle = Bundle{};
            }
            bundle.payload += entry;
            bundle.msgIds.push_back(m.record.msgId);
            ++uploaded_;
        }
        if (!bundle.payload.empty()) bundles.push_back(std::move(bundle));
    }
    // The acceptance goes first; the messages follow as unsolicited traffic.
    context.Reply(ZANTH_EVENT_LOG_RSP, "0;");
    context.Flush();
    for (Bundle& b : bundles) {
        context.Send(ZANTH_MESSAGE_BUNDLE, std::move(b.payload), ZANTH_MESSAGE_RSP,
                     std::move(b.msgIds));
    }
    return true;
}

size_t MessageStore::Capacity() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return capacity_;
}

void MessageStore::SetCapacity(size_t capacity) {
    std::lock_guard<std::mutex> lock(mutex_);
    capacity_ = std::clamp<size_t>(capacity, 1, kMaxCapacity);
    Trim();
}

void MessageStore::Add(const MessageRecord& record) {
    std::lock_guard<std::mutex> lock(mutex_);
    serialOf_[record.msgId] = firstSerial_ + log_.size();
    log_.push_back({record, false});
    Trim();
}

void MessageStore::Trim() {
    while (log_.size() > capacity_) {
        auto it = serialOf_.find(log_.front().record.msgId);
        if (it != serialOf_.end() && it->second == firstSerial_) serialOf_.erase(it);
        log_.pop_front();
        ++firstSerial_;
    }
}

void MessageStore::Delivered(const std::vector<uint32_t>& msgIds) {
    std::lock_guard<std::mutex> lock(mutex_);
    for (uint32_t id : msgIds) {
        auto it = serialOf_.find(id);
        if (it == serialOf_.end() || it->second < firstSerial_) continue;
        log_[it->second - firstSerial_].delivered = true;
    }
}

MessageStoreCounts MessageStore::Counts() const {
    std::lock_guard<std::mutex> lock(mutex_);
    MessageStoreCounts c;
    c.held = log_.size();
    for (const StoredMessage& m : log_) c.current += m.delivered ? 0 : 1;
    c.uploaded = uploaded_;
    return c;
}

std::vector<StoredMessage> MessageStore::Snapshot() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return {log_.begin(), log_.end()};
}

}  // namespace zanth::sim
