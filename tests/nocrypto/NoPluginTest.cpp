// Without the cipher plugin on the library search path: every operation of the encryption layer
// fails with -10022 and its log text, an encrypted identification is abandoned, and clear links
// do not need the plugin at all.

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <string>

#include "protocol/MessageUtil.h"
#include "security/Crypto.h"
#include "support/FakeController.h"
#include "support/Library.h"
#include "zanth.h"

namespace zanth::test {
namespace {

std::string LoadFailure(const char* method) {
    return std::string("[Crypto::") + method + "] Error loading " + kEncryptionLibraryLogName +
           " library";
}

bool NoneConnected() {
    char list[64];
    return GetConnectedControllers(list, sizeof list) == 0 && list[0] == '\0';
}

class NoPluginTest : public LibraryTest {};

TEST_F(NoPluginTest, EveryOperationFailsWithItsOwnLoadText) {
    Crypto crypto;
    std::array<unsigned char, 32> key{};
    unsigned char in[16] = {}, out[128] = {};
    int32_t outLen = -77;
    EXPECT_EQ(crypto.Encrypt(in, 10, out, sizeof out, &outLen, key.data()), -10022);
    EXPECT_EQ(crypto.Decrypt(in, 10, out, sizeof out, &outLen, key.data()), -10022);
    EXPECT_EQ(outLen, -77);
    int32_t size = -77;
    EXPECT_EQ(crypto.GetEncryptedBufferSize(&size), -10022);
    EXPECT_EQ(size, -77);
    EXPECT_EQ(crypto.GenerateKey("identify", "seed", key.data(), 32), -10022);
    char version[32] = {};
    EXPECT_EQ(crypto.GetVersion(version, sizeof version), -10022);
    for (const char* method :
         {"Encrypt", "Decrypt", "GetEncryptedBufferSize", "GenerateKey", "GetVersion"}) {
        EXPECT_EQ(LogCount(LoadFailure(method)), 1) << method;
    }
    EXPECT_FALSE(LogContains("Error getting")) << "nothing was loaded, so nothing was looked up";
    // No load is remembered as failed: each call tries again.
    EXPECT_EQ(crypto.GetVersion(version, sizeof version), -10022);
    EXPECT_EQ(LogCount(LoadFailure("GetVersion")), 2);
}

TEST_F(NoPluginTest, FramingLayerReportsTheMissingPlugin) {
    Crypto crypto;
    MessageUtil util(&crypto);
    std::array<unsigned char, 32> key;
    key.fill(0xAA);
    EXPECT_EQ(util.GenerateKey("0043;0029;02:5A:37:AA:BB:CC;", "seed", key.data(), 32), -10022);
    for (unsigned char b : key) ASSERT_EQ(b, 0) << "the key buffer is cleared before the call";
    int32_t size = 0;
    EXPECT_EQ(util.GetBufferSize(&size), -10022);

    const std::string plain = Frame(79);
    char out[256];
    std::memset(out, '#', sizeof out);
    int32_t cipherLength = -77;
    EXPECT_EQ(util.EncryptMessage(plain.data(), static_cast<int32_t>(plain.size()), out, sizeof out,
                                  &cipherLength, key.data()),
              -10022);
    EXPECT_EQ(cipherLength, -77);
    EXPECT_EQ(out[0], '\0') << "the output is cleared first";

    char clear[64];
    int32_t clearLength = -77;
    EXPECT_EQ(
        util.DecryptMessage("0012;abcdefg", 12, clear, sizeof clear, &clearLength, key.data()),
        -10022);
    EXPECT_EQ(clearLength, -77);
}

TEST_F(NoPluginTest, LengthRulesAnswerBeforeThePluginIsNeeded) {
    Crypto crypto;
    MessageUtil util(&crypto);
    std::array<unsigned char, 32> key{};
    char clear[64];
    int32_t clearLength = -77;
    // Shorter than the 5-byte header, and a length below the header's own size.
    EXPECT_EQ(util.DecryptMessage("0012", 4, clear, sizeof clear, &clearLength, key.data()),
              -10023);
    EXPECT_EQ(util.DecryptMessage("0003;xyz", 8, clear, sizeof clear, &clearLength, key.data()),
              -2);
    EXPECT_EQ(util.DecryptMessage("abcd;xyz", 8, clear, sizeof clear, &clearLength, key.data()),
              -5);
    EXPECT_EQ(clearLength, -77);
    EXPECT_FALSE(LogContains("[Crypto::Decrypt]")) << "the plugin was asked for";
}

TEST_F(NoPluginTest, EncryptedIdentificationIsAbandoned) {
    Start("ALL");
    FakeController controller;
    ASSERT_TRUE(controller.Connect(port_));
    ASSERT_TRUE(controller.SendFrame(1043, "02:5A:37:AA:BB:CC;4.2;"));
    EXPECT_TRUE(controller.WaitClosed()) << "the link stayed open without a key";
    EXPECT_TRUE(LogContains("[Worker::Run] Error generating key"));
    EXPECT_TRUE(LogContains(LoadFailure("GenerateKey")));
    EXPECT_TRUE(NoneConnected());
    EXPECT_FALSE(LogContains("[Worker::Run] Initialization completed"));
}

TEST_F(NoPluginTest, ClearLinksDoNotNeedThePlugin) {
    Start("ALL");
    FakeController controller;
    ASSERT_TRUE(controller.Connect(port_));
    ASSERT_TRUE(controller.Identify("AA:BB:CC"));
    EXPECT_FALSE(LogContains("[Crypto::"));
}

TEST_F(NoPluginTest, VersionExportReportsTheMissingPlugin) {
    char version[64] = {};
    EXPECT_EQ(GetEncryptionDLLVersion(version, sizeof version), -10022);
    EXPECT_TRUE(LogContains(LoadFailure("GetVersion")));
    EXPECT_STREQ(version, "");
}

}  // namespace
}  // namespace zanth::test
