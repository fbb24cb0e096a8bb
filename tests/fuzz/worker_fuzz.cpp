// A Worker's whole input path, as a controller drives it: the real Worker reads one end of a
// socket pair, turn by turn, and the fuzzed bytes go into the other end. Everything behind the
// reader runs too: identification (clear and encrypted), the dispatch of unsolicited messages
// with their acknowledgements, the message files and queues, replies parked for a caller. When
// the bytes run out the peer shuts its side, and the Worker must then end by itself.
//
// Input:
//   byte 0       bit 0: sealed mode (below); bits 1-3: the number of early pieces, 0 to 7
//   next bytes   one per early piece: its length, 1 to 256
//   the rest     the stream
// The early pieces are written one per turn of the Worker, so frames arrive cut in their
// header and body; the rest follows at once, and then the end of the stream.
//
// Sealed mode keys the link as a controller would. The stream starts with a clear frame (its
// length from its own header; normally the 1043 identification), sent as it stands. Records
// follow: a kind byte and a two-byte length (low byte first), then that many bytes, which are
// enciphered with the link's key into one encrypted frame when the kind is even, and sent as
// they stand when it is odd. Every seed is "fuzzseed" (the default line of zanth.txt).

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "FuzzSupport.h"
#include "connection/Worker.h"
#include "connection/WorkerStartRecord.h"
#include "frame/Context.h"
#include "monitors/CharIntQueueMon.h"
#include "monitors/CharQueueMon.h"
#include "monitors/ConnDiscQueue.h"
#include "monitors/HandleHashMon.h"
#include "monitors/RecvMon.h"
#include "platform/Thread.h"
#include "protocol/CommandRecord.h"
#include "protocol/MessageUtil.h"
#include "security/Crypto.h"
#include "security/SeedHashMon.h"
#include "zanth.h"

namespace {

constexpr const char* kSeed = "fuzzseed";

zanth::MessageUtil* sealer = nullptr;

// The input taken apart: the early pieces and the whole stream to send.
struct Plan {
    std::vector<size_t> pieces;
    std::string stream;
};

uint16_t Length16(const uint8_t* p) {
    return static_cast<uint16_t>(p[0] | (p[1] << 8));
}

// One encrypted frame of `plain` under `key`, or nothing when the cipher layer refuses it.
std::string Seal(const std::string& plain, const unsigned char* key) {
    int32_t room = 0;
    if (sealer->GetBufferSize(&room) != 0 || room <= zanth::kEncryptedHeaderSize) return {};
    std::vector<char> out(static_cast<size_t>(room) + 1);
    int32_t cipherLen = 0;
    if (sealer->EncryptMessage(plain.data(), static_cast<int32_t>(plain.size()), out.data(), room,
                               &cipherLen, key) != 0)
        return {};
    return std::string(out.data(), static_cast<size_t>(cipherLen) + zanth::kEncryptedHeaderSize);
}

std::string SealedStream(const uint8_t* data, size_t size) {
    // The identification goes as it stands; its length is what its header says.
    if (size < static_cast<size_t>(zanth::kClearHeaderSize)) {
        return std::string(reinterpret_cast<const char*>(data), size);
    }
    std::string head(reinterpret_cast<const char*>(data), zanth::kClearHeaderSize);
    size_t total = 0;
    if (head[4] == ';' && head[9] == ';')
        total = std::strtoul(head.substr(5, 4).c_str(), nullptr, 10);
    total = std::clamp<size_t>(total, zanth::kClearHeaderSize, size);
    std::string stream(reinterpret_cast<const char*>(data), total);

    // The Worker keys the link with the frame's text up to 200 bytes (up to a NUL, if any).
    std::string identify(stream.c_str(), std::min<size_t>(std::strlen(stream.c_str()), 200));
    unsigned char key[32] = {};
    if (sealer->GenerateKey(identify.c_str(), kSeed, key, sizeof key) != 0) {
        zanth::fuzz::Broken("the cipher plugin derives no key");
    }
    size_t at = total;
    while (at + 3 <= size) {
        const uint8_t kind = data[at];
        const size_t length = std::min<size_t>(Length16(data + at + 1), size - at - 3);
        std::string bytes(reinterpret_cast<const char*>(data + at + 3), length);
        at += 3 + length;
        stream += (kind % 2 == 0) ? Seal(bytes, key) : bytes;
    }
    stream.append(reinterpret_cast<const char*>(data + at), size - at);
    return stream;
}

Plan MakePlan(const uint8_t* data, size_t size) {
    Plan plan;
    if (size == 0) return plan;
    const bool sealed = data[0] & 1;
    size_t early = (data[0] >> 1) & 7;
    size_t at = 1;
    for (; early > 0 && at < size; --early, ++at) plan.pieces.push_back(1 + data[at]);
    plan.stream = sealed ? SealedStream(data + at, size - at)
                         : std::string(reinterpret_cast<const char*>(data + at), size - at);
    return plan;
}

// Takes what the Worker sent (acceptances, acknowledgements) so that its sends never stall.
void DrainPeer(int peer) {
    char sink[4096];
    while (::recv(peer, sink, sizeof sink, MSG_DONTWAIT) > 0) {
    }
}

// Writes all of `bytes`; a full socket buffer gives the Worker a turn to read.
bool WriteAll(int peer, const char* bytes, size_t size, zanth::Worker& worker, bool* ended) {
    while (size > 0 && !*ended) {
        ssize_t n = ::send(peer, bytes, size, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (n < 0 && errno != EAGAIN && errno != EWOULDBLOCK) return false;
        if (n > 0) {
            bytes += n;
            size -= static_cast<size_t>(n);
        } else {
            *ended = !worker.Turn();
            DrainPeer(peer);
        }
    }
    return true;
}

// The host's side: whatever the Worker handed on is taken, so nothing piles up between inputs
// and no reply waits for a slot that nobody empties.
void TakeReply() {
    if (!zanth::fuzz::Shared().recvMon->SlotEmpty()) {
        char slot[zanth::kMessageBufferSize];
        zanth::fuzz::Shared().recvMon->GetBuffer(slot, "0", *zanth::fuzz::Shared().workerMon);
    }
}

void DrainQueues() {
    char text[zanth::kRecordMessageSize];
    int32_t error = 0;
    zanth::Context& c = zanth::fuzz::Shared();
    for (zanth::CharQueueMon* q :
         {c.lookupMon.get(), c.lookupPinMon.get(), c.postAccessMon.get(), c.hereiamMon.get(),
          c.smartCardMon.get(), c.keyPadMon.get(), c.cmdKeyMon.get(), c.eventMonQueue.get(),
          c.alarmMonQueue.get()}) {
        do {
            q->Remove(text, sizeof text, &error);
        } while (error == 0);
    }
    int32_t tag = 0;
    do {
        zanth::fuzz::Shared().responseMon->Remove(&tag, text, sizeof text, &error);
    } while (error == 0);
    uint8_t connected = 0;
    int64_t time = 0;
    do {
        zanth::fuzz::Shared().connDiscQueue->Remove(text, sizeof text, &connected, &time, &error);
    } while (error == 0);
}

// The body of the Worker's thread: the run loop, turn by turn, with the peer's bytes in between.
void RunWorker(int own, int peer, const Plan& plan) {
    zanth::WorkerStartRecord start;
    start.socket = own;
    start.type = zanth::kAcceptedLink;
    zanth::Context& context = zanth::fuzz::Shared();
    auto* worker = new zanth::Worker(start, context, *context.seedMon);
    bool ended = !worker->Start();

    const char* bytes = plan.stream.data();
    size_t left = plan.stream.size();
    for (size_t piece : plan.pieces) {
        if (ended) break;
        const size_t n = std::min(piece, left);
        if (!WriteAll(peer, bytes, n, *worker, &ended)) break;
        bytes += n;
        left -= n;
        if (!ended) ended = !worker->Turn();
        DrainPeer(peer);
        TakeReply();
    }
    if (!ended) WriteAll(peer, bytes, left, *worker, &ended);
    ::shutdown(peer, SHUT_WR);

    // Every turn after the end of the stream takes a frame, or meets the end and stops: a Worker
    // still running after more turns than there were bytes would run for ever.
    const size_t bound = plan.stream.size() + 64;
    for (size_t turns = 0; !ended; ++turns) {
        FUZZ_CHECK(turns < bound, "the Worker outlived its closed link");
        ended = !worker->Turn();
        DrainPeer(peer);
        TakeReply();
    }
    delete worker;
    TakeReply();
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    zanth::fuzz::EnterScratchDirectory();
    const std::string seeds = std::string("default ") + kSeed + "\n";
    zanth::fuzz::WriteFile("zanth.txt", seeds.data(), seeds.size());
    zanth::fuzz::LoadLibrary();
    zanth::fuzz::Shared().seedMon->Load();
    int32_t level = 75;
    DebugLevel(1, &level);
    SetValidControllers("AA:BB:CC");
    // A caller's wait bounds nothing here (replies are taken as they come), but a short one
    // keeps a mistake from hanging a run.
    int32_t wait = 2000;
    RecvWaitTime(1, &wait);

    sealer = new zanth::MessageUtil(new zanth::Crypto());
    int32_t room = 0;
    if (sealer->GetBufferSize(&room) != 0) {
        zanth::fuzz::Broken("the cipher plugin libzanth_encryption64.so did not load",
                            "put its directory (build/<tree>/lib) on LD_LIBRARY_PATH");
    }
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const Plan plan = MakePlan(data, size);
    int ends[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) zanth::fuzz::Broken("socketpair");
    ::fcntl(ends[0], F_SETFL, ::fcntl(ends[0], F_GETFL) | O_NONBLOCK);

    // A library thread, as the Listener starts one per accepted link.
    platform::ThreadId id = 0;
    const int own = ends[0], peer = ends[1];
    if (platform::CreateThread([&] { RunWorker(own, peer, plan); }, &id, true) != 0) {
        zanth::fuzz::Broken("no thread for the Worker");
    }
    zanth::fuzz::Shared().workerMon->AddUnidentified(id);
    platform::ResumeThread(id);
    if (!platform::WaitForLibraryThreads(std::chrono::seconds(60))) {
        zanth::fuzz::Broken("the Worker's thread did not end");
    }
    // The Worker closed its own end.
    ::close(peer);
    uint8_t connected = 1;
    zanth::fuzz::Shared().workerMon->IsConnected("AA:BB:CC", &connected);
    FUZZ_CHECK(!connected, "an ended Worker is still registered");
    FUZZ_CHECK(zanth::fuzz::Shared().workerMon->UnidentifiedCount() == 0,
               "an ended Worker is still listed");
    DrainQueues();
    zanth::fuzz::TrimLog();
    return 0;
}
