// The frame parser and its tests of completeness and codes, on any bytes: clear and encrypted
// headers, payload extraction into destinations of every size, code names and the reply test,
// and the agreement between the strict header reader of the Worker and the parser.
//
// Input: the bytes are the frame text (the library always holds a NUL after it). The first byte
// also picks the size of a second, exact-size destination, so an overrun shows at once.

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "FuzzSupport.h"
#include "connection/FrameReader.h"
#include "protocol/CommandRecord.h"
#include "protocol/MessageUtil.h"

using zanth::FrameReader;
using zanth::MessageUtil;

namespace {

void CheckName(MessageUtil& util, int32_t code) {
    const char* name = util.CodeName(code);
    FUZZ_CHECK(name != nullptr, std::to_string(code));
    FUZZ_CHECK(std::strlen(name) < 64, name);
    bool reply = util.IsResponseCode(code);
    if (code < 1000) FUZZ_CHECK(!reply, std::to_string(code));
    MessageUtil::IsPunchThroughCode(code);
}

int32_t Int32At(const uint8_t* data, size_t size) {
    uint32_t v = 0;
    std::memcpy(&v, data, std::min<size_t>(size, sizeof v));
    return static_cast<int32_t>(v);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static MessageUtil util;
    std::vector<char> text(data, data + size);
    text.push_back('\0');
    const char* t = text.data();
    const long length = static_cast<long>(size);

    // The parser, into a message buffer and into an exact-size one.
    std::vector<char> out(zanth::kMessageBufferSize, 'Q');
    int32_t code = -1, dataLen = -1;
    int32_t rc = util.ParseMessage(t, size, out.data(), out.size(), &code, &dataLen);
    FUZZ_CHECK(rc == 0 || rc == -10023 || rc == -10024 || rc == -10026, std::to_string(rc));
    FUZZ_CHECK(std::memchr(out.data(), '\0', out.size()) != nullptr, "payload not terminated");
    if (rc == 0) {
        FUZZ_CHECK(dataLen >= 0, std::to_string(dataLen));
        FUZZ_CHECK(code >= 0 && code <= 99999, std::to_string(code));
    }
    const size_t small = size > 0 ? data[0] % 40 : 1;
    std::vector<char> exact(small);
    util.ParseMessage(t, size, small ? exact.data() : nullptr, small, &code, &dataLen);
    if (small > 0) FUZZ_CHECK(exact[small - 1] == '\0', "small payload not terminated");

    bool complete = util.IsCompleteMessage(t, length);
    util.IsCompleteMessage(t, -1);

    // The Worker's strict header reader must agree with the parser whenever it accepts.
    if (size >= static_cast<size_t>(zanth::kClearHeaderSize)) {
        int32_t hCode = -1, total = -1;
        if (FrameReader::ClearHeader(t, &hCode, &total)) {
            int32_t pCode = -1, pLen = -1;
            int32_t prc = util.ParseMessage(t, size, out.data(), out.size(), &pCode, &pLen);
            FUZZ_CHECK(hCode >= 0 && hCode <= 9999 && total >= 0 && total <= 9999, "");
            if (total >= zanth::kClearHeaderSize) {
                FUZZ_CHECK(prc == 0 && pCode == hCode && pLen == total - zanth::kClearHeaderSize,
                           std::string(t, 10));
            } else {
                FUZZ_CHECK(prc == -10026, std::string(t, 10));
            }
            FUZZ_CHECK(complete == (total == length), std::string(t, 10));
        }
    }
    if (size >= static_cast<size_t>(zanth::kEncryptedHeaderSize)) {
        int32_t total = -1;
        if (FrameReader::EncryptedHeader(t, &total)) {
            FUZZ_CHECK(MessageUtil::ParseEncryptedLength(t, length) == total - 5,
                       std::string(t, 5));
            FUZZ_CHECK(
                MessageUtil::IsCompleteEncrypted(t, length) == (total >= 5 && total == length),
                std::string(t, 5));
        }
    }
    MessageUtil::ParseEncryptedLength(t, length);
    MessageUtil::IsCompleteEncrypted(t, length);

    // Codes: from the text, as parsed, and any 32-bit value.
    CheckName(util, MessageUtil::CodeOf(t));
    util.CodeNameOf(t);
    if (rc == 0) CheckName(util, code);
    CheckName(util, Int32At(data, size));

    // Built frames parse back to what went in.
    if (size >= 2) {
        const int32_t builtCode = (data[0] << 8 | data[1]) % 10000;
        const char* payload = t + 2;
        const size_t payloadLen = size - 2;
        std::vector<char> frame(zanth::kMessageBufferSize);
        int32_t brc = util.BuildMessage(builtCode, payload, payloadLen, frame.data(), frame.size());
        const bool fits = payloadLen <= static_cast<size_t>(zanth::kMessageBufferSize - 10);
        FUZZ_CHECK(brc == (fits ? 0 : -10006), std::to_string(payloadLen));
        if (brc == 0) {
            const size_t frameLen = payloadLen + 10;
            int32_t bCode = -1, bLen = -1;
            FUZZ_CHECK(util.ParseMessage(frame.data(), frameLen, out.data(), out.size(), &bCode,
                                         &bLen) == 0,
                       "");
            FUZZ_CHECK(bCode == builtCode && bLen == static_cast<int32_t>(payloadLen), "");
            FUZZ_CHECK(std::memcmp(out.data(), payload, payloadLen) == 0, "payload changed");
            FUZZ_CHECK(util.IsCompleteMessage(frame.data(), static_cast<long>(frameLen)), "");
        }
    }

    // The text helpers run on the same text in place.
    std::vector<char> trim(text);
    trim.resize(std::max<size_t>(trim.size(), 2), '\0');
    MessageUtil::TrimOrZero(trim.data());
    MessageUtil::MacHash(t);
    return 0;
}
