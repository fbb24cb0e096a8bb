// The Worker's file streaming: a GetFile or SendFile with a local file runs on the Worker, one
// chunk per reply of the controller (stop and wait; there is no window), while commands on the
// punch-through list may still pass between chunks.

#include <algorithm>
#include <cstring>

#include "connection/Worker.h"
#include "monitors/Monitors.h"
#include "platform/File.h"
#include "protocol/Codes.h"
#include "protocol/Result.h"
#include "protocol/Text.h"
#include "stores/LogMon.h"

namespace zanth {
namespace {}  // namespace

int32_t Worker::StreamCode() const {
    return stream_ == Stream::kReceiving ? ZANTH_GET_FILE : ZANTH_SEND_FILE;
}

void Worker::DeliverTransferText(const char* text, const char* framedText) {
    if (current_.rspfunc != 0) {
        char framed[kMessageBufferSize];
        util_.BuildMessage(0, framedText, std::strlen(framedText), framed, sizeof framed);
        monitors_.responseMon->Add(current_.rspid, framed,
                                   static_cast<int32_t>(std::strlen(framed) + 1));
    } else {
        monitors_.recvMon->SetBuffer(text);
    }
}

void Worker::DeliverTransferResult(int32_t result) {
    // The reply slot takes a whole message buffer from whatever it is given.
    char text[kMessageBufferSize] = {};
    char framedText[16];
    FormatText(text, sizeof text, "%d", result);
    FormatText(framedText, sizeof framedText, "%d;", result);
    DeliverTransferText(text, framedText);
}

bool Worker::StartStream(const CommandRecord& record, bool get) {
    stream_ = get ? Stream::kReceiving : Stream::kSending;
    uint32_t& calls = get ? getCalls_ : sendCalls_;
    uint32_t& total = get ? getTotal_ : sendTotal_;
    calls = 0;
    total = 0;
    FormatText(
        logText_, sizeof logText_,
        get ? "[Worker::GetFile] gatewayPathFile=%s" : "[Worker::SendFile] gatewayPathFile=%s",
        record.gatewayPathFile);
    FormatText(logText2_, sizeof logText2_, "pcPathFile=%s", record.pcPathFile);
    Log(mac_, kLogTrace, logText_, logText2_);
    fp_ = get ? platform::OpenWriteCreateTruncate(record.pcPathFile)
              : platform::OpenReadOnly(record.pcPathFile);
    if (fp_ < 0) {
        // The controller is never asked.
        fp_ = -1;
        DeliverTransferResult(kFileError);
        stream_ = Stream::kIdle;
        busy_ = false;
        return true;
    }
    const Clock::time_point deadline = Deadline();
    if (!SendData()) return false;
    AwaitStream(deadline);
    return true;
}

bool Worker::GetFile(const CommandRecord& record) {
    return StartStream(record, true);
}

bool Worker::SendFile(const CommandRecord& record) {
    return StartStream(record, false);
}

bool Worker::GetFileChunk() {
    // Only the bytes the frame really holds are written, whatever its header announced.
    const int32_t held = std::max(0, reader_.MessageLength() - kClearHeaderSize);
    readCount_ = std::clamp(dataLen_, 0, held);
    // The write's result isn't looked at: the controller's stream goes on regardless.
    if (fp_ >= 0) platform::WriteFile(fp_, dataBuffer_.data(), static_cast<size_t>(readCount_));
    getTotal_ += static_cast<uint32_t>(std::max(0, dataLen_));
    ++getCalls_;
    FormatText(logText_, sizeof logText_, "[Worker::GetFile] GetFile CALL #%d. running total = %d",
               static_cast<int>(getCalls_), static_cast<int>(getTotal_));
    Log(mac_, kLogTrace, logText_);
    if (code_ == ZANTH_GET_FILE_MORE) {
        const Clock::time_point deadline = Deadline();
        if (!SendFramed(ZANTH_GET_FILE_RSP, "")) return false;
        AwaitStream(deadline);
        return true;
    }
    // The last chunk: no acknowledgement goes back.
    streamTimed_ = false;
    if (fp_ >= 0) platform::CloseFile(fp_);
    fp_ = -1;
    DeliverTransferResult(0);
    stream_ = Stream::kIdle;
    busy_ = false;
    return true;
}

bool Worker::SendFileChunk() {
    chunkSize_ = kFileChunkSize;
    char chunk[kFileChunkSize];
    readCount_ = fp_ >= 0 ? static_cast<int32_t>(platform::ReadFile(fp_, chunk, sizeof chunk)) : -1;
    if (readCount_ > 0) sendTotal_ += static_cast<uint32_t>(readCount_);
    FormatText(logText_, sizeof logText_, "[Worker::SendFile] read %d bytes from file.",
               readCount_);
    Log(mac_, kLogTrace, logText_);
    // A failed read leaves the stream standing until the link ends or the caller's wait does.
    if (readCount_ < 0) return true;
    ++sendCalls_;
    if (readCount_ == chunkSize_) {
        FormatText(logText_, sizeof logText_, "[Worker::SendFile] SendFile CALL #%d. Total = %d",
                   static_cast<int>(sendCalls_), static_cast<int>(sendTotal_));
        Log(mac_, kLogTrace, logText_);
        const Clock::time_point deadline = Deadline();
        if (!writer_.Build(ZANTH_SEND_FILE_MORE, chunk, static_cast<size_t>(readCount_)) ||
            !SendData())
            return false;
        AwaitStream(deadline);
        return true;
    }
    // A short chunk, empty included, is the last one.
    FormatText(logText_, sizeof logText_, "[Worker::SendFile] SendData CALL #%d. Total = %d",
               static_cast<int>(sendCalls_), static_cast<int>(sendTotal_));
    Log(mac_, kLogTrace, logText_);
    const Clock::time_point deadline = Deadline();
    if (!writer_.Build(ZANTH_SEND_FILE_END, chunk, static_cast<size_t>(readCount_)) || !SendData())
        return false;
    platform::CloseFile(fp_);
    fp_ = -1;
    // The caller learns of success once the end chunk is on the wire; the controller's 1030
    // still closes the stream, and until then the cmd queue waits.
    DeliverTransferResult(0);
    busy_ = false;
    stream_ = Stream::kLastChunk;
    AwaitStream(deadline);
    return true;
}

void Worker::TransferError() {
    char payload[kRecordMessageSize];
    CopyBounded(payload, dataBuffer_.data(), sizeof payload);
    char* state = nullptr;
    char* first = Tokenize(payload, ";", &state);
    // A 9980 never means success: a first field that is missing, or no number ("abc", "#"),
    // is no result.
    if (first == nullptr || !IsDecimalNumber(first, &result_)) result_ = kNoTransferResult;
    FormatText(logText_, sizeof logText_, "[Worker::Run] result=%d", result_);
    Log(mac_, kLogTrace, logText_);
    if (char* second = Tokenize(nullptr, ";", &state)) {
        char err[kLogTextSize];
        CopyBounded(err, second, sizeof err);
        FormatText(logText_, sizeof logText_,
                   "[Worker::Run] file transfer error result=%d err=", result_);
        Log(mac_, kLogError, logText_, err, true);
    }
    if (fp_ >= 0) platform::CloseFile(fp_);
    fp_ = -1;
    if (current_.rspfunc != 0) {
        const char* message = reader_.Message();
        monitors_.responseMon->Add(current_.rspid, message,
                                   static_cast<int32_t>(std::strlen(message) + 1));
    } else {
        char text[kMessageBufferSize] = {};
        FormatText(text, sizeof text, "%d", result_);
        monitors_.recvMon->SetBuffer(text);
    }
    busy_ = false;
    stream_ = Stream::kIdle;
    streamTimed_ = false;
}

void Worker::CloseFile() {
    if (fp_ < 0) return;
    if (xfer()) {
        FormatText(logText_, sizeof logText_,
                   "[Worker::CloseFile] xfer is true...Closing the file pointer fp = %d", fp_);
        Log(mac_, kLogTrace, logText_);
        // Only a file that closed tells its caller of the lost link.
        if (platform::CloseFile(fp_) == 0) {
            char text[kMessageBufferSize] = {};
            FormatText(text, sizeof text, "%d", static_cast<int>(kNotConnected));
            DeliverTransferText(text, "Connection failure;");
        }
    }
    fp_ = -1;
    busy_ = false;
    stream_ = Stream::kIdle;
    streamTimed_ = false;
}

}  // namespace zanth
