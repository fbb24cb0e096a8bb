// The rules: cards, doors, validity windows and schedules in the site's zone, across DST.
#include <gtest/gtest.h>

#include <filesystem>

#include "gateway/Rules.h"

namespace zanthd {
namespace {

int64_t Utc(int y, int mo, int d, int h, int mi) {
    SiteClock utc("UTC");
    return utc.ToUnixMs({y, mo, d, h, mi, 0});
}

struct RulesTest : ::testing::Test {
    SiteClock berlin{"Europe/Berlin"};
    std::vector<DoorConfig> doors{{"front", "00:00:01", 1, 0, 8}, {"back", "00:00:01", 2, 1, 9}};
    std::filesystem::path dir;
    void SetUp() override {
        dir = std::filesystem::temp_directory_path() /
              ("zanthd-rules-" + std::to_string(::getpid()) + "-" +
               ::testing::UnitTest::GetInstance()->current_test_info()->name());
        std::filesystem::remove_all(dir);
        std::filesystem::create_directories(dir);
    }
    void TearDown() override { std::filesystem::remove_all(dir); }
    CardholderInput Holder(const std::string& body) {
        CardholderInput in;
        ApiError e;
        EXPECT_TRUE(ParseCardholder(body, &in, &e)) << e.field << ": " << e.message;
        return in;
    }
};

TEST_F(RulesTest, ASkippedOrRepeatedLocalTimeHasOneInstant) {
    // 2025-03-30 02:30 doesn't happen in Berlin: it counts from the jump at 01:00 UTC.
    EXPECT_EQ(berlin.ToUnixMs({2025, 3, 30, 2, 30, 0}), Utc(2025, 3, 30, 1, 0));
    // 2025-10-26 02:30 happens twice: the first, in summer time (00:30 UTC).
    EXPECT_EQ(berlin.ToUnixMs({2025, 10, 26, 2, 30, 0}), Utc(2025, 10, 26, 0, 30));
    EXPECT_EQ(berlin.ToLocal(Utc(2025, 10, 26, 1, 30)).text, "2025-10-26T02:30:00");
    EXPECT_EQ(berlin.ToLocal(Utc(2025, 3, 30, 1, 0)).text, "2025-03-30T03:00:00");
    EXPECT_EQ(berlin.ToLocal(Utc(2025, 3, 30, 1, 0)).weekday, 6);  // a Sunday
}

TEST_F(RulesTest, SchedulesAreHeldInLocalTimeAcrossDst) {
    RulesStore store(doors, berlin);
    std::string error;
    ASSERT_TRUE(store.Open((dir / "rules.db").string(), &error)) << error;
    ScheduleInput night;
    ApiError e;
    ASSERT_TRUE(ParseSchedule(R"({"name":"night","intervals":[{"days":["sun"],"from":"01:00","to":"03:00"}]})", &night, &e));
    Schedule s;
    ASSERT_TRUE(store.PutSchedule(0, night, &s, &e)) << e.message;
    Cardholder h;
    ASSERT_TRUE(store.PutCardholder(0, Holder(R"({"name":"Night guard","cards":[{"number":77}],
        "access":[{"door":"front","schedule":"night"}]})"), &h, &e)) << e.message;
    auto rules = store.Snapshot();
    const DoorConfig* front = &doors[0];
    // Spring forward: 01:30 CET is inside; at 01:00 UTC the clocks read 03:00 CEST: outside.
    EXPECT_TRUE(rules->Decide(front, 77, 0, Utc(2025, 3, 30, 0, 30), berlin).grant);
    auto after = rules->Decide(front, 77, 0, Utc(2025, 3, 30, 1, 0), berlin);
    EXPECT_FALSE(after.grant);
    EXPECT_EQ(after.reason, "outside the schedule");
    // Fall back: the window lasts three real hours, 02:00-03:00 happening twice.
    EXPECT_TRUE(rules->Decide(front, 77, 0, Utc(2025, 10, 25, 23, 30), berlin).grant);  // 01:30 CEST
    EXPECT_TRUE(rules->Decide(front, 77, 0, Utc(2025, 10, 26, 0, 30), berlin).grant);   // 02:30 CEST
    EXPECT_TRUE(rules->Decide(front, 77, 0, Utc(2025, 10, 26, 1, 30), berlin).grant);   // 02:30 CET
    EXPECT_FALSE(rules->Decide(front, 77, 0, Utc(2025, 10, 26, 2, 0), berlin).grant);   // 03:00 CET
    // Another day of the week, same hour: outside.
    EXPECT_FALSE(rules->Decide(front, 77, 0, Utc(2025, 10, 27, 0, 30), berlin).grant);
}

TEST_F(RulesTest, ValidityWindowsDoorsAndCards) {
    RulesStore store(doors, berlin);
    std::string error;
    ASSERT_TRUE(store.Open((dir / "rules.db").string(), &error)) << error;
    ApiError e;
    Cardholder h;
    ASSERT_TRUE(store.PutCardholder(0, Holder(R"({"name":"Temp","valid_from":"2025-03-30T02:30",
        "valid_until":"2025-10-26T02:30","cards":[{"number":5,"facility":9}],"access":[{"door":"front"}]})"),
                                    &h, &e)) << e.message;
    auto rules = store.Snapshot();
    const DoorConfig* front = &doors[0];
    const DoorConfig* back = &doors[1];
    // From the jump (01:00 UTC) on, up to the first 02:30 of the fall-back night (00:30 UTC).
    EXPECT_FALSE(rules->Decide(front, 5, 9, Utc(2025, 3, 30, 0, 59), berlin).grant);
    EXPECT_TRUE(rules->Decide(front, 5, 9, Utc(2025, 3, 30, 1, 0), berlin).grant);
    EXPECT_TRUE(rules->Decide(front, 5, 9, Utc(2025, 10, 26, 0, 29), berlin).grant);
    EXPECT_EQ(rules->Decide(front, 5, 9, Utc(2025, 10, 26, 0, 30), berlin).reason, "outside the validity window");
    int64_t mid = Utc(2025, 6, 1, 12, 0);
    EXPECT_EQ(rules->Decide(back, 5, 9, mid, berlin).reason, "door not allowed");
    EXPECT_EQ(rules->Decide(front, 5, 8, mid, berlin).reason, "unknown card");  // wrong facility
    EXPECT_EQ(rules->Decide(nullptr, 5, 9, mid, berlin).reason, "unknown door");
    // A card can't belong to two cardholders; the refusal names it and changes nothing.
    Cardholder other;
    EXPECT_FALSE(store.PutCardholder(0, Holder(R"({"name":"Other","cards":[{"number":6},{"number":5,"facility":9}]})"), &other, &e));
    EXPECT_EQ(e.status, 409);
    EXPECT_EQ(e.field, "cards[1].number");
    EXPECT_EQ(store.Snapshot()->Decide(front, 6, 0, mid, berlin).reason, "unknown card");
    // Unknown references are refused.
    EXPECT_FALSE(store.PutCardholder(0, Holder(R"({"name":"X","access":[{"door":"side"}]})"), &other, &e));
    EXPECT_EQ(e.field, "access[0].door");
    // Disabling takes effect on the next decision.
    CardholderInput off = h.doc;
    off.enabled = false;
    ASSERT_TRUE(store.PutCardholder(h.id, off, &h, &e));
    EXPECT_EQ(store.Snapshot()->Decide(front, 5, 9, mid, berlin).reason, "cardholder disabled");
}

TEST_F(RulesTest, PinEntriesAndPendingCardChanges) {
    RulesStore store(doors, berlin);
    std::string error;
    ASSERT_TRUE(store.Open((dir / "rules.db").string(), &error)) << error;
    ApiError e;
    Cardholder h;
    ASSERT_TRUE(store.PutCardholder(0, Holder(R"({"name":"P","pin":"4321","cards":[{"number":1}],
        "access":[{"door":"front","pin":true}]})"), &h, &e));
    auto d = store.Snapshot()->Decide(&doors[0], 1, 0, Utc(2025, 1, 1, 0, 0), berlin);
    EXPECT_TRUE(d.grant);
    EXPECT_TRUE(d.pin);
    std::vector<PendingChange> pending;
    ASSERT_TRUE(store.ListPending("", &pending, &e));
    ASSERT_EQ(pending.size(), 1u);
    EXPECT_EQ(pending[0].op, "add");
    EXPECT_EQ(pending[0].mac, "00:00:01");
    ASSERT_TRUE(store.DeleteCardholder(h.id, &e));
    pending.clear();
    ASSERT_TRUE(store.ListPending("00:00:01", &pending, &e));
    ASSERT_EQ(pending.size(), 2u);
    EXPECT_EQ(pending[1].op, "delete");
    EXPECT_EQ(store.Snapshot()->Decide(&doors[0], 1, 0, Utc(2025, 1, 1, 0, 0), berlin).reason, "unknown card");
}

}  // namespace
}  // namespace zanthd
