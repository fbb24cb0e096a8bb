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
//   4 the field splitter    the payload cut into fields, read as texts and numbers (with ','
//                           a delimiter too when the parameter is odd)

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "FuzzSupport.h"
#include "frame/Tokens.h"
#include "monitors/Globals.h"
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

// What the library does with a reply's fields, in one place so that the reading of a typed
// reply can be put here in its stead.
void ReadFields(char* payload, const char* delimiters) {
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
    zanth::workerMon->AddWorker(kMac, kStandInThread);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    const int reader = data[0] % 5;
    const uint8_t parameter = data[1];
    const uint8_t* reply = data + 2;
    const size_t replyLen = std::min<size_t>(size - 2, zanth::kMessageBufferSize - 1);

    if (reader == 4) {
        // The payload as a command would have it after the parse.
        std::vector<char> text(zanth::kMessageBufferSize, '\0');
        zanth::MessageUtil util;
        int32_t code = 0, dataLen = 0;
        std::string frame(reinterpret_cast<const char*>(reply), replyLen);
        util.ParseMessage(frame.c_str(), std::strlen(frame.c_str()), text.data(), text.size(), &code,
                          &dataLen);
        ReadFields(text.data(), (parameter & 1) ? ";," : ";");
        return 0;
    }

    // The slot holds a whole buffer's worth; the reply is what a Worker would have put there.
    std::vector<char> slot(zanth::kMessageBufferSize, '\0');
    std::memcpy(slot.data(), reply, replyLen);
    zanth::recvMon->SetBuffer(slot.data());
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
    FUZZ_CHECK(zanth::recvMon->SlotEmpty(), "the command left its reply in the slot");
    // The commands went nowhere; they must not pile up.
    zanth::CommandRecord record{};
    int32_t error = 0;
    do {
        zanth::sendMon->Get(&record, kMac, &error);
    } while (error == 0);
    zanth::fuzz::TrimLog();
    return 0;
}
