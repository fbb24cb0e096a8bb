// The list of controllers the host accepts, as it is set, tested and read back.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "monitors/ValidMon.h"

namespace zanth {
namespace {

std::string List(ValidMon& valid, int32_t size, int32_t* error) {
    std::vector<char> buffer(static_cast<size_t>(size) + 8, 'Z');
    valid.GetList(buffer.data(), size, error);
    for (size_t i = static_cast<size_t>(size); i < buffer.size(); ++i) {
        EXPECT_EQ(buffer[i], 'Z') << "written past the size at " << i;
    }
    return buffer.data();
}

bool Valid(ValidMon& valid, const char* mac) {
    char copy[32];
    std::snprintf(copy, sizeof copy, "%s", mac);
    uint8_t flag = 7;
    valid.Contains(copy, &flag);
    return flag == 1;
}

TEST(ValidMon, NothingIsValidBeforeAListIsSet) {
    ValidMon valid("validMon");
    EXPECT_FALSE(Valid(valid, "AA:BB:CC"));
    int32_t error = 5;
    EXPECT_EQ(List(valid, 16, &error), "");
    EXPECT_EQ(error, 0);

    valid.SetList("");
    EXPECT_EQ(valid.Count(), 0);
    EXPECT_FALSE(Valid(valid, "AA:BB:CC"));
}

TEST(ValidMon, AllComesFirstAndNeedsFiveBytes) {
    ValidMon valid("validMon");
    valid.SetList("ALL,AA:BB:CC");
    EXPECT_EQ(valid.Count(), 1);
    EXPECT_TRUE(Valid(valid, "12:34:56"));
    int32_t error = 5;
    EXPECT_EQ(List(valid, 64, &error), "ALL,AA:BB:CC");
    EXPECT_EQ(error, 0);

    EXPECT_EQ(List(valid, 4, &error), "");
    EXPECT_EQ(error, -10006);
    EXPECT_EQ(List(valid, 5, &error), "ALL,");
    EXPECT_EQ(error, -10006);

    // ALL anywhere in the list; its slot is taken by the next item.
    valid.SetList("aa:bb:cc, all ,dd:ee:ff");
    EXPECT_EQ(valid.Count(), 2);
    EXPECT_EQ(List(valid, 64, &error), "ALL,AA:BB:CC,DD:EE:FF");

    valid.SetList("AA:BB:CC");
    EXPECT_FALSE(Valid(valid, "12:34:56")) << "a new list clears ALL";
}

TEST(ValidMon, CaseAndBlanksAroundItems) {
    ValidMon valid("validMon");
    valid.SetList("  dd:ee:ff ,aa:bb:cc,   AA BB:CC  ");
    EXPECT_EQ(valid.Count(), 3);
    int32_t error = 5;
    EXPECT_EQ(List(valid, 64, &error), "AA BB:CC,AA:BB:CC,DD:EE:FF");
    EXPECT_EQ(error, 0);

    char mac[16] = "aa:bb:cc";
    uint8_t flag = 0;
    valid.Contains(mac, &flag);
    EXPECT_EQ(flag, 1);
    EXPECT_STREQ(mac, "AA:BB:CC") << "the caller's text is raised in place";

    // An inner blank stays, so no MAC matches that item.
    EXPECT_FALSE(Valid(valid, "AABB:CC"));
    EXPECT_FALSE(Valid(valid, "AA:BB:CD"));
    EXPECT_FALSE(Valid(valid, " AA:BB:CC")) << "the tested MAC's blanks are not stripped";
}

TEST(ValidMon, SingleBlankLeavesOneEmptyEntryAndNothingValid) {
    ValidMon valid("validMon");
    valid.SetList("ALL");
    valid.SetList(" ");
    EXPECT_EQ(valid.Count(), 1);
    EXPECT_FALSE(Valid(valid, "AA:BB:CC"));
    int32_t error = 5;
    EXPECT_EQ(List(valid, 8, &error), "");
    EXPECT_EQ(error, 0);
}

TEST(ValidMon, LongListsAreSortedAndCutAfterTheLastWholeEntry) {
    ValidMon valid("validMon");
    std::vector<std::string> macs;
    std::string text;
    // 45 items in descending order: growth past 20 and 40, and the sort.
    for (int i = 45; i >= 1; --i) {
        char mac[16];
        std::snprintf(mac, sizeof mac, "00:%02X:%02x", i, i * 3);
        macs.push_back(mac);
        text += (text.empty() ? "" : ",") + std::string(mac);
    }
    valid.SetList(text.c_str());
    EXPECT_EQ(valid.Count(), 45);
    for (const std::string& mac : macs) EXPECT_TRUE(Valid(valid, mac.c_str())) << mac;
    EXPECT_FALSE(Valid(valid, "00:2E:8A"));

    std::vector<std::string> sorted;
    for (std::string mac : macs) {
        std::transform(mac.begin(), mac.end(), mac.begin(), ::toupper);
        sorted.push_back(mac);
    }
    std::sort(sorted.begin(), sorted.end());
    std::string whole;
    for (const std::string& mac : sorted) whole += (whole.empty() ? "" : ",") + mac;
    int32_t error = 5;
    EXPECT_EQ(List(valid, 1024, &error), whole);
    EXPECT_EQ(error, 0);

    // Exactly the whole list's length plus two bytes is one short.
    int32_t tight = static_cast<int32_t>(whole.size()) + 2;
    std::string cut = List(valid, tight, &error);
    EXPECT_EQ(error, -10006);
    EXPECT_EQ(cut, whole.substr(0, whole.size() - 8)) << "cut after the last whole entry";
    EXPECT_EQ(List(valid, tight + 1, &error), whole);
    EXPECT_EQ(error, 0);

    cut = List(valid, 28, &error);
    EXPECT_EQ(error, -10006);
    EXPECT_EQ(cut, sorted[0] + "," + sorted[1] + ",");
}

}  // namespace
}  // namespace zanth
