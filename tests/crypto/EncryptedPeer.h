#pragma once
// A controller on an encrypted link, for tests: it identifies with 1043 in clear, derives the
// link key from the first 200 bytes of that frame and its own seed through the cipher plugin, as
// the library does, and from then on seals and opens every frame.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "protocol/MessageUtil.h"
#include "security/Crypto.h"
#include "support/FakeController.h"

namespace zanth::test {

class EncryptedPeer {
  public:
    explicit EncryptedPeer(std::string seed) : seed_(std::move(seed)) {}

    bool Connect(int port) { return link_.Connect(port); }
    // Sends "1043" with identity "02:5A:37:<mac>" in clear and derives the key; false when the
    // send or the key fails.
    bool Identify(const std::string& mac, const std::string& moreFields = "4.2;");

    // One encrypted frame exactly as it came, 5-byte header included.
    std::optional<std::string> ReadRaw(int timeoutMs = 5000);
    // The clear frame inside an encrypted one; nothing when it does not authenticate.
    std::optional<std::string> Open(const std::string& frame);
    // ReadRaw, then Open.
    std::optional<std::string> ReadMessage(int timeoutMs = 5000);
    // A clear frame, sealed into one encrypted frame under this peer's key.
    std::string Seal(const std::string& clearFrame);
    bool SendMessage(int code, std::string_view payload = "");

    FakeController& Link() { return link_; }

  private:
    std::string seed_;
    FakeController link_;
    Crypto crypto_;
    MessageUtil util_{&crypto_};
    unsigned char key_[32] = {};
};

}  // namespace zanth::test
