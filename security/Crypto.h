#pragma once
// The thin layer over the cipher plugin: loads it by name on first use, looks each entry point
// up on every call, and turns a missing library or entry point into -10022.

#include <cstdint>

#include "platform/Library.h"
#include "protocol/Cipher.h"
#include "protocol/CommandRecord.h"

namespace zanth {

// The name the plugin is loaded by, and the name that the load failure text prints.
constexpr const char* kEncryptionLibrary = platform::kCipherLibraryFile;
constexpr const char* kEncryptionLibraryLogName = platform::kCipherLibraryLogName;

class Crypto final : public Cipher {
  public:
    Crypto();
    ~Crypto();
    Crypto(const Crypto&) = delete;
    Crypto& operator=(const Crypto&) = delete;

    int32_t Encrypt(const unsigned char* in, int32_t inLen, unsigned char* out, int32_t outSize,
                    int32_t* outLen, const unsigned char* key) override;
    int32_t Decrypt(const unsigned char* in, int32_t inLen, unsigned char* out, int32_t outSize,
                    int32_t* outLen, const unsigned char* key) override;
    // 0 with the size stored, or -10022; the entry point's return value is the size itself.
    int32_t GetEncryptedBufferSize(int32_t* size) override;
    int32_t GenerateKey(const char* text1, const char* text2, unsigned char* key,
                        int32_t keySize) override;
    int32_t GetVersion(char* buffer, int32_t size);

  private:
    // Loads the library if needed and finds `entry`; null (logged, -10022 in result_) on failure.
    void* Resolve(const char* method, const char* entry);

    void* module_ = nullptr;
    char name_[16];
    int32_t result_ = 0;
    char logText_[kLogTextSize];
    char logText2_[kLogTextSize];
};

}  // namespace zanth
