// A plugin that lacks zanth_get_version: the version export fails with -10022, the plugin is
// unloaded at once, and the next call loads it afresh and fails on the look-up again.

#include <gtest/gtest.h>

#include <string>

#include "security/Crypto.h"
#include "support/Library.h"
#include "zanth.h"

#if defined(_WIN32)
#include <windows.h>
#endif

namespace zanth::test {
namespace {

constexpr const char* kLookupFailure =
    "[Crypto::GetVersion] Error getting zanth_get_version function";

// Whether the plugin of this suite is mapped into the process.
bool PluginMapped() {
#if defined(_WIN32)
    return ::GetModuleHandleA(kEncryptionLibrary) != nullptr;
#else
    return ReadWholeFile("/proc/self/maps").find("plugin-noversion/libzanth_encryption64.so") !=
           std::string::npos;
#endif
}

class MissingEntryPointTest : public LibraryTest {};

TEST_F(MissingEntryPointTest, VersionExportFailsAndTheNextCallLoadsAfresh) {
    char version[64] = {};
    EXPECT_EQ(GetEncryptionDLLVersion(version, sizeof version), -10022);
    EXPECT_EQ(LogCount(kLookupFailure), 1);
    EXPECT_FALSE(PluginMapped()) << "a failed look-up unloads the plugin";
    EXPECT_EQ(GetEncryptionDLLVersion(version, sizeof version), -10022);
    // A look-up failure again, never a load failure: the plugin was loaded anew.
    EXPECT_EQ(LogCount(kLookupFailure), 2);
    EXPECT_FALSE(LogContains("Error loading"));
}

TEST_F(MissingEntryPointTest, OnlyTheMissingEntryPointFails) {
    Crypto crypto;
    int32_t size = 0;
    ASSERT_EQ(crypto.GetEncryptedBufferSize(&size), 0);
    EXPECT_GT(size, 0);
    EXPECT_TRUE(PluginMapped()) << "a loaded plugin stays loaded between calls";
    char version[64] = {};
    EXPECT_EQ(crypto.GetVersion(version, sizeof version), -10022);
    EXPECT_FALSE(PluginMapped());
    unsigned char key[32];
    EXPECT_EQ(crypto.GenerateKey("identify", "seed", key, sizeof key), 0)
        << "the next call starts again from the load";
    EXPECT_TRUE(PluginMapped());
    EXPECT_EQ(LogCount(kLookupFailure), 1);
    EXPECT_FALSE(LogContains("Error loading"));
}

}  // namespace
}  // namespace zanth::test
