#include "tools/sim/families/Admin.h"

#include <algorithm>

#include "protocol/Codes.h"

namespace zanth::sim {
namespace {

std::string Result(int value) {
    return std::to_string(value) + ";";
}

bool IsTask(int64_t task) {
    if (task >= 1 && task <= 11) return true;
    for (int listed : {20, 21, 22, 30, 31, 99, 101}) {
        if (task == listed) return true;
    }
    return false;
}

}  // namespace

Admin::Admin()
    : errorLog_(
          "2026/01/05 06:12:40 task 4 watchdog reset\n"
          "2026/01/05 06:12:41 interface 16 not answering on chain 1\n"
          "2026/01/06 22:03:17 card database reindexed after power loss\n") {}

bool Admin::Handle(FamilyContext& context, int code, std::string_view payload) {
    std::optional<Answered> answer;
    bool restart = false;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        answer = Answer(code, payload, &restart);
    }
    if (restart) {
        context.RestartLink();
        return true;
    }
    if (!answer) return false;
    context.Reply(answer->code, answer->payload);
    return true;
}

std::optional<Admin::Answered> Admin::Answer(int code, std::string_view payload, bool* restart) {
    PayloadReader in(payload);
    switch (code) {
        case ZANTH_RESTART_TASK:
        case ZANTH_STOP_TASK: {
            int64_t task = in.Number(0, INT32_MIN, INT32_MAX);
            if (!in.Ok() || !IsTask(task)) return Answered{code + 1000, Result(kResultBadArgument)};
            ControllerTask& t = tasks_[static_cast<int>(task)];
            if (code == ZANTH_RESTART_TASK) {
                ++t.restarts;
                t.stopped = false;
            } else {
                ++t.stops;
                t.stopped = true;
            }
            // The command task itself: its link goes with it, and a watchdog brings it back.
            if (task == 9 || task == 99) {
                *restart = true;
                return std::nullopt;
            }
            return Answered{code + 1000, Result(kResultOk)};
        }
        case ZANTH_SET_DHCP_IP: {
            std::string text = in.Text(0, 256);
            if (!in.Ok()) return Answered{code + 1000, Result(kResultBadArgument)};
            dhcp_ = text;
            staticAddress_.clear();
            return Answered{code + 1000, Result(kResultOk)};
        }
        case ZANTH_SET_STATIC_IP: {
            std::vector<std::string> texts;
            for (size_t i = 0; i < 8; ++i) texts.push_back(in.Text(i, 256));
            if (!in.Ok() || in.Count() != 8)
                return Answered{code + 1000, Result(kResultBadArgument)};
            staticAddress_ = texts;
            dhcp_.clear();
            return Answered{code + 1000, Result(kResultOk)};
        }
        case ZANTH_ENABLE_P2P:
        case ZANTH_DISABLE_P2P:
            peerToPeer_ = code == ZANTH_ENABLE_P2P;
            return Answered{ZANTH_P2P_RSP, Result(kResultOk)};
        case ZANTH_SET_PASSWORD: {
            std::string user = in.Text(0, 64);
            std::string password = in.Text(1, 64);
            if (!in.Ok()) return Answered{code + 1000, Result(kResultBadArgument)};
            if (user != username_) return Answered{code + 1000, Result(kResultUnknownRecord)};
            password_ = password;
            return Answered{code + 1000, Result(kResultOk)};
        }
        case ZANTH_SET_MOX_OP_MODE: {
            int64_t mode = in.Number(0, INT32_MIN, INT32_MAX);
            std::string_view password = in.Raw(1);
            if (!in.Ok()) return Answered{code + 1000, Result(kResultBadArgument)};
            if (password != password_) return Answered{code + 1000, Result(kWrongPassword)};
            if (mode < 0 || mode > kMaxMoxMode) return Answered{code + 1000, Result(kBadMode)};
            moxMode_ = static_cast<int>(mode);
            return Answered{code + 1000, Result(kResultOk)};
        }
        case ZANTH_GET_MOX_OP_MODE:
            return Answered{code + 1000, "0;" + std::to_string(moxMode_) + ";"};
        case ZANTH_FIRMWARE_COMMAND: {
            int64_t value = in.Number(0, 0, UINT32_MAX);
            if (!in.Ok()) return Answered{ZANTH_EXECUTE_FIRMWARE_RSP, Result(kResultBadArgument)};
            firmwareSteps_.push_back(static_cast<uint32_t>(value));
            return Answered{ZANTH_EXECUTE_FIRMWARE_RSP, "0;" + std::to_string(value) + ";"};
        }
        case ZANTH_GET_ERROR_LOG: {
            auto lines = std::count(errorLog_.begin(), errorLog_.end(), '\n');
            if (!errorLog_.empty() && errorLog_.back() != '\n') ++lines;
            return Answered{code + 1000, Result(static_cast<int>(lines))};
        }
        case ZANTH_GET_FILE:
            if (in.Raw(0) != kErrorLogPath) return std::nullopt;
            transferOffset_ = 0;
            return NextChunk();
        case ZANTH_GET_FILE_RSP:
            if (!transferOffset_) return std::nullopt;
            return NextChunk();
        default:
            return std::nullopt;
    }
}

Admin::Answered Admin::NextChunk() {
    size_t from = std::min(*transferOffset_, errorLog_.size());
    size_t n = std::min(kChunkSize, errorLog_.size() - from);
    std::string chunk = errorLog_.substr(from, n);
    // A chunk of the full size may have more behind it; the last is shorter, or empty.
    if (n == kChunkSize) {
        transferOffset_ = from + n;
        return Answered{ZANTH_GET_FILE_MORE, chunk};
    }
    transferOffset_.reset();
    return Answered{ZANTH_GET_FILE_END, chunk};
}

std::optional<ControllerTask> Admin::Task(int task) const {
    std::lock_guard<std::mutex> lock(mutex_);
    auto it = tasks_.find(task);
    if (it == tasks_.end()) return std::nullopt;
    return it->second;
}

std::string Admin::Dhcp() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return dhcp_;
}

std::vector<std::string> Admin::StaticAddress() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return staticAddress_;
}

bool Admin::PeerToPeer() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return peerToPeer_;
}

std::string Admin::Username() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return username_;
}

std::string Admin::Password() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return password_;
}

void Admin::SetLogin(std::string username, std::string password) {
    std::lock_guard<std::mutex> lock(mutex_);
    username_ = std::move(username);
    password_ = std::move(password);
}

int Admin::MoxMode() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return moxMode_;
}

std::vector<uint32_t> Admin::FirmwareSteps() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return firmwareSteps_;
}

std::string Admin::ErrorLog() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return errorLog_;
}

void Admin::SetErrorLog(std::string text) {
    std::lock_guard<std::mutex> lock(mutex_);
    errorLog_ = std::move(text);
}

}  // namespace zanth::sim
