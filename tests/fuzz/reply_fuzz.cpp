// The reading of a command's reply: the fuzzed bytes are what the controller's Worker parked in
// the reply slot, and a blocking command takes them from there as its reply (completeness test,
// parse, code check, the reading of its fields). A stand-in entry makes the MAC connected; no
// Worker runs, so the test stands where the reply's text arrives.
//
// Input: the first byte picks the reader, the second is its parameter, the rest is the reply
// (at most one slot's worth).
//   0 RebootBoard           the first field as the controller's result
//   1 ControllerInfo        the payload copied whole into the caller's buffer (its size is the
//                           parameter, the buffer exactly that large)
//   2 RecheckLookupCard     the first field as the controller's result
//   3 RequestPin            the reply only logged
//   4 the reply field reader  the payload walked with typed reads; the parameter's low bit
//                           picks the walk (tokens or every ';'), and the reads are the
//                           parameter's count (its bits 1-4) of bytes taken from the front of
//                           the reply, one read each: the low three bits the read, the rest
//                           the size of a text buffer or the fields to skip
//   5 the token splitter    the payload cut into fields, read as texts and numbers (with ','
//                           a delimiter too when the parameter is odd)

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "FuzzSupport.h"
#include "frame/Context.h"
#include "frame/ReplyFields.h"
#include "frame/Tokens.h"
#include "monitors/HandleHashMon.h"
#include "monitors/RecvMon.h"
#include "monitors/ThreadHashMon.h"
#include "protocol/CommandRecord.h"
#include "protocol/MessageUtil.h"
#include "zanth.h"

namespace {

constexpr const char* kMac = "AA:BB:CC";
constexpr uint32_t kStandInThread = 4242;

// A result a command may return: the library's codes, or any value that came from the reply.
void CheckResult(int32_t result) {
    FUZZ_CHECK(result != -10003 && result != -10004, std::to_string(result));
}

// Buffers of exactly the size a read is told, so that a write past it shows at once.
std::vector<char> Exact(int32_t size) {
    return std::vector<char>(static_cast<size_t>(size));
}

bool Terminated(const std::vector<char>& b) {
    return b.empty() || std::memchr(b.data(), '\0', b.size()) != nullptr;
}

void WalkFields(const char* payload, size_t length, zanth::FieldWalk walk, const uint8_t* reads,
                size_t count) {
    int32_t result = 0;
    bool rawResult = false;
    zanth::ReplyFields fields(payload, length, result, "Fuzz::Reply", "fuzz", walk);
    for (size_t i = 0; i < count; ++i) {
        const int32_t arg = reads[i] >> 3;
        switch (reads[i] & 7) {
            case 0: {
                int32_t rslt = 0;
                fields.ControllerResult(&rslt, arg & 1);
                rawResult = rawResult || !(arg & 1);
                break;
            }
            case 1: {
                int32_t v = 0;
                fields.Int(arg & 1 ? &v : nullptr);
                break;
            }
            case 2: {
                uint32_t v = 0;
                fields.Uint(&v);
                break;
            }
            case 3: {
                std::vector<char> text = Exact(arg);
                fields.Text(arg ? text.data() : nullptr, arg);
                if (fields.Ok()) FUZZ_CHECK(Terminated(text), "text not terminated");
                break;
            }
            case 4: {
                std::vector<char> date = Exact(arg & 7), time = Exact(arg >> 3);
                fields.Stamp(date.empty() ? nullptr : date.data(), arg & 7,
                             time.empty() ? nullptr : time.data(), arg >> 3);
                if (fields.Ok()) FUZZ_CHECK(Terminated(date) && Terminated(time), "stamp");
                break;
            }
            case 5:
                fields.Skip(arg % 4);
                break;
            case 6:
                fields.Optional();
                break;
            default:
                FUZZ_CHECK(fields.Count() >= 0, std::to_string(fields.Count()));
                break;
        }
    }
    if (walk == zanth::FieldWalk::kTokens) {
        FUZZ_CHECK(fields.Count() <= zanth::ReplyFields::kMaxTokens,
                   std::to_string(fields.Count()));
    }
    // The controller's own -1 to -99 stand as they are only when they weren't mapped.
    FUZZ_CHECK(result >= 0 || result == -10011 || result == -10006 || result == -10001 ||
                   result <= -100 || rawResult,
               std::to_string(result));
}

void SplitTokens(char* payload, const char* delimiters) {
    zanth::Tokens tokens;
    tokens.Split(payload, delimiters);
    FUZZ_CHECK(tokens.Count() >= 0 && tokens.Count() <= zanth::Tokens::kMaxFields,
               std::to_string(tokens.Count()));
    int32_t seen = 0;
    while (const char* field = tokens.Next()) {
        FUZZ_CHECK(field[0] != '\0' && std::strchr(field, '#') == nullptr, field);
        ++seen;
    }
    FUZZ_CHECK(seen == tokens.Count(), std::to_string(seen));
    FUZZ_CHECK(tokens.NextInt() == 0, "a number after the last field");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    zanth::fuzz::EnterScratchDirectory();
    zanth::fuzz::LoadLibrary();
    int32_t level = 75;
    DebugLevel(1, &level);
    SetValidControllers(kMac);
    zanth::fuzz::Shared().workerMon->AddWorker(kMac, kStandInThread);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    const int reader = data[0] % 6;
    const uint8_t parameter = data[1];
    const uint8_t* reply = data + 2;
    const size_t replyLen = std::min<size_t>(size - 2, zanth::kMessageBufferSize - 1);

    if (reader >= 4) {
        const size_t reads = reader == 4 ? std::min<size_t>((parameter >> 1) & 15, replyLen) : 0;
        // The payload as a command has it after the parse.
        std::vector<char> text(zanth::kMessageBufferSize, '\0');
        zanth::MessageUtil util;
        int32_t code = 0, dataLen = 0;
        std::string frame(reinterpret_cast<const char*>(reply + reads), replyLen - reads);
        util.ParseMessage(frame.c_str(), std::strlen(frame.c_str()), text.data(), text.size(),
                          &code, &dataLen);
        if (reader == 4) {
            WalkFields(
                text.data(), text.size(),
                (parameter & 1) ? zanth::FieldWalk::kEveryDelimiter : zanth::FieldWalk::kTokens,
                reply, reads);
        } else {
            SplitTokens(text.data(), (parameter & 1) ? ";," : ";");
        }
        return 0;
    }

    // The slot holds a whole buffer's worth; the reply is what a Worker would have put there.
    std::vector<char> slot(zanth::kMessageBufferSize, '\0');
    std::memcpy(slot.data(), reply, replyLen);
    zanth::fuzz::Shared().recvMon->SetBuffer(slot.data());
    switch (reader) {
        case 0:
            CheckResult(RebootBoard(kMac, 7));
            break;
        case 1: {
            const int32_t room = parameter;
            std::vector<char> info(static_cast<size_t>(room));
            int32_t rc = ControllerInfo(kMac, room ? info.data() : nullptr, room);
            CheckResult(rc);
            if (rc == 0) FUZZ_CHECK(std::memchr(info.data(), '\0', info.size()) != nullptr, "");
            break;
        }
        case 2:
            CheckResult(RecheckLookupCard(kMac, "1;"));
            break;
        case 3:
            CheckResult(RequestPin(kMac, 1, 2, 3));
            break;
    }
    FUZZ_CHECK(zanth::fuzz::Shared().recvMon->SlotEmpty(),
               "the command left its reply in the slot");
    // The commands went nowhere; they must not pile up.
    zanth::CommandRecord record{};
    int32_t error = 0;
    do {
        zanth::fuzz::Shared().sendMon->Get(&record, kMac, &error);
    } while (error == 0);
    zanth::fuzz::TrimLog();
    return 0;
}
