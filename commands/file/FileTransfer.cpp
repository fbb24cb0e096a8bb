// File transfer: whole files that the Worker streams between a local file and the controller
// (GetFile, SendFile), single chunks that the caller moves through its own memory, blocking
// (GetData, SendData) or not (their Rsp forms), a controller file's permission (FileStatus), and
// its removal (ZanthDeleteFile).

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "frame/Master.h"
#include "frame/Transaction.h"
#include "protocol/Codes.h"
#include "protocol/Text.h"
#include "stores/LogMon.h"

namespace zanth {
namespace {

bool Blank(const char* text) {
    return text == nullptr || text[0] == '\0';
}

// The "[Master::X] controllerPathFile cannot be blank" refusal.
bool RefuseBlankPath(Transaction& t, const char* path) {
    if (!t.Ok() || !Blank(path)) return t.Ok();
    char text[kLogTextSize];
    FormatText(text, sizeof text, "[%s] controllerPathFile cannot be blank", t.Method());
    return t.Refuse(text);
}

// A chunk call's data: `size` bytes behind `data`. A negative size, or bytes promised behind a
// null pointer, are refused before anything is sent.
bool CheckChunkData(Transaction& t, const char* data, int32_t size) {
    if (!t.Ok()) return false;
    if (size < 0 || (size > 0 && data == nullptr)) t.SetResult(kBadArgument);
    return t.Ok();
}

// Tells the controller to give the chunk up ("-10007;<why>;" as 9980); its reply isn't awaited.
void RefuseChunk(Transaction& t, const char* why) {
    char text[64];
    FormatText(text, sizeof text, "%d;%s;", static_cast<int>(kFileError), why);
    t.SendUnawaited(ZANTH_FILE_TRANSFER_ERROR, Payload().Raw(text));
}

// A controller's 9980: its own number, passed on as it is, or -10017 without one. A 9980
// never means success: a first field that is no number ("abc", "#") is no result either.
// `errorFormat` logs its second field, the controller's text.
int32_t TransferErrorResult(Transaction& t, const char* errorFormat) {
    char payload[kMessageBufferSize + 1];
    CopyBounded(payload, t.ReplyPayload(), sizeof payload);
    char* state = nullptr;
    char* first = Tokenize(payload, ";", &state);
    if (first == nullptr) return kNoTransferResult;
    int32_t rslt = 0;
    if (!IsDecimalNumber(first, &rslt)) rslt = kNoTransferResult;
    t.LogLine(kLogTrace, "[%s] rslt=%d", t.Method(), rslt);
    if (char* second = Tokenize(nullptr, ";", &state)) {
        char line[kLogTextSize];
        char text[kLogTextSize];
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
        FormatText(line, sizeof line, errorFormat, rslt);
#pragma GCC diagnostic pop
        CopyBounded(text, second, sizeof text);
        Log(t.LogSource(), kLogError, line, text, true);
    }
    return rslt;
}

// One decimal number at the start of `text`, as "%d" reads it; false when there is none.
bool LeadingNumber(const char* text, int32_t* value) {
    errno = 0;
    char* end = nullptr;
    long parsed = std::strtol(text, &end, 10);
    if (end == text) return false;
    *value = static_cast<int32_t>(std::clamp<long>(parsed, INT32_MIN, INT32_MAX));
    return true;
}

}  // namespace

void Master::EndChunkedTransfer() {
    transferInProgress_ = 0;
    std::memset(transferFilename_, 0, sizeof transferFilename_);
}

// ---------------------------------------------------------------------------------------------
// Whole files, streamed by the Worker

int32_t Master::StreamFile(int32_t rspfunc, int32_t rspid, const char* mac, const char* method,
                           int32_t code, const char* controllerPathFile, const char* pcPathFile) {
    Transaction t(*this, method, rspfunc, rspid, mac);
    if (!t.Admit() || !RefuseBlankPath(t, controllerPathFile)) return t.Result();
    if (Blank(pcPathFile)) {
        char text[kLogTextSize];
        FormatText(text, sizeof text, "[%s] pcPathFile cannot be blank", method);
        t.Refuse(text);
        return t.Result();
    }
    // The Worker gets both paths in fields of 256 bytes: a longer one would name another file.
    if (std::strlen(controllerPathFile) >= kPathSize || std::strlen(pcPathFile) >= kPathSize) {
        t.SetResult(kBadArgument);
        return t.Result();
    }
    if (!t.Send(code, Payload().Text(controllerPathFile), controllerPathFile, pcPathFile))
        return t.Result();
    // At the stream's end the Worker leaves a bare number, no frame: 0, its failure, or the
    // controller's 9980 number. A wait that runs out is no success: the zeroed slot would read
    // as 0, so it gives -10005, as every other command's does.
    if (!t.ReceiveRaw()) {
        t.SetResult(kNoReply);
        return t.Result();
    }
    int32_t value = 0;
    if (LeadingNumber(t.Reply(), &value)) t.SetResult(value);
    return t.Result();
}

int32_t Master::GetFile(int32_t rspfunc, int32_t rspid, const char* mac,
                        const char* controllerPathFile, const char* pcPathFile) {
    return StreamFile(rspfunc, rspid, mac, "Master::GetFile", ZANTH_GET_FILE, controllerPathFile,
                      pcPathFile);
}

int32_t Master::SendFile(int32_t rspfunc, int32_t rspid, const char* mac,
                         const char* controllerPathFile, const char* pcPathFile) {
    return StreamFile(rspfunc, rspid, mac, "Master::SendFile", ZANTH_SEND_FILE, controllerPathFile,
                      pcPathFile);
}

// ---------------------------------------------------------------------------------------------
// One chunk per call, blocking

int32_t Master::GetData(const char* mac, const char* controllerPathFile, char* buffer, int32_t size,
                        int32_t* bytesRead, int32_t* isLast) {
    Transaction t(*this, "Master::GetData", 0, 0, mac);
    if (buffer != nullptr && size > 0) std::memset(buffer, 0, static_cast<size_t>(size));
    if (t.Admit() && RefuseBlankPath(t, controllerPathFile)) t.Present(buffer, bytesRead, isLast);
    if (t.Ok()) {
        if (!transferInProgress_) {
            t.LogLine(kLogTrace, "[Master::GetData] gatewayPathFile=%s", controllerPathFile);
            t.Send(ZANTH_GET_FILE, Payload().Text(controllerPathFile), controllerPathFile, "");
        } else if (std::strncmp(controllerPathFile, transferFilename_, kPathSize - 1) != 0) {
            t.LogLine(kLogError,
                      "[%d][Master::GetData] Data Transfer In-Progress: controllerPathFile=%s != "
                      "filename=%s in previous call",
                      static_cast<int>(kTransferBusy), controllerPathFile, transferFilename_);
            t.SetResult(kTransferBusy);
        } else {
            t.Send(ZANTH_GET_FILE_RSP, Payload(), controllerPathFile, "");
        }
    }
    // Any call ends the transfer standing open, a refused one too; a 1033 opens it again below.
    EndChunkedTransfer();
    if (!t.Ok()) return t.Result();

    // No completeness test: a chunk may be empty, and it is binary, so the header measures it.
    t.ReceiveChunk();
    t.LogReplyAndCount();
    const int32_t code = t.Code();
    const int32_t count = t.PayloadLength();
    if (code == ZANTH_GET_FILE_MORE || code == ZANTH_GET_FILE_END) {
        if (size < count) {
            RefuseChunk(t, "File buffer too small");
            t.LogLine(kLogError, "[Master::GetData] Error: fileDataSize=%d < size of data=%d", size,
                      count);
            t.SetResult(kTooLarge);
            return t.Result();
        }
        // Never more than the reply slot held, whatever the header announced.
        const int32_t held = std::clamp(count, 0, kMessageBufferSize - kClearHeaderSize);
        std::memcpy(buffer, t.ReplyPayload(), static_cast<size_t>(held));
        *bytesRead = held;
        *isLast = code == ZANTH_GET_FILE_END ? 1 : 0;
        if (code == ZANTH_GET_FILE_MORE) {
            transferInProgress_ = 1;
            CopyBounded(transferFilename_, controllerPathFile, sizeof transferFilename_);
        }
        return t.Result();
    }
    if (code == ZANTH_FILE_TRANSFER_ERROR) {
        t.SetResult(TransferErrorResult(t, "[Master::GetData] file transfer error, rslt=%d err="));
        return t.Result();
    }
    t.SetResult(CheckErrorCode(code, "Master::GetData"));
    return t.Result();
}

bool Master::AwaitSendDataReply(Transaction& t) {
    if (t.Receive() != Transaction::Reception::kMessage) {
        t.SetResult(kNoReply);
        return false;
    }
    t.LogReplyAndCount();
    if (t.Code() == ZANTH_SEND_FILE_RSP) return true;
    if (t.Code() == ZANTH_FILE_TRANSFER_ERROR) {
        t.SetResult(TransferErrorResult(t, "[Master::SendData] file transfer error rslt=%d err="));
    } else {
        t.SetResult(CheckErrorCode(t.Code(), "Master::SendData"));
    }
    return false;
}

int32_t Master::SendData(const char* mac, const char* controllerPathFile, const char* data,
                         int32_t size, int32_t endOfData) {
    Transaction t(*this, "Master::SendData", 0, 0, mac);
    if (t.Admit() && RefuseBlankPath(t, controllerPathFile) && endOfData != 0 && endOfData != 1) {
        // Returned at once: the open transfer stays as it was.
        t.LogLine(kLogError, "[Master::SendData] end of data value must be between 0 and 1");
        return kBadArgument;
    }
    CheckChunkData(t, data, size);
    if (t.Ok()) {
        if (!transferInProgress_) {
            // The first chunk of a file is two transactions: the opening, then the chunk.
            t.LogLine(kLogTrace, "[Master::SendData] gatewayPathFile=%s", controllerPathFile);
            if (t.Send(ZANTH_SEND_FILE, Payload().Text(controllerPathFile), controllerPathFile,
                       "")) {
                AwaitSendDataReply(t);
            }
        } else if (std::strncmp(controllerPathFile, transferFilename_, kPathSize - 1) != 0) {
            t.LogLine(kLogError,
                      "[%d][Master::SendData] Data Transfer In-Progress: gatewayPathFile=%s != "
                      "filename=%s in previous call",
                      static_cast<int>(kTransferBusy), controllerPathFile, transferFilename_);
            t.SetResult(kTransferBusy);
        }
    }
    EndChunkedTransfer();
    if (t.Ok() && size > kFileChunkSize) {
        RefuseChunk(t, "File buffer too large");
        t.LogLine(kLogError, "[Master::SendData] Error: fileDataSize=%d > MAX=%d", size,
                  kFileChunkSize);
        t.SetResult(kTooLarge);
    }
    if (!t.Ok()) return t.Result();
    const int32_t sent = endOfData == 1 ? ZANTH_SEND_FILE_END : ZANTH_SEND_FILE_MORE;
    if (!t.Send(sent, Payload().Bytes(data, static_cast<size_t>(size)), controllerPathFile, "") ||
        !AwaitSendDataReply(t)) {
        return t.Result();
    }
    if (sent == ZANTH_SEND_FILE_MORE) {
        transferInProgress_ = 1;
        CopyBounded(transferFilename_, controllerPathFile, sizeof transferFilename_);
    }
    return t.Result();
}

// ---------------------------------------------------------------------------------------------
// One chunk per call, not blocking: the host keeps the order and reads each reply from the
// response queue.

int32_t Master::RspGetDataFilename(int32_t rspid, const char* mac, const char* controllerPathFile) {
    Transaction t(*this, "Master::RspGetDataFilename", 1, rspid, mac);
    if (!t.Admit() || !RefuseBlankPath(t, controllerPathFile)) return t.Result();
    t.LogLine(kLogTrace, "[Master::RspGetDataFilename] gatewayPathFile=%s", controllerPathFile);
    t.Send(ZANTH_GET_FILE, Payload().Text(controllerPathFile), controllerPathFile, "");
    return t.Result();
}

int32_t Master::RspGetData(int32_t rspid, const char* mac, const char* controllerPathFile) {
    Transaction t(*this, "Master::RspGetData", 1, rspid, mac);
    if (!t.Admit() || !RefuseBlankPath(t, controllerPathFile)) return t.Result();
    t.Send(ZANTH_GET_FILE_RSP, Payload(), controllerPathFile, "");
    return t.Result();
}

int32_t Master::RspSendDataFilename(int32_t rspid, const char* mac,
                                    const char* controllerPathFile) {
    Transaction t(*this, "Master::RspSendDataFilename", 1, rspid, mac);
    if (!t.Admit() || !RefuseBlankPath(t, controllerPathFile)) return t.Result();
    t.LogLine(kLogTrace, "[Master::RspSendDataFilename] gatewayPathFile=%s", controllerPathFile);
    t.Send(ZANTH_SEND_FILE, Payload().Text(controllerPathFile), controllerPathFile, "");
    return t.Result();
}

int32_t Master::RspSendData(int32_t rspid, const char* mac, const char* controllerPathFile,
                            const char* data, int32_t size, int32_t endOfData) {
    Transaction t(*this, "Master::RspSendData", 1, rspid, mac);
    if (!t.Admit() || !RefuseBlankPath(t, controllerPathFile)) return t.Result();
    if (endOfData != 0 && endOfData != 1) {
        t.LogLine(kLogError, "[Master::RspSendData] end of data value must be between 0 and 1");
        return kBadArgument;
    }
    if (size > kFileChunkSize) {
        RefuseChunk(t, "File buffer too large");
        t.LogLine(kLogError, "[Master::RspSendData] Error: fileDataSize=%d > MAX=%d", size,
                  kFileChunkSize);
        t.SetResult(kTooLarge);
        return t.Result();
    }
    if (!CheckChunkData(t, data, size)) return t.Result();
    t.Send(endOfData == 1 ? ZANTH_SEND_FILE_END : ZANTH_SEND_FILE_MORE,
           Payload().Bytes(data, static_cast<size_t>(size)), controllerPathFile, "");
    return t.Result();
}

// ---------------------------------------------------------------------------------------------
// A file's permission and its removal

int32_t Master::FileStatus(int32_t rspfunc, int32_t rspid, const char* mac, int32_t mode,
                           const char* path, char* permission, int32_t size) {
    Transaction t(*this, "Master::FileStatus", rspfunc, rspid, mac);
    if (!t.Admit() || !t.Present(path)) return t.Result();
    t.LogLine(kLogTrace, "[Master::FileStatus] gatewayPathFile=%s", path ? path : "");
    if (mode == 0) {
        // The plain form writes the permission back: it needs somewhere to put it.
        if (rspfunc == 0) t.Present(permission);
        t.Send(ZANTH_GET_FILE_STATUS, Payload().Text(path));
    } else if (mode == 1) {
        if (permission == nullptr || std::strlen(permission) != 3) {
            t.Refuse("[Master::FileStatus] permission must contain 3 digits");
        } else if (!std::all_of(permission, permission + 3,
                                [](char c) { return c >= '0' && c <= '7'; })) {
            t.Refuse("[Master::FileStatus] permission must be 3-digit octal number");
        }
        t.Send(ZANTH_SET_FILE_STATUS, Payload().Text(path).Text(permission));
    } else {
        t.Refuse("[Master::FileStatus] mode value must be between 0 and 1");
    }
    // This method alone decides the wait by rspid: a Rsp form with rspid 0 queues its reply for
    // the response queue and then waits here in vain.
    if (!t.Ok() || rspid != 0) return t.Result();
    if (!t.Await() ||
        !t.Expect(mode == 0 ? ZANTH_GET_FILE_STATUS_RSP : ZANTH_SET_FILE_STATUS_RSP)) {
        return t.Result();
    }
    ReplyFields fields = t.Fields();
    fields.ControllerResult();
    if (t.Code() == ZANTH_GET_FILE_STATUS_RSP && t.Result() >= 0) {
        if (permission != nullptr && size > 0)
            std::memset(permission, 0, static_cast<size_t>(size));
        fields.Text(permission, permission != nullptr ? size : 0);
    }
    return t.Result();
}

int32_t Master::ZanthDeleteFile(int32_t rspfunc, int32_t rspid, const char* mac, const char* path) {
    Transaction t(*this, "Master::ZanthDeleteFile", rspfunc, rspid, mac);
    // An empty path is the controller's to judge; a missing one is refused.
    if (!t.Admit() || !t.Present(path) || !t.Send(ZANTH_DELETE_FILE, Payload().Text(path)))
        return t.Result();
    // Nothing whole came: unlike every other command, 0 stands.
    if (t.Receive() != Transaction::Reception::kMessage) return t.Result();
    // The first number is the result, whatever the reply's code, and unmapped.
    int32_t value = 0;
    if (LeadingNumber(t.ReplyPayload(), &value)) {
        t.SetResult(value);
    } else {
        t.SetResult(CheckErrorCode(-1, "Master::ZanthDeleteFile"));
    }
    return t.Result();
}

}  // namespace zanth
