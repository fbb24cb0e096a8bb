// What the controller does with the host's frames: acknowledgements are matched against what
// is outstanding, commands are answered in the order they came.

#include <algorithm>

#include "protocol/Codes.h"
#include "tools/sim/Controller.h"
#include "tools/sim/Simulator.h"
#include "tools/sim/families/Upload.h"

namespace zanth::sim {
namespace {

bool IsAck(int code) {
    switch (code) {
        case ZANTH_MESSAGE_RSP:
        case ZANTH_HEART_BEAT_RSP:
        case ZANTH_CHECK_CARD_RSP:
        case ZANTH_HERE_I_AM_RSP:
        case ZANTH_REPORT_PIN_RSP:
        case ZANTH_SMART_CARD_DATA_RSP:
        case ZANTH_KEY_PAD_DATA_RSP:
        case ZANTH_COMMAND_KEY_DATA_RSP:
        case ZANTH_ACCEPT_CONNECTION:
            return true;
        default:
            return false;
    }
}

}  // namespace

void Controller::HandleFrame(const std::string& frame) {
    auto parsed = ParseClearFrame(frame);
    if (!parsed) {
        CloseLink(DropReason::Protocol);
        return;
    }
    int code = parsed->code;
    sim_.Emit(*this, Direction::FromHost, code, frame);

    if (code == ZANTH_ACCEPT_CONNECTION && state_ == LinkState::Identifying) {
        HandleAck(code, frame);
        OnIdentified();
        return;
    }
    if (code == ZANTH_REJECT_CONNECTION) {
        CloseLink(DropReason::Rejected);
        return;
    }
    if (IsAck(code)) {
        HandleAck(code, frame);
        return;
    }
    HandleCommand(code, parsed->payload);
}

void Controller::HandleAck(int code, const std::string& frame) {
    bool matched = false;
    bool flatOut = false;
    std::vector<uint32_t> delivers;
    if (code != ZANTH_ACCEPT_CONNECTION) {
        // The host answers one message at a time, in the order they came.
        if (!expected_.empty() && expected_.front().code == code) {
            matched = true;
            flatOut = expected_.front().flatOut;
            delivers = std::move(expected_.front().delivers);
            expected_.pop_front();
        }
    }
    if (!delivers.empty()) Family<MessageStore>().Delivered(delivers);
    Observe([&](ControllerStats& s) {
        ++s.acks[code];
        s.ackFrames.push_back(frame);
        if (s.ackFrames.size() > kMaxRecordedAcks) s.ackFrames.pop_front();
        if (matched) {
            --s.outstandingAcks;
        } else if (code != ZANTH_ACCEPT_CONNECTION) {
            ++s.unexpectedAcks;
        }
    });
    if (flatOut) {
        flatOutPending_ = false;
        if (schedule_.eventsFlatOut && state_ == LinkState::Identified) SendScheduledEvent(true);
    }
}

void Controller::HandleCommand(int code, std::string_view payload) {
    Observe([&](ControllerStats& s) {
        ++s.commandCounts[code];
        s.commands.push_back({code, std::string(payload)});
        if (s.commands.size() > kMaxRecordedCommands) s.commands.erase(s.commands.begin());
    });
    if (auto fault = TakeFault(code)) {
        Observe([](ControllerStats& s) { ++s.faults; });
        ApplyFault(code, payload, *fault);
        return;
    }
    Answer(code, payload);
}

std::optional<Fault> Controller::TakeFault(int code) {
    std::lock_guard<std::mutex> lock(faultsMutex_);
    auto it = faults_.find(code);
    if (it == faults_.end()) return std::nullopt;
    Fault fault = it->second;
    if (!fault.persistent) faults_.erase(it);
    return fault;
}

void Controller::ApplyFault(int code, std::string_view payload, const Fault& fault) {
    if (fault.silent) return;
    std::vector<Answered> answers;
    if (fault.payload) {
        answers.push_back({code + 1000, *fault.payload});
    } else {
        capture_ = &answers;
        Answer(code, payload);
        capture_ = nullptr;
        // The command may have ended the link (a reboot): its answers go with it.
        if (fd_ < 0) return;
    }
    if (fault.replyCode) {
        for (Answered& a : answers) a.code = *fault.replyCode;
    }
    if (fault.delayMs > 0) {
        int id = nextDelayedId_++;
        delayed_[id] = std::move(answers);
        ArmTimer(TimerKind::DelayedReply, fault.delayMs, id);
        return;
    }
    for (const Answered& a : answers) WriteFrame(a.code, a.payload);
    Flush();
}

void Controller::SendDelayedReplies(int id) {
    auto it = delayed_.find(id);
    if (it == delayed_.end()) return;
    std::vector<Answered> answers = std::move(it->second);
    delayed_.erase(it);
    for (const Answered& a : answers) WriteFrame(a.code, a.payload);
    Flush();
}

void Controller::Reply(int code, std::string_view payload) {
    if (capture_ != nullptr) {
        capture_->push_back({code, std::string(payload)});
        return;
    }
    WriteFrame(code, payload);
}

bool Controller::OfferToFamilies(int code, std::string_view payload) {
    FamilyContext context(*this);
    for (const auto& family : families_) {
        if (family->Handle(context, code, payload)) return true;
    }
    return false;
}

void Controller::Answer(int code, std::string_view payload) {
    if (code == ZANTH_TERMINATE) {
        CloseLink(DropReason::Terminated);
        return;
    }
    if (code == ZANTH_CONTACT_CONTROLLER) {
        // The host's call in listen mode; on a link that has identified it changes nothing.
        if (state_ == LinkState::AwaitingContact) SendIdentification();
        return;
    }
    if (config_.unsupportedCodes.count(code) != 0) {
        Reply(ZANTH_UNKNOWN_COMMAND, std::to_string(code) + ";");
        Flush();
        return;
    }
    switch (code) {
        case ZANTH_CONTROLLER_INFO:
            Reply(ZANTH_CONTROLLER_INFO_RSP,
                  ControllerInfoPayload(config_.model, config_.firmware, Mac(), SerialFor(Mac())));
            break;
        case ZANTH_REBOOT_INTERFACE:
        case ZANTH_REBOOT: {
            auto fields = SplitFields(payload);
            auto target = fields.empty() ? std::nullopt : FieldNumber(fields[0]);
            Reply(code + 1000, "0;");
            if (target && *target == 32) {
                // The answer goes out first; then the controller goes down.
                Flush();
                Reboot();
                return;
            }
            break;
        }
        case ZANTH_REBOOT_CONTROLLER:
            // The old reboot command has no answer: the controller just goes.
            Reboot();
            return;
        case ZANTH_RECHECK_LOOKUP_CARD:
            HandleRecheck(payload);
            break;
        case ZANTH_REQUEST_PIN:
            HandlePinRequest(payload);
            break;
        case ZANTH_POST_ACCESS_MSG_TO_ZANTH:
            // Shown on the door's display; nothing goes back.
            break;
        default:
            if (!OfferToFamilies(code, payload)) {
                Reply(ZANTH_UNKNOWN_COMMAND, std::to_string(code) + ";");
            }
            break;
    }
    Flush();
}

void Controller::HandleRecheck(std::string_view payload) {
    auto decision = ParseRecheck(payload);
    if (!decision) {
        Reply(ZANTH_RECHECK_LOOKUP_CARD_RSP, "-100;");
        return;
    }
    auto pending = pendingLookups_.find({decision->door, decision->card});
    if (pending == pendingLookups_.end()) {
        Reply(ZANTH_RECHECK_LOOKUP_CARD_RSP, "-101;");
        return;
    }
    pendingLookups_.erase(pending);
    Reply(ZANTH_RECHECK_LOOKUP_CARD_RSP, "0;");
    // The door acts on the decision and reports what happened.
    Transmit({ZANTH_POST_ACCESS_MSG_TO_HOST,
              PostAccessPayload(Mac(), decision->door, decision->card, decision->granted), 0, false,
              std::nullopt});
}

void Controller::HandlePinRequest(std::string_view payload) {
    auto request = ParsePinRequest(payload);
    if (!request) {
        Reply(ZANTH_REQUEST_PIN_RSP, "-100;");
        return;
    }
    Reply(ZANTH_REQUEST_PIN_RSP, "0;");
    ArmTimer(TimerKind::PinReport, std::max(config_.pinDelayMs, 0), request->door);
}

}  // namespace zanth::sim
