#include "gateway/Intake.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace zanthd {
namespace {

// One fixed-size slot per entry, so a torn tail is recognised and skipped.
struct Slot {
    char magic[4];
    uint32_t length;
    uint64_t seq;
    int64_t receivedMs;
    char kind;
    char text[Intake::kTextMax];
    char pad[3];
};
static_assert(sizeof(Slot) == 176, "the intake slot's size is part of its format");
constexpr char kMagic[4] = {'Z', 'I', 'N', '1'};

}  // namespace

Intake::~Intake() {
    if (fd_ >= 0) ::close(fd_);
}

bool Intake::Open(const std::string& path, std::string* error) {
    fd_ = ::open(path.c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    if (fd_ < 0) {
        *error = path + ": " + std::strerror(errno);
        return false;
    }
    off_t end = ::lseek(fd_, 0, SEEK_END);
    bytes_ = end > 0 ? static_cast<uint64_t>(end) : 0;
    return true;
}

std::vector<IntakeEntry> Intake::ReadAll() {
    std::vector<IntakeEntry> out;
    Slot slot;
    off_t offset = 0;
    while (::pread(fd_, &slot, sizeof slot, offset) == static_cast<ssize_t>(sizeof slot)) {
        offset += static_cast<off_t>(sizeof slot);
        if (std::memcmp(slot.magic, kMagic, 4) != 0 || slot.length > kTextMax) continue;
        IntakeEntry e;
        e.seq = slot.seq;
        e.receivedMs = slot.receivedMs;
        e.kind = slot.kind;
        e.text.assign(slot.text, slot.length);
        out.push_back(std::move(e));
    }
    return out;
}

bool Intake::Append(const IntakeEntry& entry, std::string* error) {
    Slot slot;
    std::memset(&slot, 0, sizeof slot);
    std::memcpy(slot.magic, kMagic, 4);
    slot.length = static_cast<uint32_t>(std::min(entry.text.size(), kTextMax));
    slot.seq = entry.seq;
    slot.receivedMs = entry.receivedMs;
    slot.kind = entry.kind;
    std::memcpy(slot.text, entry.text.data(), slot.length);
    ssize_t n = ::write(fd_, &slot, sizeof slot);
    if (n != static_cast<ssize_t>(sizeof slot)) {
        *error = n < 0 ? std::strerror(errno) : "short write";
        // A torn slot would shift every later one: cut the file back to its last whole slot.
        if (n > 0 && ::ftruncate(fd_, static_cast<off_t>(bytes_)) != 0) {
            *error += " (and the intake file could not be cut back)";
        }
        return false;
    }
    bytes_ += sizeof slot;
    return true;
}

bool Intake::Clear() {
    if (bytes_ == 0) return true;
    if (::ftruncate(fd_, 0) != 0) return false;
    bytes_ = 0;
    return true;
}

}  // namespace zanthd
