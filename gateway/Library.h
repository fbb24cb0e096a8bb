#pragma once
// The library as zanthd holds it: loaded at run time through zanth.hpp once zanthd has moved
// into its data folder (the library creates its log and message files in the working directory
// as it loads), started with the connect and disconnect callbacks, and polled for what the
// controllers send. This is the one file besides the call path (Model.cpp) that sees zanth.hpp;
// every call goes through its table of the library's exports. No function here throws.

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace zanthd {

class Library {
  public:
    using MacHandler = std::function<void(const std::string& mac)>;

    Library();
    ~Library();

    // Loads `path` (empty: libzanth.so.2 beside the program, then the search path).
    bool Load(const std::string& path, std::string* error);

    std::string Version() const;
    // The per-user log folder, when one is set (the library's files then go there).
    std::string LogFolder() const;

    // The event (alarms false) or alarm ring: its size, set once before the start.
    bool RingSize(bool alarms, uint64_t* size) const;
    int32_t SetRingSize(bool alarms, uint64_t size);
    uint64_t Unread(bool alarms) const;
    // How long a blocking call waits for its reply.
    int32_t SetWaitTime(int32_t ms);
    int32_t SetValid(const std::string& list);

    // Initialization on `port`, with the connect and disconnect notices going to the handlers
    // (on the library's notice thread, in order). The result of Initialization.
    int32_t Start(int32_t port, MacHandler connected, MacHandler disconnected);
    // Shutdown; no handler runs once it returns.
    void Stop();

    // The queues and message files; nothing when empty.
    std::optional<std::string> NextEvent();
    std::optional<std::string> NextAlarm();
    std::optional<std::string> NextLookup();
    std::optional<std::string> NextPin();
    std::optional<std::string> NextPostAccess();
    // A reply to a Rsp call: its rspid and frame.
    bool NextResponse(int32_t* rspid, std::string* frame);

    // The identified controllers, comma-separated; false when the library refused.
    bool Connected(std::string* list) const;

  private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace zanthd
