// CmdEventLog: asks a controller to send stored events and alarms again. Its reply only says
// the upload was accepted; the messages follow as unsolicited traffic, on the event and alarm
// paths like live ones.

#include "frame/Master.h"
#include "frame/Transaction.h"
#include "protocol/Codes.h"

namespace zanth {
namespace {

enum class UploadValue { kNone, kClassCode, kPriority, kMessageIdRange };

struct UploadKind {
    int32_t mode;
    int32_t code;
    UploadValue value;
};

// The modes and the codes run in different orders (and mode 3 doesn't exist): this table alone
// links them.
constexpr UploadKind kUploadKinds[] = {
    {1, ZANTH_UPLOAD_CURRENT_MSGS, UploadValue::kNone},
    {2, ZANTH_UPLOAD_ALL_MSGS, UploadValue::kNone},
    {4, ZANTH_UPLOAD_CURRENT_MSGS_BY_CLASS_CODE, UploadValue::kClassCode},
    {5, ZANTH_UPLOAD_ALL_MSGS_BY_CLASS_CODE, UploadValue::kClassCode},
    {6, ZANTH_UPLOAD_MSGS_BY_MSG_ID, UploadValue::kMessageIdRange},
    {7, ZANTH_UPLOAD_CURRENT_MSGS_BY_PRIORITY, UploadValue::kPriority},
    {8, ZANTH_UPLOAD_ALL_MSGS_BY_PRIORITY, UploadValue::kPriority},
};

const UploadKind* FindUploadKind(int32_t mode) {
    for (const UploadKind& kind : kUploadKinds) {
        if (kind.mode == mode) return &kind;
    }
    return nullptr;
}

}  // namespace

int32_t Master::CmdEventLog(int32_t rspfunc, int32_t rspid, const char* mac, int32_t mode,
                            int32_t value1, int32_t value2) {
    Transaction t(*this, "Master::CmdEventLog", rspfunc, rspid, mac);
    if (!t.Admit()) return t.Result();
    const UploadKind* kind = FindUploadKind(mode);
    if (kind == nullptr) {
        t.Refuse("[Master::CmdEventLog] mode value must be 1, 2, 4, 5, 6, 7 or 8");
        return t.Result();
    }
    Payload payload;
    switch (kind->value) {
        case UploadValue::kNone:
            break;
        case UploadValue::kClassCode:
            if (!t.CheckBetween("class code", value1, 0, 255)) return t.Result();
            payload.Int(value1);
            break;
        case UploadValue::kPriority:
            if (!t.CheckBetween("priority", value1, 0, 255)) return t.Result();
            payload.Int(value1);
            break;
        case UploadValue::kMessageIdRange:
            // A start above the end goes as it is: the controller decides what that means.
            if (!t.CheckBetween("start message ID", value1, 1, 99999) ||
                !t.CheckBetween("end message ID", value2, 1, 99999)) {
                return t.Result();
            }
            payload.Int(value1).Int(value2);
            break;
    }
    if (!t.Send(kind->code, payload)) return t.Result();
    if (!t.Await() || !t.Expect(ZANTH_EVENT_LOG_RSP)) return t.Result();
    return t.BareResult();
}

}  // namespace zanth
