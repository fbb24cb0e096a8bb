#pragma once
// What the framing of an encrypted link needs of a cipher: the body of an encrypted frame each
// way, the link key, and the room an encrypted frame may take. The library's one cipher is the
// call layer of the cipher plugin (security/Crypto); the framing knows it only through this.

#include <cstdint>

namespace zanth {

class Cipher {
  public:
    // Each gives 0 (the key: the plugin's own non-negative result) or a negative failure.
    virtual int32_t Encrypt(const unsigned char* in, int32_t inLen, unsigned char* out,
                            int32_t outSize, int32_t* outLen, const unsigned char* key) = 0;
    virtual int32_t Decrypt(const unsigned char* in, int32_t inLen, unsigned char* out,
                            int32_t outSize, int32_t* outLen, const unsigned char* key) = 0;
    virtual int32_t GetEncryptedBufferSize(int32_t* size) = 0;
    virtual int32_t GenerateKey(const char* text1, const char* text2, unsigned char* key,
                                int32_t keySize) = 0;

  protected:
    ~Cipher() = default;
};

}  // namespace zanth
