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

// How long a send may wait for the peer to take the rest of a frame before the link counts as
// lost.
constexpr int kSendStallMilliseconds = 5000;

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
      startRspid_(start.rspid), threadId_(platform::CurrentThreadId()) {
    CopyBounded(iphostname_, start.iphostname, sizeof iphostname_);
    cmd_ = std::make_unique<ThreadQueue>("cmd");
    headerSize_ = kClearHeaderSize;
    bufferSize_ = kWorkingBufferSize;
    dataBuffer_.assign(static_cast<size_t>(bufferSize_) + 1, '\0');
    std::memset(recvMessage_, 0, sizeof recvMessage_);
    std::memset(sendMessage_, 0, sizeof sendMessage_);
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
                               recvMessage_, kMessageBufferSize);
            responseMon->Add(startRspid_, recvMessage_,
                             static_cast<int32_t>(std::strlen(recvMessage_) + 1));
        } else {
            workerMon->AddPlaceholder("0001", threadId_);
            recvMon->SetBuffer(dataBuffer_.data());
        }
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
        Log(mac_, 75, "[Worker::~Worker] Invoked");
        // This first notice goes out whatever the state, even for a Worker never identified.
        int32_t error = 0;
        connDiscQueue->Add(mac_, 0, &error);

        util_.BuildMessage(ZANTH_TERMINATE, "", 0, recvMessage_, kMessageBufferSize);
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
        responseMon->Add(record.rspid, recvMessage_,
                         static_cast<int32_t>(std::strlen(recvMessage_) + 1));
    } else {
        Log(mac_, 75, slotText);
        recvMon->SetBuffer(recvMessage_);
    }
}

void Worker::LogSocketError(int32_t level, const char* text, int error) {
    MessageUtil::SocketErrorText(error, logText2_, sizeof logText2_);
    Log(mac_, level, text, logText2_);
}

// ---------------------------------------------------------------------------------------------
// Run loop

void Worker::Run() {
    if (type_ == kOutboundLink) {
        if (!SendFramed(ZANTH_CONTACT_CONTROLLER, "")) return;
    }
    waitingForANonXferResponse_ = false;
    zeroBytes_ = false;
    for (;;) {
        platform::Sleep(kTurnMilliseconds);
        if (platform::ThisThreadKilled()) return;

        if (PeekAtSocketMessage()) {
            wouldBlock_ = false;
            while (ReadData(&zeroBytes_)) {
                // A would-block ends this turn's reading: the rest comes on a later turn, and
                // the former message is never handed to the dispatch a second time.
                if (wouldBlock_) break;
                if (!addlData_) {
                    if (!ProcessIncomingSocketMessage()) return;
                    break;
                }
            }
            if (zeroBytes_ || refused_) return;
        } else if (lastError_ == platform::WSAECONNABORTED ||
                   lastError_ == platform::WSAECONNRESET) {
            CloseFile();
            return;
        }

        CheckSendMon();

        if (!xfer_ && !waitingForANonXferResponse_ && cmd_->Count() > 0 && !busy_) {
            busy_ = true;
            if (cmd_->Remove(&current_) == 0) {
                CommandRecord work = current_;
                if (!ProcessCommand(work)) return;
            }
        }
        if (LibraryTerminating()) return;
    }
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
            CopyBounded(sendMessage_, incoming_.message, sizeof sendMessage_);
            util_.ParseMessage(sendMessage_, std::strlen(sendMessage_), dataBuffer_.data(),
                               dataBuffer_.size(), &code_, &sendDataLen_);
            Log(mac_, 75, "[Worker::Run] punch through msg...just SENDing directly to Controller");
            // current keeps the transfer's address; the punched reply goes to the saved one.
            int32_t keptRspfunc = current_.rspfunc;
            int32_t keptRspid = current_.rspid;
            current_.rspfunc = savedRspfunc_ = incoming_.rspfunc;
            current_.rspid = savedRspid_ = incoming_.rspid;
            if (!SendData()) return;
            current_.rspfunc = keptRspfunc;
            current_.rspid = keptRspid;
            const char* payload = dataBuffer_.data();
            if ((code_ == 96 || code_ == 50 || code_ == 9) && PayloadIs(payload, {"32;"})) {
                Log(mac_, 75, "Controller Reboot was sent.");
                isReboot_ = true;
                busy_ = false;
                xfer_ = false;
                return;
            }
            if ((code_ == 12 || code_ == 13) && PayloadIs(payload, {"9;", "99;"})) {
                Log(mac_, 75, "Commtask restart was sent.");
                busy_ = false;
                return;
            }
            if (code_ == ZANTH_TERMINATE) {
                Log(mac_, 75, "ZANTH_TERMINATE was sent.");
                busy_ = false;
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
    CopyBounded(sendMessage_, record.message, sizeof sendMessage_);
    util_.ParseMessage(sendMessage_, std::strlen(sendMessage_), dataBuffer_.data(),
                       dataBuffer_.size(), &code_, &sendDataLen_);
    if (code_ < 1) {
        // Nothing to send and nobody to answer; left busy, the Worker would take no more.
        busy_ = false;
        return true;
    }
    if ((code_ == ZANTH_GET_FILE || code_ == ZANTH_SEND_FILE) && record.pcPathFile[0] != '\0') {
        // File streaming by the Worker arrives with the file transfer commands; until then the
        // record goes out as an ordinary command, as the text-buffer forms do.
        Log(mac_, 75, "[Worker::ProcessCommand] file streaming not available, sent as a command");
    }
    if (!SendData()) return false;
    const char* payload = dataBuffer_.data();
    if ((code_ == 96 || code_ == 50 || code_ == 9) && PayloadIs(payload, {"32;"})) {
        Log(mac_, 75, "Controller Reboot was sent.");
        isReboot_ = true;
        busy_ = false;
        return false;
    }
    if ((code_ == 12 || code_ == 13) && PayloadIs(payload, {"9;", "99;"})) {
        Log(mac_, 75, "Commtask restart was sent.");
        busy_ = false;
        return false;
    }
    if (code_ == ZANTH_TERMINATE) {
        Log(mac_, 75, "ZANTH_TERMINATE was sent.");
        busy_ = false;
        return false;
    }
    // These get no reply: the caller is owed nothing, but no further command leaves until some
    // reply comes in.
    if (code_ == ZANTH_FILE_TRANSFER_ERROR || code_ == ZANTH_POST_ACCESS_MSG_TO_ZANTH) busy_ = false;
    waitingForANonXferResponse_ = true;
    Log(mac_, 75, "[Worker::Run] waitingForANonXferResponse set to TRUE!!");
    return true;
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
// Socket input

bool Worker::PeekAtSocketMessage() {
    // The peek looks at a header's worth at most: only that much of the buffer needs clearing,
    // and this runs on every turn of every Worker.
    int32_t want = std::max(0, headerSize_ - rcvdBytes_);
    std::fill_n(dataBuffer_.begin(), want + 1, '\0');
    numBytes_ = platform::Recv(socket_, dataBuffer_.data(), static_cast<size_t>(want), true);
    if (numBytes_ >= 0) {
        if (numBytes_ > 0) {
            FormatText(logText_, sizeof logText_,
                       "[Worker::PeekAtSocketMessage] Header -- numBytes=%ld recv:%s MSG = %s",
                       numBytes_, dataBuffer_.data(), util_.CodeNameOf(dataBuffer_.data()));
            Log(mac_, 75, logText_, "", true);
        }
        return true;
    }
    lastError_ = platform::LastSocketError();
    if (lastError_ != platform::WSAEWOULDBLOCK) {
        LogSocketError(50, "[Worker::PeekAtSocketMessage] Header -- Error on recv", lastError_);
    }
    return false;
}

bool Worker::ReadData(bool* zeroBytes) {
    *zeroBytes = false;
    if (rcvdBytes_ < headerSize_) return ReadHeader(zeroBytes);
    return ReadBody();
}

bool Worker::ReadHeader(bool* zeroBytes) {
    Log(mac_, 75, "[Worker::ReadData()] reading initial data");
    std::fill(dataBuffer_.begin(), dataBuffer_.end(), '\0');
    numBytes_ = platform::Recv(socket_, dataBuffer_.data(),
                               static_cast<size_t>(headerSize_ - rcvdBytes_), false);
    if (numBytes_ < 0) {
        lastError_ = platform::LastSocketError();
        if (lastError_ == platform::WSAEWOULDBLOCK) {
            wouldBlock_ = true;
            return true;
        }
        LogSocketError(50, "[Worker::ReadData()] Header -- Error on recv", lastError_);
        return false;
    }
    FormatText(logText_, sizeof logText_, "[Worker::ReadData()] Header -- numBytes=%ld recv:%s MSG = %s",
               numBytes_, dataBuffer_.data(), util_.CodeNameOf(dataBuffer_.data()));
    Log(mac_, 75, logText_, "", true);
    if (numBytes_ == 0) {
        Log(mac_, 75, "[Worker::ReadData()] Header -- Zero bytes received");
        *zeroBytes = true;
        return false;
    }
    const int32_t got = static_cast<int32_t>(numBytes_);
    if (!encrypted_) {
        // At the start of a frame the whole working size is moved, which clears the former one.
        size_t move = rcvdBytes_ == 0 ? static_cast<size_t>(bufferSize_) : static_cast<size_t>(got);
        move = std::min(move, sizeof recvMessage_ - static_cast<size_t>(rcvdBytes_));
        std::memcpy(recvMessage_ + rcvdBytes_, dataBuffer_.data(), move);
        int32_t payloadLen = 0;
        result_ = util_.ParseMessage(recvMessage_, ::strnlen(recvMessage_, sizeof recvMessage_),
                                     dataBuffer_.data(), dataBuffer_.size(), &code_, &payloadLen);
        totBytes_ = payloadLen;
    } else {
        size_t move = rcvdBytes_ == 0 ? encryptedIn_.size() - 1 : static_cast<size_t>(got);
        move = std::min(move, encryptedIn_.size() - static_cast<size_t>(rcvdBytes_));
        std::memcpy(encryptedIn_.data() + rcvdBytes_, dataBuffer_.data(), move);
        totBytes_ = result_ = MessageUtil::ParseEncryptedLength(encryptedIn_.data(), got + rcvdBytes_);
    }
    if (result_ < 0) {
        // Not a whole header yet. The count is set, not increased: only a header that comes in
        // one or two pieces survives.
        rcvdBytes_ = got;
        addlData_ = true;
        Log(mac_, 75, "[Worker::ReadData()] addlData is true!!");
        return true;
    }
    rcvdBytes_ = headerSize_;
    totBytes_ += headerSize_;
    // The length field is trusted only as far as the buffers reach.
    if (totBytes_ > bufferSize_) {
        FormatText(logText_, sizeof logText_,
                   "[Worker::ReadData()] frame length %d exceeds the receive buffer of %d bytes, "
                   "connection closed",
                   totBytes_, bufferSize_);
        Log(mac_, 50, logText_);
        refused_ = true;
        return false;
    }
    if (encrypted_ && totBytes_ == headerSize_) {
        // A cipher text can't be empty: dispatching here would hand the former message to the
        // dispatch a second time.
        FormatText(logText_, sizeof logText_,
                   "[Worker::ReadData()] empty encrypted frame, connection closed");
        Log(mac_, 50, logText_);
        refused_ = true;
        return false;
    }
    if (totBytes_ == headerSize_) {
        addlData_ = false;
        rcvdBytes_ = 0;
        totBytes_ = 0;
        return true;
    }
    addlData_ = true;
    Log(mac_, 75, "[Worker::ReadData()] addlData is true!!");
    return true;
}

bool Worker::ReadBody() {
    Log(mac_, 75, "[Worker::ReadData()] reading additional data");
    std::fill(dataBuffer_.begin(), dataBuffer_.end(), '\0');
    numBytes_ = platform::Recv(socket_, dataBuffer_.data(), static_cast<size_t>(totBytes_ - rcvdBytes_),
                               false);
    if (numBytes_ < 0) {
        lastError_ = platform::LastSocketError();
        if (lastError_ == platform::WSAEWOULDBLOCK) {
            wouldBlock_ = true;
            return true;
        }
        LogSocketError(50, "[Worker::ReadData()] Error on recv", lastError_);
        return false;
    }
    const int32_t got = static_cast<int32_t>(numBytes_);
    if (!encrypted_) {
        FormatText(logText_, sizeof logText_, "[Worker::ReadData()] numBytes=%d recv:", got);
        Log(mac_, 75, logText_, got < kLogPayloadLimit ? dataBuffer_.data() : "", true);
    }
    if (got == 0) {
        // Unlike the header phase, end of stream here doesn't end the Worker.
        Log(mac_, 75, "[Worker::ReadData()] Zero bytes received");
        return false;
    }
    addlData_ = true;
    if (!encrypted_) {
        FormatText(logText_, sizeof logText_, "[Worker::ReadData()] partial, numBytes=%d recv:",
                   rcvdBytes_ + got);
        Log(mac_, 75, logText_);
        std::memcpy(recvMessage_ + rcvdBytes_, dataBuffer_.data(), static_cast<size_t>(got));
        if (util_.IsCompleteMessage(recvMessage_, rcvdBytes_ + got)) {
            addlData_ = false;
            rcvdBytes_ = 0;
            totBytes_ = 0;
            return true;
        }
    } else {
        std::memcpy(encryptedIn_.data() + rcvdBytes_, dataBuffer_.data(), static_cast<size_t>(got));
        if (MessageUtil::IsCompleteEncrypted(encryptedIn_.data(), rcvdBytes_ + got)) {
            int32_t plainLen = 0;
            result_ = util_.DecryptMessage(encryptedIn_.data(), rcvdBytes_ + got, recvMessage_,
                                           static_cast<int32_t>(sizeof recvMessage_), &plainLen,
                                           key_);
            if (result_ < 0) {
                // The counters stay, and nothing ends the link here.
                FormatText(logText_, sizeof logText_,
                           "[Worker::ReadData()] Error decrypting data, error code=%d", result_);
                Log(mac_, 50, logText_);
                return false;
            }
            totBytes_ = plainLen;
            if (current_.rspfunc == 1) {
                FormatText(logText_, sizeof logText_, "[Worker::ReadData()] end totBytes=%d rspid=%d recv:",
                           totBytes_, current_.rspid);
            } else {
                FormatText(logText_, sizeof logText_, "[Worker::ReadData()] end totBytes=%d recv:",
                           totBytes_);
            }
            Log(mac_, 75, logText_, totBytes_ < kLogPayloadLimit ? recvMessage_ : "", true);
            addlData_ = false;
            rcvdBytes_ = 0;
            totBytes_ = 0;
            return true;
        }
    }
    rcvdBytes_ += got;
    return true;
}

// ---------------------------------------------------------------------------------------------
// Socket output

bool Worker::SendData() {
    const char* from;
    int32_t total;
    if (encrypted_) {
        if (sendLen_ == 0) {
            result_ = util_.EncryptMessage(sendMessage_, sendDataLen_ + kClearHeaderSize,
                                           encryptedOut_.data(), bufferSize_, &encryptedLen_, key_);
            if (result_ < 0) {
                FormatText(logText_, sizeof logText_,
                           "[Worker::SendData] Error encrypting data, error code=%d", result_);
                Log(mac_, 50, logText_);
                CloseFile();
                return false;
            }
        }
        from = encryptedOut_.data();
        total = encryptedLen_ + kEncryptedHeaderSize;
    } else {
        from = sendMessage_;
        total = sendDataLen_ + kClearHeaderSize;
    }
    // A short write is finished here rather than left to shift the next message: the frame goes
    // out whole, or the link counts as lost when the peer takes nothing for a while.
    int stalled = 0;
    for (;;) {
        numBytes_ = platform::Send(socket_, from + sendLen_, static_cast<size_t>(total - sendLen_));
        if (numBytes_ < 0) {
            lastError_ = platform::LastSocketError();
            if (lastError_ == platform::WSAEWOULDBLOCK && stalled < kSendStallMilliseconds &&
                !platform::ThisThreadKilled() && !platform::Unloading()) {
                platform::Sleep(10);
                stalled += 10;
                continue;
            }
            LogSocketError(50, "[Worker::SendData] Error on send", lastError_);
            sendLen_ = 0;
            CloseFile();
            return false;
        }
        if (current_.rspfunc == 1) {
            FormatText(logText_, sizeof logText_, "[Worker::SendData] numBytes=%ld rspid=%d sent msg: %s",
                       numBytes_, current_.rspid,
                       sendDataLen_ + kClearHeaderSize < kLogPayloadLimit ? sendMessage_ : "");
        } else {
            FormatText(logText_, sizeof logText_, "[Worker::SendData] numBytes=%ld sent msg: %s",
                       numBytes_, sendDataLen_ + kClearHeaderSize < kLogPayloadLimit ? sendMessage_ : "");
        }
        Log(mac_, 75, logText_, "", true);
        sendAddl_ = true;
        if (numBytes_ < total - sendLen_) {
            sendLen_ += static_cast<int32_t>(numBytes_);
            FormatText(logText_, sizeof logText_, "[Worker::SendData] sendAddl true. sendLen = %d",
                       sendLen_);
            Log(mac_, 50, logText_);
            stalled = 0;
            continue;
        }
        sendAddl_ = false;
        sendLen_ = 0;
        return true;
    }
}

bool Worker::SendFramed(int32_t code, const char* payload) {
    util_.BuildMessage(code, payload, std::strlen(payload), sendMessage_, kMessageBufferSize);
    util_.ParseMessage(sendMessage_, std::strlen(sendMessage_), dataBuffer_.data(),
                       dataBuffer_.size(), &code_, &sendDataLen_);
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

// ---------------------------------------------------------------------------------------------
// Dispatch

bool Worker::ProcessIncomingSocketMessage() {
    util_.ParseMessage(recvMessage_, ::strnlen(recvMessage_, sizeof recvMessage_),
                       dataBuffer_.data(), dataBuffer_.size(), &code_, &dataLen_);
    FormatText(logText_, sizeof logText_, "[Worker::ProcessIncomingSocketMessage()] Code = %s",
               util_.CodeName(code_));
    Log(mac_, 75, logText_);

    switch (code_) {
        case 0:
            Log(mac_, 50, "disconnected - received invalid code");
            busy_ = false;
            return false;
        case ZANTH_TERMINATE:
            // A blocked caller is not released: it runs into its wait time.
            busy_ = false;
            return false;
        case ZANTH_UNABLE_TO_PROCESS_COMMAND:
        case ZANTH_UNKNOWN_COMMAND:
            if (code_ == ZANTH_UNABLE_TO_PROCESS_COMMAND) {
                Log(mac_, 50, "disconnected - Zanth unable to process command");
            }
            Log(mac_, 50, "disconnected - Zanth unknown command");
            busy_ = false;
            Deliver(recvMessage_, static_cast<int32_t>(std::strlen(recvMessage_) + 1),
                    current_.rspid);
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
    Deliver(recvMessage_, kWorkingBufferSize, xfer_ ? savedRspid_ : current_.rspid);
    if (!waitingForANonXferResponse_) {
        busy_ = false;
        return true;
    }
    if (!util_.IsResponseCode(code_)) {
        Log(mac_, 75, "[Worker::Run] Reecevied message code was not for recently sent message.");
        return true;
    }
    busy_ = false;
    waitingForANonXferResponse_ = false;
    Log(mac_, 75, "[Worker::Run] waitingForANonXferResponse set to FALSE!!");
    return true;
}

void Worker::Deliver(const char* text, int32_t size, int32_t rspid) {
    if (current_.rspfunc != 0) {
        responseMon->Add(rspid, text, size);
    } else {
        recvMon->SetBuffer(text);
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
    for (char* p = mac; *p; ++p) *p = static_cast<char>(std::toupper(static_cast<unsigned char>(*p)));
    // A field with nothing behind the fixed octets names no controller.
    if (mac[0] == '\0') return false;
    CopyBounded(mac_, mac, sizeof mac_);
    return true;
}

void Worker::ReplaceFormerConnection() {
    uint8_t connected = 0;
    workerMon->IsConnected(mac_, &connected);
    if (connected) {
        uint32_t former = workerMon->WorkerThreadOf(mac_);
        int32_t result = 0;
        workerMon->PostWorkerMsg(mac_, WM_WORKER_KILL, &result);
        // The replaced Worker no longer answers for the MAC: it is ended at once, silently.
        platform::TerminateThread(former);
        platform::Sleep(5000);
        workerMon->RemoveWorkerOf(mac_, former, &result);
        connDiscQueue->Add(mac_, 0, &result);
    }
    // Commands queued for the MAC before it came back are thrown away unanswered.
    CommandRecord discard{};
    int32_t error = 0;
    do {
        sendMon->Get(&discard, mac_, &error);
    } while (error == 0);
}

void Worker::Register() {
    workerMon->AddWorker(mac_, threadId_);
    int32_t error = 0;
    connDiscQueue->Add(mac_, 1, &error);
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
    Log(mac_, 75, "[Worker::Run] Initialization completed");
    return true;
}

bool Worker::IdentifyEncrypted() {
    if (init_) return true;
    if (!TakeMac()) {
        Log(mac_, 50, "[Worker::Run] Error getting mac address");
        return false;
    }
    CopyBounded(identifyText_, recvMessage_, sizeof identifyText_);
    std::memset(seed_, 0, sizeof seed_);
    if (seedMon) seedMon->Get(mac_, seed_, 200);
    if (util_.GenerateKey(identifyText_, seed_, key_, 32) < 0) {
        Log(mac_, 50, "[Worker::Run] Error generating key");
        return false;
    }
    ReplaceFormerConnection();
    encrypted_ = true;
    headerSize_ = kEncryptedHeaderSize;
    int32_t size = 0;
    result_ = util_.GetBufferSize(&size);
    // The size is the plugin's own answer: a negative one is a failure too, and one beyond what a
    // four-digit length field can describe is no frame size at all.
    if (result_ < 0 || size < 0 || size > 9999) {
        FormatText(logText_, sizeof logText_,
                   "[Worker::Run] Error using encryption library, error code=%d",
                   result_ < 0 ? result_ : size);
        Log(mac_, 50, logText_);
        return false;
    }
    if (size >= kRecordMessageSize) {
        bufferSize_ = size;
        dataBuffer_.assign(static_cast<size_t>(bufferSize_) + 1, '\0');
    } else {
        bufferSize_ = kWorkingBufferSize;
    }
    encryptedIn_.assign(static_cast<size_t>(bufferSize_) + 1, '\0');
    encryptedOut_.assign(static_cast<size_t>(bufferSize_) + 1, '\0');
    Register();
    // The acceptance is the first encrypted frame.
    if (!SendFramed(ZANTH_ACCEPT_CONNECTION, "")) return false;
    Log(mac_, 75, "[Worker::Run] Initialization completed");
    return true;
}

void Worker::StoreEvent(const char* text) {
    int32_t error = 0;
    // On disk before the host's queue holds it; a failed write loses only the file's copy.
    if (eventMon) eventMon->WriteMsg(text, static_cast<int32_t>(std::strlen(text)), &error);
    eventMonQueue->Add(text);
}

void Worker::StoreAlarm(const char* text) {
    int32_t error = 0;
    if (alarmMon) alarmMon->WriteMsg(text, static_cast<int32_t>(std::strlen(text)), &error);
    alarmMonQueue->Add(text);
}

bool Worker::ProcessUnsolicited() {
    if (!CheckValid()) return false;
    char* payload = dataBuffer_.data();
    switch (code_) {
        case ZANTH_EVENT_MESSAGE:
            if (!SendAcknowledgement(ZANTH_MESSAGE_RSP, "", true)) return false;
            // The acknowledgement reused the data buffer; the payload is read again.
            util_.ParseMessage(recvMessage_, ::strnlen(recvMessage_, sizeof recvMessage_), payload,
                               dataBuffer_.size(), &code_, &dataLen_);
            StoreEvent(payload);
            return true;
        case ZANTH_ALARM_MESSAGE:
        case ZANTH_HEART_BEAT: {
            // A heartbeat's payload is stored as an alarm.
            int32_t ack = code_ == ZANTH_HEART_BEAT ? ZANTH_HEART_BEAT_RSP : ZANTH_MESSAGE_RSP;
            if (!SendAcknowledgement(ack, "", true)) return false;
            util_.ParseMessage(recvMessage_, ::strnlen(recvMessage_, sizeof recvMessage_), payload,
                               dataBuffer_.size(), &code_, &dataLen_);
            StoreAlarm(payload);
            return true;
        }
        case ZANTH_MESSAGE_BUNDLE: {
            if (!SendAcknowledgement(ZANTH_MESSAGE_RSP, "", true)) return false;
            util_.ParseMessage(recvMessage_, ::strnlen(recvMessage_, sizeof recvMessage_), payload,
                               dataBuffer_.size(), &code_, &dataLen_);
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
            lookupMon->Add(payload);
            return SendAcknowledgement(ZANTH_CHECK_CARD_RSP, "0;", true);
        case ZANTH_REPORT_PIN:
            lookupPinMon->Add(payload);
            return SendAcknowledgement(ZANTH_REPORT_PIN_RSP, "0;", true);
        case ZANTH_SMART_CARD_DATA:
            smartCardMon->Add(payload);
            return SendAcknowledgement(ZANTH_SMART_CARD_DATA_RSP, "0;", true);
        case ZANTH_KEY_PAD_DATA:
            keyPadMon->Add(payload);
            return SendAcknowledgement(ZANTH_KEY_PAD_DATA_RSP, "0;", true);
        case ZANTH_COMMAND_KEY_DATA:
            cmdKeyMon->Add(payload);
            return SendAcknowledgement(ZANTH_COMMAND_KEY_DATA_RSP, "0;", false);
        case ZANTH_POST_ACCESS_MSG_TO_HOST:
            // No acknowledgement for a post-access message.
            postAccessMon->Add(payload);
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
    hereiamMon->Add(payload);
    return SendAcknowledgement(ZANTH_HERE_I_AM_RSP, "", true);
}

bool Worker::ProcessTransferReply() {
    if (!CheckValid()) return false;
    if (!xfer_) {
        // The reply to GetData, SendData or their Rsp forms.
        busy_ = false;
        waitingForANonXferResponse_ = false;
        Deliver(recvMessage_, static_cast<int32_t>(std::strlen(recvMessage_) + 1), current_.rspid);
        return true;
    }
    // Chunks of a running stream come with the file transfer commands.
    Log(mac_, 75, "[Worker::Run] transfer reply without a running stream");
    return true;
}

void Worker::CloseFile() {
    // Streams arrive with the file transfer commands; with none open there is nothing to close.
    xfer_ = false;
}

// ---------------------------------------------------------------------------------------------
// Outbound contact

uint32_t Worker::GetAddr(const char* name) {
    if (name == nullptr || name[0] == '\0') return 0;
    uint32_t address = platform::InetAddr(name);
    if (address == platform::kInaddrNone && std::strcmp(name, "255.255.255.255") != 0) {
        int error = 0;
        address = platform::ResolveHost(name, &error);
        if (address == 0) {
            LogSocketError(50, "[Worker::GetAddr] Error on gethostbyname", error);
            return 0;
        }
    }
    return address;
}

int32_t Worker::ContactGateway() {
    int32_t result = 0;
    FormatText(logText_, sizeof logText_, "[Worker::ContactGateway] iphostname=%s port=%d",
               iphostname_, port_);
    Log(mac_, 75, logText_);
    uint32_t address = GetAddr(iphostname_);
    if (address == 0) {
        FormatText(logText_, sizeof logText_, "[Worker::ContactGateway] invalid IP address or host name %s",
                   iphostname_);
        Log(mac_, 50, logText_);
        return -10002;
    }
    socket_ = platform::OpenTcpSocket();
    if (socket_ == platform::kInvalidSocket) {
        result = platform::LastSocketError();
        LogSocketError(50, "[Worker::ContactGateway] Error on socket", result);
        return result;
    }
    if (platform::Connect(socket_, address, port_) != 0) {
        result = platform::LastSocketError();
        LogSocketError(50, "[Worker::ContactGateway] Error on connect", result);
    } else if (platform::SetNonBlocking(socket_) != 0) {
        result = platform::LastSocketError();
        LogSocketError(50, "[Worker::ContactGateway] Error on ioctlsocket", result);
    }
    if (result != 0) {
        // The failed socket is closed here: the end of the Worker closes only a working link.
        platform::CloseSocket(socket_);
        socket_ = platform::kInvalidSocket;
    }
    return result;
}

}  // namespace zanth
