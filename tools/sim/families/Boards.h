#pragma once
// The interface boards on a controller's two chains, and the module bus's revisions.
//
// On the wire (every payload field ends in ';'):
//   10 / 92  discover      "chain;"                 -> 1010 / 1092 "0;[chain:AA=ID,AA=ID];"
//   3        load program  "interface;"             -> 1003 "0;"
//   4        load EEPROM   "interface;"             -> 1004 "0;"
//   5        set ID        "interface;hexid;"       -> 1005 "0;"
//   6        read memory   "interface;type;hexaddress;count;a|d;" -> 1006 "0;text;"
//   7        write EEPROM  "interface;hexaddress;count;hexdata;last;" -> 1007 "0;"
//   109      module revs   ""                       -> 1109 "0;AA:rev;AA:rev;..."
// A board is 0 to 31 at a two-digit address ("05"); a chain's text lists its boards in address
// order, and a chain without boards reads "[1:]". Memory types: 1 program (4096 bytes), 2 EEPROM
// (256), 3 RAM (256); a fresh board's memory reads 0xFF. A read of up to 8 bytes comes back as
// hex digits ('d') or as ASCII ('a', with '.' for anything unprintable, ';' and '#' included).
// The loads copy the images the controller holds (ProgramImage, EepromImage) into the board. An
// EEPROM write is held until a write with last = 1 commits every held byte. A payload that
// can't be read or a range past the memory's end is answered -100; a board that isn't there,
// -101.

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/sim/families/Family.h"

namespace zanth::sim {

struct InterfaceBoard {
    int chain = 0;
    std::string id = "0000";
    std::string revision = "2.1";
    std::vector<uint8_t> program;
    std::vector<uint8_t> eeprom;
    std::vector<uint8_t> ram;
    std::map<uint32_t, uint8_t> heldWrites;  // EEPROM bytes waiting for the last write
    uint64_t programLoads = 0;
    uint64_t eepromLoads = 0;
};

// Which boards sit on which chain: addresses 0 to 31, each on one chain.
struct BoardLayout {
    std::vector<int> chain0;
    std::vector<int> chain1;
};

class Boards final : public Family {
  public:
    static constexpr int kMaxAddress = 31;
    static constexpr size_t kProgramSize = 4096;
    static constexpr size_t kEepromSize = 256;
    static constexpr size_t kRamSize = 256;
    static constexpr size_t kMaxRead = 8;

    Boards();

    const char* Name() const override { return "interface boards"; }
    bool Handle(FamilyContext& context, int code, std::string_view payload) override;

    // "A,B,.../C,D,...": the boards of chain 0, then, after '/', those of chain 1; either list
    // may be empty. Nothing for a text that isn't such a list or names an address twice.
    static std::optional<BoardLayout> ParseLayout(std::string_view text);
    // The layout a controller starts with: boards 0 and 1 on chain 0, board 16 on chain 1.
    static BoardLayout DefaultLayout();

    // Any thread. Replaces the boards with fresh ones as `layout` places them.
    void SetLayout(const BoardLayout& layout);
    std::optional<InterfaceBoard> Board(int address) const;
    // What the controller holds to load into its boards.
    void SetImages(std::vector<uint8_t> program, std::vector<uint8_t> eeprom);
    std::vector<uint8_t> ProgramImage() const;
    std::vector<uint8_t> EepromImage() const;

  private:
    std::string Answer(int code, std::string_view payload);
    std::string Discover(std::string_view payload);
    std::string Read(std::string_view payload);
    std::string Write(std::string_view payload);

    mutable std::mutex mutex_;
    std::map<int, InterfaceBoard> boards_;
    std::vector<uint8_t> programImage_;
    std::vector<uint8_t> eepromImage_;
};

}  // namespace zanth::sim
