// The simulated controller's card database and smart card readers, driven by a scripted host
// with the exact frames the host library sends, and its CSV loading.

#include <gtest/gtest.h>

#include <chrono>
#include <sstream>
#include <string>
#include <vector>

#include "protocol/Codes.h"
#include "support/FakeController.h"
#include "support/Library.h"
#include "tools/sim/Simulator.h"
#include "tools/sim/families/CardDatabase.h"
#include "tools/sim/families/SmartCard.h"

namespace zanth::test {
namespace {

using namespace std::chrono_literals;
using sim::CardDatabase;

// One command and the answer it must get: the command's reply code unless another is given.
struct Step {
    int code;
    std::string payload;
    std::string answer;
    int replyCode = 0;
};

class SimCardsTest : public ::testing::Test {
  protected:
    void SetUp() override {
        sim::ControllerConfig config;
        config.mac = "AA:BB:CC";
        config.port = host_.Listen();
        config.reconnectMinMs = 50;
        controller_ = &sim_.Add(config);
        sim_.Start();
        Accept();
    }
    void TearDown() override { sim_.Stop(); }

    void Accept() {
        ASSERT_TRUE(host_.Accept());
        ASSERT_TRUE(host_.ReadFrame());
        host_.SendFrame(ZANTH_ACCEPT_CONNECTION);
        ASSERT_TRUE(
            controller_->WaitUntil([](const sim::ControllerStats& s) { return s.identified; }, 5s));
    }

    void Run(const std::vector<Step>& steps) {
        for (const Step& s : steps) {
            host_.SendFrame(s.code, s.payload);
            int reply = s.replyCode != 0 ? s.replyCode : s.code + 1000;
            EXPECT_EQ(host_.ReadFrame(), Frame(reply, s.answer)) << s.code << " " << s.payload;
        }
    }

    CardDatabase& Cards() { return controller_->Family<CardDatabase>(); }

    FakeController host_;
    sim::Simulator sim_;
    sim::Controller* controller_ = nullptr;
};

// Two records as the three add generations send them, and their get answers.
const std::string kAdd42 =
    "7;0;1001;1234;1;42;1;2;0;0;0;0;0;8;1;0;0;1;0;2012/01/02-00:00:00;2037/12/31-23:59:59;5;3;4;"
    "0;";
const std::string kGet42 =
    "0;1001;7;0;1234;1;42;1;1;2;0;0;0;0;0;8;1;0;0;0;1;0;2012/01/02-00:00:00;2037/12/31-23:59:59;"
    "5;3;4;0;";
const std::string kAdd43 =
    "7;1;2002;0;2;43;65535;0;0;0;0;0;0;0;0;0;1;0;0;0;0;4294967295;255;0;0;1;300;";
const std::string kGet43 =
    "0;2002;7;1;0;2;43;1;65535;0;0;0;0;0;0;0;0;0;1;0;0;0;0;0;4294967295;255;0;0;1;";
// Generation 2 moves 43 to another card and clears PIN exempt; the role stays.
const std::string kMod43 =
    "7;1;2003;0;2;43;65535;0;0;0;0;0;0;0;0;0;1;0;0;0;0;4294967295;255;0;0;0;";
const std::string kGet43Modified =
    "0;2003;7;1;0;2;43;2;65535;0;0;0;0;0;0;0;0;0;1;0;0;0;0;0;4294967295;255;0;0;0;300;";
const std::string kAddMax = "0;0;3003;0;3;4294967295;0;0;0;0;0;0;0;0;0;0;0;0;0;0;0;0;0;0;0;";

TEST_F(SimCardsTest, RecordsAreWrittenReadDeletedAndMaintainedAsOnAController) {
    Cards().SetCapacity(3);
    Run({
        {ZANTH_GET_NUMBER_OF_CARDS, "", "0;0;3;"},
        // Every generation writes, every generation reads.
        {ZANTH_ADD_MOD_CARD_RECORD, kAdd42, "0;"},
        {ZANTH_GET_CARD_RECORD, "1001;7;0;0;", kGet42},
        {ZANTH_ADD_MOD_CARD_RECORD_3, kAdd43, "0;"},
        {ZANTH_GET_CARD_RECORD_4, "2002;7;1;0;", kGet43 + "300;"},
        {ZANTH_GET_CARD_RECORD_2, "2002;7;0;0;", kGet43},
        {ZANTH_GET_CARD_RECORD_3, "43;0;0;0;", kGet43},
        {ZANTH_ADD_MOD_CARD_RECORD_2, kMod43, "0;"},
        {ZANTH_GET_CARD_RECORD_4, "2003;7;0;0;", kGet43Modified},
        {ZANTH_GET_CARD_RECORD_2, "2002;7;0;0;", "-101;"},
        // Card 2003 is 43's now.
        {ZANTH_ADD_MOD_CARD_RECORD, "7;0;2003;0;1;44;0;0;0;0;0;0;0;0;0;0;0;0;0;0;0;0;0;0;0;",
         "-104;"},
        {ZANTH_ADD_MOD_CARD_RECORD, kAddMax, "0;"},
        {ZANTH_ADD_MOD_CARD_RECORD, "0;0;4004;0;3;45;0;0;0;0;0;0;0;0;0;0;0;0;0;0;0;0;0;0;0;",
         "-102;"},
        {ZANTH_GET_NUMBER_OF_CARDS, "", "0;3;3;"},
        // The signed form of unique ID 4294967295.
        {ZANTH_DELETE_CARD_RECORD_2, "-1;", "0;", ZANTH_DELETE_CARD_RECORD_2_RSP},
        {ZANTH_GET_NUMBER_OF_CARDS, "", "0;2;3;"},
        {ZANTH_GET_NUMBER_DEL_RECORDS, "", "0;1;"},
        {ZANTH_GET_CARD_RECORD_3, "4294967295;0;0;0;", "-103;"},
        {ZANTH_GET_CARD_HOLDER_STATUS, "4294967295;", "-103;"},
        {ZANTH_UNDELETE_CARD_RECORD_2, "4294967295;", "0;"},
        {ZANTH_GET_NUMBER_DEL_RECORDS, "", "0;0;"},
        {ZANTH_DELETE_CARD_RECORD, "7;0;1001;0;", "0;"},
        {ZANTH_GET_CARD_RECORD, "1001;7;0;0;", "-103;"},
        {ZANTH_UNDELETE_CARD_RECORD, "7;0;1001;0;", "0;"},
        {ZANTH_GET_CARD_RECORD, "1001;7;0;0;", kGet42},
        {ZANTH_DELETE_CARD_RECORD_2, "999;", "-101;"},
        {ZANTH_DELETE_CARD_RECORD, "7;0;9999;0;", "-101;"},
        // Pre-index drops the deleted records for good.
        {ZANTH_DELETE_CARD_RECORD, "7;0;1001;0;", "0;"},
        {ZANTH_EXECUTE_PREINDEX_DB, "", "0;"},
        {ZANTH_GET_NUMBER_DEL_RECORDS, "", "0;0;"},
        {ZANTH_UNDELETE_CARD_RECORD_2, "42;", "-101;"},
        // Changeover re-dimensions: not below the active records.
        {ZANTH_EXECUTE_DB_CHANGE_OVER, "1;", "-102;"},
        {ZANTH_EXECUTE_DB_CHANGE_OVER, "500001;", "-100;"},
        {ZANTH_EXECUTE_DB_CHANGE_OVER, "10;", "0;"},
        {ZANTH_GET_NUMBER_OF_CARDS, "", "0;2;10;"},
        // A deleted record's card goes to the next record that claims it.
        {ZANTH_DELETE_CARD_RECORD_2, "43;", "0;"},
        {ZANTH_ADD_MOD_CARD_RECORD, "7;0;2003;0;1;44;0;0;0;0;0;0;0;0;0;0;0;0;0;0;0;0;0;0;0;", "0;"},
        {ZANTH_UNDELETE_CARD_RECORD_2, "43;", "-101;"},
        {ZANTH_GET_NUMBER_OF_CARDS, "", "0;2;10;"},
        {42, "7;", "42;", ZANTH_UNKNOWN_COMMAND},
    });
    auto records = Cards().Records();
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].uniqueId, 44u);
    EXPECT_EQ(records[1].uniqueId, 4294967295u);

    // The database outlives the link.
    controller_->Drop();
    ASSERT_TRUE(host_.WaitClosed());
    host_.Close();
    Accept();
    Run({{ZANTH_GET_NUMBER_OF_CARDS, "", "0;2;10;"}});
}

TEST_F(SimCardsTest, CardholderStatusIsReadAndReset) {
    Run({{ZANTH_ADD_MOD_CARD_RECORD, kAdd42, "0;"}, {ZANTH_ADD_MOD_CARD_RECORD_3, kAdd43, "0;"}});
    const sim::CardholderStatus used{"2024/05/06-07:08:09", {1, 2, 3, 4, 5, 6, 7, 8}};
    ASSERT_TRUE(Cards().SetStatus(42, used));
    ASSERT_TRUE(Cards().SetStatus(43, used));
    EXPECT_FALSE(Cards().SetStatus(7, used));
    Run({
        {ZANTH_GET_CARD_HOLDER_STATUS, "42;", "0;2024/05/06-07:08:09;1;2;3;4;5;6;7;8;"},
        {ZANTH_RESET_CARD_HOLDER_STATUS, "42;", "0;"},
        {ZANTH_GET_CARD_HOLDER_STATUS, "42;", "0;0;0;0;0;0;0;0;0;0;"},
        {ZANTH_GET_CARD_HOLDER_STATUS, "43;", "0;2024/05/06-07:08:09;1;2;3;4;5;6;7;8;"},
        {ZANTH_RESET_CARD_HOLDER_STATUS, "7;", "-101;"},
        {ZANTH_RESET_ALL_CARD_HOLDER_STATUS, "", "0;"},
        {ZANTH_GET_CARD_HOLDER_STATUS, "43;", "0;0;0;0;0;0;0;0;0;0;"},
    });
    // A reload forgets the statuses, and only them.
    ASSERT_TRUE(Cards().SetStatus(43, used));
    Run({{ZANTH_ADD_MOD_CARD_RECORD_2, kMod43, "0;"},
         {ZANTH_GET_CARD_HOLDER_STATUS, "43;", "0;2024/05/06-07:08:09;1;2;3;4;5;6;7;8;"},
         {ZANTH_EXECUTE_RELOAD_DB, "", "0;"},
         {ZANTH_GET_CARD_HOLDER_STATUS, "43;", "0;0;0;0;0;0;0;0;0;0;"},
         {ZANTH_GET_NUMBER_OF_CARDS, "", "0;2;50000;"}});
}

TEST_F(SimCardsTest, UnreadablePayloadsGetTheBadArgumentResult) {
    const std::vector<Step> refused = {
        {ZANTH_ADD_MOD_CARD_RECORD, kAdd42.substr(0, kAdd42.size() - 2), "-100;"},  // 24 fields
        {ZANTH_ADD_MOD_CARD_RECORD, kAdd42 + "0;", "-100;"},                        // 26 fields
        {ZANTH_ADD_MOD_CARD_RECORD_3,
         "7;1;2002;0;2;43;65535;0;0;0;0;0;0;0;0;0;1;0;0;0;0;1;255;0;0;1;65536;", "-100;"},
        {ZANTH_ADD_MOD_CARD_RECORD_2, "7;1;2002;0;4;43;0;0;0;0;0;0;0;0;0;0;1;0;0;0;0;1;255;0;0;1;",
         "-100;"},
        {ZANTH_ADD_MOD_CARD_RECORD,
         "7;0;1001;1234;1;42;1;2;0;0;0;0;0;8;1;0;0;1;0;2012/01/02;0;5;3;4;0;",
         "-100;"},  // a start stamp without its time
        {ZANTH_GET_CARD_RECORD_3, "0;0;0;0;", "-100;"},
        {ZANTH_GET_CARD_RECORD_2, "1001;7;2;0;", "-100;"},
    };
    Run(refused);
    // Whatever comes in a command's fields, the answer is the command's own refusal.
    const std::vector<std::string> garbage = {
        "", ";", "x;", "-;", "99999999999999999999;", "x;;1;", std::string(4000, 'x')};
    for (int code : {16, 21, 22, 23, 24, 25, 26, 27, 35, 52, 76, 77, 104, 105, 150, 151}) {
        for (const std::string& payload : garbage) {
            host_.SendFrame(code, payload);
            EXPECT_EQ(host_.ReadFrame(), Frame(code + 1000, "-100;")) << code << " " << payload;
        }
    }
    EXPECT_EQ(Cards().Counts().active, 0u);
    EXPECT_EQ(controller_->Stats().protocolErrors, 0u);
}

TEST_F(SimCardsTest, FaultsReachFamilyCommandsToo) {
    controller_->SetFault(ZANTH_ADD_MOD_CARD_RECORD, sim::Fault::Error("-1;"));
    controller_->SetFault(ZANTH_GET_NUMBER_OF_CARDS, sim::Fault::Late(200));
    Run({{ZANTH_ADD_MOD_CARD_RECORD, kAdd42, "-1;"}});
    auto sent = std::chrono::steady_clock::now();
    // The refused add was not carried out; the late answer still tells the truth.
    Run({{ZANTH_GET_NUMBER_OF_CARDS, "", "0;0;50000;"}});
    EXPECT_GE(std::chrono::steady_clock::now() - sent, 200ms);
    Run({{ZANTH_ADD_MOD_CARD_RECORD, kAdd42, "0;"}, {ZANTH_GET_NUMBER_OF_CARDS, "", "0;1;50000;"}});
}

TEST_F(SimCardsTest, ThousandsOfRecordsLoadAndReadBackExactly) {
    constexpr int kCount = 2000;
    // Generation 3 payload and the code 26 answer of record i.
    auto record = [](int i, bool answer) {
        std::vector<std::string> f = {std::to_string(i % 5),
                                      "0",
                                      "C" + std::to_string(100000 + i),
                                      std::to_string(1000 + i % 9000),
                                      std::to_string(1 + i % 3),
                                      std::to_string(1000000 + i * 7)};
        if (answer) {
            std::swap(f[0], f[2]);  // the card number leads, then set ID and no format
            std::swap(f[1], f[2]);
            f.push_back("1");  // revision
        }
        for (int g = 0; g < 8; ++g) f.push_back(std::to_string((i + g) % 65536));
        f.push_back(std::to_string(i % 2));
        f.push_back("0");
        f.push_back(std::to_string(i / 2 % 2));
        if (answer) f.push_back("0");
        f.push_back(std::to_string(i / 4 % 2));
        f.push_back("0");
        f.push_back("2020/01/01-08:00:00");
        f.push_back("2030/12/31-23:59:59");
        f.push_back(std::to_string(i * 13));
        f.push_back(std::to_string(i % 256));
        f.push_back(std::to_string(i * 7 % 256));
        f.push_back("0");
        f.push_back(std::to_string(i / 8 % 2));
        if (!answer) f.push_back(std::to_string(i % 65536));
        std::string text = answer ? "0;" : "";
        for (const std::string& s : f) text += s + ";";
        return text;
    };
    std::string adds;
    for (int i = 0; i < kCount; ++i) adds += Frame(ZANTH_ADD_MOD_CARD_RECORD_3, record(i, false));
    ASSERT_TRUE(host_.SendRaw(adds));
    for (int i = 0; i < kCount; ++i) {
        ASSERT_EQ(host_.ReadFrame(), Frame(ZANTH_ADD_MOD_CARD_RECORD_3_RSP, "0;")) << i;
    }
    Run({{ZANTH_GET_NUMBER_OF_CARDS, "", "0;" + std::to_string(kCount) + ";50000;"}});
    std::string gets;
    for (int i = 0; i < kCount; ++i) {
        gets += Frame(ZANTH_GET_CARD_RECORD_3, std::to_string(1000000 + i * 7) + ";0;0;0;");
    }
    ASSERT_TRUE(host_.SendRaw(gets));
    for (int i = 0; i < kCount; ++i) {
        ASSERT_EQ(host_.ReadFrame(), Frame(ZANTH_GET_CARD_RECORD_3_RSP, record(i, true))) << i;
    }
    EXPECT_EQ(Cards().Find(1000000 + 7 * 1999)->cardRole, 1999u);
}

TEST_F(SimCardsTest, SmartCardReadersAnswerRawAndCommandExchanges) {
    auto& readers = controller_->Family<sim::SmartCard>();
    readers.SetAnswer(3, "6A82");
    Run({
        {ZANTH_SMART_CARD_RAW_MODE, "2;00A40400;", "0;2;9000;"},
        {ZANTH_SMART_CARD_RAW_MODE, "3;00b0;", "0;3;6A82;"},
        {ZANTH_SMART_CARD_RAW_MODE, "2;ABC;", "-100;"},
        {ZANTH_SMART_CARD_RAW_MODE, "2;;", "-100;"},
        {ZANTH_SMART_CARD_RAW_MODE, "256;AB;", "-100;"},
        {ZANTH_SMART_CARD_COMMAND_MODE, "2;", "0;2;"},
        {ZANTH_SMART_CARD_COMMAND_MODE, "4;BEEP 3;LED 1;", "0;4;"},
    });
    auto r4 = readers.Reader(4);
    ASSERT_TRUE(r4);
    EXPECT_EQ(r4->mode, sim::SmartCardReader::Mode::Command);
    EXPECT_EQ(r4->lastData, "BEEP 3;LED 1");
    EXPECT_EQ(readers.Reader(2)->exchanges, 2u);
    EXPECT_FALSE(readers.Reader(5));
}

// ---------------------------------------------------------------------------------------------
// CSV

TEST(SimCardsCsv, LinesLoadAsTheHostsAddWouldStoreThem) {
    CardDatabase cards;
    std::istringstream site(
        "# a comment, then a blank line\n"
        "\n"
        "7,0,1001,1234,1,42,1,2,0,0,0,0,0,8,1,0,1,2012/01/02,0,2037/12/31,0,5,3,4\r\n"
        "7,1, 2002 ,,2,43,0,0,0,0,0,0,0,0,0,1,0,0,12:30:00,2020/02/29,0,0,0,0,1\n"
        "7,0,3003,9,3,44,0,0,0,0,0,0,0,0,0,0,0,2012/01/02,06:00:00,0,0,0,0,0,0,300\n");
    std::string error;
    auto loaded = cards.LoadCsv(site, &error);
    ASSERT_TRUE(loaded) << error;
    EXPECT_EQ(*loaded, 3u);
    auto r42 = cards.Find(42);
    ASSERT_TRUE(r42);
    EXPECT_EQ(r42->start, "2012/01/02-00:00:00");
    EXPECT_EQ(r42->end, "2037/12/31-23:59:59");
    EXPECT_EQ(r42->extendedAccess, 1);
    EXPECT_EQ(r42->passbackExempt, 0);
    EXPECT_EQ(r42->pinCommands, 1);
    EXPECT_EQ(r42->accessGroups[7], 8);
    EXPECT_EQ(r42->outScheduleElevatorGroup, 4);
    auto r43 = cards.Find(43);
    ASSERT_TRUE(r43);
    EXPECT_EQ(r43->cardNumber, "2002");
    EXPECT_EQ(r43->pin, "0");
    EXPECT_EQ(r43->start, "0");  // a time without a date is dropped
    EXPECT_EQ(r43->end, "2020/02/29-23:59:59");
    EXPECT_EQ(r43->pinExempt, 1);
    EXPECT_EQ(cards.Find(44)->cardRole, 300u);

    const std::string ok = "7,0,5005,0,1,50,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0";
    struct Bad {
        std::string line;
        std::string error;
    };
    const Bad bad[] = {
        {"1,2,3", "line 1: expected 24 to 26 fields, found 3"},
        {"7,0,5005,0,4,50,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0", "line 1: bad access type \"4\""},
        {"7,0,5005,0,1,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0", "line 1: bad unique ID \"0\""},
        {"7,0,5005,0,1,50,0,0,0,0,0,0,0,0,0,0,0,2038/01/01,0,0,0,0,0,0",
         "line 1: bad date \"2038/01/01\", not yyyy/mm/dd or 0"},
        {"7,0,5005,0,1,50,0,0,0,0,0,0,0,0,0,0,0,2012/01/01,24:00:00,0,0,0,0,0",
         "line 1: bad time \"24:00:00\", not hh:mm:ss or 0"},
        {ok + "\n" + "7,0,5005,0,1,51,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0",
         "line 2: the card belongs to another record"},
    };
    for (const Bad& b : bad) {
        CardDatabase fresh;
        std::istringstream in(b.line);
        EXPECT_FALSE(fresh.LoadCsv(in, &error)) << b.line;
        EXPECT_EQ(error, b.error);
    }
    CardDatabase small;
    small.SetCapacity(0);
    std::istringstream in(ok);
    EXPECT_FALSE(small.LoadCsv(in, &error));
    EXPECT_EQ(error, "line 1: the database is full");
}

}  // namespace
}  // namespace zanth::test
