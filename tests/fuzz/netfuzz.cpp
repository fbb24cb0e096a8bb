// zanth-netfuzz: a black-box fuzzer of the library's network side. It starts the library the
// way a host does (valid list, Initialization on a loopback port), then connects to it again and
// again from a few peer threads, on 127.0.0.1 only, each time with traffic of one kind: random
// bytes, malformed headers, lengths beyond any buffer, frames cut at every byte, frames cut off
// by a close or a reset, identification followed by unsolicited messages with garbage payloads,
// encrypted identification followed by garbage or by sealed frames with garbage inside,
// controllers that answer the host's commands with mutated replies, and controllers that answer
// well, then stop answering in the middle of a command or a stream (keeping their link and their
// heartbeats) and call back once the link is gone. Meanwhile a host thread sends commands to
// whatever has identified, with a short wait, and drains the host's queues.
//
// When the time or the connection count runs out, every peer closes and the library is given
// time to settle. The run passes when the process is still up, every controller that stopped
// answering was listed again once it called back, a fresh controller can still identify and
// answer a command, and the thread and open-descriptor counts are back at what they were before
// the first connection. Both counts are printed either way.
//
//   zanth-netfuzz [--duration SECONDS] [--connections COUNT] [--seed N] [--peers N] [--keep]
//                 [--trace] [--tolerate-parked-replies]
//
// The reference cipher plugin must be on the library search path (LD_LIBRARY_PATH=<tree>/lib)
// for sealed frames; without it the encrypted kinds only meet the refusal.

#include <arpa/inet.h>
#include <dirent.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "FuzzSupport.h"
#include "frame/Context.h"
#include "monitors/HandleHashMon.h"
#include "monitors/RecvMon.h"
#include "protocol/Codes.h"
#include "protocol/MessageUtil.h"
#include "security/Crypto.h"
#include "zanth.h"

namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr const char* kSeed = "netseed";
// Valid MACs: the hostile kinds take the first eight, the command responders the next seven (a
// MAC that identifies again waits for its former link to be replaced, longer than a responder
// stays), the controllers that stall the next two, one each at a time, the check at the end the
// last.
constexpr int kValidMacs = 18;
constexpr int kHostileMacs = 8;
constexpr int kResponderMacs = 7;
constexpr int kStallerMacs = 2;
constexpr int kFirstStallerMac = kHostileMacs + kResponderMacs;

struct Options {
    int durationSeconds = 60;
    long connections = 20000;
    uint64_t seed = 1;
    int peers = 6;
    bool trace = false;
    bool tolerateParked = false;
};

// ---- Counts -----------------------------------------------------------------------------------

std::atomic<long> connectionsMade{0};
std::atomic<long> connectFailures{0};
std::atomic<long> framesSent{0};
std::atomic<long> bytesSent{0};
std::atomic<long> repliesServed{0};
std::atomic<long> queuedCommands{0};
// The controllers that stopped answering: how their links ended, and whether the library listed
// them again when they called back.
std::atomic<long> stalls{0};
std::atomic<long> stallsClosedByLibrary{0};
std::atomic<long> stallsOnACommand{0};
std::atomic<long> stallsLost{0};
std::atomic<long> stallsRelisted{0};
std::atomic<long> stallsNotRelisted{0};
std::atomic<bool> stallerBusy[kStallerMacs];
// The end of the traffic, for every peer thread.
std::atomic<bool> stop{false};
std::mutex tallyLock;
std::map<std::string, long> kindCount;
std::map<int32_t, long> hostResults;

void Tally(std::map<std::string, long>& m, const std::string& key) {
    std::lock_guard<std::mutex> g(tallyLock);
    ++m[key];
}

int CountEntries(const char* dir) {
    DIR* d = ::opendir(dir);
    if (d == nullptr) return -1;
    int n = 0;
    while (dirent* e = ::readdir(d)) {
        if (e->d_name[0] != '.') ++n;
    }
    ::closedir(d);
    return n;
}
// The directory stream of the count itself is one of the descriptors; it is left out.
int OpenDescriptors() {
    return CountEntries("/proc/self/fd") - 1;
}
int Threads() {
    return CountEntries("/proc/self/task");
}

// ---- Frames -----------------------------------------------------------------------------------

std::string Frame(int code, const std::string& payload) {
    char header[32];
    std::snprintf(header, sizeof header, "%04d;%04d;", code, static_cast<int>(payload.size()) + 10);
    return std::string(header, 10) + payload;
}

std::string MacText(int index) {
    char mac[16];
    std::snprintf(mac, sizeof mac, "AB:00:%02X", index);
    return mac;
}

std::string IdentifyPayload(const std::string& mac) {
    return "02:5A:37:" + mac + ";4.2;";
}

// A random payload: fields of printable text, or any bytes at all.
std::string Garbage(std::mt19937_64& rng, size_t maxLength) {
    std::uniform_int_distribution<size_t> lengthOf(0, maxLength);
    size_t length = lengthOf(rng);
    std::string text(length, '\0');
    const int style = static_cast<int>(rng() % 3);
    for (char& c : text) {
        if (style == 0)
            c = static_cast<char>(rng() % 256);
        else if (style == 1)
            c = static_cast<char>(32 + rng() % 95);
        else
            c = "0123456789;^#-,"[rng() % 15];
    }
    return text;
}

// Flips, inserts and drops a few bytes of a valid stream.
std::string Mutate(std::string bytes, std::mt19937_64& rng) {
    const int edits = 1 + static_cast<int>(rng() % 6);
    for (int i = 0; i < edits && !bytes.empty(); ++i) {
        size_t at = rng() % bytes.size();
        switch (rng() % 4) {
            case 0:
                bytes[at] = static_cast<char>(rng() % 256);
                break;
            case 1:
                bytes.insert(at, 1, static_cast<char>(rng() % 256));
                break;
            case 2:
                bytes.erase(at, 1);
                break;
            default:
                bytes[at] = "0123456789;"[rng() % 11];
                break;
        }
    }
    return bytes;
}

const int kUnsolicited[] = {zanth::ZANTH_ALARM_MESSAGE,
                            zanth::ZANTH_EVENT_MESSAGE,
                            zanth::ZANTH_MESSAGE_BUNDLE,
                            zanth::ZANTH_HEART_BEAT,
                            zanth::ZANTH_CHECK_CARD,
                            zanth::ZANTH_HERE_I_AM,
                            zanth::ZANTH_POST_ACCESS_MSG_TO_HOST,
                            zanth::ZANTH_REPORT_PIN,
                            zanth::ZANTH_SMART_CARD_DATA,
                            zanth::ZANTH_KEY_PAD_DATA,
                            zanth::ZANTH_COMMAND_KEY_DATA,
                            zanth::ZANTH_SEND_FILE_RSP,
                            zanth::ZANTH_GET_FILE_MORE,
                            zanth::ZANTH_GET_FILE_END,
                            zanth::ZANTH_CONTROLLER_INFO_RSP,
                            zanth::ZANTH_FILE_TRANSFER_ERROR,
                            zanth::ZANTH_IDENTIFY_CONTROLLER};

// ---- One connection ----------------------------------------------------------------------------

class Peer {
  public:
    explicit Peer(int port) {
        fd_ = ::socket(AF_INET, SOCK_STREAM, 0);
        if (fd_ < 0) return;
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        a.sin_port = htons(static_cast<uint16_t>(port));
        timeval tv{2, 0};
        ::setsockopt(fd_, SOL_SOCKET, SO_SNDTIMEO, &tv, sizeof tv);
        int one = 1;
        ::setsockopt(fd_, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
        if (::connect(fd_, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0) {
            ::close(fd_);
            fd_ = -1;
        }
    }
    ~Peer() { Close(false); }
    bool Up() const { return fd_ >= 0; }
    // True once the other side has closed the link (nothing left to read, and its end seen).
    bool Ended() const {
        char byte;
        return fd_ >= 0 && ::recv(fd_, &byte, 1, MSG_PEEK | MSG_DONTWAIT) == 0;
    }

    bool Send(const std::string& bytes) {
        size_t at = 0;
        while (fd_ >= 0 && at < bytes.size()) {
            ssize_t n = ::send(fd_, bytes.data() + at, bytes.size() - at, MSG_NOSIGNAL);
            if (n <= 0) return false;
            at += static_cast<size_t>(n);
        }
        bytesSent += static_cast<long>(bytes.size());
        return fd_ >= 0;
    }
    bool SendFrame(const std::string& bytes) {
        ++framesSent;
        return Send(bytes);
    }
    // One send per byte, with a pause now and then so that the pieces arrive apart.
    bool SendEveryByte(const std::string& bytes, std::mt19937_64& rng) {
        for (char c : bytes) {
            if (!Send(std::string(1, c))) return false;
            if (rng() % 4 == 0)
                std::this_thread::sleep_for(std::chrono::microseconds(rng() % 3000));
        }
        return true;
    }
    // What arrived within `ms` (at most 64 KB); empty at the end of the stream.
    std::string Read(int ms) {
        std::string got;
        pollfd p{fd_, POLLIN, 0};
        if (fd_ < 0 || ::poll(&p, 1, ms) <= 0) return got;
        char buffer[65536];
        ssize_t n = ::recv(fd_, buffer, sizeof buffer, MSG_DONTWAIT);
        if (n > 0) got.assign(buffer, static_cast<size_t>(n));
        return got;
    }
    // An orderly close, or a reset (SO_LINGER 0) that throws away what is unsent.
    void Close(bool reset) {
        if (fd_ < 0) return;
        if (reset) {
            linger l{1, 0};
            ::setsockopt(fd_, SOL_SOCKET, SO_LINGER, &l, sizeof l);
        }
        ::close(fd_);
        fd_ = -1;
    }

  private:
    int fd_ = -1;
};

// Sealing of frames as an encrypting controller does it; absent without the plugin.
class Sealer {
  public:
    Sealer() { ok_ = util_.GetBufferSize(&room_) == 0 && room_ > 5; }
    bool Ok() const { return ok_; }
    bool Key(const std::string& identifyFrame, unsigned char* key) {
        std::lock_guard<std::mutex> g(lock_);
        std::string text(identifyFrame.c_str(),
                         std::min<size_t>(std::strlen(identifyFrame.c_str()), 200));
        return util_.GenerateKey(text.c_str(), kSeed, key, 32) == 0;
    }
    std::string Seal(const std::string& plain, const unsigned char* key) {
        std::lock_guard<std::mutex> g(lock_);
        std::vector<char> out(static_cast<size_t>(room_) + 1);
        int32_t length = 0;
        if (util_.EncryptMessage(plain.data(), static_cast<int32_t>(plain.size()), out.data(),
                                 room_, &length, key) != 0)
            return {};
        return std::string(out.data(), static_cast<size_t>(length) + 5);
    }

  private:
    std::mutex lock_;
    zanth::Crypto crypto_;
    zanth::MessageUtil util_{&crypto_};
    int32_t room_ = 0;
    bool ok_ = false;
};

Sealer* sealer = nullptr;

// ---- The kinds of traffic ---------------------------------------------------------------------

std::string AnyMac(std::mt19937_64& rng) {
    if (rng() % 4 == 0) {
        char mac[16];
        std::snprintf(mac, sizeof mac, "CD:%02X:%02X", static_cast<int>(rng() % 256),
                      static_cast<int>(rng() % 256));
        return mac;  // not on the valid list
    }
    return MacText(static_cast<int>(rng() % kHostileMacs));
}

void RandomBytes(Peer& p, std::mt19937_64& rng) {
    p.SendFrame(Garbage(rng, 8192));
}

void BadHeaders(Peer& p, std::mt19937_64& rng) {
    static const char* kHeaders[] = {"0011;abcd;", "0001;-100;", "abcd",       "0079;0009;",
                                     ";;;;;;;;;;", "0000;0010;", "+079;0010;", "0079; 010;",
                                     "0079;0010",  "00790010;;", "1061;0000;", "-001;0010;"};
    if (rng() % 2)
        p.SendFrame(Frame(zanth::ZANTH_IDENTIFY_CONTROLLER, IdentifyPayload(AnyMac(rng))));
    const int n = 1 + static_cast<int>(rng() % 3);
    for (int i = 0; i < n; ++i) {
        std::string h = kHeaders[rng() % (sizeof kHeaders / sizeof kHeaders[0])];
        p.SendFrame(h + Garbage(rng, 64));
    }
}

void HugeLengths(Peer& p, std::mt19937_64& rng) {
    static const char* kHeaders[] = {"1061;9999;", "1061;4118;", "1061;4117;", "0079;5000;",
                                     "1043;9999;"};
    if (rng() % 2)
        p.SendFrame(Frame(zanth::ZANTH_IDENTIFY_CONTROLLER, IdentifyPayload(AnyMac(rng))));
    std::string h = kHeaders[rng() % (sizeof kHeaders / sizeof kHeaders[0])];
    p.SendFrame(h + std::string(rng() % 6000, 'x'));
}

void SplitAtEveryByte(Peer& p, std::mt19937_64& rng) {
    std::string stream = Frame(zanth::ZANTH_IDENTIFY_CONTROLLER, IdentifyPayload(AnyMac(rng))) +
                         Frame(zanth::ZANTH_EVENT_MESSAGE, "1;2;split event;") +
                         Frame(zanth::ZANTH_HEART_BEAT, "");
    framesSent += 3;
    p.SendEveryByte(stream, rng);
    p.Read(100);
}

void TruncatedThenClose(Peer& p, std::mt19937_64& rng) {
    p.SendFrame(Frame(zanth::ZANTH_IDENTIFY_CONTROLLER, IdentifyPayload(AnyMac(rng))));
    std::string frame =
        Frame(kUnsolicited[rng() % (sizeof kUnsolicited / sizeof(int))], Garbage(rng, 2000));
    p.SendFrame(frame.substr(0, rng() % frame.size()));
    if (rng() % 2) p.Read(60);
}

void Unsolicited(Peer& p, std::mt19937_64& rng) {
    p.SendFrame(Frame(zanth::ZANTH_IDENTIFY_CONTROLLER, IdentifyPayload(AnyMac(rng))));
    const int n = 1 + static_cast<int>(rng() % 12);
    for (int i = 0; i < n; ++i) {
        const int code = kUnsolicited[rng() % (sizeof kUnsolicited / sizeof(int))];
        std::string payload = Garbage(rng, rng() % 8 == 0 ? 4087 : 300);
        if (code == zanth::ZANTH_MESSAGE_BUNDLE && rng() % 2) {
            payload = "1061;" + Garbage(rng, 100) + "^1060;" + Garbage(rng, 100) + "^";
        }
        if (!p.SendFrame(Frame(code, payload))) break;
    }
    p.Read(50 + static_cast<int>(rng() % 200));
}

void EncryptedGarbage(Peer& p, std::mt19937_64& rng) {
    p.SendFrame(Frame(zanth::ZANTH_IDENTIFY_ENCRYPTED_CONTROLLER, IdentifyPayload(AnyMac(rng))));
    const int n = 1 + static_cast<int>(rng() % 4);
    for (int i = 0; i < n; ++i) {
        std::string cipher = Garbage(rng, 600);
        char header[16];
        int claimed =
            rng() % 3 == 0 ? static_cast<int>(rng() % 10000) : static_cast<int>(cipher.size()) + 5;
        std::snprintf(header, sizeof header, "%04d;", claimed % 10000);
        p.SendFrame(rng() % 5 == 0 ? cipher : std::string(header, 5) + cipher);
    }
    p.Read(100);
}

void EncryptedSealed(Peer& p, std::mt19937_64& rng) {
    const std::string identify =
        Frame(zanth::ZANTH_IDENTIFY_ENCRYPTED_CONTROLLER, IdentifyPayload(AnyMac(rng)));
    unsigned char key[32] = {};
    if (!sealer->Ok() || !sealer->Key(identify, key)) {
        EncryptedGarbage(p, rng);
        return;
    }
    p.SendFrame(identify);
    const int n = 1 + static_cast<int>(rng() % 8);
    for (int i = 0; i < n; ++i) {
        const int code = kUnsolicited[rng() % (sizeof kUnsolicited / sizeof(int))];
        std::string plain = Frame(code, Garbage(rng, 400));
        if (rng() % 4 == 0) plain = Mutate(plain, rng);
        std::string sealed = sealer->Seal(plain, key);
        if (sealed.empty()) continue;
        if (rng() % 6 == 0) sealed = Mutate(sealed, rng);
        if (!p.SendFrame(sealed)) break;
    }
    p.Read(100);
}

// The controller's side of a file transfer: chunks, their acknowledgements and its failure.
constexpr int kTransferCodes[] = {zanth::ZANTH_SEND_FILE_RSP, zanth::ZANTH_GET_FILE_MORE,
                                  zanth::ZANTH_GET_FILE_END, zanth::ZANTH_FILE_TRANSFER_ERROR};

// A controller that identifies and answers the host's commands, mostly wrongly.
void Responder(Peer& p, std::mt19937_64& rng) {
    const std::string mac = MacText(kHostileMacs + static_cast<int>(rng() % kResponderMacs));
    p.SendFrame(Frame(zanth::ZANTH_IDENTIFY_CONTROLLER, IdentifyPayload(mac)));
    const auto until = Clock::now() + std::chrono::milliseconds(500 + rng() % 2500);
    std::string pending;
    while (Clock::now() < until) {
        std::string got = p.Read(50);
        if (got.empty()) continue;
        pending += got;
        // Commands are clear frames below 1000; acceptances and acknowledgements pass by.
        while (pending.size() >= 10) {
            int total = std::atoi(pending.substr(5, 4).c_str());
            if (total < 10 || static_cast<size_t>(total) > pending.size()) break;
            const int code = std::atoi(pending.substr(0, 4).c_str());
            pending.erase(0, static_cast<size_t>(total));
            if (code >= 1000 || code == zanth::ZANTH_ACCEPT_CONNECTION) continue;
            std::string reply;
            switch (rng() % 8) {
                case 0:
                    reply = Frame(code + 1000, "Zanth;4.2;" + mac + ";");
                    break;
                case 6:
                    reply = Frame(kTransferCodes[rng() % std::size(kTransferCodes)],
                                  Garbage(rng, rng() % 2 ? 4086 : 40));
                    break;
                case 1:
                    reply = Frame(code + 1000, Garbage(rng, 4087));
                    break;
                case 2:
                    reply = Frame(static_cast<int>(rng() % 10000), Garbage(rng, 100));
                    break;
                case 3:
                    reply = Mutate(Frame(code + 1000, "Zanth;"), rng);
                    break;
                case 4:
                    reply = Frame(code + 1000, "").substr(0, 5) + "9999;";
                    break;
                case 5:
                    reply = Frame(zanth::ZANTH_UNKNOWN_COMMAND, "");
                    break;
                default:
                    break;  // no answer: the host's wait runs out
            }
            if (!reply.empty()) {
                ++repliesServed;
                if (rng() % 3 == 0) {
                    ++framesSent;
                    p.SendEveryByte(reply, rng);
                } else {
                    p.SendFrame(reply);
                }
            }
        }
    }
}

// The frames of `pending` that are whole, taken off its front: their codes and payloads.
std::vector<std::pair<int, std::string>> TakeFrames(std::string& pending) {
    std::vector<std::pair<int, std::string>> frames;
    while (pending.size() >= 10) {
        int total = std::atoi(pending.substr(5, 4).c_str());
        if (total < 10 || static_cast<size_t>(total) > pending.size()) break;
        frames.emplace_back(std::atoi(pending.substr(0, 4).c_str()),
                            pending.substr(10, static_cast<size_t>(total) - 10));
        pending.erase(0, static_cast<size_t>(total));
    }
    return frames;
}

// A controller's right answer to a command: its reply, a file's chunks and their ends.
std::string RightAnswer(int code, const std::string& mac, std::mt19937_64& rng) {
    switch (code) {
        case zanth::ZANTH_GET_FILE:
        case zanth::ZANTH_GET_FILE_RSP:
            return Frame(rng() % 3 ? zanth::ZANTH_GET_FILE_MORE : zanth::ZANTH_GET_FILE_END,
                         std::string(rng() % 4086, 'f'));
        case zanth::ZANTH_SEND_FILE:
        case zanth::ZANTH_SEND_FILE_MORE:
        case zanth::ZANTH_SEND_FILE_END:
            return Frame(zanth::ZANTH_SEND_FILE_RSP, "0;");
        case zanth::ZANTH_CONTROLLER_INFO:
            return Frame(zanth::ZANTH_CONTROLLER_INFO_RSP, "Zanth;4.2;" + mac + ";");
        default:
            return Frame(code + 1000, "0;");
    }
}

bool Listed(const std::string& mac) {
    char list[4096] = {};
    GetConnectedControllers(list, sizeof list);
    for (char *save = nullptr, *m = strtok_r(list, ",", &save); m;
         m = strtok_r(nullptr, ",", &save)) {
        if (mac == m) return true;
    }
    return false;
}

void MutatedStream(Peer& p, std::mt19937_64& rng);

// A controller that answers a few of the host's commands rightly, then stops answering in the
// middle of a command or a stream. It keeps its link and its heartbeats, as a controller whose
// command task hung does: it calls again only when its link is closed. A library that gives it up
// (a blocking caller's wait ran out, and the MAC is no longer listed) must close the link, or the
// controller would stay lost for good. An Rsp command's wait ends without ending the link; the
// controller then leaves by itself after a while. Either way it calls back, and the library must
// list it again.
void Staller(Peer& p, std::mt19937_64& rng, int port) {
    const int slot = static_cast<int>(rng() % kStallerMacs);
    bool expected = false;
    if (!stallerBusy[slot].compare_exchange_strong(expected, true)) {
        // Its MAC is in use: a short kind instead, so that the peers keep their pace.
        MutatedStream(p, rng);
        return;
    }
    const std::string mac = MacText(kFirstStallerMac + slot);
    ++stalls;
    p.SendFrame(Frame(zanth::ZANTH_IDENTIFY_CONTROLLER, IdentifyPayload(mac)));
    int answersLeft = static_cast<int>(rng() % 5);
    std::string pending;
    bool closed = false;
    // Without a command to stall on it leaves after 3 s. The host's wait is 1 s and its drop
    // step 5 s more: a link given up on is closed within 8 s of the first unanswered command.
    auto until = Clock::now() + 3s;
    bool stalledOnOne = false;
    auto heartbeat = Clock::now();
    while (!closed && Clock::now() < until && !stop) {
        if (Clock::now() >= heartbeat) {
            p.SendFrame(Frame(zanth::ZANTH_HEART_BEAT, ""));
            heartbeat += 400ms;
        }
        std::string got = p.Read(50);
        if (got.empty()) {
            closed = p.Ended();
            continue;
        }
        pending += got;
        for (auto& [code, payload] : TakeFrames(pending)) {
            if (code >= 1000 || code == zanth::ZANTH_ACCEPT_CONNECTION ||
                code == zanth::ZANTH_HEART_BEAT_RSP || code == zanth::ZANTH_TERMINATE)
                continue;
            if (answersLeft <= 0) {
                // Stalled: it hears, it doesn't answer.
                if (!stalledOnOne) until = std::max(until, Clock::now() + 8s);
                stalledOnOne = true;
                continue;
            }
            --answersLeft;
            ++repliesServed;
            p.SendFrame(RightAnswer(code, mac, rng));
        }
    }
    if (!closed && !stop && !Listed(mac)) {
        // Given up on: the link must close at the Worker's next turn, not stay up with its
        // heartbeats answered.
        auto grace = Clock::now() + 2s;
        while (!closed && Clock::now() < grace) {
            p.SendFrame(Frame(zanth::ZANTH_HEART_BEAT, ""));
            if (p.Read(100).empty()) closed = p.Ended();
        }
        if (!closed) {
            ++stallsLost;
            std::printf("  %s is no longer listed, but its link stayed up\n", mac.c_str());
            std::fflush(stdout);
        }
    }
    if (closed) ++stallsClosedByLibrary;
    if (stalledOnOne) ++stallsOnACommand;
    p.Close(false);
    if (stop) {
        stallerBusy[slot] = false;
        return;
    }

    // It calls back, and answers rightly from now on.
    Peer again(port);
    bool listed = false;
    if (again.Up() &&
        again.SendFrame(Frame(zanth::ZANTH_IDENTIFY_CONTROLLER, IdentifyPayload(mac)))) {
        // A former link the library hasn't seen end yet is replaced after five seconds.
        auto deadline = Clock::now() + 20s;
        std::string backlog;
        while (!listed && Clock::now() < deadline && !stop) {
            backlog += again.Read(50);
            for (auto& [code, payload] : TakeFrames(backlog)) {
                if (code < 1000 && code != zanth::ZANTH_ACCEPT_CONNECTION &&
                    code != zanth::ZANTH_TERMINATE)
                    again.SendFrame(RightAnswer(code, mac, rng));
            }
            listed = Listed(mac);
        }
    }
    if (listed) {
        ++stallsRelisted;
    } else if (!stop) {
        ++stallsNotRelisted;
        std::printf("  %s called back and was not listed again within 20 s\n", mac.c_str());
        std::fflush(stdout);
    }
    again.Close(false);
    stallerBusy[slot] = false;
}

void MutatedStream(Peer& p, std::mt19937_64& rng) {
    std::string stream = Frame(zanth::ZANTH_IDENTIFY_CONTROLLER, IdentifyPayload(AnyMac(rng)));
    const int n = 1 + static_cast<int>(rng() % 6);
    for (int i = 0; i < n; ++i) {
        stream +=
            Frame(kUnsolicited[rng() % (sizeof kUnsolicited / sizeof(int))], Garbage(rng, 80));
    }
    framesSent += n;
    p.SendFrame(Mutate(stream, rng));
    p.Read(80);
}

int fuzzPort = 0;
void StallThenCallBack(Peer& p, std::mt19937_64& rng) {
    Staller(p, rng, fuzzPort);
}

struct Kind {
    const char* name;
    void (*run)(Peer&, std::mt19937_64&);
};
const Kind kKinds[] = {{"random bytes", RandomBytes},
                       {"bad headers", BadHeaders},
                       {"huge lengths", HugeLengths},
                       {"split at every byte", SplitAtEveryByte},
                       {"truncated then closed", TruncatedThenClose},
                       {"unsolicited garbage", Unsolicited},
                       {"encrypted garbage", EncryptedGarbage},
                       {"encrypted sealed garbage", EncryptedSealed},
                       {"command responder", Responder},
                       {"stalls, then calls back", StallThenCallBack},
                       {"mutated stream", MutatedStream}};

// ---- Threads ----------------------------------------------------------------------------------

std::atomic<long> budget{0};

void PeerThread(int port, uint64_t seed) {
    std::mt19937_64 rng(seed);
    while (!stop && budget.fetch_sub(1) > 0) {
        const Kind& kind = kKinds[rng() % (sizeof kKinds / sizeof kKinds[0])];
        Peer p(port);
        if (!p.Up()) {
            ++connectFailures;
            std::this_thread::sleep_for(10ms);
            continue;
        }
        ++connectionsMade;
        Tally(kindCount, kind.name);
        kind.run(p, rng);
        p.Close(rng() % 3 == 0);
    }
}

void HostThread(uint64_t seed) {
    std::mt19937_64 rng(seed);
    char list[4096];
    char buffer[8192];
    while (!stop) {
        // The host's queues are drained as an application would, so nothing piles up.
        int32_t rspid = 0;
        while (GetNextResponse(&rspid, buffer, sizeof buffer) == 0) {
        }
        while (GetNextEvent(buffer, sizeof buffer) == 0) {
        }
        while (GetNextAlarm(buffer, sizeof buffer) == 0) {
        }
        while (GetNextLookup(buffer, sizeof buffer) == 0 ||
               GetNextPin(buffer, sizeof buffer) == 0 ||
               GetNextHereIAm(buffer, sizeof buffer) == 0 ||
               GetNextPostAccess(buffer, sizeof buffer) == 0 ||
               GetNextKeyPadData(buffer, sizeof buffer) == 0 ||
               GetNextCommandKeyData(buffer, sizeof buffer) == 0 ||
               GetNextSmartCardData(buffer, sizeof buffer) == 0) {
        }
        std::memset(list, 0, sizeof list);
        GetConnectedControllers(list, sizeof list);
        // Identified controllers on the valid list; the others would only give -10004.
        std::vector<std::string> macs;
        for (char *save = nullptr, *m = strtok_r(list, ",", &save); m;
             m = strtok_r(nullptr, ",", &save)) {
            for (int i = 0; i < kValidMacs; ++i) {
                if (MacText(i) == m) macs.emplace_back(m);
            }
        }
        if (macs.empty()) {
            std::this_thread::sleep_for(20ms);
            continue;
        }
        // Half the commands wait for their reply, half have it delivered to the response queue.
        // Besides ControllerInfo, the commands with the loosest reply readings and the file
        // transfers, whose chunks and ends the responders answer with garbage too.
        // Half the time a controller that may stall, when one is there, so that it stalls in the
        // middle of a command or a stream often enough.
        std::vector<std::string> stallers;
        for (const std::string& mac : macs) {
            for (int i = 0; i < kStallerMacs; ++i) {
                if (mac == MacText(kFirstStallerMac + i)) stallers.push_back(mac);
            }
        }
        const std::vector<std::string>& pool = !stallers.empty() && rng() % 2 ? stallers : macs;
        const char* m = pool[rng() % pool.size()].c_str();
        const auto tag = static_cast<uint32_t>(rng() % 1000);
        const auto size = static_cast<int32_t>(rng() % 64 + 1);
        int32_t rc = 0;
        int32_t value = 0;
        int32_t last = 0;
        bool queued = false;
        switch (rng() % 10) {
            case 0:
            case 1:
                RspControllerInfo(tag, m);
                queued = true;
                break;
            case 2:
                RspGetFile(tag, m, "/log/x", "netfuzz-get.bin");
                queued = true;
                break;
            case 3:
                rc = ControllerInfo(m, buffer, size);
                break;
            case 4:
                rc = GetFile(m, "/log/x", "netfuzz-get.bin");
                break;
            case 5:
                rc = SendFile(m, "/cfg/x", "netfuzz-send.bin");
                break;
            case 6:
                rc = GetData(m, "/cfg/x", buffer, size * 64, &value, &last);
                break;
            case 7:
                rc = DiscoverInterfaces2(m, buffer, size);
                break;
            case 8:
                rc = GetErrorLog(m, "netfuzz-errorlog.txt");
                break;
            default:
                rc = GetMoxModuleRevs(m, buffer, size);
                break;
        }
        if (queued) {
            ++queuedCommands;
        } else {
            std::lock_guard<std::mutex> g(tallyLock);
            ++hostResults[rc];
        }
        std::this_thread::sleep_for(20ms);
    }
}

bool ListenerUp(int port) {
    // /proc/net/tcp lists the port in hex with state 0A (LISTEN); a test connect would start a
    // Worker of its own.
    std::ifstream in("/proc/net/tcp");
    std::string line;
    char want[16];
    std::snprintf(want, sizeof want, ":%04X", port);
    while (std::getline(in, line)) {
        if (line.find(want) != std::string::npos && line.find(" 0A ") != std::string::npos)
            return true;
    }
    return false;
}

int FreePort() {
    int s = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t len = sizeof a;
    ::bind(s, reinterpret_cast<sockaddr*>(&a), sizeof a);
    ::getsockname(s, reinterpret_cast<sockaddr*>(&a), &len);
    ::close(s);
    return ntohs(a.sin_port);
}

template <class Condition>
bool WaitFor(Condition condition, Clock::duration bound) {
    const auto deadline = Clock::now() + bound;
    while (!condition()) {
        if (Clock::now() >= deadline) return condition();
        std::this_thread::sleep_for(20ms);
    }
    return true;
}

// A well-behaved controller after all the abuse: it identifies and answers ControllerInfo.
bool StillServes(int port) {
    const std::string mac = MacText(kValidMacs - 1);
    Peer p(port);
    if (!p.Up() || !p.Send(Frame(zanth::ZANTH_IDENTIFY_CONTROLLER, IdentifyPayload(mac))))
        return false;
    std::atomic<bool> done{false};
    std::thread answer([&p, &mac, &done] {
        std::string pending;
        while (!done) {
            pending += p.Read(50);
            for (size_t at; (at = pending.find("0079;0010;")) != std::string::npos;) {
                pending.erase(0, at + 10);
                p.Send(Frame(zanth::ZANTH_CONTROLLER_INFO_RSP, "Zanth;4.2;" + mac + ";"));
            }
        }
    });
    char info[256] = {};
    bool connected = WaitFor(
        [&mac] {
            char list[4096] = {};
            GetConnectedControllers(list, sizeof list);
            return std::string(list).find(mac) != std::string::npos;
        },
        20s);
    // A reply that a fuzzing peer parked in the one reply slot after its caller gave up is taken
    // by the next blocking call (the slot marks no caller); the second call then gets its own.
    int32_t rc = -1;
    bool ok = false;
    for (int attempt = 0; connected && attempt < 3 && !ok; ++attempt) {
        rc = ControllerInfo(mac.c_str(), info, sizeof info);
        ok = rc == 0 && std::string(info) == "Zanth;4.2;" + mac + ";";
    }
    done = true;
    answer.join();
    p.Close(false);
    if (!ok) std::printf("  the fresh controller got %d \"%s\"\n", rc, info);
    return ok;
}

void Usage(FILE* out) {
    std::fprintf(out,
                 "usage: zanth-netfuzz [--duration SECONDS] [--connections COUNT] [--seed N]\n"
                 "                     [--peers N] [--keep] [--trace] [--tolerate-parked-replies]\n"
                 "  --duration     how long to send traffic (default 60, at most 86400)\n"
                 "  --connections  the most connections to make (default 20000)\n"
                 "  --seed         the random seed (default 1)\n"
                 "  --peers        peer threads connecting at once (default 6, 1 to 64)\n"
                 "  --keep         keep the scratch directory with the library's log\n"
                 "  --trace        log at the trace level (75)\n"
                 "  --tolerate-parked-replies\n"
                 "                 pass when the only Workers left after the peers closed are\n"
                 "                 ones waiting to park replies nobody asked for, and they end\n"
                 "                 once the host takes those replies\n");
}

bool ParseOptions(int argc, char** argv, Options* o) {
    for (int i = 1; i < argc; ++i) {
        std::string a = argv[i];
        auto value = [&](long low, long high, long* out) {
            if (i + 1 >= argc) return false;
            char* end = nullptr;
            long v = std::strtol(argv[++i], &end, 10);
            if (*end != '\0' || v < low || v > high) return false;
            *out = v;
            return true;
        };
        long v = 0;
        if (a == "--duration" && value(1, 86400, &v))
            o->durationSeconds = static_cast<int>(v);
        else if (a == "--connections" && value(1, 100000000, &v))
            o->connections = v;
        else if (a == "--seed" && value(0, 0x7fffffffL, &v))
            o->seed = static_cast<uint64_t>(v);
        else if (a == "--peers" && value(1, 64, &v))
            o->peers = static_cast<int>(v);
        else if (a == "--keep")
            ::setenv("ZANTH_KEEP_SANDBOX", "1", 1);
        else if (a == "--trace")
            o->trace = true;
        else if (a == "--tolerate-parked-replies")
            o->tolerateParked = true;
        else if (a == "--help" || a == "-h") {
            Usage(stdout);
            std::exit(0);
        } else {
            return false;
        }
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    Options o;
    if (!ParseOptions(argc, argv, &o)) {
        Usage(stderr);
        return 2;
    }
    zanth::fuzz::EnterScratchDirectory();
    const std::string seeds = std::string("default ") + kSeed + "\n";
    zanth::fuzz::WriteFile("zanth.txt", seeds.data(), seeds.size());
    zanth::fuzz::LoadLibrary();
    if (o.trace) {
        int32_t level = 75;
        DebugLevel(1, &level);
    }

    std::string valid;
    for (int i = 0; i < kValidMacs; ++i) valid += (i ? "," : "") + MacText(i);
    SetValidControllers(valid.c_str());
    std::string sendFile(10000, '\0');
    for (size_t i = 0; i < sendFile.size(); ++i) sendFile[i] = static_cast<char>(i * 131);
    zanth::fuzz::WriteFile("netfuzz-send.bin", sendFile.data(), sendFile.size());
    int32_t wait = 1000;
    RecvWaitTime(1, &wait);
    const int port = FreePort();
    fuzzPort = port;
    if (Initialization(port, nullptr, nullptr) != 0 ||
        !WaitFor([port] { return ListenerUp(port); }, 10s)) {
        std::printf("netfuzz: the library did not start listening on 127.0.0.1:%d\n", port);
        return 1;
    }
    sealer = new Sealer();
    // The library's own threads are up once the listener is; the counts from here on are the
    // ones to come back to.
    std::this_thread::sleep_for(300ms);
    const int threadsBefore = Threads();
    const int fdsBefore = OpenDescriptors();

    std::printf("netfuzz: seed %llu, %d s, at most %ld connections, %d peers, port %d\n",
                static_cast<unsigned long long>(o.seed), o.durationSeconds, o.connections, o.peers,
                port);
    std::printf("netfuzz: encrypted links %s\n",
                sealer->Ok() ? "sealed with the reference plugin"
                             : "refused (no cipher plugin on the library search path)");
    std::fflush(stdout);

    const auto started = Clock::now();
    budget = o.connections;
    std::vector<std::thread> peers;
    for (int i = 0; i < o.peers; ++i)
        peers.emplace_back(PeerThread, port, o.seed * 1000 + static_cast<uint64_t>(i));
    std::thread host(HostThread, o.seed * 1000 + 999);
    const auto deadline = started + std::chrono::seconds(o.durationSeconds);
    long lastReport = 0;
    while (Clock::now() < deadline && budget > 0) {
        std::this_thread::sleep_for(200ms);
        long elapsed =
            std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - started).count();
        if (elapsed / 60 > lastReport) {
            lastReport = elapsed / 60;
            std::printf("  %4ld s: %ld connections, %ld frames, %d threads, %d descriptors\n",
                        elapsed, connectionsMade.load(), framesSent.load(), Threads(),
                        OpenDescriptors());
            std::fflush(stdout);
        }
    }
    stop = true;
    for (std::thread& t : peers) t.join();
    host.join();
    const double seconds = std::chrono::duration<double>(Clock::now() - started).count();

    // Every peer has closed; the Workers notice within a few turns, one that was replaced or whose
    // command timed out within a few seconds more. The host stays idle meanwhile.
    auto settled = [&] { return Threads() <= threadsBefore && OpenDescriptors() <= fdsBefore; };
    const auto settleStart = Clock::now();
    WaitFor(settled, 30s);
    const double settleSeconds = std::chrono::duration<double>(Clock::now() - settleStart).count();
    const int threadsAfter = Threads();
    const int fdsAfter = OpenDescriptors();
    const bool slotFull = !zanth::fuzz::Shared().recvMon->SlotEmpty();
    std::string stillThere;
    if (!settled()) {
        char list[4096] = {};
        GetConnectedControllers(list, sizeof list);
        stillThere = "identified \"" + std::string(list) + "\", " +
                     std::to_string(zanth::fuzz::Shared().workerMon->UnidentifiedCount()) +
                     " unidentified, reply slot " + (slotFull ? "full" : "empty");
    }

    // A reply that no caller asked for stays in the one reply slot, and a Worker with another
    // such reply waits, with its thread and socket, until a blocking call empties the slot; its
    // link may have closed long before. The host now takes what is parked, as its next blocking
    // calls would, and everything else must then be gone too.
    int parked = 0;
    const auto drainUntil = Clock::now() + 30s;
    while (Clock::now() < drainUntil &&
           (!zanth::fuzz::Shared().recvMon->SlotEmpty() || !settled())) {
        if (!zanth::fuzz::Shared().recvMon->SlotEmpty()) {
            char slot[zanth::kMessageBufferSize];
            zanth::fuzz::Shared().recvMon->GetBuffer(slot, "0", *zanth::fuzz::Shared().workerMon);
            ++parked;
        } else {
            std::this_thread::sleep_for(20ms);
        }
    }
    const bool pinned = threadsAfter > threadsBefore && parked > 0 && settled();
    const bool serves = StillServes(port);
    // The check's own Worker goes too.
    WaitFor(settled, 30s);
    const int threadsFinal = Threads();
    const int fdsFinal = OpenDescriptors();

    std::printf("netfuzz: %.0f s of traffic\n", seconds);
    std::printf("  connections made      %ld (%.0f/s; %ld connects refused or failed)\n",
                connectionsMade.load(), connectionsMade.load() / std::max(seconds, 1.0),
                connectFailures.load());
    std::printf("  frames sent           %ld (%ld bytes), %ld replies to the host's commands\n",
                framesSent.load(), bytesSent.load(), repliesServed.load());
    for (const auto& [name, n] : kindCount) std::printf("    %-26s %ld\n", name.c_str(), n);
    long commands = 0;
    std::string results;
    for (const auto& [rc, n] : hostResults) {
        commands += n;
        results += " " + std::to_string(rc) + ":" + std::to_string(n);
    }
    std::printf(
        "  host commands         %ld blocking (result:count%s), %ld with the reply queued\n",
        commands, results.c_str(), queuedCommands.load());
    std::printf(
        "  stalled controllers   %ld stopped answering, %ld of them in the middle of a command\n"
        "                        or stream; the library closed %ld of their links (the\n"
        "                        others closed them themselves); %ld unlisted with their\n"
        "                        link left up; %ld listed again when they called back,\n"
        "                        %ld not\n",
        stalls.load(), stallsOnACommand.load(), stallsClosedByLibrary.load(), stallsLost.load(),
        stallsRelisted.load(), stallsNotRelisted.load());
    std::printf("  process               up; a fresh controller %s\n",
                serves ? "identified and answered ControllerInfo" : "was NOT served");
    std::printf(
        "  threads               %d before, %d after settling %.1f s with the host idle, "
        "%d after the check\n",
        threadsBefore, threadsAfter, settleSeconds, threadsFinal);
    std::printf("  open descriptors      %d before, %d after settling, %d after the check\n",
                fdsBefore, fdsAfter, fdsFinal);
    if (!stillThere.empty()) std::printf("  still there           %s\n", stillThere.c_str());
    std::printf("  unasked replies       %d taken from the reply slot at the end%s\n", parked,
                pinned ? "; Workers of closed links were waiting on it" : "");

    // Anything still there once the parked replies are gone is a leak, whatever the option.
    const bool leak = threadsFinal > threadsBefore || fdsFinal > fdsBefore;
    const bool idleLeak = threadsAfter > threadsBefore || fdsAfter > fdsBefore;
    Shutdown();
    std::string why;
    if (leak) why += "threads or descriptors leaked; ";
    if (!serves) why += "the library no longer serves; ";
    if (stallsNotRelisted > 0) why += "a controller that stopped answering was not listed again; ";
    if (stallsLost > 0) why += "a controller given up on kept its link, unlisted; ";
    if (idleLeak && !leak && !(o.tolerateParked && pinned)) {
        why +=
            "Workers of closed links stayed while the host was idle (waiting to park unasked "
            "replies); ";
    }
    if (!why.empty()) {
        why.resize(why.size() - 2);
        std::printf("netfuzz: FAILED (%s)\n", why.c_str());
        return 1;
    }
    if (idleLeak) {
        std::printf("netfuzz: passed, tolerating Workers that waited to park unasked replies\n");
    } else {
        std::printf("netfuzz: passed\n");
    }
    return 0;
}
