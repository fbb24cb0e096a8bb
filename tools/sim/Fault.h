#pragma once
// A fault a test sets on one command code of a controller, to see how a host copes with a
// controller that refuses, answers under the wrong code, answers late or not at all:
//
//   c.SetFault(ZANTH_GET_NUMBER_OF_CARDS, Fault::Error("-1;"));     // the next one is refused
//   c.SetFault(ZANTH_CONTROLLER_INFO, Fault::Late(400).Persistent()); // every one, 400 ms late
//   c.SetFault(ZANTH_GET_CARD_RECORD_2, Fault::Silent());             // never answered
//
// A fault is taken when a command of its code arrives; unless persistent it is then gone.

#include <optional>
#include <string>

namespace zanth::sim {

struct Fault {
    // Set: the command is refused without being carried out, and this is the answer's payload,
    // under the command's reply code (code + 1000) unless `replyCode` says otherwise.
    std::optional<std::string> payload;
    // Set: the answers go out under this code instead of their own.
    std::optional<int> replyCode;
    // The answers go out this many milliseconds late (if the link is still up by then).
    int delayMs = 0;
    // The controller ignores the command: not carried out, not answered.
    bool silent = false;
    // Stays until cleared, rather than serving the next command of its code alone.
    bool persistent = false;

    static Fault Error(std::string payload) {
        Fault f;
        f.payload = std::move(payload);
        return f;
    }
    static Fault WrongCode(int code) {
        Fault f;
        f.replyCode = code;
        return f;
    }
    static Fault Late(int ms) {
        Fault f;
        f.delayMs = ms;
        return f;
    }
    static Fault Silent() {
        Fault f;
        f.silent = true;
        return f;
    }
    Fault Persistent() const {
        Fault f = *this;
        f.persistent = true;
        return f;
    }
};

}  // namespace zanth::sim
