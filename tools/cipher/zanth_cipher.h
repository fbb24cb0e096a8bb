#ifndef ZANTH_CIPHER_H
#define ZANTH_CIPHER_H
/* The reference cipher plugin, libzanth_encryption64.so, built on libsodium.
 *
 * Key: from the identification text (text1) and the site's seed (text2), both NUL-terminated:
 *   seedKey = BLAKE2b-256("zanth-sodium/seed/v1" 0x00 || seed)
 *   key     = BLAKE2b-256 keyed with seedKey over ("zanth-sodium/link/v1" 0x00 || identification)
 * The seed and the identification take different roles, so neither swapping nor re-splitting
 * the two texts gives the same key.
 *
 * Cipher text: XChaCha20-Poly1305 (IETF) under that key, a fresh random nonce per message:
 *   nonce (24 bytes) || encrypted message (as long as the plain text) || tag (16 bytes)
 * No additional data. A cipher text that fails authentication is refused whole. */

#include <stdint.h>

#if defined(__GNUC__)
#define ZANTH_CIPHER_API __attribute__((visibility("default")))
#else
#define ZANTH_CIPHER_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

#define ZANTH_CIPHER_VERSION "zanth-sodium 1.0"
#define ZANTH_CIPHER_NONCE_BYTES 24
#define ZANTH_CIPHER_TAG_BYTES 16
#define ZANTH_CIPHER_OVERHEAD (ZANTH_CIPHER_NONCE_BYTES + ZANTH_CIPHER_TAG_BYTES)
/* Room for the largest clear frame (4117 bytes), the overhead and the 5-byte frame header, with
 * some to spare. */
#define ZANTH_CIPHER_BUFFER_SIZE 4200

/* Results: 0 on success (the buffer size query returns the size), else one of these. */
#define ZANTH_CIPHER_BAD_ARGUMENT (-1)
#define ZANTH_CIPHER_NO_ROOM (-2)
#define ZANTH_CIPHER_FORGED (-3)
#define ZANTH_CIPHER_UNAVAILABLE (-4)

ZANTH_CIPHER_API int32_t zanth_encrypt(const unsigned char* in, int32_t inLen, unsigned char* out,
                                       int32_t outSize, int32_t* outLen, const unsigned char* key);
ZANTH_CIPHER_API int32_t zanth_decrypt(const unsigned char* in, int32_t inLen, unsigned char* out,
                                       int32_t outSize, int32_t* outLen, const unsigned char* key);
ZANTH_CIPHER_API int32_t zanth_get_encrypted_buffer_size(void);
ZANTH_CIPHER_API int32_t zanth_generate_key(const char* text1, const char* text2,
                                            unsigned char* key, int32_t keySize);
ZANTH_CIPHER_API int32_t zanth_get_version(char* buffer, int32_t size);

#ifdef __cplusplus
}
#endif

#endif
