#pragma once
// One thread and one socket for one controller. It alone touches that socket: it takes framed
// commands from sendMon and sends them one at a time, reads what the controller sends (at most
// one message per 47 ms turn), and routes each message to the waiting caller, a queue or a file.
// It learns its controller's MAC only from the identification message; only then can commands
// reach it. Other threads meet it only through the monitors.

#include <cstdint>
#include <memory>
#include <vector>

#include "connection/WorkerStartRecord.h"
#include "monitors/ThreadQueue.h"
#include "platform/Socket.h"
#include "platform/Thread.h"
#include "protocol/CommandRecord.h"
#include "protocol/MessageUtil.h"

namespace zanth {

class Worker {
public:
    static constexpr uint32_t kTurnMilliseconds = 47;

    explicit Worker(const WorkerStartRecord& start);
    ~Worker();
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    void Run();

private:
    // Socket input and output.
    bool PeekAtSocketMessage();
    bool ReadData(bool* zeroBytes);
    bool ReadHeader(bool* zeroBytes);
    bool ReadBody();
    bool SendData();
    // Frames `payload` under `code` into the send buffer, parses it back and sends it, as every
    // message of the Worker's own goes out.
    bool SendFramed(int32_t code, const char* payload);
    // An acknowledgement: sent with the current rspfunc cleared when `clearRspfunc` is set.
    bool SendAcknowledgement(int32_t code, const char* payload, bool clearRspfunc);

    // Run loop.
    void CheckSendMon();
    bool ProcessCommand(CommandRecord& record);
    bool CheckValid();
    bool StillRegistered();

    // Dispatch.
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

    // Outbound contact.
    int32_t ContactGateway();
    uint32_t GetAddr(const char* name);

    void CloseFile();
    void LogSocketError(int32_t level, const char* text, int error);
    void ReleaseCaller(const CommandRecord& record, const char* responseText, const char* slotText);

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
    MessageUtil util_;
    char mac_[kMacSize];
    bool init_ = false;
    bool encrypted_ = false;
    unsigned char key_[32] = {};
    char seed_[201] = {};
    char identifyText_[201] = {};
    bool busy_ = false;
    bool xfer_ = false;
    bool sentLastChunk_ = false;
    bool waitingForANonXferResponse_ = false;
    bool isReboot_ = false;
    bool zeroBytes_ = false;
    // The link was refused for a frame larger than the buffers; the Worker ends.
    bool refused_ = false;
    // A recv would block: this turn's reading ends and the next turn tries again.
    bool wouldBlock_ = false;
    std::unique_ptr<ThreadQueue> cmd_;
    CommandRecord incoming_{};
    CommandRecord current_{};
    int32_t savedRspfunc_ = 0;
    int32_t savedRspid_ = 0;
    int32_t code_ = 0;
    int32_t dataLen_ = 0;
    int32_t sendDataLen_ = 0;
    int32_t result_ = 0;

    // Socket input and output.
    int32_t headerSize_ = kClearHeaderSize;
    int32_t bufferSize_ = kWorkingBufferSize;
    char recvMessage_[kRecordMessageSize];
    char sendMessage_[kRecordMessageSize];
    std::vector<char> dataBuffer_;
    std::vector<char> encryptedIn_;
    std::vector<char> encryptedOut_;
    int32_t encryptedLen_ = 0;
    int32_t rcvdBytes_ = 0;
    int32_t totBytes_ = 0;
    long numBytes_ = 0;
    bool addlData_ = false;
    bool sendAddl_ = false;
    int32_t sendLen_ = 0;
    int lastError_ = 0;

    char logText_[kLogTextSize];
    char logText2_[kLogTextSize];
};

}  // namespace zanth
