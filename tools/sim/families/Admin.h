#pragma once
// The controller as a machine: its tasks, network settings, login, the module bus's operation
// mode, firmware steps and its error log.
//
// On the wire:
//   12 / 13  restart / stop task  "task;"        -> 1012 / 1013 "0;"; tasks 9 and 99 are the
//            command task itself: no answer, the link drops and comes back (FamilyContext::
//            RestartLink). Tasks are 1 to 11, 20, 21, 22, 30, 31, 99 and 101; others -100.
//   110      DHCP                 "text;"        -> 1110 "0;"
//   111      static address       eight texts, the last without ';' -> 1111 "0;" (-100 unless 8)
//   112/113  peer to peer on/off  ""             -> 1112 "0;"
//   102      login                "user;password" -> 1102 "0;": the password of the controller's
//            one user changes; another user name is -101, an empty password -100.
//   98       module bus mode      "mode;password" -> 1098 "0;"; a wrong password -1513, a mode
//            outside 0 to 2 -1512.
//   99       module bus mode?     ""             -> 1099 "0;mode;"
//   115      firmware step        "value;"       -> 1114 "0;value;"
//   90       error log?           ""             -> 1090 "N;", N the log's lines (0: empty)
//   33 / 34  the error log's file "/tmp/errorlog;" then "" -> 1033 chunks of 4086 bytes while
//            more follow, and 1034 with the last (possibly empty). Other paths, and a 34 with no
//            error log transfer open, are left to the other families.

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/sim/families/Family.h"

namespace zanth::sim {

struct ControllerTask {
    uint64_t restarts = 0;
    uint64_t stops = 0;
    bool stopped = false;
};

class Admin final : public Family {
  public:
    static constexpr const char* kErrorLogPath = "/tmp/errorlog";
    static constexpr size_t kChunkSize = 4086;
    static constexpr int kWrongPassword = -1513;
    static constexpr int kBadMode = -1512;
    static constexpr int kMaxMoxMode = 2;

    Admin();

    const char* Name() const override { return "administration"; }
    bool Handle(FamilyContext& context, int code, std::string_view payload) override;

    // Any thread.
    std::optional<ControllerTask> Task(int task) const;
    std::string Dhcp() const;
    std::vector<std::string> StaticAddress() const;
    bool PeerToPeer() const;
    std::string Username() const;
    std::string Password() const;
    void SetLogin(std::string username, std::string password);
    int MoxMode() const;
    std::vector<uint32_t> FirmwareSteps() const;
    std::string ErrorLog() const;
    void SetErrorLog(std::string text);

  private:
    // The answer's code and payload, or nothing for a command left to others or not answered.
    struct Answered {
        int code;
        std::string payload;
    };
    std::optional<Answered> Answer(int code, std::string_view payload, bool* restart);
    Answered NextChunk();

    mutable std::mutex mutex_;
    std::map<int, ControllerTask> tasks_;
    std::string dhcp_;
    std::vector<std::string> staticAddress_;
    bool peerToPeer_ = false;
    std::string username_ = "admin";
    std::string password_ = "zanth";
    int moxMode_ = 0;
    std::vector<uint32_t> firmwareSteps_;
    std::string errorLog_;
    // The error log's transfer under way: what is still to send.
    std::optional<size_t> transferOffset_;
};

}  // namespace zanth::sim
