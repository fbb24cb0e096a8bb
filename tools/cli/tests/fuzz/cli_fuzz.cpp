// Fuzz target: what reaches zanth from outside the program. A cards CSV often comes from another
// system's export, and a command line from scripts: the input is read as a cards CSV, then as
// the words of a command line (one a line). Each must end in records, reported bad lines or a
// usage error; nothing may crash, and every record and bad line must point into the input.

#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>

#include "tools/cli/CardsCsv.h"
#include "tools/cli/CommandLine.h"
#include "tools/cli/Text.h"

using namespace zanth::cli;

extern "C" int LLVMFuzzerInitialize(int*, char***) { return 0; }

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string text(reinterpret_cast<const char*>(data), size);

    std::istringstream in(text);
    CardsFile cards = ParseCards(in);
    size_t lines = 1;
    for (char c : text) lines += c == '\n';
    size_t previous = 0;
    for (const CardLine& r : cards.records) {
        if (r.line == 0 || r.line > lines || r.line <= previous) std::abort();
        if (r.generation < 1 || r.generation > 3) std::abort();
        // Every field of the line's generation is there, and checked: 24, 25 or 26.
        if (r.args.size() != static_cast<size_t>(23 + r.generation)) std::abort();
        previous = r.line;
    }
    for (const BadLine& b : cards.bad) {
        if (b.line == 0 || b.line > lines || b.column > 26 || b.why.empty()) std::abort();
        if (Describe(b).find("line " + std::to_string(b.line)) != 0) std::abort();
    }

    try {
        Invocation inv = Parse(Split(text, '\n'));
        if (inv.verb != nullptr && inv.port < 1025) std::abort();
    } catch (const UsageError&) {
    }
    return 0;
}
