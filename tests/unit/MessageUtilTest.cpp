// Framing, parsing and the code table as the wire sees them.

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "protocol/Cipher.h"
#include "protocol/MessageUtil.h"
#include "protocol/Text.h"

namespace zanth {
namespace {

// A cipher that reverses the bytes, and derives a key of the text's first bytes.
class ReversingCipher : public Cipher {
  public:
    int32_t Encrypt(const unsigned char* in, int32_t inLen, unsigned char* out, int32_t outSize,
                    int32_t* outLen, const unsigned char*) override {
        if (inLen > outSize) return -1;
        for (int32_t i = 0; i < inLen; ++i) out[i] = in[inLen - 1 - i];
        *outLen = inLen;
        ++calls;
        return 0;
    }
    int32_t Decrypt(const unsigned char* in, int32_t inLen, unsigned char* out, int32_t outSize,
                    int32_t* outLen, const unsigned char* key) override {
        return Encrypt(in, inLen, out, outSize, outLen, key);
    }
    int32_t GetEncryptedBufferSize(int32_t* size) override {
        *size = 4200;
        return 0;
    }
    int32_t GenerateKey(const char* text1, const char*, unsigned char* key,
                        int32_t keySize) override {
        std::memcpy(key, text1, static_cast<size_t>(keySize));
        return 0;
    }
    int calls = 0;
};

TEST(MessageCipher, EncryptedFramesCarryTheCiphersBytesUnderALengthHeader) {
    ReversingCipher cipher;
    MessageUtil util(&cipher);
    unsigned char key[4] = {};
    ASSERT_EQ(util.GenerateKey("abcdefgh", "seed", key, sizeof key), 0);
    EXPECT_EQ(std::memcmp(key, "abcd", 4), 0);
    int32_t room = 0;
    ASSERT_EQ(util.GetBufferSize(&room), 0);
    EXPECT_EQ(room, 4200);

    char frame[64];
    int32_t cipherLen = 0;
    ASSERT_EQ(util.EncryptMessage("0079;0010;", 10, frame, sizeof frame, &cipherLen, key), 0);
    EXPECT_EQ(cipherLen, 10);
    EXPECT_EQ(std::string(frame, 15), "0015;;0100;9700");
    char plain[64];
    int32_t plainLen = 0;
    ASSERT_EQ(util.DecryptMessage(frame, 15, plain, sizeof plain, &plainLen, key), 0);
    EXPECT_EQ(plainLen, 10);
    EXPECT_STREQ(plain, "0079;0010;");
    EXPECT_EQ(cipher.calls, 2);
}

TEST(MessageCipher, WithoutACipherEncryptedFramesAndKeysAreRefused) {
    MessageUtil util;
    unsigned char key[32];
    std::memset(key, 0x5A, sizeof key);
    EXPECT_EQ(util.GenerateKey("abc", "seed", key, sizeof key), -10022);
    EXPECT_EQ(key[0], 0) << "the key is cleared first";
    int32_t room = 0;
    EXPECT_EQ(util.GetBufferSize(&room), -10022);
    char frame[64];
    int32_t length = -7;
    EXPECT_EQ(util.EncryptMessage("0079;0010;", 10, frame, sizeof frame, &length, key), -10022);
    EXPECT_EQ(util.DecryptMessage("0015;;0100;9700", 15, frame, sizeof frame, &length, key),
              -10022);
    EXPECT_EQ(length, -7);
    // The framing's own length rules still answer first.
    EXPECT_EQ(util.DecryptMessage("0012", 4, frame, sizeof frame, &length, key), -10023);
}

TEST(MessageFraming, BuildsHeaderAndPayload) {
    MessageUtil util;
    char out[kMessageBufferSize + 1] = {};
    ASSERT_EQ(util.BuildMessage(79, "", 0, out, kMessageBufferSize), 0);
    EXPECT_STREQ(out, "0079;0010;");
    ASSERT_EQ(util.BuildMessage(9, "32;", 3, out, kMessageBufferSize), 0);
    EXPECT_STREQ(out, "0009;0013;32;");
}

TEST(MessageFraming, LargestPayloadFitsAndOneMoreIsRefused) {
    MessageUtil util;
    std::string payload(4087, 'x');
    char out[kMessageBufferSize + 1] = {};
    ASSERT_EQ(util.BuildMessage(75, payload.data(), payload.size(), out, kMessageBufferSize), 0);
    EXPECT_EQ(std::string(out, 10), "0075;4097;");
    payload.push_back('x');
    EXPECT_EQ(util.BuildMessage(75, payload.data(), payload.size(), out, kMessageBufferSize),
              -10006);
    EXPECT_EQ(out[0], '\0') << "the output is cleared even when refused";
}

TEST(MessageParsing, ResultsForGoodAndBadHeaders) {
    MessageUtil util;
    char data[kMessageBufferSize] = {};
    int32_t code = -1, len = -1;
    EXPECT_EQ(util.ParseMessage("0079;0010;", 10, data, sizeof data, &code, &len), 0);
    EXPECT_EQ(code, 79);
    EXPECT_EQ(len, 0);
    EXPECT_EQ(util.ParseMessage("1079;0015;abcde", 15, data, sizeof data, &code, &len), 0);
    EXPECT_EQ(code, 1079);
    EXPECT_EQ(len, 5);
    EXPECT_STREQ(data, "abcde");
    EXPECT_EQ(util.ParseMessage("007A;0010;", 10, data, sizeof data, &code, &len), -10024);
    EXPECT_EQ(util.ParseMessage("0079;0009;", 10, data, sizeof data, &code, &len), -10026);
    EXPECT_EQ(util.ParseMessage("0079;001", 9, data, sizeof data, &code, &len), -10023);
    EXPECT_EQ(util.ParseMessage(";;;;;;;;;;", 10, data, sizeof data, &code, &len), -10024);
    // A non-digit length reads as 0, hence below the header's own size.
    EXPECT_EQ(util.ParseMessage("0079;00x0;", 10, data, sizeof data, &code, &len), -10026);
}

TEST(MessageParsing, NeverCopiesMoreThanTheTextOrTheDestinationHolds) {
    MessageUtil util;
    char data[8];
    std::memset(data, 'Z', sizeof data);
    int32_t code = 0, len = 0;
    // The header claims 100 bytes of payload; the text holds 12 and the destination 8.
    const char* text = "1079;0110;abcdefghijkl";
    EXPECT_EQ(util.ParseMessage(text, std::strlen(text), data, sizeof data, &code, &len), 0);
    EXPECT_EQ(len, 100);
    EXPECT_STREQ(data, "abcdefg");
}

TEST(MessageParsing, CompletenessNeedsTheExactLength) {
    MessageUtil util;
    EXPECT_TRUE(util.IsCompleteMessage("0079;0010;", -1));
    EXPECT_TRUE(util.IsCompleteMessage("1079;0012;ab", -1));
    EXPECT_FALSE(util.IsCompleteMessage("1079;0012;a", -1));
    EXPECT_FALSE(util.IsCompleteMessage("1079;0012;abc", -1));
    EXPECT_FALSE(util.IsCompleteMessage("", -1));
    EXPECT_FALSE(util.IsCompleteMessage("0079;", -1));
}

TEST(CodeTable, NamesAndClasses) {
    MessageUtil util;
    EXPECT_STREQ(util.CodeName(79), "ZANTH_CONTROLLER_INFO");
    EXPECT_STREQ(util.CodeName(1009), "ZANTH_REBOOT_INTERFACE_RSP  deprecated");
    EXPECT_STREQ(util.CodeName(1116), "CONTACT_ID_RESPONSE_RSP");
    EXPECT_STREQ(util.CodeName(1234), "TOTALLY UNKNOWN CODE (1234)");
    EXPECT_STREQ(util.CodeName(125), "TOTALLY UNKNOWN CODE (125)");
    EXPECT_STREQ(util.CodeNameOf("9990;0010;"), "ZANTH_TERMINATE");
    EXPECT_FALSE(util.IsResponseCode(1234));
    EXPECT_FALSE(util.IsResponseCode(34)) << "below 1000, though its name holds _RSP";
    EXPECT_TRUE(util.IsResponseCode(1116));
    EXPECT_FALSE(util.IsResponseCode(1033));
    EXPECT_TRUE(util.IsResponseCode(1079));
    for (int code : {9910, 9920, 9980, 9990}) EXPECT_TRUE(util.IsResponseCode(code)) << code;
    EXPECT_FALSE(MessageUtil::IsPunchThroughCode(30));
    EXPECT_TRUE(MessageUtil::IsPunchThroughCode(67));
    int punch = 0;
    for (int code = 0; code < 10000; ++code) punch += MessageUtil::IsPunchThroughCode(code) ? 1 : 0;
    EXPECT_EQ(punch, 55);
}

TEST(CodeTable, CodeOfReadsFourCharacters) {
    EXPECT_EQ(MessageUtil::CodeOf("1079;0010;"), 1079);
    EXPECT_EQ(MessageUtil::CodeOf("00451234"), 45);
    EXPECT_EQ(MessageUtil::CodeOf("12"), 12);
}

TEST(MacHash, SeparatorsAndCaseDontMatter) {
    EXPECT_EQ(MessageUtil::MacHash("02:5a:37:12:34:56"), 0x37123456u);
    EXPECT_EQ(MessageUtil::MacHash("025A37123456"), 0x37123456u);
    EXPECT_EQ(MessageUtil::MacHash("AA:BB:CC"), 0xAABBCCu);
    EXPECT_EQ(MessageUtil::MacHash("aa-bb-cc"), 0xAABBCCu);
    EXPECT_EQ(MessageUtil::MacHash("0001"), 1u);
    EXPECT_EQ(MessageUtil::MacHash("zzz"), 0u);
    EXPECT_EQ(MessageUtil::MacHash(""), 0u);
}

TEST(TextHelpers, TrimAndZero) {
    char a[16] = "   ";
    EXPECT_STREQ(MessageUtil::TrimOrZero(a), "0");
    char b[16] = "  ab c  ";
    EXPECT_STREQ(MessageUtil::TrimSpaces(b), "ab c");
    char c[16] = "\tab ";
    EXPECT_STREQ(MessageUtil::TrimSpaces(c), "\tab") << "only the blank counts";
    char d[4];
    CopyBounded(d, "abcdef", sizeof d);
    EXPECT_STREQ(d, "abc");
}

TEST(SocketErrorText, ReadsAsListed) {
    char text[128];
    MessageUtil::SocketErrorText(10061, text, sizeof text);
    EXPECT_STREQ(text, "Winsock 10061: Connection refused");
    MessageUtil::SocketErrorText(10054, text, sizeof text);
    EXPECT_STREQ(text, "Winsock 10054: Connection reset by peer");
    MessageUtil::SocketErrorText(10109, text, sizeof text);
    EXPECT_STREQ(text, "Winsock 10109: Class type not found");
    MessageUtil::SocketErrorText(4242, text, sizeof text);
    EXPECT_STREQ(text, "Winsock 4242: Unknown error code");
    char small[12];
    MessageUtil::SocketErrorText(10061, small, sizeof small);
    EXPECT_STREQ(small, "Winsock 100");
}

TEST(EncryptedFrame, LengthRules) {
    EXPECT_EQ(MessageUtil::ParseEncryptedLength("0012;", 4), -10023);
    EXPECT_EQ(MessageUtil::ParseEncryptedLength("0012;abcdefg", 12), 7);
    EXPECT_EQ(MessageUtil::ParseEncryptedLength("0003;", 5), -2);
    EXPECT_EQ(MessageUtil::ParseEncryptedLength("ab12;", 5), -5);
    EXPECT_TRUE(MessageUtil::IsCompleteEncrypted("0012;abcdefg", 12));
    EXPECT_FALSE(MessageUtil::IsCompleteEncrypted("0012;abcdef", 11));
}

}  // namespace
}  // namespace zanth
