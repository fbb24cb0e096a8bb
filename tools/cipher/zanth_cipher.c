/* The reference cipher plugin: the five entry points the library looks up by name, on
 * libsodium. Layout and key derivation are described in zanth_cipher.h.
 *
 * Every call stands alone: no state is shared between calls except libsodium's one-time
 * initialisation, so any number of threads may use it at once with different keys. */

#include "zanth_cipher.h"

#include <pthread.h>
#include <sodium.h>
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include "security/EncryptionPlugin.h"

/* The entry points must keep the shapes the library calls them with: a mismatch here is a
 * compile error, not a crash in a host. */
#define ZANTH_SHAPE_CHECK __attribute__((unused))
static const zanth_encrypt_fn kCheckEncrypt ZANTH_SHAPE_CHECK = zanth_encrypt;
static const zanth_decrypt_fn kCheckDecrypt ZANTH_SHAPE_CHECK = zanth_decrypt;
static const zanth_get_encrypted_buffer_size_fn kCheckBufferSize ZANTH_SHAPE_CHECK =
    zanth_get_encrypted_buffer_size;
static const zanth_generate_key_fn kCheckGenerateKey ZANTH_SHAPE_CHECK = zanth_generate_key;
static const zanth_get_version_fn kCheckGetVersion ZANTH_SHAPE_CHECK = zanth_get_version;

_Static_assert(ZANTH_KEY_SIZE == crypto_aead_xchacha20poly1305_ietf_KEYBYTES, "key size");
_Static_assert(ZANTH_CIPHER_NONCE_BYTES == crypto_aead_xchacha20poly1305_ietf_NPUBBYTES, "nonce");
_Static_assert(ZANTH_CIPHER_TAG_BYTES == crypto_aead_xchacha20poly1305_ietf_ABYTES, "tag");
_Static_assert(ZANTH_KEY_SIZE == crypto_generichash_BYTES, "hash size");
/* The largest clear frame (4117 bytes) enciphered, behind the 5-byte frame header. */
_Static_assert(ZANTH_CIPHER_BUFFER_SIZE >= 4117 + ZANTH_CIPHER_OVERHEAD + 5, "buffer size");

static const char kSeedLabel[] = "zanth-sodium/seed/v1";
static const char kLinkLabel[] = "zanth-sodium/link/v1";

static pthread_once_t sodiumOnce = PTHREAD_ONCE_INIT;
static int sodiumReady = 0;

static void InitSodium(void) {
    /* sodium_init is safe to repeat, but its result is kept once for every later call. */
    sodiumReady = sodium_init() >= 0;
}

static int Ready(void) {
    return pthread_once(&sodiumOnce, InitSodium) == 0 && sodiumReady;
}

/* True when two byte ranges share any byte. */
static int Overlap(const unsigned char* a, size_t aLen, const unsigned char* b, size_t bLen) {
    uintptr_t a0 = (uintptr_t)a, b0 = (uintptr_t)b;
    return a0 < b0 + bLen && b0 < a0 + aLen;
}

int32_t zanth_encrypt(const unsigned char* in, int32_t inLen, unsigned char* out, int32_t outSize,
                      int32_t* outLen, const unsigned char* key) {
    if (in == NULL || out == NULL || outLen == NULL || key == NULL || inLen < 0 || outSize < 0)
        return ZANTH_CIPHER_BAD_ARGUMENT;
    if (inLen > INT32_MAX - ZANTH_CIPHER_OVERHEAD) return ZANTH_CIPHER_BAD_ARGUMENT;
    const int32_t needed = inLen + ZANTH_CIPHER_OVERHEAD;
    if (outSize < needed) return ZANTH_CIPHER_NO_ROOM;
    if (Overlap(in, (size_t)inLen, out, (size_t)needed)) return ZANTH_CIPHER_BAD_ARGUMENT;
    if (!Ready()) return ZANTH_CIPHER_UNAVAILABLE;

    unsigned char* nonce = out;
    randombytes_buf(nonce, ZANTH_CIPHER_NONCE_BYTES);
    unsigned long long written = 0;
    if (crypto_aead_xchacha20poly1305_ietf_encrypt(out + ZANTH_CIPHER_NONCE_BYTES, &written, in,
                                                   (unsigned long long)inLen, NULL, 0, NULL, nonce,
                                                   key) != 0)
        return ZANTH_CIPHER_UNAVAILABLE;
    *outLen = (int32_t)(written + ZANTH_CIPHER_NONCE_BYTES);
    return 0;
}

int32_t zanth_decrypt(const unsigned char* in, int32_t inLen, unsigned char* out, int32_t outSize,
                      int32_t* outLen, const unsigned char* key) {
    if (in == NULL || out == NULL || outLen == NULL || key == NULL || inLen < 0 || outSize < 0)
        return ZANTH_CIPHER_BAD_ARGUMENT;
    /* Too short to hold a nonce and a tag: nothing can be authentic. */
    if (inLen < ZANTH_CIPHER_OVERHEAD) return ZANTH_CIPHER_FORGED;
    const int32_t plainLen = inLen - ZANTH_CIPHER_OVERHEAD;
    if (outSize < plainLen) return ZANTH_CIPHER_NO_ROOM;
    if (Overlap(in, (size_t)inLen, out, (size_t)plainLen)) return ZANTH_CIPHER_BAD_ARGUMENT;
    if (!Ready()) return ZANTH_CIPHER_UNAVAILABLE;

    unsigned long long written = 0;
    /* libsodium checks the tag before it writes any plain text, and zeroes it on failure. */
    if (crypto_aead_xchacha20poly1305_ietf_decrypt(
            out, &written, NULL, in + ZANTH_CIPHER_NONCE_BYTES,
            (unsigned long long)(inLen - ZANTH_CIPHER_NONCE_BYTES), NULL, 0, in, key) != 0)
        return ZANTH_CIPHER_FORGED;
    *outLen = (int32_t)written;
    return 0;
}

int32_t zanth_get_encrypted_buffer_size(void) {
    /* A negative size tells the library that the plugin can't work here. */
    return Ready() ? ZANTH_CIPHER_BUFFER_SIZE : ZANTH_CIPHER_UNAVAILABLE;
}

/* BLAKE2b-256 of label, 0x00 and text, keyed with `hashKey` when it isn't null. */
static int LabelledHash(unsigned char out[ZANTH_KEY_SIZE], const unsigned char* hashKey,
                        const char* label, size_t labelLen, const char* text) {
    crypto_generichash_state state;
    static const unsigned char separator = 0;
    int rc = crypto_generichash_init(&state, hashKey, hashKey ? ZANTH_KEY_SIZE : 0, ZANTH_KEY_SIZE);
    if (rc == 0) rc = crypto_generichash_update(&state, (const unsigned char*)label, labelLen);
    if (rc == 0) rc = crypto_generichash_update(&state, &separator, 1);
    if (rc == 0) rc = crypto_generichash_update(&state, (const unsigned char*)text, strlen(text));
    if (rc == 0) rc = crypto_generichash_final(&state, out, ZANTH_KEY_SIZE);
    sodium_memzero(&state, sizeof state);
    return rc;
}

int32_t zanth_generate_key(const char* text1, const char* text2, unsigned char* key,
                           int32_t keySize) {
    if (text1 == NULL || text2 == NULL || key == NULL || keySize != ZANTH_KEY_SIZE)
        return ZANTH_CIPHER_BAD_ARGUMENT;
    if (!Ready()) return ZANTH_CIPHER_UNAVAILABLE;

    unsigned char seedKey[ZANTH_KEY_SIZE];
    unsigned char derived[ZANTH_KEY_SIZE];
    int rc = LabelledHash(seedKey, NULL, kSeedLabel, sizeof kSeedLabel - 1, text2);
    if (rc == 0) rc = LabelledHash(derived, seedKey, kLinkLabel, sizeof kLinkLabel - 1, text1);
    if (rc == 0) memcpy(key, derived, ZANTH_KEY_SIZE);
    sodium_memzero(seedKey, sizeof seedKey);
    sodium_memzero(derived, sizeof derived);
    return rc == 0 ? 0 : ZANTH_CIPHER_UNAVAILABLE;
}

int32_t zanth_get_version(char* buffer, int32_t size) {
    if (buffer == NULL || size <= 0) return ZANTH_CIPHER_BAD_ARGUMENT;
    const size_t length = sizeof ZANTH_CIPHER_VERSION - 1;
    if ((size_t)size <= length) {
        buffer[0] = '\0';
        return ZANTH_CIPHER_NO_ROOM;
    }
    memcpy(buffer, ZANTH_CIPHER_VERSION, length + 1);
    return 0;
}
