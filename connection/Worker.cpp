#include "connection/Worker.h"

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstring>
#include <ctime>

#include "monitors/Monitors.h"
#include "platform/File.h"
#include "protocol/Codes.h"
#include "protocol/Result.h"
#include "protocol/Text.h"
#include "security/SeedHashMon.h"
#include "stores/LogMon.h"

namespace zanth {
namespace {

// A turn reads on while a frame comes in pieces, but no peer keeps it reading for ever.
constexpr int kReadsPerTurn = 64;

// Whether `reply` can answer `command`: the stream codes have their own, any other command
// its code plus 1000. A reply is known only by its code.
bool RepliesTo(int32_t command, int32_t reply) {
    switch (command) {
        case ZANTH_GET_FILE:
        case ZANTH_GET_FILE_RSP:
            return reply == ZANTH_GET_FILE_MORE || reply == ZANTH_GET_FILE_END ||
                   reply == ZANTH_FILE_TRANSFER_ERROR;
        case ZANTH_SEND_FILE:
        case ZANTH_SEND_FILE_MORE:
        case ZANTH_SEND_FILE_END:
            return reply == ZANTH_SEND_FILE_RSP || reply == ZANTH_FILE_TRANSFER_ERROR;
        default:
            return command > 0 && reply == command + 1000;
    }
}

bool PayloadIs(const char* payload, std::initializer_list<const char*> texts) {
    for (const char* text : texts) {
        if (std::strcmp(payload, text) == 0) return true;
    }
    return false;
}

}  // namespace

std::atomic<uint32_t> identifyLimitMilliseconds{kIdentifyLimitMilliseconds};

Worker::Worker(const WorkerStartRecord& start, Monitors& monitors, SeedHashMon& seeds)
    : monitors_(monitors),
      seeds_(seeds),
      socket_(start.socket),
      parentWindow_(start.parentWindow),
      instance_(start.instance),
      type_(start.type),
      port_(start.port),
      startRspfunc_(start.rspfunc),
      startRspid_(start.rspid),
      threadId_(platform::CurrentThreadId()),
      reader_(mac_, util_, current_),
      writer_(mac_, util_, current_) {
    startedAt_ = Clock::now();
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
            util_.BuildMessage(0, dataBuffer_.data(), std::strlen(dataBuffer_.data()), releaseText_,
                               kMessageBufferSize);
            monitors_.responseMon->Add(startRspid_, releaseText_,
                                       static_cast<int32_t>(std::strlen(releaseText_) + 1));
        } else {
            monitors_.workerMon->AddPlaceholder("0001", threadId_);
            monitors_.recvMon->SetBuffer(dataBuffer_.data());
        }
    }
    reader_.Attach(socket_);
    writer_.Attach(socket_);
    if (type_ == kOutboundLink) {
        FormatText(peer_, sizeof peer_, "%s:%d", iphostname_, static_cast<int>(port_));
    } else {
        platform::PeerAddress(socket_, peer_, sizeof peer_);
    }
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
        monitors_.connDiscQueue->Add(mac_, 0, &error);

        util_.BuildMessage(ZANTH_TERMINATE, "", 0, releaseText_, kMessageBufferSize);
        if (busy_) {
            ReleaseCaller(current_,
                          "[Worker::~Worker] busy == true... rspfunc !=0 add to responseMon",
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
    if (init_ && !killed) monitors_.sendMon->ClearCollector(mac_, threadId_);
    if (!killed) {
        int32_t error = 0;
        if (init_) {
            Log(mac_, kLogTrace, "[Worker::~Worker] init == true");
            // Only this Worker's own entry: a newer connection of the MAC may stand there now.
            monitors_.workerMon->RemoveWorkerOf(mac_, threadId_, &error);
            monitors_.connDiscQueue->Add(mac_, 0, &error);
        } else {
            Log(mac_, kLogTrace, "[Worker::~Worker] init == false");
            monitors_.workerMon->RemoveUnidentified(threadId_, nullptr, &error);
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
            if (error != 10057)
                LogSocketError(kLogError, "[Worker::~Worker] Error on shutdown", error);
        }
        if (platform::CloseSocket(socket_) != 0) {
            LogSocketError(kLogError, "[Worker::~Worker] Error on closesocket",
                           platform::LastSocketError());
        }
    }
    socket_ = platform::kInvalidSocket;
    Log(mac_, kLogTrace, "[Worker::~Worker] Worker thread terminated");
}

void Worker::ReleaseCaller(const CommandRecord& record, const char* responseText,
                           const char* slotText) {
    if (record.rspfunc == 0 && callerGaveUp_) {
        // Its caller has had -10005 already; parked, the text would answer the next caller.
        Log(mac_, kLogTrace, "[Worker::~Worker] the blocking caller gave up: nothing parked");
        return;
    }
    if (record.rspfunc != 0) {
        Log(mac_, kLogTrace, responseText);
        monitors_.responseMon->Add(record.rspid, releaseText_,
                                   static_cast<int32_t>(std::strlen(releaseText_) + 1));
    } else {
        Log(mac_, kLogTrace, slotText);
        monitors_.recvMon->SetBuffer(releaseText_);
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
            // A link not yet identified and a timed reply or stream wake the Worker by their
            // deadlines too.
            platform::WaitForSocketOrWake(socket_, MillisecondsToDeadline());
            now = Clock::now();
            if (now > turn) turn += ((now - turn) / kTurn) * kTurn;
        }
    }
}

bool Worker::Idle() {
    // A command that could leave now, or one still waiting in sendMon, needs the next turn.
    if (cmd_->Count() > 0 && !busy_ && !xfer() && !waitingForANonXferResponse_) return false;
    if (init_ && monitors_.sendMon->CountFor(mac_) > 0) return false;
    return !monitors_.Terminating();
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
    if (DroppedByCaller() || IdentifyTimeRanOut()) return false;

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

    CheckStalls();
    CheckSendMon();

    if (!xfer() && !waitingForANonXferResponse_ && cmd_->Count() > 0 && !busy_) {
        busy_ = true;
        if (cmd_->Remove(&current_) == 0) {
            CommandRecord work = current_;
            if (!ProcessCommand(work)) return false;
        }
    }
    return !monitors_.Terminating();
}

bool Worker::StillRegistered() {
    return init_ && monitors_.workerMon->WorkerThreadOf(mac_) == threadId_;
}

void Worker::CheckSendMon() {
    // A Worker that has lost its entry (its caller gave it up, or a newer link took the MAC) no
    // longer answers for the MAC: the commands there are the newer Worker's.
    if (!StillRegistered()) return;
    int32_t error = 0;
    monitors_.sendMon->Get(&incoming_, mac_, &error);
    if (error != 0) return;
    FormatText(logText_, sizeof logText_, "[Worker::Run] %s Added to cmd queue",
               util_.CodeNameOf(incoming_.message));
    Log(mac_, kLogTrace, logText_);

    if (xfer() && MessageUtil::IsPunchThroughCode(MessageUtil::CodeOf(incoming_.message))) {
        if (waitingForANonXferResponse_) {
            Log(mac_, kLogTrace,
                "[Worker::Run] would be PunchThrough Message, but still "
                "waitingForANonXferResponse, "
                "so queue it.");
        } else {
            writer_.Take(incoming_.message);
            const Clock::time_point deadline = Deadline();
            Log(mac_, kLogTrace,
                "[Worker::Run] punch through msg...just SENDing directly to Controller");
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
                if (isReboot_) stream_ = Stream::kIdle;
                return;
            }
            if (monitors_.Terminating()) return;
            waitingForANonXferResponse_ = true;
            AwaitReply(writer_.Code(), incoming_.rspfunc, incoming_.rspid, deadline);
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
    const Clock::time_point deadline = Deadline();
    if (!SendData()) return false;
    if (SentLinkEndingCommand()) return false;
    // These get no reply: the caller is owed nothing, but no further command leaves until some
    // reply comes in.
    if (writer_.Code() == ZANTH_FILE_TRANSFER_ERROR ||
        writer_.Code() == ZANTH_POST_ACCESS_MSG_TO_ZANTH)
        busy_ = false;
    waitingForANonXferResponse_ = true;
    // Only a caller who is owed a reply is answered when it doesn't come.
    AwaitReply(writer_.Code(), busy_ ? record.rspfunc : 0, record.rspid, deadline);
    Log(mac_, kLogTrace, "[Worker::Run] waitingForANonXferResponse set to TRUE!!");
    return true;
}

bool Worker::SentLinkEndingCommand() {
    const int32_t code = writer_.Code();
    const char* payload = writer_.Payload();
    if ((code == ZANTH_REBOOT || code == ZANTH_REBOOT_CONTROLLER ||
         code == ZANTH_REBOOT_INTERFACE) &&
        PayloadIs(payload, {"32;"})) {
        Log(mac_, kLogTrace, "Controller Reboot was sent.");
        // The controller goes down: what is still queued dies unanswered.
        isReboot_ = true;
        busy_ = false;
        return true;
    }
    if ((code == ZANTH_RESTART_TASK || code == ZANTH_STOP_TASK) &&
        PayloadIs(payload, {"9;", "99;"})) {
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
    monitors_.validMon->Contains(mac, &valid);
    if (valid) return true;
    if (SendFramed(ZANTH_TERMINATE, "")) busy_ = false;
    return false;
}

// ---------------------------------------------------------------------------------------------
// Links and commands given up on

bool Worker::DroppedByCaller() {
    if (!init_ || StillRegistered()) return false;
    // A caller's wait ran out and its drop step took this Worker off the table. Left running it
    // would acknowledge the controller's heartbeats, and the controller, seeing a healthy link,
    // would never call again; closed, the link makes it call back and get a fresh Worker.
    callerGaveUp_ = true;
    FormatText(logText_, sizeof logText_,
               "[Worker::Run] no longer listed after a caller's wait ran out: link to %s closed",
               peer_);
    Log(mac_, kLogError, logText_);
    return true;
}

bool Worker::IdentifyTimeRanOut() {
    if (init_) return false;
    const uint32_t limit = identifyLimitMilliseconds.load();
    if (Clock::now() - startedAt_ < std::chrono::milliseconds(limit)) return false;
    FormatText(logText_, sizeof logText_,
               "[Worker::Run] %s did not identify within %u ms: link closed", peer_,
               static_cast<unsigned>(limit));
    Log(mac_, kLogError, logText_);
    return true;
}

Worker::Clock::time_point Worker::Deadline() const {
    return Clock::now() + std::chrono::milliseconds(monitors_.recvMon->WaitTime());
}

void Worker::AwaitReply(int32_t code, int32_t rspfunc, int32_t rspid, Clock::time_point deadline) {
    awaitedCode_ = code;
    replyTimed_ = rspfunc != 0;
    awaitedRspid_ = rspid;
    replyDeadline_ = deadline;
}

void Worker::AwaitStream(Clock::time_point deadline) {
    // A blocking caller's own wait bounds its stream; once the end chunk is out the caller has
    // its answer, and only the controller's last 1030 is awaited, on either road.
    streamTimed_ = current_.rspfunc != 0 || sentLastChunk();
    streamDeadline_ = deadline;
}

void Worker::CheckStalls() {
    const Clock::time_point now = Clock::now();
    if (replyTimed_ && waitingForANonXferResponse_ && now >= replyDeadline_) {
        replyTimed_ = false;
        FormatText(logText_, sizeof logText_,
                   "[Worker::Run] no reply to %s within the wait time: %d to rspid %d",
                   util_.CodeName(awaitedCode_), static_cast<int>(kNoReply),
                   static_cast<int>(awaitedRspid_));
        Log(mac_, kLogError, logText_);
        char text[16];
        FormatText(text, sizeof text, "%d;", static_cast<int>(kNoReply));
        char framed[kMessageBufferSize];
        util_.BuildMessage(0, text, std::strlen(text), framed, sizeof framed);
        monitors_.responseMon->Add(awaitedRspid_, framed,
                                   static_cast<int32_t>(std::strlen(framed) + 1));
        // The link's later commands go on; the reply, should it still come, is dropped.
        abandonedCode_ = awaitedCode_;
        waitingForANonXferResponse_ = false;
        // A punch-through command leaves the stream it passed in hand.
        if (!xfer()) busy_ = false;
    }
    if (streamTimed_ && xfer() && now >= streamDeadline_) {
        streamTimed_ = false;
        FormatText(logText_, sizeof logText_,
                   "[Worker::Run] %s stalled: nothing from the controller within the wait time",
                   util_.CodeName(StreamCode()));
        Log(mac_, kLogError, logText_);
        if (!sentLastChunk()) {
            if (fp_ >= 0) platform::CloseFile(fp_);
            fp_ = -1;
            DeliverTransferResult(kNoReply);
        }
        abandonedCode_ = StreamCode();
        stream_ = Stream::kIdle;
        busy_ = false;
        // A punch-through command still awaited is now the one in hand: its reply goes to its
        // own caller, no longer by the stream's address.
        if (waitingForANonXferResponse_) {
            current_.rspfunc = punchRspfunc_;
            current_.rspid = punchRspid_;
        }
    }
}

bool Worker::LateReply() const {
    if (abandonedCode_ == 0) return false;
    // Nothing awaited: any reply is the late one of a plain command, and any stream message that
    // of a stream (which stays marked, as its controller may send more than one).
    const bool stream = abandonedCode_ == ZANTH_GET_FILE || abandonedCode_ == ZANTH_SEND_FILE;
    if (!replyOwed_ && !xfer()) return !stream || RepliesTo(abandonedCode_, code_);
    const bool awaited = (xfer() && RepliesTo(StreamCode(), code_)) ||
                         (waitingForANonXferResponse_ && RepliesTo(awaitedCode_, code_));
    return !awaited && RepliesTo(abandonedCode_, code_);
}

int Worker::MillisecondsToDeadline() const {
    const Clock::time_point now = Clock::now();
    long long nearest = -1;
    auto consider = [&](Clock::time_point at) {
        long long ms =
            std::max<long long>(0, std::chrono::ceil<std::chrono::milliseconds>(at - now).count());
        nearest = nearest < 0 ? ms : std::min(nearest, ms);
    };
    if (!init_) consider(startedAt_ + std::chrono::milliseconds(identifyLimitMilliseconds.load()));
    if (replyTimed_ && waitingForANonXferResponse_) consider(replyDeadline_);
    if (streamTimed_ && xfer()) consider(streamDeadline_);
    return static_cast<int>(std::min<long long>(nearest, 24LL * 3600 * 1000));
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
