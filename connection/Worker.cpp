#include "connection/Worker.h"

#include <algorithm>
#include <chrono>
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
#include "protocol/Result.h"
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
    Log(mac_, kLogTrace, "[Worker::Worker] Worker thread started");

    if (type_ == kOutboundLink) {
        contactResult_ = ContactGateway();
        FormatText(dataBuffer_.data(), dataBuffer_.size(), "%d", contactResult_);
        FormatText(logText_, sizeof logText_, "[Worker::Worker] ContactGateway result=%d",
                   contactResult_);
        Log(mac_, kLogTrace, logText_);
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
        Log(mac_, kLogTrace, "[Worker::~Worker] Invoked");
        // This first notice goes out whatever the state, even for a Worker never identified.
        int32_t error = 0;
        connDiscQueue->Add(mac_, 0, &error);

        util_.BuildMessage(ZANTH_TERMINATE, "", 0, releaseText_, kMessageBufferSize);
        if (busy_) {
            ReleaseCaller(current_, "[Worker::~Worker] busy == true... rspfunc !=0 add to responseMon",
                          "[Worker::~Worker] busy == true....rspfunc == 0  setBuffer() IS called");
        } else {
            Log(mac_, kLogTrace, "[Worker::~Worker] busy is false");
        }
        if (isReboot_) {
            // After a reboot the queued commands are dropped without a word.
            Log(mac_, kLogTrace, "[Worker::~Worker] !isReboot == false");
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
    if (init_ && !killed) sendMon->ClearCollector(mac_, threadId_);
    if (!killed) {
        int32_t error = 0;
        if (init_) {
            Log(mac_, kLogTrace, "[Worker::~Worker] init == true");
            // Only this Worker's own entry: a newer connection of the MAC may stand there now.
            workerMon->RemoveWorkerOf(mac_, threadId_, &error);
            connDiscQueue->Add(mac_, 0, &error);
        } else {
            Log(mac_, kLogTrace, "[Worker::~Worker] init == false");
            workerMon->RemoveUnidentified(threadId_, nullptr, &error);
        }
    }
    platform::SetKillHook(nullptr);
    // A stream the link took down keeps its partial file on disk, but not its descriptor.
    if (fp_ >= 0) platform::CloseFile(fp_);
    fp_ = -1;
    if (contactResult_ == 0 && socket_ != platform::kInvalidSocket) {
        if (platform::ShutdownBoth(socket_) != 0 && !killed) {
            int error = platform::LastSocketError();
            // A peer that is already gone is not worth an error record.
            if (error != 10057) LogSocketError(kLogError, "[Worker::~Worker] Error on shutdown", error);
        }
        if (platform::CloseSocket(socket_) != 0) {
            LogSocketError(kLogError, "[Worker::~Worker] Error on closesocket", platform::LastSocketError());
        }
    }
    socket_ = platform::kInvalidSocket;
    Log(mac_, kLogTrace, "[Worker::~Worker] Worker thread terminated");
}

void Worker::ReleaseCaller(const CommandRecord& record, const char* responseText,
                           const char* slotText) {
    if (record.rspfunc != 0) {
        Log(mac_, kLogTrace, responseText);
        responseMon->Add(record.rspid, releaseText_,
                         static_cast<int32_t>(std::strlen(releaseText_) + 1));
    } else {
        Log(mac_, kLogTrace, slotText);
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
    using Clock = std::chrono::steady_clock;
    constexpr auto kTurn = std::chrono::milliseconds(kTurnMilliseconds);
    // Turns run on a fixed grid of 47 ms from the start. An idle Worker leaves the grid to wait
    // for its socket or a wake-up, and comes back on the grid's next boundary: a command is still
    // picked up within 0 to 47 ms, and a reply is read on the turn after the send.
    auto turn = Clock::now();
    for (;;) {
        turn += kTurn;
        auto now = Clock::now();
        if (turn > now) {
            platform::Sleep(static_cast<uint32_t>(
                std::chrono::ceil<std::chrono::milliseconds>(turn - now).count()));
        } else {
            // A turn that overran skips the boundaries it missed.
            turn += ((now - turn) / kTurn) * kTurn;
        }
        if (!Turn()) return;
        if (Idle()) {
            platform::WaitForSocketOrWake(socket_, -1);
            now = Clock::now();
            if (now > turn) turn += ((now - turn) / kTurn) * kTurn;
        }
    }
}

bool Worker::Idle() {
    // A command that could leave now, or one still waiting in sendMon, needs the next turn.
    if (cmd_->Count() > 0 && !busy_ && !xfer_ && !waitingForANonXferResponse_) return false;
    if (init_ && sendMon->CountFor(mac_) > 0) return false;
    return !LibraryTerminating();
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
    Log(mac_, kLogTrace, logText_);

    if (xfer_ && MessageUtil::IsPunchThroughCode(MessageUtil::CodeOf(incoming_.message))) {
        if (waitingForANonXferResponse_) {
            Log(mac_, kLogTrace,
                "[Worker::Run] would be PunchThrough Message, but still waitingForANonXferResponse, "
                "so queue it.");
        } else {
            writer_.Take(incoming_.message);
            Log(mac_, kLogTrace, "[Worker::Run] punch through msg...just SENDing directly to Controller");
            // current keeps the transfer's address; the punched reply goes to the saved one.
            int32_t keptRspfunc = current_.rspfunc;
            int32_t keptRspid = current_.rspid;
            current_.rspfunc = punchRspfunc_ = incoming_.rspfunc;
            current_.rspid = punchRspid_ = incoming_.rspid;
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
            Log(mac_, kLogTrace, "[Worker::Run] waitingForANonXferResponse set to TRUE!!");
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
    // With a local file the Worker runs the whole stream; without one, GetData and SendData go
    // out as ordinary commands.
    if (record.pcPathFile[0] != '\0') {
        if (writer_.Code() == ZANTH_GET_FILE) return GetFile(record);
        if (writer_.Code() == ZANTH_SEND_FILE) return SendFile(record);
    }
    if (!SendData()) return false;
    if (SentLinkEndingCommand()) return false;
    // These get no reply: the caller is owed nothing, but no further command leaves until some
    // reply comes in.
    if (writer_.Code() == ZANTH_FILE_TRANSFER_ERROR ||
        writer_.Code() == ZANTH_POST_ACCESS_MSG_TO_ZANTH)
        busy_ = false;
    waitingForANonXferResponse_ = true;
    Log(mac_, kLogTrace, "[Worker::Run] waitingForANonXferResponse set to TRUE!!");
    return true;
}

bool Worker::SentLinkEndingCommand() {
    const int32_t code = writer_.Code();
    const char* payload = writer_.Payload();
    if ((code == ZANTH_REBOOT || code == ZANTH_REBOOT_CONTROLLER || code == ZANTH_REBOOT_INTERFACE) &&
        PayloadIs(payload, {"32;"})) {
        Log(mac_, kLogTrace, "Controller Reboot was sent.");
        // The controller goes down: what is still queued dies unanswered.
        isReboot_ = true;
        busy_ = false;
        return true;
    }
    if ((code == ZANTH_RESTART_TASK || code == ZANTH_STOP_TASK) && PayloadIs(payload, {"9;", "99;"})) {
        Log(mac_, kLogTrace, "Commtask restart was sent.");
        busy_ = false;
        return true;
    }
    if (code == ZANTH_TERMINATE) {
        Log(mac_, kLogTrace, "ZANTH_TERMINATE was sent.");
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
