// Controller administration: tasks, addressing, login, the module bus, firmware steps and the
// error log. Several of these commands are newer than the rest and read their replies more
// loosely; each keeps its own reading here on purpose, since hosts depend on the differences.

#include "frame/Master.h"
#include "frame/Transaction.h"
#include "protocol/Codes.h"
#include "protocol/Text.h"
#include "stores/LogMon.h"

namespace zanth {
namespace {

using Reception = Transaction::Reception;

// The controller keeps its error log in this file.
constexpr const char* kErrorLogPath = "/tmp/errorlog";

bool IsTaskListed(int32_t task) {
    if (task >= 1 && task <= 11) return true;
    for (int32_t listed : {20, 21, 22, 30, 31, 99, 101}) {
        if (task == listed) return true;
    }
    return false;
}

// The login and the module bus's mode carry a secret: a missing one is refused with a line of
// its own (`refusal`), and the trace line `trace` follows whatever the check found.
bool AdmitWithSecret(Transaction& t, const char* source, bool present, const char* refusal,
                     const char* trace) {
    if (!t.Admit()) return false;
    if (!present) {
        t.SetResult(kBadArgument);
        Log(source, kLogError, refusal, "Error code = -10002");
    }
    Log(source, kLogTrace, trace);
    return t.Ok();
}

// The wait of the newer commands: anything short of a whole message is no reply, logged as
// `commError` (SetMoxOperationMode gives the login's text); a message is logged whole in one
// line of their own.
bool ReceiveLoosely(Transaction& t, const char* commError,
                    std::initializer_list<Transaction::Output> outputs = {}) {
    if (t.Receive(outputs) != Reception::kMessage) {
        t.SetResult(kNoReply);
        t.LogLine(kLogError, "%s", commError);
        return false;
    }
    t.LogLine(kLogTrace, "[%s] code=%d, data %s ", t.Method(), t.Code(), t.ReplyPayload());
    return true;
}

// EnableDHCP and EnableStaticIP: the texts go out as they stand, and the reply's code is all
// that is read. `method` is the name their code line carries.
int32_t SetAddressing(Master& master, const char* method, int32_t rspfunc, int32_t rspid,
                      const char* mac, int32_t code, std::initializer_list<const char*> texts) {
    Transaction t(master, method, rspfunc, rspid, mac);
    if (!t.Admit()) return t.Result();
    Payload payload;
    for (const char* text : texts) {
        if (!t.Present(text)) return t.Result();
        payload.Text(text);
    }
    // The static address's eight texts end without a separator; the one DHCP text has its own.
    if (texts.size() > 1) payload.EndWithoutSeparator();
    if (!t.Send(code, payload)) return t.Result();
    switch (t.Receive()) {
        case Reception::kNothing:
            t.SetResult(kNoReply);
            break;
        case Reception::kIncomplete:
            // Something came, but nothing that can be read: the call isn't failed for it.
            break;
        case Reception::kMessage:
            t.LogLine(kLogTrace, "[%s] code=%d", method, t.Code());
            if (t.Code() != code + 1000) t.SetResult(kNoReply);
            break;
    }
    return t.Result();
}

// EnableP2P and DisableP2P take whatever reply comes: its first number is the result.
int32_t PeerToPeer(Master& master, const char* method, int32_t rspfunc, int32_t rspid,
                   const char* mac, int32_t code) {
    Transaction t(master, method, rspfunc, rspid, mac);
    if (!t.Admit() || !t.Send(code)) return t.Result();
    if (t.Receive() != Reception::kMessage) return t.Result();
    const char* p = t.ReplyPayload();
    while (*p == ' ' || *p == '\t') ++p;
    const char* digits = (*p == '-' || *p == '+') ? p + 1 : p;
    if (*digits >= '0' && *digits <= '9') {
        t.SetResult(DecimalValue(p));
    } else {
        t.SetResult(master.CheckErrorCode(-1, method));
    }
    return t.Result();
}

}  // namespace

int32_t Master::RestartStopTask(int32_t rspfunc, int32_t rspid, const char* mac, int32_t mode,
                                int32_t task) {
    Transaction t(*this, "Master::RestartStopTask", rspfunc, rspid, mac);
    if (!t.Admit()) return t.Result();
    if (!IsTaskListed(task)) {
        // The text leaves 30 and 31 out, though they are accepted.
        char line[kLogTextSize];
        FormatText(line, sizeof line,
                   "[Master::RestartStopTask] task value must be between %d and %d, or one of "
                   "(%d,%d,%d,%d,%d)",
                   1, 11, 20, 21, 22, 99, 101);
        t.Refuse(line);
    }
    if (!t.Check("mode", mode, 1, 2)) return t.Result();
    int32_t code = mode == 1 ? ZANTH_RESTART_TASK : ZANTH_STOP_TASK;
    // Tasks 9 and 99 take the command task down with them: the link ends, and no reply comes.
    if (!t.Send(code, Payload().Int(task)) || task == 9 || task == 99) return t.Result();
    if (!t.Await() || !t.Expect(code + 1000)) return t.Result();
    return t.BareResult();
}

int32_t Master::EnableDHCP(int32_t rspfunc, int32_t rspid, const char* mac, const char* text) {
    return SetAddressing(*this, "Master::EnabledDHCP", rspfunc, rspid, mac, ZANTH_SET_DHCP_IP,
                         {text});
}

int32_t Master::EnableStaticIP(int32_t rspfunc, int32_t rspid, const char* mac, const char* text1,
                               const char* text2, const char* text3, const char* text4,
                               const char* text5, const char* text6, const char* text7,
                               const char* text8) {
    return SetAddressing(*this, "Master::EnableStaticIP", rspfunc, rspid, mac, ZANTH_SET_STATIC_IP,
                         {text1, text2, text3, text4, text5, text6, text7, text8});
}

int32_t Master::EnableP2P(int32_t rspfunc, int32_t rspid, const char* mac) {
    return PeerToPeer(*this, "Master::EnableP2P", rspfunc, rspid, mac, ZANTH_ENABLE_P2P);
}

int32_t Master::DisableP2P(int32_t rspfunc, int32_t rspid, const char* mac) {
    return PeerToPeer(*this, "Master::DisableP2P", rspfunc, rspid, mac, ZANTH_DISABLE_P2P);
}

int32_t Master::SetPassword(int32_t rspfunc, int32_t rspid, const char* mac, const char* username,
                            const char* password) {
    Transaction t(*this, "Master::SetPassword", rspfunc, rspid, mac);
    if (!AdmitWithSecret(t, masterName_, username != nullptr && password != nullptr,
                         "[Master::SetPassword] Error in username or password",
                         "[Master::SetPassword] username and password set"))
        return t.Result();
    if (!t.Send(ZANTH_SET_PASSWORD,
                Payload().Text(username).Text(password).EndWithoutSeparator()) ||
        !ReceiveLoosely(t, "[Master::SetPassword] COMM_ERROR"))
        return t.Result();
    // The controller's answer is the result as it stands; any other reply is no failure.
    if (t.Code() == ZANTH_SET_PASSWORD_RSP) {
        int32_t answer = 0;
        t.Fields().Optional().Int(&answer);
        t.SetResult(answer);
    }
    return t.Result();
}

int32_t Master::SetMoxOperationMode(int32_t rspfunc, int32_t rspid, const char* mac,
                                    const char* password, int32_t mode) {
    Transaction t(*this, "Master::SetMoxOperationMode", rspfunc, rspid, mac);
    if (!AdmitWithSecret(t, masterName_, password != nullptr,
                         "[Master::SetMoxOperationMode] Error in password",
                         "[Master::SetMoxOperationMode] Mox mode and password set"))
        return t.Result();
    // This method's failed wait shares the login's text.
    if (!t.Send(ZANTH_SET_MOX_OP_MODE, Payload().Int(mode).Text(password).EndWithoutSeparator()) ||
        !ReceiveLoosely(t, "[Master::SetPassword] COMM_ERROR"))
        return t.Result();
    if (t.Code() != ZANTH_SET_MOX_OP_MODE_RSP) return t.Result();
    // No mapping of -1 to -99 here: only the controller's two refusals of the mode are named.
    t.Fields().ControllerResult(nullptr, false);
    if (t.Result() == -1513) t.SetResult(kModeRefused1513);
    if (t.Result() == -1512) t.SetResult(kModeRefused1512);
    return t.Result();
}

int32_t Master::GetMoxOperationMode(int32_t rspfunc, int32_t rspid, const char* mac,
                                    int32_t* mode) {
    Transaction t(*this, "Master::GetMoxOperationMode", rspfunc, rspid, mac);
    Log(masterName_, kLogTrace, "[Master::GetMoxOperationMode] Get Mox mode called");
    if (!t.Admit() || (t.Blocking() && !t.Present(mode))) return t.Result();
    if (!t.Send(ZANTH_GET_MOX_OP_MODE) ||
        !ReceiveLoosely(t, "[Master::GetMoxOperationMode] COMM_ERROR",
                        {{mode, static_cast<int32_t>(sizeof *mode)}}))
        return t.Result();
    if (t.Code() != ZANTH_GET_MOX_OP_MODE_RSP) return t.Result();
    t.Fields().ControllerResult(nullptr, false).Int(mode);
    return t.Result();
}

int32_t Master::GetMoxModuleRevs(int32_t rspfunc, int32_t rspid, const char* mac, char* buffer,
                                 int32_t size) {
    Transaction t(*this, "Master::GetMoxModuleRevs", rspfunc, rspid, mac);
    Log(masterName_, kLogTrace, "[Master::GetMoxModuleRevs] Get Mox Module Revs called");
    if (!t.Admit()) return t.Result();
    if (t.Blocking() && (!t.Present(buffer) || size <= 0)) {
        t.SetResult(kBadArgument);
        return t.Result();
    }
    if (!t.Send(ZANTH_GET_MOX_MODULE_REVS) ||
        !ReceiveLoosely(t, "[Master::GetMoxModuleRevs] COMM_ERROR", {{buffer, size}}))
        return t.Result();
    if (t.Code() != ZANTH_GET_MOX_MODULE_REVS_RSP) {
        // A controller without a module bus doesn't know the command.
        t.SetResult(kCannotProcess);
        Log(masterName_, kLogError, "[Master::GetMoxModuleRevs] COMMAND_UNKNOWN_BY_CONTROLLER");
        return t.Result();
    }
    ReplyFields fields = t.Fields();
    fields.ControllerResult(nullptr, false);
    if (t.Result() < 0) return t.Result();
    fields.Optional().Skip();
    // The revisions are the rest of the reply behind a one-character result, separators and
    // all. A second field lies at least two characters in, so the copy starts inside the text.
    if (fields.Count() == 2) CopyBounded(buffer, t.ReplyPayload() + 2, static_cast<size_t>(size));
    return t.Result();
}

int32_t Master::FirmwareCommand(int32_t rspfunc, int32_t rspid, const char* mac, uint32_t value) {
    Transaction t(*this, "Master::FirmwareCommand", rspfunc, rspid, mac);
    // No wait in either form: a Rsp caller finds the controller's answer in the response queue.
    if (t.Admit()) t.Send(ZANTH_FIRMWARE_COMMAND, Payload().Uint(value));
    return t.Result();
}

int32_t Master::GetErrorLog(int32_t rspfunc, int32_t rspid, const char* mac,
                            const char* pcPathFile) {
    Transaction t(*this, "Master::GetErrorLog", rspfunc, rspid, mac);
    // A Rsp caller stops after the query: it reads 1090 itself and fetches the file if it wants.
    // A blocking caller needs the path the file is fetched to, before the query goes out.
    if (!t.Admit() || (t.Blocking() && !t.Present(pcPathFile)) || !t.Send(ZANTH_GET_ERROR_LOG))
        return t.Result();
    if (!t.Await() || !t.Expect(ZANTH_GET_ERROR_LOG_RSP)) return t.Result();
    t.Fields().ControllerResult();
    int32_t rslt = t.Result();
    if (rslt == 0) {
        Log(masterName_, kLogError, "[Master::GetErrorLog] The Error Log is empty");
        t.SetResult(kErrorLogEmpty);
    }
    if (rslt <= 0) return t.Result();
    // The file comes by a blocking transfer of its own, whichever form asked.
    int32_t fetched = GetFile(0, 0, mac, kErrorLogPath, pcPathFile);
    return fetched < 0 ? fetched : rslt;
}

}  // namespace zanth
