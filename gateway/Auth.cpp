#include "gateway/Auth.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>

namespace zanthd {

std::string Sha256Hex(const std::string& text) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_Digest(text.data(), text.size(), digest, &length, EVP_sha256(), nullptr);
    static const char kHex[] = "0123456789abcdef";
    std::string out;
    for (unsigned int i = 0; i < length; ++i) {
        out.push_back(kHex[digest[i] >> 4]);
        out.push_back(kHex[digest[i] & 15]);
    }
    return out;
}

Auth::Auth(std::vector<TokenConfig> tokens, bool anonymousAllowed, Scope anonymousScope)
    : tokens_(std::move(tokens)), anonymous_(anonymousAllowed), anonymousScope_(anonymousScope) {}

Scope Auth::Check(const std::string* authorization, std::string* name) const {
    if (authorization == nullptr || authorization->empty()) {
        if (!anonymous_) return Scope::None;
        *name = "anonymous";
        return anonymousScope_;
    }
    const std::string prefix = "Bearer ";
    if (authorization->size() <= prefix.size() || authorization->compare(0, prefix.size(), prefix) != 0) {
        return Scope::None;
    }
    std::string hash = Sha256Hex(authorization->substr(prefix.size()));
    Scope found = Scope::None;
    // Every token is compared, found or not, so the time taken says nothing about which.
    for (const TokenConfig& t : tokens_) {
        if (t.sha256.size() == hash.size() &&
            CRYPTO_memcmp(t.sha256.data(), hash.data(), hash.size()) == 0) {
            found = t.scope;
            *name = t.name;
        }
    }
    return found;
}

}  // namespace zanthd
