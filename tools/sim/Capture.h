#pragma once
// Records every link of a simulator into a pcap file, as `zanth-sim --pcap FILE` does: each
// link becomes a TCP stream between its real ends, with the frames as they went on the wire
// (enciphered on an encrypted link). The controller's Ethernet address is its MAC.
//
//   Capture capture({.splitBytes = 7});
//   if (!capture.Open("sim.pcap", &error)) ...
//   capture.Attach(sim);  // before sim.Start()
//   ...
//   sim.Stop();
//   capture.Finish();

#include <map>
#include <string>

#include "tools/sim/PcapWriter.h"
#include "tools/sim/Simulator.h"

namespace zanth::sim {

class Capture {
  public:
    explicit Capture(PcapOptions options = {}) : writer_(options) {}

    bool Open(const std::string& path, std::string* error) { return writer_.Open(path, error); }
    // Sets the simulator's wire tap; before it starts.
    void Attach(Simulator& sim);
    // Ends the streams still open and closes the file; after the simulator has stopped.
    void Finish();

    const PcapWriter& Writer() const { return writer_; }

  private:
    void OnWire(const Controller& controller, const WireEvent& event);

    struct Link {
        PcapWriter::StreamId stream = 0;
        bool controllerDialled = true;  // the controller is the stream's client
    };

    PcapWriter writer_;
    std::map<const Controller*, Link> links_;
};

}  // namespace zanth::sim
