// The seed file reader: the fuzzed bytes are the whole of zanth.txt, which the seed table loads
// (lines cut at 250 characters, bad lines logged with their text), then the table is asked for
// seeds. A seed always comes back within the destination, terminated at index `size`.
//
// Input: the file's content. MACs asked for: a fixed one, the key of the first line, and the
// first 24 bytes of the input as a MAC text.

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "FuzzSupport.h"
#include "security/SeedHashMon.h"

namespace {

void Ask(zanth::SeedHashMon& mon, const std::string& mac, int32_t size) {
    // Exactly size + 1 bytes, so a write past the terminator's place is caught.
    std::vector<char> dest(static_cast<size_t>(size) + 1, 'Q');
    mon.Get(mac.c_str(), dest.data(), size);
    FUZZ_CHECK(dest[static_cast<size_t>(size)] == '\0', mac);
    FUZZ_CHECK(std::strlen(dest.data()) <= static_cast<size_t>(size), mac);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    zanth::fuzz::EnterScratchDirectory();
    zanth::fuzz::StartLogOnly(75);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    zanth::fuzz::WriteFile("zanth.txt", data, size);
    zanth::SeedHashMon mon("seedMon");
    mon.Load();

    std::string text(reinterpret_cast<const char*>(data), size);
    std::string firstKey = text.substr(0, text.find_first_of(" \t\r\n"));
    firstKey = firstKey.size() > 9 ? firstKey.substr(9) : firstKey;
    std::string raw(text.c_str(), std::min<size_t>(std::strlen(text.c_str()), 24));
    for (const std::string& mac : {std::string("AA:BB:CC"), firstKey, raw}) {
        Ask(mon, mac, 200);
        Ask(mon, mac, 0);
        Ask(mon, mac, 7);
    }
    // A second load replaces the table: nothing of the first may linger or leak.
    mon.Load();
    Ask(mon, "AA:BB:CC", 200);
    zanth::fuzz::TrimLog();
    return 0;
}
