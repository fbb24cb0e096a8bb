#include "protocol/MessageUtil.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <iterator>

#include "platform/Socket.h"
#include "protocol/Codes.h"
#include "protocol/Result.h"
#include "protocol/Text.h"

namespace zanth {
namespace {

const char* FindName(int32_t code) {
    const CodeRow* begin = kCodeTable;
    const CodeRow* end = kCodeTable + kCodeTableSize;
    const CodeRow* row =
        std::lower_bound(begin, end, code, [](const CodeRow& r, int32_t c) { return r.code < c; });
    return (row != end && row->code == code) ? row->name : nullptr;
}

// The two fields of a clear header, tokenised from a copy of its first ten bytes.
struct HeaderFields {
    char scratch[kClearHeaderSize + 1];
    char* first = nullptr;
    char* second = nullptr;

    explicit HeaderFields(const char* text) {
        std::memcpy(scratch, text, kClearHeaderSize);
        scratch[kClearHeaderSize] = '\0';
        char* state = nullptr;
        first = Tokenize(scratch, ";", &state);
        if (first) second = Tokenize(nullptr, ";", &state);
    }
};

constexpr int32_t kPunchThrough[] = {
    5,  6,  7,  14, 15, 18, 19,  22,  23,  24,  25,  26,  45,  46,  54,  55,  56, 57, 67,
    69, 70, 71, 73, 75, 76, 77,  78,  79,  80,  81,  82,  83,  84,  87,  88,  89, 92, 93,
    94, 95, 96, 97, 98, 99, 100, 101, 102, 103, 104, 105, 107, 108, 109, 150, 151};
static_assert(sizeof kPunchThrough / sizeof kPunchThrough[0] == 55, "55 punch-through codes");

}  // namespace

MessageUtil::MessageUtil(Cipher* cipher) : cipher_(cipher) {
    unknownName_[0] = '\0';
    parsedName_[0] = '\0';
}

int32_t MessageUtil::BuildMessage(int32_t code, const char* payload, size_t payloadLen, char* out,
                                  size_t outSize) {
    std::memset(out, 0, outSize);
    if (outSize < kClearHeaderSize || payloadLen > outSize - kClearHeaderSize) return kTooLarge;
    char header[kClearHeaderSize + 12];
    FormatText(header, sizeof header, "%04d;%04d;", code,
               static_cast<int>(payloadLen + kClearHeaderSize));
    std::memcpy(out, header, kClearHeaderSize);
    if (payloadLen > 0) std::memcpy(out + kClearHeaderSize, payload, payloadLen);
    return 0;
}

int32_t MessageUtil::ParseMessage(const char* text, size_t textLen, char* dataOut, size_t dataSize,
                                  int32_t* code, int32_t* dataLen) {
    if (dataOut && dataSize > 0) std::memset(dataOut, 0, dataSize);
    *code = 0;
    if (textLen < kClearHeaderSize) return kShortFrame;
    HeaderFields header(text);
    if (header.first == nullptr) return kBadHeader;
    size_t digits = std::min<size_t>(std::strlen(header.first), 5);
    for (size_t i = 0; i < digits; ++i) {
        if (!std::isdigit(static_cast<unsigned char>(header.first[i]))) return kBadHeader;
    }
    char codeText[6] = {};
    std::memcpy(codeText, header.first, digits);
    *code = DecimalValue(codeText);
    if (header.second == nullptr) return kBadHeader;
    // The length field is not tested for digits: a non-digit reads as 0 and so as -10026.
    int32_t length = DecimalValue(header.second) - kClearHeaderSize;
    *dataLen = length;
    if (length < 0) return kBadLength;
    // Copy only what the text really holds and what the destination can take with its terminator.
    size_t copy = std::min<size_t>(static_cast<size_t>(length), textLen - kClearHeaderSize);
    if (dataOut && dataSize > 0) {
        copy = std::min(copy, dataSize - 1);
        std::memcpy(dataOut, text + kClearHeaderSize, copy);
    }
    CopyBounded(parsedName_, CodeName(*code), sizeof parsedName_);
    return 0;
}

bool MessageUtil::IsCompleteMessage(const char* text, long textLen) {
    if (text == nullptr) return false;
    if (textLen < 0) textLen = static_cast<long>(std::strlen(text));
    if (textLen < kClearHeaderSize) return false;
    HeaderFields header(text);
    if (header.first == nullptr || header.second == nullptr) return false;
    return textLen == DecimalValue(header.second);
}

size_t MessageUtil::FrameLength(const char* text, size_t limit) {
    const size_t measured = ::strnlen(text, limit);
    if (measured < kClearHeaderSize || text[4] != ';' || text[9] != ';') return measured;
    size_t total = 0;
    for (int i = 5; i < 9; ++i) {
        if (!std::isdigit(static_cast<unsigned char>(text[i]))) return measured;
        total = total * 10 + static_cast<size_t>(text[i] - '0');
    }
    return total >= kClearHeaderSize && total <= limit ? total : measured;
}

int32_t MessageUtil::CodeOf(const char* text) {
    char four[5] = {};
    std::memcpy(four, text, ::strnlen(text, 4));
    return DecimalValue(four);
}

const char* MessageUtil::CodeName(int32_t code) {
    const char* name = FindName(code);
    if (name) return name;
    FormatText(unknownName_, sizeof unknownName_, "TOTALLY UNKNOWN CODE (%d)", code);
    return unknownName_;
}

bool MessageUtil::IsResponseCode(int32_t code) {
    if (code < 1000) return false;
    if (code == ZANTH_UNKNOWN_COMMAND || code == ZANTH_UNABLE_TO_PROCESS_COMMAND ||
        code == ZANTH_FILE_TRANSFER_ERROR || code == ZANTH_TERMINATE)
        return true;
    // The test is a search in the code's name: the names are part of the protocol's logic.
    const char* name = FindName(code);
    return name != nullptr && std::strstr(name, "_RSP") != nullptr;
}

bool MessageUtil::IsPunchThroughCode(int32_t code) {
    return std::find(std::begin(kPunchThrough), std::end(kPunchThrough), code) !=
           std::end(kPunchThrough);
}

uint32_t MessageUtil::MacHash(const char* mac) {
    char digits[20] = {};
    size_t n = 0;
    for (const char* p = mac; p && *p && n < sizeof digits - 1; ++p) {
        if (std::isxdigit(static_cast<unsigned char>(*p))) digits[n++] = *p;
    }
    if (n == 0) digits[n++] = '0';
    // Digits beyond the eighth push the leading ones out.
    uint32_t key = 0;
    for (size_t i = 0; i < n; ++i) {
        char c = static_cast<char>(std::tolower(static_cast<unsigned char>(digits[i])));
        key = (key << 4) | static_cast<uint32_t>(c <= '9' ? c - '0' : c - 'a' + 10);
    }
    return key;
}

void MessageUtil::SocketErrorText(int error, char* out, size_t outSize) {
    const char* name = platform::WinsockErrorName(error);
    FormatText(out, outSize, "Winsock %d: %s", error, name ? name : "Unknown error code");
}

char* MessageUtil::TrimSpaces(char* text) {
    size_t lead = 0;
    while (text[lead] == ' ') ++lead;
    if (lead > 0 && text[lead] != '\0')
        std::memmove(text, text + lead, std::strlen(text + lead) + 1);
    size_t n = std::strlen(text);
    while (n > 0 && text[n - 1] == ' ') text[--n] = '\0';
    return text;
}

char* MessageUtil::TrimOrZero(char* text) {
    TrimSpaces(text);
    if (text[0] == '\0') {
        text[0] = '0';
        text[1] = '\0';
    }
    return text;
}

int32_t MessageUtil::ParseEncryptedLength(const char* text, long textLen) {
    if (textLen < kEncryptedHeaderSize) return kShortFrame;
    return CodeOf(text) - kEncryptedHeaderSize;
}

bool MessageUtil::IsCompleteEncrypted(const char* text, long textLen) {
    int32_t length = ParseEncryptedLength(text, textLen);
    if (length < 0) return false;
    return textLen == length + kEncryptedHeaderSize;
}

int32_t MessageUtil::EncryptMessage(const char* plain, int32_t plainLen, char* out, int32_t outSize,
                                    int32_t* outLen, const unsigned char* key) {
    if (outSize > 0) std::memset(out, 0, static_cast<size_t>(outSize));
    if (outSize <= kEncryptedHeaderSize) return kTooLarge;
    if (cipher_ == nullptr) return kCipherFailed;
    int32_t cipherLen = 0;
    int32_t rc = cipher_->Encrypt(reinterpret_cast<const unsigned char*>(plain), plainLen,
                                  reinterpret_cast<unsigned char*>(out + kEncryptedHeaderSize),
                                  outSize - kEncryptedHeaderSize, &cipherLen, key);
    if (rc < 0) return kCipherFailed;
    // The length field has four digits, and the cipher text must lie inside the buffer.
    if (cipherLen < 0 || cipherLen > outSize - kEncryptedHeaderSize ||
        cipherLen + kEncryptedHeaderSize > 9999)
        return kCipherFailed;
    *outLen = cipherLen;
    char header[16];
    FormatText(header, sizeof header, "%04d;", cipherLen + kEncryptedHeaderSize);
    std::memcpy(out, header, kEncryptedHeaderSize);
    return 0;
}

int32_t MessageUtil::DecryptMessage(const char* frame, int32_t frameLen, char* plainOut,
                                    int32_t plainSize, int32_t* plainLen,
                                    const unsigned char* key) {
    if (plainSize > 0) std::memset(plainOut, 0, static_cast<size_t>(plainSize));
    int32_t cipherLen = ParseEncryptedLength(frame, frameLen);
    if (cipherLen < 0) return cipherLen;
    if (cipherLen > frameLen - kEncryptedHeaderSize || plainSize < 1) return kCipherFailed;
    if (cipher_ == nullptr) return kCipherFailed;
    int32_t length = 0;
    // One byte of the room stays for the terminator.
    int32_t rc = cipher_->Decrypt(
        reinterpret_cast<const unsigned char*>(frame + kEncryptedHeaderSize), cipherLen,
        reinterpret_cast<unsigned char*>(plainOut), plainSize - 1, &length, key);
    if (rc < 0 || length < 0 || length > plainSize - 1) return kCipherFailed;
    plainOut[length] = '\0';
    *plainLen = length;
    return 0;
}

int32_t MessageUtil::GenerateKey(const char* identifyMessage, const char* seed,
                                 unsigned char* keyOut, int32_t keySize) {
    std::memset(keyOut, 0, static_cast<size_t>(keySize));
    if (cipher_ == nullptr) return kCipherFailed;
    return cipher_->GenerateKey(identifyMessage, seed, keyOut, keySize);
}

int32_t MessageUtil::GetBufferSize(int32_t* size) {
    if (cipher_ == nullptr) return kCipherFailed;
    return cipher_->GetEncryptedBufferSize(size);
}

}  // namespace zanth
