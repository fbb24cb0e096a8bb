#include "security/Crypto.h"

#include "platform/Library.h"
#include "protocol/Result.h"
#include "protocol/Text.h"
#include "security/EncryptionPlugin.h"
#include "stores/LogMon.h"

namespace zanth {

Crypto::Crypto() {
    CopyBounded(name_, "crypto", sizeof name_);
    logText_[0] = logText2_[0] = '\0';
}

Crypto::~Crypto() {
    platform::FreeLibrary(module_);
}

void* Crypto::Resolve(const char* method, const char* entry) {
    result_ = 0;
    if (module_ == nullptr) {
        module_ = platform::LoadLibrary(kEncryptionLibrary);
        if (module_ == nullptr) {
            FormatText(logText_, sizeof logText_, "[Crypto::%s] Error loading %s library", method,
                       kEncryptionLibraryLogName);
            Log(name_, kLogError, logText_, "");
            result_ = kCipherFailed;
            return nullptr;
        }
    }
    void* fn = platform::FindSymbol(module_, entry);
    if (fn == nullptr) {
        // Unloaded at once: the next call starts again from the load.
        platform::FreeLibrary(module_);
        module_ = nullptr;
        FormatText(logText_, sizeof logText_, "[Crypto::%s] Error getting %s function", method,
                   entry);
        Log(name_, kLogError, logText_, "");
        result_ = kCipherFailed;
    }
    return fn;
}

int32_t Crypto::Encrypt(const unsigned char* in, int32_t inLen, unsigned char* out, int32_t outSize,
                        int32_t* outLen, const unsigned char* key) {
    auto fn = reinterpret_cast<zanth_encrypt_fn>(Resolve("Encrypt", "zanth_encrypt"));
    if (fn) result_ = fn(in, inLen, out, outSize, outLen, key);
    return result_;
}

int32_t Crypto::Decrypt(const unsigned char* in, int32_t inLen, unsigned char* out, int32_t outSize,
                        int32_t* outLen, const unsigned char* key) {
    auto fn = reinterpret_cast<zanth_decrypt_fn>(Resolve("Decrypt", "zanth_decrypt"));
    if (fn) result_ = fn(in, inLen, out, outSize, outLen, key);
    return result_;
}

int32_t Crypto::GetEncryptedBufferSize(int32_t* size) {
    auto fn = reinterpret_cast<zanth_get_encrypted_buffer_size_fn>(
        Resolve("GetEncryptedBufferSize", "zanth_get_encrypted_buffer_size"));
    if (fn) {
        *size = fn();
        result_ = 0;
    }
    return result_;
}

int32_t Crypto::GenerateKey(const char* text1, const char* text2, unsigned char* key,
                            int32_t keySize) {
    auto fn = reinterpret_cast<zanth_generate_key_fn>(Resolve("GenerateKey", "zanth_generate_key"));
    if (fn) result_ = fn(text1, text2, key, keySize);
    return result_;
}

int32_t Crypto::GetVersion(char* buffer, int32_t size) {
    auto fn = reinterpret_cast<zanth_get_version_fn>(Resolve("GetVersion", "zanth_get_version"));
    if (fn) result_ = fn(buffer, size);
    return result_;
}

}  // namespace zanth
