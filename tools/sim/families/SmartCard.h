#pragma once
// The smart card readers behind a controller, as the host reaches them: raw mode passes bytes
// to the card at a reader, command mode hands the reader a command of its own.
//
// On the wire (the host appends a final ';' if its data has none):
//   150 raw mode      "reader;hexbytes;" -> 1150 "0;reader;card's answer in hex;"
//   151 command mode  "reader;command;"  -> 1151 "0;reader;"   (the command may be empty: "2;")
// A reader is 0 to 255. Raw bytes are an even number of hex digits, at most kMaxData of them;
// a command is printable text, ';' included, up to the same length. Anything else is answered
// "-100;". The card answers every raw exchange with its preset answer, "9000" (done) unless a
// test sets another with SetAnswer. What the card reads at the door goes to the host as
// unsolicited smart card data (Controller::SendSmartCard), as before.

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "tools/sim/families/Family.h"

namespace zanth::sim {

struct SmartCardReader {
    enum class Mode { None, Raw, Command };
    Mode mode = Mode::None;  // the mode of the last exchange
    std::string lastData;    // the bytes or the command it carried
    std::string answer = "9000";
    uint64_t exchanges = 0;
};

class SmartCard final : public Family {
  public:
    static constexpr int kMaxReader = 255;
    static constexpr size_t kMaxData = 1024;

    const char* Name() const override { return "smart card"; }
    bool Handle(FamilyContext& context, int code, std::string_view payload) override;

    // Any thread. A reader neither used nor given an answer reads as nothing.
    std::optional<SmartCardReader> Reader(int reader) const;
    // What the card at `reader` answers raw exchanges with, in hex.
    void SetAnswer(int reader, std::string hexAnswer);

  private:
    std::string Answer(int code, std::string_view payload);

    mutable std::mutex mutex_;
    std::map<int, SmartCardReader> readers_;
};

}  // namespace zanth::sim
