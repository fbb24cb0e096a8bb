#pragma once
// The controller's own log of the events and alarms it raised, and the host's upload commands
// that send them again.
//
// Every event and alarm goes into the log when it is sent live, or straight in when it is
// stored while no host listens (Controller::StoreMessages, zanth-sim --stored). The log holds
// the latest Capacity() messages (kDefaultCapacity unless set) and forgets the oldest beyond.
// A message is "current" until a host has acknowledged it: its live 67, or the 67 of the
// bundle that uploaded it. So a message whose link dropped before the 67, or that was stored
// while the host was away, stays current until an upload delivers it; "all" means every
// message the log holds, delivered or not.
//
// On the wire, each answered 1062 "0;" (or "-100;" for a value out of range), after which the
// chosen messages follow in log order as 1065 bundles "1061;<text>^1060;<text>^...", each as
// full as one frame allows; each bundle's 67 marks its messages delivered.
//   60 current             ""        63 all              ""
//   61 current by class    "class;"  64 all by class     "class;"      class 0 to 255
//   62 current by priority "prio;"   65 all by priority  "prio;"       priority 0 to 255
//   66 by message ID       "start;end;" 1 to 99999 each; a start above the end runs round
//                          through 99999 to the end, as message IDs wrap.

#include <cstdint>
#include <deque>
#include <mutex>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "tools/sim/Payloads.h"
#include "tools/sim/families/Family.h"

namespace zanth::sim {

struct StoredMessage {
    MessageRecord record;
    bool delivered = false;
};

struct MessageStoreCounts {
    size_t held = 0;
    size_t current = 0;     // not yet acknowledged by a host
    uint64_t uploaded = 0;  // messages sent again by uploads, in all
};

class MessageStore final : public Family {
  public:
    static constexpr size_t kDefaultCapacity = 10000;
    // Message IDs wrap at 99999, so more can't be told apart.
    static constexpr size_t kMaxCapacity = kMaxMessageId;

    const char* Name() const override { return "message log"; }
    bool Handle(FamilyContext& context, int code, std::string_view payload) override;

    // Any thread.
    size_t Capacity() const;
    // 1 to kMaxCapacity; a smaller log forgets its oldest messages at once.
    void SetCapacity(size_t capacity);
    // A message sent live (not yet acknowledged), or stored while no host listened.
    void Add(const MessageRecord& record);
    // The host's 67 for these message IDs came in.
    void Delivered(const std::vector<uint32_t>& msgIds);
    MessageStoreCounts Counts() const;
    std::vector<StoredMessage> Snapshot() const;

  private:
    void Trim();

    mutable std::mutex mutex_;
    size_t capacity_ = kDefaultCapacity;
    std::deque<StoredMessage> log_;
    // Message ID to its place: log_[serial - firstSerial_].
    std::unordered_map<uint32_t, uint64_t> serialOf_;
    uint64_t firstSerial_ = 0;
    uint64_t uploaded_ = 0;
};

}  // namespace zanth::sim
