#pragma once
// Bearer tokens: the config holds each token's SHA-256 (never the token), its name and scope
// ("read" or "operator"). A request's token is hashed and compared in constant time.

#include <string>
#include <vector>

#include "gateway/Config.h"

namespace zanthd {

std::string Sha256Hex(const std::string& text);

class Auth {
  public:
    Auth(std::vector<TokenConfig> tokens, bool anonymousAllowed, Scope anonymousScope);
    // The scope an Authorization header grants, and the token's name ("anonymous" without one
    // where that is allowed). Scope::None refuses.
    Scope Check(const std::string* authorization, std::string* name) const;

  private:
    std::vector<TokenConfig> tokens_;
    bool anonymous_;
    Scope anonymousScope_;
};

}  // namespace zanthd
