#include "tools/sim/families/ContactId.h"

#include "protocol/Codes.h"

namespace zanth::sim {
namespace {

std::string ResultText(int result) {
    return std::to_string(result) + ";";
}

// A text field: printable, no '#', at most kMaxText characters; an empty one is allowed.
std::string TextField(PayloadReader& in, size_t index) {
    std::string_view field = in.Raw(index);
    bool ok = field.size() <= ContactId::kMaxText;
    for (char c : field) ok = ok && c >= 0x20 && c < 0x7f && c != '#';
    if (!ok) in.Fail(index);
    return std::string(field);
}

int32_t IntField(PayloadReader& in, size_t index) {
    return static_cast<int32_t>(in.Number(index, INT32_MIN, INT32_MAX));
}

// Writes or replaces `key`, unless the table is full and the key new.
template <class Table, class Record>
std::string Store(Table& table, int32_t key, Record record) {
    if (!table.count(key) && table.size() >= ContactId::kMaxRecords) {
        return ResultText(kResultStoreFull);
    }
    table[key] = std::move(record);
    return ResultText(kResultOk);
}

template <class Table>
std::string Erase(Table& table, int32_t key) {
    return ResultText(table.erase(key) != 0 ? kResultOk : kResultUnknownRecord);
}

template <class Table>
auto Lookup(const Table& table, int32_t key) -> std::optional<typename Table::mapped_type> {
    auto it = table.find(key);
    if (it == table.end()) return std::nullopt;
    return it->second;
}

}  // namespace

bool ContactId::Handle(FamilyContext& context, int code, std::string_view payload) {
    if (code < ZANTH_UPDATE_CONTACTID_RECORD || code > ZANTH_DELETE_CONTACTID_COMM_RECORD) {
        return false;
    }
    std::string answer;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        answer = Answer(code, payload);
    }
    context.Reply(kReplyCode, answer);
    return true;
}

std::string ContactId::Answer(int code, std::string_view payload) {
    static const std::string kBad = ResultText(kResultBadArgument);
    static const std::string kUnknown = ResultText(kResultUnknownRecord);
    PayloadReader in(payload);
    switch (code) {
        case ZANTH_UPDATE_CONTACTID_RECORD: {
            ContactIdRecord r;
            r.text1 = TextField(in, 0);
            for (size_t i = 0; i < r.values.size(); ++i) r.values[i] = IntField(in, 1 + i);
            r.text2 = TextField(in, 8);
            r.text3 = TextField(in, 9);
            if (in.Count() != 10 || !in.Ok()) return kBad;
            return Store(records_, r.values[2], r);
        }
        case ZANTH_UPDATE_CONTACTID_GROUP_RECORD: {
            ContactIdGroupRecord g;
            g.text = TextField(in, 0);
            int32_t id = IntField(in, 1);
            g.value = IntField(in, 2);
            if (in.Count() != 3 || !in.Ok()) return kBad;
            return Store(groups_, id, g);
        }
        case ZANTH_UPDATE_CONTACTID_COMM_RECORD: {
            int32_t id = IntField(in, 0);
            ContactIdCommRecord c;
            c.text = TextField(in, 1);
            c.value = static_cast<uint16_t>(in.Number(2, 0, UINT16_MAX));
            if (in.Count() != 3 || !in.Ok()) return kBad;
            return Store(comms_, id, c);
        }
        case ZANTH_DELETE_CONTACTID_COMM_RECORD: {
            int32_t id = IntField(in, 0);
            TextField(in, 1);
            if (in.Count() != 2 || !in.Ok()) return kBad;
            return Erase(comms_, id);
        }
        default:
            break;
    }

    // The rest take one key.
    int32_t key = IntField(in, 0);
    if (in.Count() != 1 || !in.Ok()) return kBad;
    switch (code) {
        case ZANTH_GET_CONTACTID_RECORD: {
            auto r = Lookup(records_, key);
            if (!r) return kUnknown;
            std::string answer = r->text1 + ";";
            for (int32_t v : r->values) answer += std::to_string(v) + ";";
            return answer + r->text2 + ";" + r->text3 + ";";
        }
        case ZANTH_DELETE_CONTACTID_RECORD:
            return Erase(records_, key);
        case ZANTH_GET_CONTACTID_GROUP_RECORD: {
            auto g = Lookup(groups_, key);
            if (!g) return kUnknown;
            return g->text + ";" + std::to_string(g->value) + ";" + std::to_string(key) + ";";
        }
        case ZANTH_DELETE_CONTACTID_GROUP_RECORD:
            return Erase(groups_, key);
        case ZANTH_GET_CONTACTID_COMM_RECORD: {
            auto c = Lookup(comms_, key);
            if (!c) return kUnknown;
            return ResultText(kResultOk) + c->text + ";" + std::to_string(c->value) + ";";
        }
        default:
            return kBad;
    }
}

std::optional<ContactIdRecord> ContactId::Record(int32_t key) const {
    std::lock_guard<std::mutex> lock(mutex_);
    return Lookup(records_, key);
}

std::optional<ContactIdGroupRecord> ContactId::Group(int32_t groupId) const {
    std::lock_guard<std::mutex> lock(mutex_);
    return Lookup(groups_, groupId);
}

std::optional<ContactIdCommRecord> ContactId::Comm(int32_t commId) const {
    std::lock_guard<std::mutex> lock(mutex_);
    return Lookup(comms_, commId);
}

}  // namespace zanth::sim
