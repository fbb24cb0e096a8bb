/* TEST DOUBLE, not a cipher: the five entry points of the cipher plugin without libsodium, for
 * the Windows tests (zanth_encryption64.dll). It keeps the reference plugin's shape, so the
 * library and a test peer can run an encrypted link through it: a 24-byte nonce, the message
 * XORed with a key stream, a 16-byte tag that fails for any other key or any changed byte, and
 * the same results. The mixing protects nothing and must never carry real traffic. */

#include <stdint.h>
#include <string.h>

#if defined(_WIN32)
#define TEST_PLUGIN_API __declspec(dllexport)
#else
#define TEST_PLUGIN_API __attribute__((visibility("default")))
#endif

#define KEY_BYTES 32
#define NONCE_BYTES 24
#define TAG_BYTES 16
#define OVERHEAD (NONCE_BYTES + TAG_BYTES)
#define BUFFER_SIZE 4200
#define BAD_ARGUMENT (-1)
#define NO_ROOM (-2)
#define FORGED (-3)

static uint64_t Mix(uint64_t x) {
    x += 0x9E3779B97F4A7C15ull;
    x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9ull;
    x = (x ^ (x >> 27)) * 0x94D049BB133111EBull;
    return x ^ (x >> 31);
}

static uint64_t Absorb(uint64_t state, const unsigned char* bytes, size_t n) {
    for (size_t i = 0; i < n; ++i) state = Mix(state ^ bytes[i] ^ ((uint64_t)i << 8));
    return state;
}

static uint64_t Start(const unsigned char* key, const unsigned char* nonce, uint64_t label) {
    return Absorb(Absorb(Mix(label), key, KEY_BYTES), nonce, NONCE_BYTES);
}

static void Stream(const unsigned char* key, const unsigned char* nonce, const unsigned char* in,
                   unsigned char* out, int32_t n) {
    uint64_t state = Start(key, nonce, 1);
    for (int32_t i = 0; i < n; ++i) out[i] = (unsigned char)(in[i] ^ Mix(state + (uint64_t)i));
}

static void Tag(const unsigned char* key, const unsigned char* nonce, const unsigned char* cipher,
                int32_t n, unsigned char* tag) {
    uint64_t a = Absorb(Start(key, nonce, 2), cipher, (size_t)n);
    uint64_t b = Mix(a ^ (uint64_t)n);
    for (int i = 0; i < 8; ++i) {
        tag[i] = (unsigned char)(a >> (8 * i));
        tag[8 + i] = (unsigned char)(b >> (8 * i));
    }
}

TEST_PLUGIN_API int32_t zanth_encrypt(const unsigned char* in, int32_t inLen, unsigned char* out,
                                      int32_t outSize, int32_t* outLen, const unsigned char* key) {
    static uint64_t counter;
    if (!in || !out || !outLen || !key || inLen < 0 || outSize < 0) return BAD_ARGUMENT;
    if (inLen > INT32_MAX - OVERHEAD) return BAD_ARGUMENT;
    if (outSize < inLen + OVERHEAD) return NO_ROOM;
    /* A nonce that differs per message (the counter's races only repeat a nonce). */
    uint64_t n = Mix(++counter ^ (uint64_t)(uintptr_t)out);
    for (int i = 0; i < NONCE_BYTES; ++i) out[i] = (unsigned char)Mix(n + (uint64_t)i);
    Stream(key, out, in, out + NONCE_BYTES, inLen);
    Tag(key, out, out + NONCE_BYTES, inLen, out + NONCE_BYTES + inLen);
    *outLen = inLen + OVERHEAD;
    return 0;
}

TEST_PLUGIN_API int32_t zanth_decrypt(const unsigned char* in, int32_t inLen, unsigned char* out,
                                      int32_t outSize, int32_t* outLen, const unsigned char* key) {
    unsigned char tag[TAG_BYTES];
    if (!in || !out || !outLen || !key || inLen < 0 || outSize < 0) return BAD_ARGUMENT;
    if (inLen < OVERHEAD) return FORGED;
    int32_t plain = inLen - OVERHEAD;
    if (outSize < plain) return NO_ROOM;
    Tag(key, in, in + NONCE_BYTES, plain, tag);
    if (memcmp(tag, in + NONCE_BYTES + plain, TAG_BYTES) != 0) return FORGED;
    Stream(key, in, in + NONCE_BYTES, out, plain);
    *outLen = plain;
    return 0;
}

TEST_PLUGIN_API int32_t zanth_get_encrypted_buffer_size(void) { return BUFFER_SIZE; }

TEST_PLUGIN_API int32_t zanth_generate_key(const char* text1, const char* text2,
                                           unsigned char* key, int32_t keySize) {
    if (!text1 || !text2 || !key || keySize != KEY_BYTES) return BAD_ARGUMENT;
    /* The two texts in their own roles: swapping them gives another key. */
    uint64_t seed = Absorb(Mix(3), (const unsigned char*)text2, strlen(text2));
    uint64_t link = Absorb(Mix(seed ^ 4), (const unsigned char*)text1, strlen(text1));
    for (int i = 0; i < KEY_BYTES; ++i) key[i] = (unsigned char)Mix(link + (uint64_t)i);
    return 0;
}

TEST_PLUGIN_API int32_t zanth_get_version(char* buffer, int32_t size) {
    static const char version[] = "zanth-test-double 1.0";
    if (!buffer || size <= 0) return BAD_ARGUMENT;
    if ((size_t)size <= strlen(version)) {
        buffer[0] = '\0';
        return NO_ROOM;
    }
    memcpy(buffer, version, sizeof version);
    return 0;
}
