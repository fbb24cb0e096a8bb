#include "tools/sim/families/Boards.h"

#include <cctype>
#include <cstdio>
#include <set>

#include "protocol/Codes.h"

namespace zanth::sim {
namespace {

const std::string kBad = std::to_string(kResultBadArgument) + ";";
const std::string kUnknown = std::to_string(kResultUnknownRecord) + ";";

bool IsHex(std::string_view s) {
    if (s.empty()) return false;
    for (char c : s) {
        if (std::isxdigit(static_cast<unsigned char>(c)) == 0) return false;
    }
    return true;
}

// A hexadecimal address of at most 8 digits.
std::optional<uint32_t> HexAddress(std::string_view s) {
    if (!IsHex(s) || s.size() > 8) return std::nullopt;
    return static_cast<uint32_t>(std::stoul(std::string(s), nullptr, 16));
}

std::string TwoDigits(int address) {
    char text[8];
    std::snprintf(text, sizeof text, "%02d", address);
    return text;
}

std::vector<uint8_t> ImageOf(std::string_view text, size_t size) {
    std::vector<uint8_t> image(size, 0);
    for (size_t i = 0; i < size; ++i) {
        image[i] = i < text.size() ? static_cast<uint8_t>(text[i]) : static_cast<uint8_t>(i);
    }
    return image;
}

InterfaceBoard FreshBoard(int chain) {
    InterfaceBoard b;
    b.chain = chain;
    b.program.assign(Boards::kProgramSize, 0xFF);
    b.eeprom.assign(Boards::kEepromSize, 0xFF);
    b.ram.assign(Boards::kRamSize, 0);
    return b;
}

}  // namespace

Boards::Boards()
    : programImage_(ImageOf("ZIB PROGRAM 2.1", 1024)), eepromImage_(ImageOf("ZIB EEPROM", 64)) {
    SetLayout(DefaultLayout());
}

BoardLayout Boards::DefaultLayout() {
    return BoardLayout{{0, 1}, {16}};
}

std::optional<BoardLayout> Boards::ParseLayout(std::string_view text) {
    size_t slash = text.find('/');
    if (slash == std::string_view::npos) return std::nullopt;
    BoardLayout layout;
    std::set<int> seen;
    auto parseList = [&](std::string_view list, std::vector<int>& out) {
        while (!list.empty()) {
            size_t comma = list.find(',');
            auto address = FieldInRange(list.substr(0, comma), 0, kMaxAddress);
            if (!address || !seen.insert(static_cast<int>(*address)).second) return false;
            out.push_back(static_cast<int>(*address));
            if (comma == std::string_view::npos) break;
            list.remove_prefix(comma + 1);
            if (list.empty()) return false;
        }
        return true;
    };
    if (!parseList(text.substr(0, slash), layout.chain0) ||
        !parseList(text.substr(slash + 1), layout.chain1))
        return std::nullopt;
    return layout;
}

void Boards::SetLayout(const BoardLayout& layout) {
    std::lock_guard<std::mutex> lock(mutex_);
    boards_.clear();
    for (int a : layout.chain0) boards_[a] = FreshBoard(0);
    for (int a : layout.chain1) boards_[a] = FreshBoard(1);
}

std::optional<InterfaceBoard> Boards::Board(int address) const {
    std::lock_guard<std::mutex> lock(mutex_);
    auto it = boards_.find(address);
    if (it == boards_.end()) return std::nullopt;
    return it->second;
}

void Boards::SetImages(std::vector<uint8_t> program, std::vector<uint8_t> eeprom) {
    std::lock_guard<std::mutex> lock(mutex_);
    programImage_ = std::move(program);
    eepromImage_ = std::move(eeprom);
}

std::vector<uint8_t> Boards::ProgramImage() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return programImage_;
}

std::vector<uint8_t> Boards::EepromImage() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return eepromImage_;
}

bool Boards::Handle(FamilyContext& context, int code, std::string_view payload) {
    switch (code) {
        case ZANTH_DISCOVER_INTERFACES:
        case ZANTH_DISCOVER_INTERFACES_2:
        case ZANTH_DOWNLOAD_INTERFACE_PROGRAM:
        case ZANTH_DOWNLOAD_INTERFACE_EEPROM:
        case ZANTH_SET_HARDWARE_ID:
        case ZANTH_READ_INTERFACE_MEMORY:
        case ZANTH_WRITE_EEPROM:
        case ZANTH_GET_MOX_MODULE_REVS:
            break;
        default:
            return false;
    }
    std::string answer;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        answer = Answer(code, payload);
    }
    context.Reply(code + 1000, answer);
    return true;
}

std::string Boards::Answer(int code, std::string_view payload) {
    PayloadReader in(payload);
    switch (code) {
        case ZANTH_DISCOVER_INTERFACES:
        case ZANTH_DISCOVER_INTERFACES_2:
            return Discover(payload);
        case ZANTH_READ_INTERFACE_MEMORY:
            return Read(payload);
        case ZANTH_WRITE_EEPROM:
            return Write(payload);
        case ZANTH_GET_MOX_MODULE_REVS: {
            std::string answer = "0;";
            for (const auto& [address, board] : boards_) {
                answer += TwoDigits(address) + ":" + board.revision + ";";
            }
            return answer;
        }
        default:
            break;
    }
    // The loads and the ID: the board's number first.
    int address = static_cast<int>(in.Number(0, 0, kMaxAddress));
    std::string id = code == ZANTH_SET_HARDWARE_ID ? std::string(in.Raw(1)) : "";
    if (!in.Ok() || (code == ZANTH_SET_HARDWARE_ID && (!IsHex(id) || id.size() > 8))) return kBad;
    auto it = boards_.find(address);
    if (it == boards_.end()) return kUnknown;
    InterfaceBoard& board = it->second;
    if (code == ZANTH_SET_HARDWARE_ID) {
        board.id = id;
    } else if (code == ZANTH_DOWNLOAD_INTERFACE_PROGRAM) {
        std::copy(programImage_.begin(),
                  programImage_.begin() + std::min(programImage_.size(), board.program.size()),
                  board.program.begin());
        ++board.programLoads;
    } else {
        std::copy(eepromImage_.begin(),
                  eepromImage_.begin() + std::min(eepromImage_.size(), board.eeprom.size()),
                  board.eeprom.begin());
        board.heldWrites.clear();
        ++board.eepromLoads;
    }
    return "0;";
}

std::string Boards::Discover(std::string_view payload) {
    PayloadReader in(payload);
    int chain = static_cast<int>(in.Number(0, 0, 1));
    if (!in.Ok()) return kBad;
    std::string text = "[" + std::to_string(chain) + ":";
    bool first = true;
    for (const auto& [address, board] : boards_) {
        if (board.chain != chain) continue;
        if (!first) text += ",";
        text += TwoDigits(address) + "=" + board.id;
        first = false;
    }
    return "0;" + text + "];";
}

std::string Boards::Read(std::string_view payload) {
    PayloadReader in(payload);
    int address = static_cast<int>(in.Number(0, 0, kMaxAddress));
    int type = static_cast<int>(in.Number(1, 1, 3));
    auto start = HexAddress(in.Raw(2));
    size_t count = static_cast<size_t>(in.Number(3, 1, kMaxRead));
    std::string_view form = in.Raw(4);
    if (!in.Ok() || !start || (form != "a" && form != "d")) return kBad;
    auto it = boards_.find(address);
    if (it == boards_.end()) return kUnknown;
    const std::vector<uint8_t>& memory = type == 1   ? it->second.program
                                         : type == 2 ? it->second.eeprom
                                                     : it->second.ram;
    if (*start > memory.size() || count > memory.size() - *start) return kBad;
    std::string text;
    for (size_t i = 0; i < count; ++i) {
        uint8_t byte = memory[*start + i];
        if (form == "d") {
            char hex[3];
            std::snprintf(hex, sizeof hex, "%02X", byte);
            text += hex;
        } else {
            bool plain = byte > 0x20 && byte < 0x7f && byte != ';' && byte != '#';
            text += plain ? static_cast<char>(byte) : '.';
        }
    }
    return "0;" + text + ";";
}

std::string Boards::Write(std::string_view payload) {
    PayloadReader in(payload);
    int address = static_cast<int>(in.Number(0, 0, kMaxAddress));
    auto start = HexAddress(in.Raw(1));
    size_t count = static_cast<size_t>(in.Number(2, 1, kMaxRead));
    std::string_view data = in.Raw(3);
    bool last = in.Number(4, 0, 1) == 1;
    if (!in.Ok() || !start || !IsHex(data) || data.size() < 2 * count) return kBad;
    auto it = boards_.find(address);
    if (it == boards_.end()) return kUnknown;
    InterfaceBoard& board = it->second;
    if (*start > board.eeprom.size() || count > board.eeprom.size() - *start) return kBad;
    for (size_t i = 0; i < count; ++i) {
        board.heldWrites[static_cast<uint32_t>(*start + i)] =
            static_cast<uint8_t>(std::stoul(std::string(data.substr(2 * i, 2)), nullptr, 16));
    }
    if (last) {
        for (const auto& [at, byte] : board.heldWrites) board.eeprom[at] = byte;
        board.heldWrites.clear();
    }
    return "0;";
}

}  // namespace zanth::sim
