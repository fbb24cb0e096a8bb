#pragma once
// One thread and one socket for one controller. It alone touches that socket: it takes framed
// commands from sendMon and sends them one at a time, reads what the controller sends (at most
// one message per 47 ms turn), and routes each message to the waiting caller, a queue or a file.
// It learns its controller's MAC only from the identification message; only then can commands
// reach it. Other threads meet it only through the monitors.

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "connection/FrameReader.h"
#include "connection/FrameWriter.h"
#include "connection/WorkerStartRecord.h"
#include "monitors/ThreadQueue.h"
#include "platform/Socket.h"
#include "platform/Thread.h"
#include "protocol/CommandRecord.h"
#include "protocol/MessageUtil.h"
#include "security/Crypto.h"

namespace zanth {

struct Monitors;
class SeedHashMon;

// The stack of a Worker thread. A Worker's buffers live in the Worker object on the heap, but
// its deepest call chains (a frame deciphered, a message stored and logged) take between 16 and
// 32 KiB of stack in a debug build: every test passes with 32 KiB and many fail with 16. A site
// runs thousands of Workers at once, so the system's default (8 MiB of address space each here,
// 1 MiB on Windows) is waste; eight times what was measured leaves room for sanitizers and a
// cipher plugin of another make.
constexpr size_t kWorkerStackBytes = 256 * 1024;

// How long a link may stay without identifying itself before the Worker closes it. A controller
// identifies as soon as it is connected; a peer that doesn't would hold a thread and two
// descriptors for as long as it liked. Tests shorten it.
constexpr uint32_t kIdentifyLimitMilliseconds = 30000;
extern std::atomic<uint32_t> identifyLimitMilliseconds;

class Worker {
  public:
    static constexpr uint32_t kTurnMilliseconds = 47;

    // The Worker meets the rest of the library only through `monitors` and, for an encrypted
    // link, the seed table.
    Worker(const WorkerStartRecord& start, Monitors& monitors, SeedHashMon& seeds);
    ~Worker();
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    void Run();
    // What Run does before its first turn: an outbound link announces itself. False when the
    // Worker is to end.
    bool Start();
    // One turn of the run loop, without its sleep: read at most one message, take at most one
    // command from sendMon, send at most one. False when the Worker is to end.
    bool Turn();

  private:
    // Socket input and output: the reading and writing sides live in FrameReader and
    // FrameWriter; these add what a failed send means for a running transfer.
    bool SendData();
    // Frames `payload` under `code` and sends it, as every message of the Worker's own goes out.
    bool SendFramed(int32_t code, const char* payload);
    // An acknowledgement: sent with the current rspfunc cleared when `clearRspfunc` is set.
    bool SendAcknowledgement(int32_t code, const char* payload, bool clearRspfunc);

    // Run loop.
    void CheckSendMon();
    bool ProcessCommand(CommandRecord& record);
    // After the send of a command that takes the controller or its link down: true, with the
    // Worker's flags set for its end, when the message just sent was one.
    bool SentLinkEndingCommand();
    bool CheckValid();
    bool StillRegistered();
    // Nothing for the next turn to do until the socket or a wake-up says otherwise.
    bool Idle();

    // The ends a Worker puts to a link or a command itself, where waiting on would leave a
    // controller unreachable (docs/DESIGN.md, "Departures for safety").
    using Clock = std::chrono::steady_clock;
    // A Worker no longer listed for its MAC after a caller's wait ran out; true when it ends.
    bool DroppedByCaller();
    // A link that hasn't identified itself in time; true when it ends.
    bool IdentifyTimeRanOut();
    // The reply awaited for an Rsp command, and a stream's next message: -10005 to the caller
    // once the wait time has passed without them.
    void CheckStalls();
    // When a wait that starts now runs out: taken before a send, so that the wait time is the
    // one in force when the message left.
    Clock::time_point Deadline() const;
    // Arms the wait for a command's reply (only an Rsp caller is answered by the Worker itself;
    // a blocking caller has its own wait).
    void AwaitReply(int32_t code, int32_t rspfunc, int32_t rspid, Clock::time_point deadline);
    // Arms the wait for the next message of the stream in hand.
    void AwaitStream(Clock::time_point deadline);
    // A reply that belongs to a command given up on; it is dropped.
    bool LateReply() const;
    // Drops such a reply with a log line; true when it did.
    bool DropLateReply();
    // Milliseconds until the nearest of the deadlines above, or -1 when none runs.
    int MillisecondsToDeadline() const;

    // Dispatch (WorkerDispatch.cpp).
    bool ProcessIncomingSocketMessage();
    bool Identify();
    bool IdentifyEncrypted();
    // Reads the MAC out of an identification payload; false when there is none.
    bool TakeMac();
    // The takeover of a MAC that connects again, the purge of its stale commands, registration.
    void ReplaceFormerConnection();
    void Register();
    bool ProcessUnsolicited();
    bool ProcessHereIAm();
    bool ProcessTransferReply();
    void StoreEvent(const char* text);
    void StoreAlarm(const char* text);
    void Deliver(const char* text, int32_t size, int32_t rspid);

    // Outbound contact (WorkerContact.cpp).
    int32_t ContactGateway();
    uint32_t GetAddr(const char* name);

    // File streaming (WorkerTransfer.cpp): the start of a GetFile or SendFile with a local
    // file, each chunk as its reply comes, the controller's 9980, and the close of a stream that
    // ended badly.
    bool GetFile(const CommandRecord& record);
    // The start both share: open the local file (for writing when `get`), then send the request.
    bool StartStream(const CommandRecord& record, bool get);
    bool SendFile(const CommandRecord& record);
    bool GetFileChunk();
    bool SendFileChunk();
    void TransferError();
    // The end of a stream to its caller: "%d" in recvMon, or "%d;" framed with code 0 under the
    // rspid in responseMon.
    void DeliverTransferResult(int32_t result);
    // `text` must span a whole message buffer: the reply slot copies that much.
    void DeliverTransferText(const char* text, const char* framedText);
    void CloseFile();
    void LogSocketError(int32_t level, const char* text, int error);
    // Answers a caller that is owed a reply with the framed terminate text in `releaseText_`.
    void ReleaseCaller(const CommandRecord& record, const char* responseText, const char* slotText);

    Monitors& monitors_;
    SeedHashMon& seeds_;
    platform::SocketHandle socket_;
    void* parentWindow_;
    void* instance_;
    int32_t type_;
    char iphostname_[51];
    int32_t port_;
    int32_t startRspfunc_;
    int32_t startRspid_;
    int32_t contactResult_ = 0;
    platform::ThreadId threadId_;
    // The link's cipher, used once the controller has identified itself encrypted.
    Crypto crypto_;
    MessageUtil util_{&crypto_};
    char mac_[kMacSize];
    bool init_ = false;
    bool encrypted_ = false;
    unsigned char key_[32] = {};
    char seed_[201] = {};
    char identifyText_[201] = {};
    bool busy_ = false;
    // The file stream in hand: none (idle), a GetFile's chunks coming in (receiving), a
    // SendFile's going out (sending), or a SendFile's end chunk out and only its 1030 awaited
    // (last chunk). The rules speak of it by two flags, xfer() and sentLastChunk().
    enum class Stream { kIdle, kReceiving, kSending, kLastChunk };
    Stream stream_ = Stream::kIdle;
    // A stream is running: the cmd queue waits, and punch-through commands may pass.
    bool xfer() const { return stream_ != Stream::kIdle; }
    bool sentLastChunk() const { return stream_ == Stream::kLastChunk; }
    // The code that opened the stream in hand: 33 or 30.
    int32_t StreamCode() const;
    bool waitingForANonXferResponse_ = false;
    bool isReboot_ = false;
    bool zeroBytes_ = false;
    // The message in hand answers a command: one is in service or a punch-through one is out.
    bool replyOwed_ = false;
    std::unique_ptr<ThreadQueue> cmd_;
    CommandRecord incoming_{};
    CommandRecord current_{};
    int32_t punchRspfunc_ = 0;
    int32_t punchRspid_ = 0;
    // The stream's file; -1 when none (0 is a valid descriptor here).
    int fp_ = -1;
    int32_t chunkSize_ = 0;
    int32_t readCount_ = 0;
    uint32_t sendCalls_ = 0;
    uint32_t sendTotal_ = 0;
    uint32_t getCalls_ = 0;
    uint32_t getTotal_ = 0;
    int32_t code_ = 0;
    int32_t dataLen_ = 0;
    int32_t result_ = 0;

    // "address:port" of the peer, for the log.
    char peer_[64] = {};
    Clock::time_point startedAt_;
    // The command whose reply is awaited, and, for an Rsp one, where and when it is given up.
    int32_t awaitedCode_ = 0;
    bool replyTimed_ = false;
    int32_t awaitedRspid_ = 0;
    Clock::time_point replyDeadline_;
    // While the stream's next message is timed, when it is given up.
    bool streamTimed_ = false;
    Clock::time_point streamDeadline_;
    // The command last given up on, whose reply is dropped should it still come; 0 when none.
    int32_t abandonedCode_ = 0;
    // The caller of a blocking command has given up: nothing is parked in the reply slot for it.
    bool callerGaveUp_ = false;

    FrameReader reader_;
    FrameWriter writer_;
    // The payload of the message in hand.
    std::vector<char> dataBuffer_;
    // The text with which owed callers are released, and the outbound contact's result frame.
    char releaseText_[kRecordMessageSize];

    char logText_[kLogTextSize];
    char logText2_[kLogTextSize];
};

}  // namespace zanth
