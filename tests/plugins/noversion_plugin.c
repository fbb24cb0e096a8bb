/* TEST DOUBLE, not a cipher: a plugin that lacks zanth_get_version, so that the library's
 * handling of a missing entry point can be seen. The other four entry points work, with a
 * plain XOR against the key that protects nothing. */

#include <stdint.h>

#if defined(_WIN32)
#define TEST_PLUGIN_API __declspec(dllexport)
#else
#define TEST_PLUGIN_API __attribute__((visibility("default")))
#endif

static int32_t Xor(const unsigned char* in, int32_t inLen, unsigned char* out, int32_t outSize,
                   int32_t* outLen, const unsigned char* key) {
    if (!in || !out || !outLen || !key || inLen < 0 || outSize < inLen) return -1;
    for (int32_t i = 0; i < inLen; ++i) out[i] = (unsigned char)(in[i] ^ key[i % 32]);
    *outLen = inLen;
    return 0;
}

TEST_PLUGIN_API int32_t zanth_encrypt(const unsigned char* in, int32_t inLen, unsigned char* out,
                                      int32_t outSize, int32_t* outLen, const unsigned char* key) {
    return Xor(in, inLen, out, outSize, outLen, key);
}

TEST_PLUGIN_API int32_t zanth_decrypt(const unsigned char* in, int32_t inLen, unsigned char* out,
                                      int32_t outSize, int32_t* outLen, const unsigned char* key) {
    return Xor(in, inLen, out, outSize, outLen, key);
}

TEST_PLUGIN_API int32_t zanth_get_encrypted_buffer_size(void) {
    return 4117;
}

TEST_PLUGIN_API int32_t zanth_generate_key(const char* text1, const char* text2, unsigned char* key,
                                           int32_t keySize) {
    if (!text1 || !text2 || !key || keySize != 32) return -1;
    for (int32_t i = 0; i < keySize; ++i) key[i] = 0;
    for (int32_t i = 0; text1[i]; ++i) key[i % 32] ^= (unsigned char)text1[i];
    for (int32_t i = 0; text2[i]; ++i) key[(i + 7) % 32] ^= (unsigned char)text2[i];
    return 0;
}
