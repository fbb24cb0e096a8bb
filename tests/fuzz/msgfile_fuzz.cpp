// The message file's recovery of a damaged file: the fuzzed bytes are the whole of
// ZanthEvents.log when the store opens it. Whatever the header said, the store that comes out
// must describe a ring (both indexes on one of its slots, no count above it), and its writes must
// stay inside that ring: the file never grows past what it was or past the ring's last slot.
//
// Input: the file's content. A few records are then written and read.

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include "FuzzSupport.h"
#include "stores/MsgMon.h"

namespace {

constexpr const char* kFile = "ZanthEvents.log";

struct Header {
    long long logSize = -1, recordSize = -1, readIndex = -1, writeIndex = -1, entries = -1,
              unread = -1;
};

Header ReadHeader() {
    Header h;
    char slot[145] = {};
    FILE* f = std::fopen(kFile, "rb");
    if (f == nullptr) zanth::fuzz::Broken("the store left no file");
    size_t got = std::fread(slot, 1, 144, f);
    std::fclose(f);
    FUZZ_CHECK(got == 144, "header slot of " + std::to_string(got) + " bytes");
    int n = std::sscanf(slot, "%lld %lld %lld %lld %lld %lld", &h.logSize, &h.recordSize,
                        &h.readIndex, &h.writeIndex, &h.entries, &h.unread);
    FUZZ_CHECK(n == 6, slot);
    return h;
}

void CheckRing(const Header& h, const char* when) {
    std::string text = std::string(when) + ": " + std::to_string(h.logSize) + " " +
                       std::to_string(h.recordSize) + " " + std::to_string(h.readIndex) + " " +
                       std::to_string(h.writeIndex) + " " + std::to_string(h.entries) + " " +
                       std::to_string(h.unread);
    FUZZ_CHECK(h.recordSize == 144, text);
    FUZZ_CHECK(h.logSize >= 1, text);
    FUZZ_CHECK(h.readIndex >= 1 && h.readIndex <= h.logSize, text);
    FUZZ_CHECK(h.writeIndex >= 1 && h.writeIndex <= h.logSize, text);
    FUZZ_CHECK(h.entries >= 0 && h.entries <= h.logSize, text);
    FUZZ_CHECK(h.unread >= 0 && h.unread <= h.logSize, text);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    zanth::fuzz::EnterScratchDirectory();
    zanth::fuzz::StartLogOnly(75);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    zanth::fuzz::WriteFile(kFile, data, size);
    const long before = static_cast<long>(size);
    {
        zanth::MsgMon mon("eventMon", kFile);
        Header h = ReadHeader();
        CheckRing(h, "opened");
        // The ring's own end, or what the file already held: nothing is written beyond both.
        const long long limit = std::max<long long>(before, (h.logSize + 1) * 144);

        char record[200];
        const int32_t records = size > 0 ? 1 + data[size - 1] % 3 : 1;
        for (int32_t i = 0; i < records; ++i) {
            int32_t error = 1;
            std::snprintf(record, sizeof record, "1061;fuzz %d;", i);
            mon.WriteMsg(record, static_cast<int32_t>(std::strlen(record)), &error);
            FUZZ_CHECK(error == 0 || error == -10007, std::to_string(error));
            FUZZ_CHECK(zanth::fuzz::FileSize(kFile) <= limit,
                       std::to_string(zanth::fuzz::FileSize(kFile)) + " bytes");
            CheckRing(ReadHeader(), "after a write");
        }
        char out[144 + 8];
        for (int32_t i = 0; i < 2; ++i) {
            int32_t error = 1;
            mon.GetMsg(out, sizeof out, &error);
            FUZZ_CHECK(error == 0 || error == -10007 || error == -10008, std::to_string(error));
            CheckRing(ReadHeader(), "after a read");
        }
        uint64_t unread = 0;
        mon.GetUnread(&unread);
        FUZZ_CHECK(unread <= static_cast<uint64_t>(ReadHeader().logSize), std::to_string(unread));
    }
    zanth::fuzz::TrimLog();
    return 0;
}
