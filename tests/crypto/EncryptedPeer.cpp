#include "crypto/EncryptedPeer.h"

#include <cstdlib>
#include <vector>

namespace zanth::test {

bool EncryptedPeer::Identify(const std::string& mac, const std::string& moreFields) {
    const std::string frame = Frame(1043, "02:5A:37:" + mac + ";" + moreFields);
    // The library keys the link with at most the first 200 bytes of the raw frame.
    const std::string identifyText = frame.substr(0, 200);
    if (util_.GenerateKey(identifyText.c_str(), seed_.c_str(), key_, sizeof key_) != 0) {
        return false;
    }
    return link_.SendRaw(frame);
}

std::optional<std::string> EncryptedPeer::ReadRaw(int timeoutMs) {
    auto header = link_.ReadBytes(5, timeoutMs);
    if (!header) return std::nullopt;
    const int total = std::atoi(header->substr(0, 4).c_str());
    if (total <= 5) return header;
    auto body = link_.ReadBytes(static_cast<size_t>(total - 5), timeoutMs);
    if (!body) return std::nullopt;
    return *header + *body;
}

std::optional<std::string> EncryptedPeer::Open(const std::string& frame) {
    std::vector<char> plain(kRecordMessageSize, '\0');
    int32_t length = 0;
    if (util_.DecryptMessage(frame.data(), static_cast<int32_t>(frame.size()), plain.data(),
                             static_cast<int32_t>(plain.size()), &length, key_) != 0) {
        return std::nullopt;
    }
    return std::string(plain.data(), static_cast<size_t>(length));
}

std::optional<std::string> EncryptedPeer::ReadMessage(int timeoutMs) {
    auto raw = ReadRaw(timeoutMs);
    if (!raw) return std::nullopt;
    return Open(*raw);
}

std::string EncryptedPeer::Seal(const std::string& clearFrame) {
    int32_t room = 0;
    if (util_.GetBufferSize(&room) != 0 || room <= 5) return {};
    std::vector<char> out(static_cast<size_t>(room) + 1, '\0');
    int32_t cipherLength = 0;
    if (util_.EncryptMessage(clearFrame.data(), static_cast<int32_t>(clearFrame.size()), out.data(),
                             room, &cipherLength, key_) != 0) {
        return {};
    }
    return std::string(out.data(), static_cast<size_t>(cipherLength) + 5);
}

bool EncryptedPeer::SendMessage(int code, std::string_view payload) {
    const std::string sealed = Seal(Frame(code, payload));
    return !sealed.empty() && link_.SendRaw(sealed);
}

}  // namespace zanth::test
