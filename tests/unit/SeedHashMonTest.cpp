// The seed file zanth.txt as the seed table reads it: fields, the default line, line parts,
// invalid lines, duplicates, bounds of Get and the log lines of misses and of a missing file.
// The library is loaded so that the table's log lines reach ZanthMessages.log.

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "security/SeedHashMon.h"
#include "support/Library.h"
#include "support/Sandbox.h"

namespace zanth::test {
namespace {

void WriteSeedFile(const std::string& content, const std::string& folder = "") {
    std::ofstream out(folder + "zanth.txt", std::ios::binary | std::ios::trunc);
    out << content;
}

std::string SeedOf(SeedHashMon& seeds, const char* mac, int32_t size = 200) {
    std::vector<char> dest(static_cast<size_t>(size) + 1, '#');
    seeds.Get(mac, dest.data(), size);
    return std::string(dest.data());
}

std::string MissText(const std::string& mac) {
    return "[SeedHashMon::Get] MAC Address 02:5A:37:" + mac + " not found in zanth.txt";
}

constexpr const char* kInvalidLine = "[SeedHashMon::Load] Invalid line in zanth.txt";

class SeedHashMonTest : public LibraryTest {};

TEST_F(SeedHashMonTest, SeedEndsAtItsFirstWhiteSpaceAndMayBeEmpty) {
    WriteSeedFile(
        "02:5A:37:11:11:11 alpha beta\n"
        "02:5A:37:22:22:22\t\tgamma\tdelta\n"
        "02:5A:37:33:33:33\n"
        "default fallback\n");
    SeedHashMon seeds("seedTest");
    seeds.Load();
    EXPECT_EQ(SeedOf(seeds, "11:11:11"), "alpha");
    EXPECT_EQ(SeedOf(seeds, "22:22:22"), "gamma");
    // A listed MAC without a seed has the empty seed, not the default.
    EXPECT_EQ(SeedOf(seeds, "33:33:33"), "");
    EXPECT_FALSE(LogContains(kInvalidLine));
}

TEST_F(SeedHashMonTest, DefaultMatchesInAnyCaseAndTheFirstOneWins) {
    WriteSeedFile(
        "DeFaUlT first\n"
        "02:5A:37:11:11:11 listed\n"
        "default second\n");
    SeedHashMon seeds("seedTest");
    seeds.Load();
    EXPECT_EQ(SeedOf(seeds, "44:44:44"), "first");
    EXPECT_EQ(SeedOf(seeds, "11:11:11"), "listed");
    EXPECT_FALSE(LogContains("[SeedHashMon::Get]")) << "a miss is silent with a default line";
}

TEST_F(SeedHashMonTest, FirstLineOfAMacWinsWhateverTheCaseOfEither) {
    WriteSeedFile(
        "02:5a:37:ab:cd:ef lower\n"
        "02:5A:37:AB:CD:EF upper\n"
        "02:5A:37:12:34:56 one\n"
        "02:5A:37:12:34:56 two\n");
    SeedHashMon seeds("seedTest");
    seeds.Load();
    EXPECT_EQ(SeedOf(seeds, "AB:CD:EF"), "lower");
    EXPECT_EQ(SeedOf(seeds, "ab:cd:ef"), "lower");
    EXPECT_EQ(SeedOf(seeds, "12:34:56"), "one");
}

TEST_F(SeedHashMonTest, KeyOfNineCharactersOrFewerIsAnInvalidLine) {
    WriteSeedFile(
        "AA:BB:CC noprefix\n"
        "\n"
        "02:5A:37: nine\n"
        "02:5A:37:7 ten\n");
    SeedHashMon seeds("seedTest");
    seeds.Load();
    // The MAC without its prefix, the blank line and the bare prefix; each with its line.
    EXPECT_EQ(LogCount(kInvalidLine), 3);
    EXPECT_TRUE(LogContains("line = AA:BB:CC noprefix"));
    EXPECT_TRUE(LogContains("line = 02:5A:37: nine"));
    EXPECT_EQ(SeedOf(seeds, "AA:BB:CC"), "");
    EXPECT_TRUE(LogContains(MissText("AA:BB:CC")));
    // Ten characters are enough: the key is what follows the ninth.
    EXPECT_EQ(SeedOf(seeds, "00:00:07"), "ten");
}

TEST_F(SeedHashMonTest, LongLineIsReadInPartsOfTwoHundredFifty) {
    // The first part holds the key, a blank and 232 characters of seed: 250 in all. The rest of
    // the physical line is a line of its own, here a well-formed entry.
    const std::string head = "02:5A:37:11:11:11 ";
    const std::string seed(250 - head.size(), 's');
    WriteSeedFile(head + seed + "02:5A:37:22:22:22 tail\n");
    SeedHashMon seeds("seedTest");
    seeds.Load();
    EXPECT_EQ(SeedOf(seeds, "11:11:11", 240), seed);
    EXPECT_EQ(SeedOf(seeds, "22:22:22"), "tail");
}

TEST_F(SeedHashMonTest, GetCopiesAtMostSizeCharactersAndTerminatesAtSize) {
    std::string seed;
    for (int i = 0; i < 300; ++i) seed.push_back(static_cast<char>('g' + i % 20));
    WriteSeedFile("default " + seed + "\n02:5A:37:11:11:11 " + seed + "\n");
    SeedHashMon seeds("seedTest");
    seeds.Load();
    for (const char* mac : {"11:11:11", "99:99:99"}) {
        char dest[260];
        std::memset(dest, '#', sizeof dest);
        seeds.Get(mac, dest, 200);
        EXPECT_EQ(std::string(dest, 200), seed.substr(0, 200)) << mac;
        EXPECT_EQ(dest[200], '\0') << mac;
        EXPECT_EQ(dest[201], '#') << mac << ": nothing is written past index size";
    }
    char small[11];
    seeds.Get("11:11:11", small, 10);
    EXPECT_STREQ(small, seed.substr(0, 10).c_str());
}

TEST_F(SeedHashMonTest, MissWithoutDefaultIsLoggedAndGivesTheEmptySeed) {
    WriteSeedFile("02:5A:37:11:11:11 alpha\n");
    SeedHashMon seeds("seedTest");
    seeds.Load();
    EXPECT_EQ(SeedOf(seeds, "99:88:77"), "");
    EXPECT_EQ(LogCount(MissText("99:88:77")), 1);
    EXPECT_EQ(SeedOf(seeds, "11:11:11"), "alpha");
    EXPECT_EQ(LogCount("[SeedHashMon::Get]"), 1) << "a hit is not logged";
}

TEST_F(SeedHashMonTest, MissingFileIsLoggedWithItsPathAndEveryMacGetsTheEmptySeed) {
    SeedHashMon seeds("seedTest");
    seeds.Load();
    EXPECT_TRUE(LogContains("[SeedHashMon::Load] Error opening " + SandboxDir() + "zanth.txt"));
    EXPECT_EQ(SeedOf(seeds, "11:22:33"), "");
    EXPECT_TRUE(LogContains(MissText("11:22:33")));
}

TEST_F(SeedHashMonTest, LoadReplacesTheWholeTableAndTheDefault) {
    WriteSeedFile("02:5A:37:11:11:11 old\ndefault olddefault\n");
    SeedHashMon seeds("seedTest");
    seeds.Load();
    ASSERT_EQ(SeedOf(seeds, "11:11:11"), "old");
    WriteSeedFile("02:5A:37:22:22:22 new\n");
    seeds.Load();
    EXPECT_EQ(SeedOf(seeds, "22:22:22"), "new");
    EXPECT_EQ(SeedOf(seeds, "11:11:11"), "") << "neither the old entry nor the old default stays";
    EXPECT_TRUE(LogContains(MissText("11:11:11")));
}

TEST_F(SeedHashMonTest, PathIsFixedWhenTheTableIsBuilt) {
    WriteSeedFile("02:5A:37:11:11:11 here\n");
    SeedHashMon seeds("seedTest");
    const std::string elsewhere = SandboxDir() + "elsewhere/";
    std::filesystem::create_directories(elsewhere);
    WriteSeedFile("02:5A:37:11:11:11 there\n", elsewhere);
    ASSERT_EQ(::chdir(elsewhere.c_str()), 0);
    seeds.Load();
    ASSERT_EQ(::chdir(SandboxDir().c_str()), 0);
    EXPECT_EQ(SeedOf(seeds, "11:11:11"), "here");
}

TEST_F(SeedHashMonTest, GetNeverSeesATableHalfLoaded) {
    std::string content;
    for (int i = 0; i < 120; ++i) {
        char line[64];
        std::snprintf(line, sizeof line, "02:5A:37:00:%02X:%02X seed%d\n", i / 256, i % 256, i);
        content += line;
    }
    content += "02:5A:37:AA:AA:AA wanted\n";
    WriteSeedFile(content);
    SeedHashMon seeds("seedTest");
    seeds.Load();
    std::atomic<bool> stop{false};
    std::atomic<int> wrong{0};
    std::vector<std::thread> readers;
    for (int t = 0; t < 4; ++t) {
        readers.emplace_back([&] {
            while (!stop) {
                if (SeedOf(seeds, "AA:AA:AA") != "wanted") ++wrong;
            }
        });
    }
    for (int i = 0; i < 100; ++i) seeds.Load();
    stop = true;
    for (auto& r : readers) r.join();
    EXPECT_EQ(wrong.load(), 0);
}

}  // namespace
}  // namespace zanth::test
