#pragma once
// A scripted controller for tests: a real TCP peer that sends exactly the bytes a test asks for
// (whole, split, dripped, malformed) and reads the library's frames back with deadlines.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "support/Net.h"

namespace zanth::test {

// "%04d;%04d;" + payload.
std::string Frame(int code, std::string_view payload = "");

class FakeController {
  public:
    FakeController() = default;
    ~FakeController();
    FakeController(const FakeController&) = delete;
    FakeController& operator=(const FakeController&) = delete;

    // Connects to 127.0.0.1:port, retrying until the listener takes it or the time runs out.
    bool Connect(int port, int timeoutMs = 5000);
    // Listens on a free loopback port (for ContactController) and returns it.
    int Listen();
    bool Accept(int timeoutMs = 5000);

    bool SendRaw(std::string_view bytes);
    bool SendFrame(int code, std::string_view payload = "");
    // Sends `bytes` in pieces cut at the given offsets, pausing between them.
    bool SendInPieces(std::string_view bytes, const std::vector<size_t>& cuts, int pauseMs = 150);
    // 1042 with "02:5A:37:<mac>;" as its identity; true when 70 comes back.
    bool Identify(const std::string& mac, int timeoutMs = 5000);

    // One clear frame, header and body; nothing when the time runs out or the link closed.
    std::optional<std::string> ReadFrame(int timeoutMs = 5000);
    // Exactly n bytes.
    std::optional<std::string> ReadBytes(size_t n, int timeoutMs = 5000);
    // True when nothing at all arrives within the time.
    bool Silent(int timeoutMs);
    // True when the peer closes (or resets) the link within the time; pending bytes are skipped.
    bool WaitClosed(int timeoutMs = 5000);

    void Close();
    // Closes with a reset instead of an orderly end.
    void Reset();
    // Ends the sending direction only: the library reads end of stream, the link stays readable.
    bool ShutdownSend() { return net::ShutdownSend(fd_); }
    net::Fd Fd() const { return fd_; }

  private:
    net::Fd fd_ = net::kNoFd;
    net::Fd listenFd_ = net::kNoFd;
};

}  // namespace zanth::test
