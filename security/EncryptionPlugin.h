#pragma once
/* The five entry points of the cipher plugin libzanth_encryption64.so, with C linkage.
 * All results are 32-bit; negative means failure. Keys are 32 bytes. A plugin must be safe
 * to call from many threads at once with different keys. */

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define ZANTH_KEY_SIZE 32

typedef int32_t (*zanth_encrypt_fn)(const unsigned char* in, int32_t inLen, unsigned char* out,
                                    int32_t outSize, int32_t* outLen, const unsigned char* key);
typedef int32_t (*zanth_decrypt_fn)(const unsigned char* in, int32_t inLen, unsigned char* out,
                                    int32_t outSize, int32_t* outLen, const unsigned char* key);
/* The size of buffer one enciphered message may need, as a positive number. */
typedef int32_t (*zanth_get_encrypted_buffer_size_fn)(void);
/* Derives a key from two texts into `key` (keySize bytes). */
typedef int32_t (*zanth_generate_key_fn)(const char* text1, const char* text2, unsigned char* key,
                                         int32_t keySize);
/* Writes the plugin's version text; the result is the status. */
typedef int32_t (*zanth_get_version_fn)(char* buffer, int32_t size);

#ifdef __cplusplus
}
#endif
