// The library in this process as the command line's way to the controllers: loaded at run time
// (zanth::Load) once the command line has moved into its data folder, started with a
// zanth::Session, and called by name through zanth.hpp's dynamic layer.

#include <cerrno>
#include <deque>
#include <mutex>

#include "tools/cli/Api.h"
#include "tools/cli/Platform.h"
#include "zanth.hpp"

namespace zanth::cli {
namespace {

// The library reports socket errors by their Winsock numbers on every system.
std::string SocketErrorText(int32_t code) {
    switch (code) {
        case 10048: return "the address is in use";
        case 10049: return "the address is not available here";
        case 10050: return "the network is down";
        case 10051: return "the network is unreachable";
        case 10053: return "the connection was aborted";
        case 10054: return "the connection was reset by the peer";
        case 10060: return "the connection timed out";
        case 10061: return "the connection was refused (nothing listens there)";
        case 10064: return "the host is down";
        case 10065: return "the host is unreachable";
        case 11001: return "no such host";
        default: return "";
    }
}

Result FromCall(const ::zanth::dynamic::Call& c) {
    Result r;
    r.exportName = c.exp ? c.exp->name : "";
    r.code = c.result;
    r.ok = c.ok;
    r.empty = c.empty;
    r.name = c.ResultName();
    r.meaning = c.ResultMeaning();
    if (!c.ok && c.result > 0 && !SocketErrorText(c.result).empty()) {
        r.meaning = "a socket error: " + SocketErrorText(c.result);
    }
    r.outputs = c.outputs;
    return r;
}

Result FromError(const ::zanth::Error& e) {
    Result r;
    r.exportName = e.exportName();
    r.code = e.code();
    r.name = e.name();
    r.meaning = e.meaning();
    return r;
}

// What a failed Initialization most likely means, for the person reading it.
std::string StartHint(int32_t code) {
    // WSAEADDRINUSE, as the library and Windows give it.
    if (code == EADDRINUSE || code == 10048) {
        return "On a site whose access-control application (or zanthd) owns the port, the command "
               "line can't listen there:\n  stop that program for the work, choose another port the "
               "controllers call with --port, or call them with --contact.";
    }
    if (code == EACCES || code == 10013) return "no permission to listen on that port";
    return "";
}

class LibraryTransport final : public Transport {
  public:
    explicit LibraryTransport(const std::string& path) {
        try {
            ::zanth::Load(path);
        } catch (const std::exception& e) {
            throw StartError(e.what());
        }
    }

    ~LibraryTransport() override { session_.reset(); }

    void Open(const Reach& reach) override {
        // The library would find a taken port only after Initialization has returned, on its
        // listener's thread, and then stop: it is looked at first.
        if (int error = platform::PortTaken(reach.port)) {
            bool inUse = error == EADDRINUSE || error == 10048;
            std::string hint = StartHint(error);
            throw StartError("can't listen on port " + std::to_string(reach.port) + ": " +
                             (inUse ? "it is in use by another program" : "the system refuses it") + " (error " +
                             std::to_string(error) + ")" + (hint.empty() ? "" : ".\n  " + hint));
        }
        ::zanth::Session::Options o;
        o.port = reach.port;
        o.valid = reach.valid.empty() ? "ALL" : reach.valid;
        if (reach.linkNotices) {
            o.onConnected = [this](const std::string& mac) { Push(MakeNotice("connect", mac)); };
            o.onDisconnected = [this](const std::string& mac) { Push(MakeNotice("disconnect", mac)); };
        }
        try {
            session_ = std::make_unique<::zanth::Session>(o);
        } catch (const ::zanth::Error& e) {
            std::string hint = StartHint(e.code());
            throw StartError("can't listen on port " + std::to_string(reach.port) + ": " +
                             std::to_string(e.code()) + " " + e.name() + ": " + e.meaning() +
                             (hint.empty() ? "" : "\n  " + hint));
        }
        where_ = "port " + std::to_string(reach.port);
        for (const std::string& contact : reach.contacts) {
            size_t colon = contact.rfind(':');
            std::string host = contact.substr(0, colon);
            int32_t port = static_cast<int32_t>(std::stol(contact.substr(colon + 1)));
            ::zanth::dynamic::Call c = ::zanth::dynamic::Invoke(
                "ContactController", {{"iphostname", host}, {"port", int64_t{port}}});
            if (!c.ok) throw Failure("calling " + contact, FromCall(c));
        }
        if (!reach.contacts.empty()) {
            where_ = reach.contacts.size() == 1 ? reach.contacts[0]
                                                : std::to_string(reach.contacts.size()) + " addresses called";
        }
    }

    bool IsOpen() const override { return session_ != nullptr; }
    std::string Where() const override { return where_; }

    std::vector<std::string> Connected() override {
        if (!session_) return {};
        return ::zanth::Session::Connected();
    }

    Result Call(std::string_view exportName, const Args& args) override {
        return Invoke(exportName, args);
    }

    Result Submit(std::string_view rspExport, const Args& args) override {
        return Invoke(rspExport, args);
    }

    std::optional<Incoming> NextReply() override {
        try {
            auto r = ::zanth::lib::GetNextResponse();
            if (!r) return std::nullopt;
            return Incoming{static_cast<uint32_t>(r->rspid), std::move(r->buffer), std::nullopt};
        } catch (const ::zanth::Error& e) {
            throw Failure("reading the response queue", FromError(e));
        }
    }

    std::optional<Notice> NextNotice() override {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            if (!links_.empty()) {
                Notice n = std::move(links_.front());
                links_.pop_front();
                return n;
            }
        }
        try {
            namespace lib = ::zanth::lib;
            // Each kind in turn, so that a flood of one doesn't hide the others.
            for (size_t i = 0; i < kPolls; ++i) {
                size_t kind = (next_ + i) % kPolls;
                std::optional<std::string> text;
                switch (kind) {
                    case 0: text = lib::GetNextEvent(); break;
                    case 1: text = lib::GetNextAlarm(); break;
                    case 2: text = lib::GetNextLookup(); break;
                    case 3: text = lib::GetNextPin(); break;
                    case 4: text = lib::GetNextPostAccess(); break;
                    case 5: text = lib::GetNextKeyPadData(); break;
                    case 6: text = lib::GetNextCommandKeyData(); break;
                    case 7: text = lib::GetNextHereIAm(); break;
                    default: text = lib::GetNextSmartCardData(); break;
                }
                if (text) {
                    next_ = kind + 1;
                    // Door reports and smart-card data come padded with blanks.
                    text->erase(text->find_last_not_of(' ') + 1);
                    return MakeNotice(kKinds[kind], std::move(*text));
                }
            }
        } catch (const ::zanth::Error& e) {
            throw Failure("polling the library's queues", FromError(e));
        }
        return std::nullopt;
    }

    std::pair<uint64_t, uint64_t> DropBacklog() override {
        uint64_t events = 0, alarms = 0;
        try {
            while (::zanth::lib::GetNextEvent()) ++events;
            while (::zanth::lib::GetNextAlarm()) ++alarms;
        } catch (const ::zanth::Error& e) {
            throw Failure("reading the message files", FromError(e));
        }
        return {events, alarms};
    }

  private:
    static constexpr size_t kPolls = 9;
    static constexpr const char* kKinds[kPolls] = {"event", "alarm", "lookup", "pin", "door",
                                                   "keypad", "commandkey", "hereiam", "smartcard"};

    Result Invoke(std::string_view exportName, const Args& args) {
        try {
            return FromCall(::zanth::dynamic::Invoke(exportName, args));
        } catch (const ::zanth::ArgumentError& e) {
            throw ArgError(e.exportName(), e.param(), e.why());
        } catch (const ::zanth::UnknownExport& e) {
            throw UnknownName(e.name(), e.suggestions());
        }
    }

    static Notice MakeNotice(const char* kind, std::string text) {
        Notice n;
        n.kind = kind;
        n.text = std::move(text);
        return n;
    }

    void Push(Notice n) {
        std::lock_guard<std::mutex> lock(mutex_);
        links_.push_back(std::move(n));
    }

    std::unique_ptr<::zanth::Session> session_;
    std::string where_;
    std::mutex mutex_;
    std::deque<Notice> links_;
    size_t next_ = 0;
};

}  // namespace

std::unique_ptr<Transport> MakeLibraryTransport(const std::string& path) {
    return std::make_unique<LibraryTransport>(path);
}

}  // namespace zanth::cli
