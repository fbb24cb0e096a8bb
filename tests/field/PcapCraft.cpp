// zanth-pcap-craft: writes a capture of one TCP stream from segments given on the command line,
// for the dissector's tests of what the simulator never sends (bad headers, odd lengths, junk).
//
//   zanth-pcap-craft OUT.pcap PORT c:TEXT h:TEXT ...
//
// The controller dials the host's PORT; each argument is one segment, "c:" from the controller
// and "h:" from the host. TEXT takes the escapes \\, \xHH and \n.

#include <cstdio>
#include <cstdlib>
#include <string>

#include "tools/sim/PcapWriter.h"

namespace {

bool Unescape(const std::string& text, std::string* out) {
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\') {
            *out += text[i];
            continue;
        }
        if (++i >= text.size()) return false;
        if (text[i] == '\\') {
            *out += '\\';
        } else if (text[i] == 'n') {
            *out += '\n';
        } else if (text[i] == 'x' && i + 2 < text.size()) {
            *out += static_cast<char>(std::strtol(text.substr(i + 1, 2).c_str(), nullptr, 16));
            i += 2;
        } else {
            return false;
        }
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fprintf(stderr, "usage: zanth-pcap-craft OUT.pcap PORT (c:TEXT|h:TEXT)...\n");
        return 2;
    }
    zanth::sim::PcapWriter w;
    std::string error;
    if (!w.Open(argv[1], &error)) {
        std::fprintf(stderr, "zanth-pcap-craft: %s\n", error.c_str());
        return 1;
    }
    zanth::sim::PcapEndpoint controller{0x7f000001, 41000, {0x02, 0x5A, 0x37, 0xC0, 0xFF, 0xEE}};
    zanth::sim::PcapEndpoint host{0x7f000001,
                                  static_cast<uint16_t>(std::atoi(argv[2])),
                                  {0x02, 0x00, 0x00, 0x00, 0x00, 0x01}};
    auto stream = w.OpenStream(controller, host);
    for (int i = 3; i < argc; ++i) {
        std::string arg = argv[i];
        std::string bytes;
        if (arg.size() < 2 || (arg[0] != 'c' && arg[0] != 'h') || arg[1] != ':' ||
            !Unescape(arg.substr(2), &bytes)) {
            std::fprintf(stderr, "zanth-pcap-craft: bad segment %s\n", arg.c_str());
            return 2;
        }
        w.Send(stream, arg[0] == 'c', bytes);
    }
    w.Close(stream, true, false);
    w.Finish();
    if (w.Failed()) {
        std::fprintf(stderr, "zanth-pcap-craft: %s\n", w.Error().c_str());
        return 1;
    }
    return 0;
}
