#include "tools/sim/PcapWriter.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace zanth::sim {
namespace {

constexpr uint32_t kPcapMagic = 0xa1b2c3d4;  // microsecond timestamps
constexpr uint32_t kLinkEthernet = 1;
constexpr uint32_t kSnapLength = 262144;
constexpr size_t kEthernetHeader = 14;
constexpr size_t kIpHeader = 20;
constexpr size_t kTcpHeader = 20;

constexpr uint8_t kFin = 0x01;
constexpr uint8_t kSyn = 0x02;
constexpr uint8_t kRst = 0x04;
constexpr uint8_t kPsh = 0x08;
constexpr uint8_t kAck = 0x10;

void Put16(std::string& out, size_t at, uint16_t value) {
    out[at] = static_cast<char>(value >> 8);
    out[at + 1] = static_cast<char>(value & 0xff);
}

void Put32(std::string& out, size_t at, uint32_t value) {
    Put16(out, at, static_cast<uint16_t>(value >> 16));
    Put16(out, at + 2, static_cast<uint16_t>(value & 0xffff));
}

// The Internet checksum's running sum over big-endian 16-bit words.
uint32_t SumWords(std::string_view bytes, uint32_t sum = 0) {
    for (size_t i = 0; i + 1 < bytes.size(); i += 2) {
        sum += (static_cast<uint8_t>(bytes[i]) << 8) | static_cast<uint8_t>(bytes[i + 1]);
    }
    if (bytes.size() % 2 != 0) sum += static_cast<uint8_t>(bytes.back()) << 8;
    return sum;
}

uint16_t Fold(uint32_t sum) {
    while (sum >> 16) sum = (sum & 0xffff) + (sum >> 16);
    return static_cast<uint16_t>(~sum & 0xffff);
}

// A stream's initial sequence numbers differ from stream to stream, as real ones do, but are
// the same from run to run, so that two captures of one scenario compare.
uint32_t InitialSequence(uint64_t stream, int side) {
    uint64_t x =
        (stream + 1) * 0x9E3779B97F4A7C15ull + static_cast<uint64_t>(side) * 0xBF58476D1CE4E5B9ull;
    x ^= x >> 31;
    return static_cast<uint32_t>(x);
}

}  // namespace

PcapWriter::PcapWriter(PcapOptions options) : options_(options) {}

PcapWriter::~PcapWriter() {
    Finish();
}

bool PcapWriter::Open(const std::string& path, std::string* error) {
    file_ = std::fopen(path.c_str(), "wb");
    if (file_ == nullptr) {
        if (error) *error = "cannot create " + path + ": " + std::strerror(errno);
        return false;
    }
    path_ = path;
    // The global header in this machine's byte order, which the magic number tells readers.
    struct {
        uint32_t magic = kPcapMagic;
        uint16_t major = 2;
        uint16_t minor = 4;
        int32_t zone = 0;
        uint32_t accuracy = 0;
        uint32_t snapLength = kSnapLength;
        uint32_t link = kLinkEthernet;
    } header;
    Write(&header, sizeof header);
    if (Failed()) {
        if (error) *error = error_;
        return false;
    }
    return true;
}

PcapWriter::StreamId PcapWriter::OpenStream(const PcapEndpoint& client,
                                            const PcapEndpoint& server) {
    StreamId id = nextId_++;
    Stream& s = streams_[id];
    s.side[0].end = client;
    s.side[1].end = server;
    s.side[0].next = InitialSequence(id, 0);
    s.side[1].next = InitialSequence(id, 1);
    ++totals_.streams;
    Segment(s, 0, kSyn, {});
    Segment(s, 1, kSyn | kAck, {});
    Segment(s, 0, kAck, {});
    return id;
}

void PcapWriter::Send(StreamId id, bool fromClient, std::string_view message) {
    auto found = streams_.find(id);
    if (found == streams_.end()) return;
    Stream& s = found->second;
    int from = fromClient ? 0 : 1;
    if (s.pendingFrom >= 0 && s.pendingFrom != from) SendPending(s);
    s.pendingFrom = from;
    s.pending.append(message);
    ++s.pendingMessages;
    ++totals_.messages;
    if (s.pendingMessages >= std::max<size_t>(options_.mergeMessages, 1)) SendPending(s);
}

void PcapWriter::Close(StreamId id, bool byClient, bool reset) {
    auto found = streams_.find(id);
    if (found == streams_.end()) return;
    Stream& s = found->second;
    SendPending(s);
    int closer = byClient ? 0 : 1;
    if (reset) {
        Segment(s, closer, kRst | kAck, {});
    } else {
        Segment(s, closer, kFin | kAck, {});
        Segment(s, 1 - closer, kFin | kAck, {});
        Segment(s, closer, kAck, {});
    }
    streams_.erase(found);
}

void PcapWriter::Flush() {
    for (auto& [id, s] : streams_) SendPending(s);
    if (file_ != nullptr && !Failed() && std::fflush(file_) != 0) {
        error_ = "cannot write " + path_ + ": " + std::strerror(errno);
    }
}

void PcapWriter::Finish() {
    if (file_ == nullptr) return;
    Flush();
    if (std::fclose(file_) != 0 && !Failed()) {
        error_ = "cannot write " + path_ + ": " + std::strerror(errno);
    }
    file_ = nullptr;
}

void PcapWriter::SendPending(Stream& s) {
    if (s.pendingFrom < 0) return;
    size_t limit =
        options_.splitBytes > 0 ? std::min(options_.splitBytes, kMaxSegment) : kMaxSegment;
    std::string_view rest = s.pending;
    while (!rest.empty()) {
        std::string_view piece = rest.substr(0, limit);
        rest.remove_prefix(piece.size());
        Segment(s, s.pendingFrom, kPsh | kAck, piece);
        ++totals_.segments;
        totals_.bytes += piece.size();
    }
    s.pending.clear();
    s.pendingMessages = 0;
    s.pendingFrom = -1;
}

// One segment from side `from` of the stream, with the headers of all three layers.
void PcapWriter::Segment(Stream& s, int from, uint8_t flags, std::string_view payload) {
    Side& me = s.side[from];
    const Side& peer = s.side[1 - from];
    std::string packet(kEthernetHeader + kIpHeader + kTcpHeader, '\0');
    packet.append(payload);

    std::memcpy(packet.data(), peer.end.ether.data(), 6);
    std::memcpy(packet.data() + 6, me.end.ether.data(), 6);
    Put16(packet, 12, 0x0800);

    size_t ip = kEthernetHeader;
    packet[ip] = 0x45;  // version 4, five words of header
    Put16(packet, ip + 2, static_cast<uint16_t>(kIpHeader + kTcpHeader + payload.size()));
    Put16(packet, ip + 4, me.ipId++);
    Put16(packet, ip + 6, 0x4000);  // don't fragment
    packet[ip + 8] = 64;            // time to live
    packet[ip + 9] = 6;             // TCP
    Put32(packet, ip + 12, me.end.ip);
    Put32(packet, ip + 16, peer.end.ip);
    Put16(packet, ip + 10, Fold(SumWords(std::string_view(packet).substr(ip, kIpHeader))));

    size_t tcp = ip + kIpHeader;
    Put16(packet, tcp, me.end.port);
    Put16(packet, tcp + 2, peer.end.port);
    Put32(packet, tcp + 4, me.next);
    Put32(packet, tcp + 8, (flags & kAck) ? peer.next : 0);
    packet[tcp + 12] = static_cast<char>((kTcpHeader / 4) << 4);
    packet[tcp + 13] = static_cast<char>(flags);
    Put16(packet, tcp + 14, 65535);  // window
    // The checksum covers the pseudo-header (addresses, protocol, length) and the segment.
    uint32_t sum = (me.end.ip >> 16) + (me.end.ip & 0xffff) + (peer.end.ip >> 16) +
                   (peer.end.ip & 0xffff) + 6 + static_cast<uint32_t>(kTcpHeader + payload.size());
    Put16(packet, tcp + 16, Fold(SumWords(std::string_view(packet).substr(tcp), sum)));

    // SYN and FIN take one sequence number each.
    me.next += static_cast<uint32_t>(payload.size()) + ((flags & (kSyn | kFin)) ? 1 : 0);
    WriteRecord(packet);
}

void PcapWriter::WriteRecord(const std::string& packet) {
    auto now = clock_ ? clock_() : std::chrono::system_clock::now();
    int64_t micros =
        std::chrono::duration_cast<std::chrono::microseconds>(now.time_since_epoch()).count();
    // Packets stay in the order they were written even if the clock steps back.
    micros = std::max(micros, lastMicros_);
    lastMicros_ = micros;
    struct {
        uint32_t seconds;
        uint32_t micros;
        uint32_t captured;
        uint32_t original;
    } record{static_cast<uint32_t>(micros / 1000000), static_cast<uint32_t>(micros % 1000000),
             static_cast<uint32_t>(packet.size()), static_cast<uint32_t>(packet.size())};
    Write(&record, sizeof record);
    Write(packet.data(), packet.size());
}

void PcapWriter::Write(const void* data, size_t size) {
    if (file_ == nullptr || Failed()) return;
    if (std::fwrite(data, 1, size, file_) != size) {
        error_ = "cannot write " + path_ + ": " + std::strerror(errno);
    }
}

}  // namespace zanth::sim
