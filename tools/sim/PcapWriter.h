#pragma once
// Writes TCP conversations to a classic pcap file (Ethernet, IPv4, TCP), the way a capture on
// the wire would show them, so that Wireshark or tshark can read what the simulator exchanged.
// The headers are made here: a stream opens with the three-way handshake, carries its bytes
// with sequence and acknowledgement numbers that agree both ways, and ends with FIN or RST.
//
// How the bytes are cut into segments is chosen here, not taken from the sockets: by default
// one segment per message. `splitBytes` cuts every segment to at most that many bytes and
// `mergeMessages` gathers up to that many messages of one direction into one segment (a
// message of the other direction, or the end of the stream, sends what was gathered first),
// so that a reader's reassembly has frames cut in pieces and frames that share a segment.
//
//   PcapWriter w({.splitBytes = 7});
//   if (!w.Open("site.pcap", &error)) ...
//   auto s = w.OpenStream(controller, host);
//   w.Send(s, true, "1042;0028;02:5A:37:00:00:01;4.21.7;");
//   w.Close(s, true, false);
//
// One thread at a time; the simulator calls it from its loop thread.

#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <map>
#include <string>
#include <string_view>

namespace zanth::sim {

struct PcapEndpoint {
    uint32_t ip = 0;  // host byte order
    uint16_t port = 0;
    std::array<uint8_t, 6> ether{};
};

struct PcapOptions {
    size_t splitBytes = 0;     // 0: segments as long as a loopback MSS allows
    size_t mergeMessages = 1;  // messages of one direction gathered into one segment
};

struct PcapTotals {
    uint64_t streams = 0;
    uint64_t messages = 0;
    uint64_t segments = 0;  // data segments; the handshakes and closes are not counted
    uint64_t bytes = 0;     // TCP payload bytes
};

class PcapWriter {
  public:
    using StreamId = uint64_t;
    // The capture's clock; the wall clock unless a test sets another.
    using Clock = std::function<std::chrono::system_clock::time_point()>;

    // The largest TCP payload of one segment: the MSS of a loopback link.
    static constexpr size_t kMaxSegment = 65483;

    explicit PcapWriter(PcapOptions options = {});
    ~PcapWriter();
    PcapWriter(const PcapWriter&) = delete;
    PcapWriter& operator=(const PcapWriter&) = delete;

    // Creates the file and writes its header; false with the reason in `error`.
    bool Open(const std::string& path, std::string* error);
    void SetClock(Clock clock) { clock_ = std::move(clock); }

    // A stream that `client` opened to `server`: SYN, SYN-ACK, ACK.
    StreamId OpenStream(const PcapEndpoint& client, const PcapEndpoint& server);
    // One message of the stream, from the client or from the server.
    void Send(StreamId id, bool fromClient, std::string_view message);
    // The end of the stream: what is gathered goes out, then FIN from the side that ended it,
    // the other side's FIN and the last ACK; or one RST from that side.
    void Close(StreamId id, bool byClient, bool reset);
    // Sends what is gathered on every stream and flushes the file.
    void Flush();
    // Flushes and closes the file; later calls write nothing.
    void Finish();

    // The first write that failed stops all later ones; its reason stays here.
    bool Failed() const { return !error_.empty(); }
    const std::string& Error() const { return error_; }
    PcapTotals Totals() const { return totals_; }

  private:
    struct Side {
        PcapEndpoint end;
        uint32_t next = 0;  // sequence number of its next byte
        uint16_t ipId = 0;
    };
    struct Stream {
        Side side[2];  // 0 client, 1 server
        int pendingFrom = -1;
        std::string pending;
        size_t pendingMessages = 0;
    };

    void SendPending(Stream& s);
    void Segment(Stream& s, int from, uint8_t flags, std::string_view payload);
    void WriteRecord(const std::string& packet);
    void Write(const void* data, size_t size);

    const PcapOptions options_;
    FILE* file_ = nullptr;
    std::string path_;
    std::string error_;
    Clock clock_;
    int64_t lastMicros_ = 0;
    std::map<StreamId, Stream> streams_;
    StreamId nextId_ = 0;
    PcapTotals totals_;
};

}  // namespace zanth::sim
