// The Worker's dispatch of incoming messages: replies to their callers, identification, and
// the unsolicited traffic with its acknowledgements.

#include <algorithm>
#include <cctype>
#include <cstring>
#include <ctime>

#include "connection/Worker.h"
#include "monitors/Monitors.h"
#include "platform/File.h"
#include "protocol/Codes.h"
#include "protocol/Result.h"
#include "protocol/Text.h"
#include "security/SeedHashMon.h"
#include "stores/LogMon.h"

namespace zanth {

bool Worker::ProcessIncomingSocketMessage() {
    const char* message = reader_.Message();
    // Whether a caller is owed a reply is settled before the message changes any flag.
    replyOwed_ = busy_ || waitingForANonXferResponse_;
    util_.ParseMessage(message, static_cast<size_t>(reader_.MessageLength()), dataBuffer_.data(),
                       dataBuffer_.size(), &code_, &dataLen_);
    FormatText(logText_, sizeof logText_, "[Worker::ProcessIncomingSocketMessage()] Code = %s",
               util_.CodeName(code_));
    Log(mac_, kLogTrace, logText_);

    switch (code_) {
        case 0:
            Log(mac_, kLogError, "disconnected - received invalid code");
            busy_ = false;
            return false;
        case ZANTH_TERMINATE:
            // A blocked caller is not released: it runs into its wait time.
            busy_ = false;
            return false;
        case ZANTH_UNABLE_TO_PROCESS_COMMAND:
        case ZANTH_UNKNOWN_COMMAND:
            if (code_ == ZANTH_UNABLE_TO_PROCESS_COMMAND) {
                Log(mac_, kLogError, "disconnected - Zanth unable to process command");
            }
            Log(mac_, kLogError, "disconnected - Zanth unknown command");
            busy_ = false;
            Deliver(message, static_cast<int32_t>(std::strlen(message) + 1), current_.rspid);
            return false;
        case ZANTH_IDENTIFY_CONTROLLER:
            return Identify();
        case ZANTH_IDENTIFY_ENCRYPTED_CONTROLLER:
            return IdentifyEncrypted();
        case ZANTH_ALARM_MESSAGE:
        case ZANTH_EVENT_MESSAGE:
        case ZANTH_MESSAGE_BUNDLE:
        case ZANTH_HEART_BEAT:
        case ZANTH_CHECK_CARD:
        case ZANTH_POST_ACCESS_MSG_TO_HOST:
        case ZANTH_REPORT_PIN:
        case ZANTH_SMART_CARD_DATA:
        case ZANTH_KEY_PAD_DATA:
        case ZANTH_COMMAND_KEY_DATA:
            return ProcessUnsolicited();
        case ZANTH_HERE_I_AM:
            return ProcessHereIAm();
        case ZANTH_SEND_FILE_RSP:
        case ZANTH_GET_FILE_MORE:
        case ZANTH_GET_FILE_END:
        case ZANTH_FILE_TRANSFER_ERROR:
            return ProcessTransferReply();
        default:
            break;
    }

    // A command's reply. During a transfer it can only belong to a punch-through command.
    if (DropLateReply()) return true;
    Deliver(message, kWorkingBufferSize, xfer() ? punchRspid_ : current_.rspid);
    if (!waitingForANonXferResponse_) {
        busy_ = false;
        return true;
    }
    if (!util_.IsResponseCode(code_)) {
        Log(mac_, kLogTrace,
            "[Worker::Run] Reecevied message code was not for recently sent message.");
        return true;
    }
    busy_ = false;
    waitingForANonXferResponse_ = false;
    replyTimed_ = false;
    Log(mac_, kLogTrace, "[Worker::Run] waitingForANonXferResponse set to FALSE!!");
    return true;
}

bool Worker::DropLateReply() {
    if (!LateReply()) return false;
    FormatText(logText_, sizeof logText_,
               "[Worker::Run] %s came after its caller was answered %d: dropped",
               util_.CodeName(code_), static_cast<int>(kNoReply));
    Log(mac_, kLogError, logText_);
    // A stream's controller may still send what it had under way; a plain command has one reply.
    if (abandonedCode_ != ZANTH_GET_FILE && abandonedCode_ != ZANTH_SEND_FILE) abandonedCode_ = 0;
    return true;
}

void Worker::Deliver(const char* text, int32_t size, int32_t rspid) {
    if (current_.rspfunc != 0) {
        monitors_.responseMon->Add(rspid, text, size);
    } else if (replyOwed_) {
        monitors_.recvMon->SetBuffer(text);
    } else {
        // A reply that no command asked for: parked in the one reply slot it would wait there
        // for a caller that never comes, and hold this Worker (and its socket) for good.
        Log(mac_, kLogError, "[Worker::Run] reply with no command waiting for it, dropped", text,
            true);
    }
}

bool Worker::TakeMac() {
    char* state = nullptr;
    char* field = Tokenize(dataBuffer_.data(), ";", &state);
    if (field == nullptr) return false;
    // The first nine characters (the product line's fixed octets) are passed over.
    size_t length = std::strlen(field);
    const char* rest = length > 9 ? field + 9 : "";
    char mac[kMacSize];
    CopyBounded(mac, rest, sizeof mac);
    for (char* p = mac; *p; ++p)
        *p = static_cast<char>(std::toupper(static_cast<unsigned char>(*p)));
    // A field with nothing behind the fixed octets names no controller.
    if (mac[0] == '\0') return false;
    CopyBounded(mac_, mac, sizeof mac_);
    return true;
}

void Worker::ReplaceFormerConnection() {
    uint8_t connected = 0;
    monitors_.workerMon->IsConnected(mac_, &connected);
    if (connected) {
        uint32_t former = monitors_.workerMon->WorkerThreadOf(mac_);
        int32_t result = 0;
        monitors_.workerMon->PostWorkerMsg(mac_, platform::WM_WORKER_KILL, &result);
        // The replaced Worker no longer answers for the MAC: it is ended at once, silently.
        platform::TerminateThread(former);
        platform::Sleep(5000);
        monitors_.workerMon->RemoveWorkerOf(mac_, former, &result);
        monitors_.connDiscQueue->Add(mac_, 0, &result);
    }
    // Commands queued for the MAC before it came back are thrown away unanswered.
    CommandRecord discard{};
    int32_t error = 0;
    do {
        monitors_.sendMon->Get(&discard, mac_, &error);
    } while (error == 0);
}

void Worker::Register() {
    monitors_.workerMon->AddWorker(mac_, threadId_);
    monitors_.sendMon->SetCollector(mac_, threadId_);
    int32_t error = 0;
    monitors_.connDiscQueue->Add(mac_, 1, &error);
    cmd_->SetName(mac_);
    init_ = true;
}

bool Worker::Identify() {
    if (init_) return true;
    if (!TakeMac()) {
        // The library's only use of the rejection.
        if (SendFramed(ZANTH_REJECT_CONNECTION, "")) busy_ = false;
        return false;
    }
    // Anyone may identify and is accepted; a MAC that isn't valid learns of it at its first
    // unsolicited message.
    ReplaceFormerConnection();
    Register();
    if (!SendFramed(ZANTH_ACCEPT_CONNECTION, "")) return false;
    Log(mac_, kLogTrace, "[Worker::Run] Initialization completed");
    return true;
}

bool Worker::IdentifyEncrypted() {
    if (init_) return true;
    if (!TakeMac()) {
        Log(mac_, kLogError, "[Worker::Run] Error getting mac address");
        return false;
    }
    CopyBounded(identifyText_, reader_.Message(), sizeof identifyText_);
    std::memset(seed_, 0, sizeof seed_);
    seeds_.Get(mac_, seed_, 200);
    if (util_.GenerateKey(identifyText_, seed_, key_, 32) < 0) {
        Log(mac_, kLogError, "[Worker::Run] Error generating key");
        return false;
    }
    ReplaceFormerConnection();
    int32_t size = 0;
    result_ = util_.GetBufferSize(&size);
    // The size is the plugin's own answer: a negative one is a failure too, and one beyond what a
    // four-digit length field can describe is no frame size at all.
    if (result_ < 0 || size < 0 || size > 9999) {
        FormatText(logText_, sizeof logText_,
                   "[Worker::Run] Error using encryption library, error code=%d",
                   result_ < 0 ? result_ : size);
        Log(mac_, kLogError, logText_);
        return false;
    }
    encrypted_ = true;
    // Below the working size the working size stands.
    reader_.UseEncryption(size, key_);
    writer_.UseEncryption(size, key_);
    Register();
    // The acceptance is the first encrypted frame.
    if (!SendFramed(ZANTH_ACCEPT_CONNECTION, "")) return false;
    Log(mac_, kLogTrace, "[Worker::Run] Initialization completed");
    return true;
}

void Worker::StoreEvent(const char* text) {
    int32_t error = 0;
    // On disk before the host's queue holds it; a failed write loses only the file's copy.
    monitors_.eventMon->WriteMsg(text, static_cast<int32_t>(std::strlen(text)), &error);
    monitors_.eventMonQueue->Add(text);
}

void Worker::StoreAlarm(const char* text) {
    int32_t error = 0;
    monitors_.alarmMon->WriteMsg(text, static_cast<int32_t>(std::strlen(text)), &error);
    monitors_.alarmMonQueue->Add(text);
}

bool Worker::ProcessUnsolicited() {
    if (!CheckValid()) return false;
    char* payload = dataBuffer_.data();
    switch (code_) {
        case ZANTH_EVENT_MESSAGE:
            if (!SendAcknowledgement(ZANTH_MESSAGE_RSP, "", true)) return false;
            StoreEvent(payload);
            return true;
        case ZANTH_ALARM_MESSAGE:
        case ZANTH_HEART_BEAT: {
            // A heartbeat's payload is stored as an alarm.
            int32_t ack = code_ == ZANTH_HEART_BEAT ? ZANTH_HEART_BEAT_RSP : ZANTH_MESSAGE_RSP;
            if (!SendAcknowledgement(ack, "", true)) return false;
            StoreAlarm(payload);
            return true;
        }
        case ZANTH_MESSAGE_BUNDLE: {
            if (!SendAcknowledgement(ZANTH_MESSAGE_RSP, "", true)) return false;
            // Entries are "code;text^"; only events and alarms are kept.
            char* state = nullptr;
            for (char* codeText = Tokenize(payload, ";", &state); codeText != nullptr;
                 codeText = Tokenize(nullptr, ";", &state)) {
                int32_t inner = DecimalValue(codeText);
                char* body = Tokenize(nullptr, "^", &state);
                if (body == nullptr) break;
                if (inner == ZANTH_EVENT_MESSAGE) StoreEvent(body);
                if (inner == ZANTH_ALARM_MESSAGE) StoreAlarm(body);
            }
            return true;
        }
        case ZANTH_CHECK_CARD:
            monitors_.lookupMon->Add(payload);
            return SendAcknowledgement(ZANTH_CHECK_CARD_RSP, "0;", true);
        case ZANTH_REPORT_PIN:
            monitors_.lookupPinMon->Add(payload);
            return SendAcknowledgement(ZANTH_REPORT_PIN_RSP, "0;", true);
        case ZANTH_SMART_CARD_DATA:
            monitors_.smartCardMon->Add(payload);
            return SendAcknowledgement(ZANTH_SMART_CARD_DATA_RSP, "0;", true);
        case ZANTH_KEY_PAD_DATA:
            monitors_.keyPadMon->Add(payload);
            return SendAcknowledgement(ZANTH_KEY_PAD_DATA_RSP, "0;", true);
        case ZANTH_COMMAND_KEY_DATA:
            monitors_.cmdKeyMon->Add(payload);
            return SendAcknowledgement(ZANTH_COMMAND_KEY_DATA_RSP, "0;", false);
        case ZANTH_POST_ACCESS_MSG_TO_HOST:
            // No acknowledgement for a post-access message.
            monitors_.postAccessMon->Add(payload);
            return true;
        default:
            return true;
    }
}

bool Worker::ProcessHereIAm() {
    if (!init_) return false;
    if (!CheckValid()) return false;
    std::tm t{};
    platform::LocalNow(&t);
    char stamp[48];
    FormatText(stamp, sizeof stamp, "%02d:%02d:%02d %02d/%02d/%04d;", t.tm_hour, t.tm_min, t.tm_sec,
               t.tm_mday, t.tm_mon + 1, t.tm_year + 1900);
    char* payload = dataBuffer_.data();
    size_t used = ::strnlen(payload, dataBuffer_.size() - 1);
    CopyBounded(payload + used, stamp, dataBuffer_.size() - used);
    monitors_.hereiamMon->Add(payload);
    return SendAcknowledgement(ZANTH_HERE_I_AM_RSP, "", true);
}

bool Worker::ProcessTransferReply() {
    if (!CheckValid()) return false;
    if (DropLateReply()) return true;
    if (!xfer()) {
        // The reply to GetData, SendData or their Rsp forms.
        busy_ = false;
        waitingForANonXferResponse_ = false;
        replyTimed_ = false;
        // A chunk is binary: the frame's length, not its first NUL, measures it.
        Deliver(reader_.Message(), reader_.MessageLength() + 1, current_.rspid);
        return true;
    }
    switch (code_) {
        case ZANTH_GET_FILE_MORE:
        case ZANTH_GET_FILE_END:
            return GetFileChunk();
        case ZANTH_SEND_FILE_RSP:
            if (sentLastChunk()) {
                // The controller has the end chunk: the stream is over.
                stream_ = Stream::kIdle;
                streamTimed_ = false;
                return true;
            }
            return SendFileChunk();
        default:
            TransferError();
            return true;
    }
}

}  // namespace zanth
