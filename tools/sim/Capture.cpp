#include "tools/sim/Capture.h"

#include <arpa/inet.h>

#include <cstdio>

namespace zanth::sim {
namespace {

// The host's side has no MAC of its own in the simulator: a locally administered one.
constexpr std::array<uint8_t, 6> kHostEther = {0x02, 0x00, 0x00, 0x00, 0x00, 0x01};

PcapEndpoint Endpoint(const sockaddr_in& address, const std::array<uint8_t, 6>& ether) {
    PcapEndpoint e;
    e.ip = ntohl(address.sin_addr.s_addr);
    e.port = ntohs(address.sin_port);
    e.ether = ether;
    return e;
}

// The controller's full MAC: the product line's octets and its own three.
std::array<uint8_t, 6> ControllerEther(const std::string& mac) {
    std::array<uint8_t, 6> ether{};
    std::string full = std::string(kMacPrefix) + mac;
    unsigned octet[6] = {};
    if (std::sscanf(full.c_str(), "%x:%x:%x:%x:%x:%x", &octet[0], &octet[1], &octet[2], &octet[3],
                    &octet[4], &octet[5]) == 6) {
        for (int i = 0; i < 6; ++i) ether[i] = static_cast<uint8_t>(octet[i]);
    }
    return ether;
}

}  // namespace

void Capture::Attach(Simulator& sim) {
    sim.SetWireTap([this](const Controller& c, const WireEvent& e) { OnWire(c, e); });
}

void Capture::OnWire(const Controller& controller, const WireEvent& event) {
    switch (event.kind) {
        case WireEvent::Kind::Open: {
            PcapEndpoint controllerEnd =
                Endpoint(event.controllerEnd, ControllerEther(controller.Mac()));
            PcapEndpoint hostEnd = Endpoint(event.hostEnd, kHostEther);
            Link link;
            link.controllerDialled = event.direction == Direction::ToHost;
            link.stream = link.controllerDialled ? writer_.OpenStream(controllerEnd, hostEnd)
                                                 : writer_.OpenStream(hostEnd, controllerEnd);
            links_[&controller] = link;
            break;
        }
        case WireEvent::Kind::Data:
        case WireEvent::Kind::Close: {
            auto found = links_.find(&controller);
            if (found == links_.end()) return;
            const Link& link = found->second;
            bool fromController = event.direction == Direction::ToHost;
            bool fromClient = fromController == link.controllerDialled;
            if (event.kind == WireEvent::Kind::Data) {
                writer_.Send(link.stream, fromClient, event.bytes);
            } else {
                writer_.Close(link.stream, fromClient, event.reset);
                links_.erase(found);
            }
            break;
        }
    }
}

void Capture::Finish() {
    writer_.Finish();
    links_.clear();
}

}  // namespace zanth::sim
