#include "connection/Worker.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <ctime>

#include "monitors/Globals.h"
#include "monitors/CharIntQueueMon.h"
#include "monitors/CharQueueMon.h"
#include "monitors/ConnDiscQueue.h"
#include "monitors/HandleHashMon.h"
#include "monitors/RecvMon.h"
#include "monitors/ThreadHashMon.h"
#include "monitors/ValidMon.h"
#include "platform/File.h"
#include "protocol/Codes.h"
#include "protocol/Text.h"
#include "security/SeedHashMon.h"
#include "stores/LogMon.h"
#include "stores/MsgMon.h"

namespace zanth {
namespace {

// A turn reads on while a frame comes in pieces, but no peer keeps it reading for ever.
constexpr int kReadsPerTurn = 64;

bool PayloadIs(const char* payload, std::initializer_list<const char*> texts) {
    for (const char* text : texts) {
        if (std::strcmp(payload, text) == 0) return true;
    }
    return false;
}

}  // namespace

Worker::Worker(const WorkerStartRecord& start)
    : socket_(start.socket), parentWindow_(start.parentWindow), instance_(start.instance),
      type_(start.type), port_(start.port), startRspfunc_(start.rspfunc),
      startRspid_(start.rspid), threadId_(platform::CurrentThreadId()),
      reader_(mac_, util_, current_), writer_(mac_, util_, current_) {
    CopyBounded(iphostname_, start.iphostname, sizeof iphostname_);
    cmd_ = std::make_unique<ThreadQueue>("cmd");
    dataBuffer_.assign(static_cast<size_t>(kRecordMessageSize), '\0');
    std::memset(releaseText_, 0, sizeof releaseText_);
    logText_[0] = logText2_[0] = '\0';
    CopyBounded(mac_, "0", sizeof mac_);
    Log(mac_, 75, "[Worker::Worker] Worker thread started");

    if (type_ == kOutboundLink) {
        contactResult_ = ContactGateway();
        FormatText(dataBuffer_.data(), dataBuffer_.size(), "%d", contactResult_);
        FormatText(logText_, sizeof logText_, "[Worker::Worker] ContactGateway result=%d",
                   contactResult_);
        Log(mac_, 75, logText_);
        if (startRspfunc_ != 0) {
            // A RspContactController reply is a frame with code 0 whose first field is the result.
            std::strcat(dataBuffer_.data(), ";");
            util_.BuildMessage(0, dataBuffer_.data(), std::strlen(dataBuffer_.data()),
                               releaseText_, kMessageBufferSize);
            responseMon->Add(startRspid_, releaseText_,
                             static_cast<int32_t>(std::strlen(releaseText_) + 1));
        } else {
            workerMon->AddPlaceholder("0001", threadId_);
            recvMon->SetBuffer(dataBuffer_.data());
        }
    }
    reader_.Attach(socket_);
    writer_.Attach(socket_);
    if (socket_ != platform::kInvalidSocket) {
        // The platform form of a forced end: the socket is shut down under the Worker's feet.
        platform::SocketHandle s = socket_;
        platform::SetKillHook([s] { platform::ShutdownBoth(s); });
    }
}

Worker::~Worker() {
    const bool killed = platform::ThisThreadKilled();
    if (!killed) {
        Log(mac_, 75, "[Worker::~Worker] Invoked");
        // This first notice goes out whatever the state, even for a Worker never identified.
        int32_t error = 0;
        connDiscQueue->Add(mac_, 0, &error);

        util_.BuildMessage(ZANTH_TERMINATE, "", 0, releaseText_, kMessageBufferSize);
        if (busy_) {
            ReleaseCaller(current_, "[Worker::~Worker] busy == true... rspfunc !=0 add to responseMon",
                          "[Worker::~Worker] busy == true....rspfunc == 0  setBuffer() IS called");
        } else {
            Log(mac_, 75, "[Worker::~Worker] busy is false");
        }
        if (isReboot_) {
            // After a reboot the queued commands are dropped without a word.
            Log(mac_, 75, "[Worker::~Worker] !isReboot == false");
        } else {
            CommandRecord record{};
            while (cmd_->Remove(&record) == 0) {
                ReleaseCaller(record,
                              "[Worker::~Worker] !isReboot == true result >=0 ... rspfunc != 0 add "
                              "to responseMon",
                              "[Worker::~Worker](!isReboot == true),(result >=0),(rspfunc == 0), "
                              "so YES call setBuffer()");
            }
        }
    }
    cmd_.reset();
    if (!killed) {
        int32_t error = 0;
        if (init_) {
            Log(mac_, 75, "[Worker::~Worker] init == true");
            // Only this Worker's own entry: a newer connection of the MAC may stand there now.
            workerMon->RemoveWorkerOf(mac_, threadId_, &error);
            connDiscQueue->Add(mac_, 0, &error);
        } else {
            Log(mac_, 75, "[Worker::~Worker] init == false");
            workerMon->RemoveUnidentified(threadId_, nullptr, &error);
        }
    }
    platform::SetKillHook(nullptr);
    if (contactResult_ == 0 && socket_ != platform::kInvalidSocket) {
        if (platform::ShutdownBoth(socket_) != 0 && !killed) {
            int error = platform::LastSocketError();
            // A peer that is already gone is not worth an error record.
            if (error != 10057) LogSocketError(50, "[Worker::~Worker] Error on shutdown", error);
        }
        if (platform::CloseSocket(socket_) != 0) {
            LogSocketError(50, "[Worker::~Worker] Error on closesocket", platform::LastSocketError());
        }
    }
    socket_ = platform::kInvalidSocket;
    Log(mac_, 75, "[Worker::~Worker] Worker thread terminated");
}

void Worker::ReleaseCaller(const CommandRecord& record, const char* responseText,
                           const char* slotText) {
    if (record.rspfunc != 0) {
        Log(mac_, 75, responseText);
        responseMon->Add(record.rspid, releaseText_,
                         static_cast<int32_t>(std::strlen(releaseText_) + 1));
    } else {
        Log(mac_, 75, slotText);
        recvMon->SetBuffer(releaseText_);
    }
}

void Worker::LogSocketError(int32_t level, const char* text, int error) {
    MessageUtil::SocketErrorText(error, logText2_, sizeof logText2_);
    Log(mac_, level, text, logText2_);
}

// ---------------------------------------------------------------------------------------------
// Run loop

void Worker::Run() {
    if (!Start()) return;
    for (;;) {
        platform::Sleep(kTurnMilliseconds);
        if (!Turn()) return;
    }
}

bool Worker::Start() {
    if (type_ == kOutboundLink) {
        if (!SendFramed(ZANTH_CONTACT_CONTROLLER, "")) return false;
    }
    waitingForANonXferResponse_ = false;
    zeroBytes_ = false;
    return true;
}

bool Worker::Turn() {
    if (platform::ThisThreadKilled()) return false;

    if (reader_.Peek()) {
        for (int reads = 0; reads < kReadsPerTurn; ++reads) {
            ReadStatus status = reader_.Read();
            if (status == ReadStatus::Partial) continue;
            // At most one message is handed to the dispatch in a turn.
            if (status == ReadStatus::Frame && !ProcessIncomingSocketMessage()) return false;
            if (status == ReadStatus::Closed) zeroBytes_ = true;
            if (status == ReadStatus::Closed || status == ReadStatus::Refused) return false;
            break;
        }
    } else if (reader_.LastError() == platform::WSAECONNABORTED ||
               reader_.LastError() == platform::WSAECONNRESET) {
        CloseFile();
        return false;
    }

    CheckSendMon();

    if (!xfer_ && !waitingForANonXferResponse_ && cmd_->Count() > 0 && !busy_) {
        busy_ = true;
        if (cmd_->Remove(&current_) == 0) {
            CommandRecord work = current_;
            if (!ProcessCommand(work)) return false;
        }
    }
    return !LibraryTerminating();
}

bool Worker::StillRegistered() {
    return init_ && workerMon->WorkerThreadOf(mac_) == threadId_;
}

void Worker::CheckSendMon() {
    // A Worker that has lost its entry (its caller gave it up, or a newer link took the MAC) no
    // longer answers for the MAC: the commands there are the newer Worker's.
    if (!StillRegistered()) return;
    int32_t error = 0;
    sendMon->Get(&incoming_, mac_, &error);
    if (error != 0) return;
    FormatText(logText_, sizeof logText_, "[Worker::Run] %s Added to cmd queue",
               util_.CodeNameOf(incoming_.message));
    Log(mac_, 75, logText_);

    if (xfer_ && MessageUtil::IsPunchThroughCode(MessageUtil::CodeOf(incoming_.message))) {
        if (waitingForANonXferResponse_) {
            Log(mac_, 75,
                "[Worker::Run] would be PunchThrough Message, but still waitingForANonXferResponse, "
                "so queue it.");
        } else {
            writer_.Take(incoming_.message);
            Log(mac_, 75, "[Worker::Run] punch through msg...just SENDing directly to Controller");
            // current keeps the transfer's address; the punched reply goes to the saved one.
            int32_t keptRspfunc = current_.rspfunc;
            int32_t keptRspid = current_.rspid;
            current_.rspfunc = savedRspfunc_ = incoming_.rspfunc;
            current_.rspid = savedRspid_ = incoming_.rspid;
            if (!SendData()) return;
            current_.rspfunc = keptRspfunc;
            current_.rspid = keptRspid;
            // The link goes down by the controller's doing; the loop runs on until it does.
            if (SentLinkEndingCommand()) {
                if (isReboot_) xfer_ = false;
                return;
            }
            if (LibraryTerminating()) return;
            waitingForANonXferResponse_ = true;
            Log(mac_, 75, "[Worker::Run] waitingForANonXferResponse set to TRUE!!");
            return;
        }
    }
    cmd_->Add(incoming_);
}

bool Worker::ProcessCommand(CommandRecord& record) {
    writer_.Take(record.message);
    if (writer_.Code() < 1) {
        // Nothing to send and nobody to answer; left busy, the Worker would take no more.
        busy_ = false;
        return true;
    }
    if ((writer_.Code() == ZANTH_GET_FILE || writer_.Code() == ZANTH_SEND_FILE) &&
        record.pcPathFile[0] != '\0') {
        // File streaming by the Worker arrives with the file transfer commands; until then the
        // record goes out as an ordinary command, as the text-buffer forms do.
        Log(mac_, 75, "[Worker::ProcessCommand] file streaming not available, sent as a command");
    }
    if (!SendData()) return false;
    if (SentLinkEndingCommand()) return false;
    // These get no reply: the caller is owed nothing, but no further command leaves until some
    // reply comes in.
    if (writer_.Code() == ZANTH_FILE_TRANSFER_ERROR ||
        writer_.Code() == ZANTH_POST_ACCESS_MSG_TO_ZANTH)
        busy_ = false;
    waitingForANonXferResponse_ = true;
    Log(mac_, 75, "[Worker::Run] waitingForANonXferResponse set to TRUE!!");
    return true;
}

bool Worker::SentLinkEndingCommand() {
    const int32_t code = writer_.Code();
    const char* payload = writer_.Payload();
    if ((code == ZANTH_REBOOT || code == ZANTH_REBOOT_CONTROLLER || code == ZANTH_REBOOT_INTERFACE) &&
        PayloadIs(payload, {"32;"})) {
        Log(mac_, 75, "Controller Reboot was sent.");
        // The controller goes down: what is still queued dies unanswered.
        isReboot_ = true;
        busy_ = false;
        return true;
    }
    if ((code == ZANTH_RESTART_TASK || code == ZANTH_STOP_TASK) && PayloadIs(payload, {"9;", "99;"})) {
        Log(mac_, 75, "Commtask restart was sent.");
        busy_ = false;
        return true;
    }
    if (code == ZANTH_TERMINATE) {
        Log(mac_, 75, "ZANTH_TERMINATE was sent.");
        busy_ = false;
        return true;
    }
    return false;
}

bool Worker::CheckValid() {
    uint8_t valid = 0;
    char mac[kMacSize];
    CopyBounded(mac, mac_, sizeof mac);
    validMon->Contains(mac, &valid);
    if (valid) return true;
    if (SendFramed(ZANTH_TERMINATE, "")) busy_ = false;
    return false;
}

// ---------------------------------------------------------------------------------------------
// Socket output

bool Worker::SendData() {
    if (writer_.Send()) return true;
    CloseFile();
    return false;
}

bool Worker::SendFramed(int32_t code, const char* payload) {
    if (!writer_.Build(code, payload, std::strlen(payload))) return false;
    return SendData();
}

bool Worker::SendAcknowledgement(int32_t code, const char* payload, bool clearRspfunc) {
    // Clearing rspfunc for the call only changes the log text of the send.
    int32_t kept = current_.rspfunc;
    if (clearRspfunc) current_.rspfunc = 0;
    bool sent = SendFramed(code, payload);
    current_.rspfunc = kept;
    return sent;
}

}  // namespace zanth
