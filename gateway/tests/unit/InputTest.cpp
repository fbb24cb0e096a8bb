// What a client sends to the rules and events API: each mistake is refused with the field it is in
// and what was expected, at the bounds, and what is taken comes back as it was given.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "gateway/ApiInput.h"
#include "gateway/SiteTime.h"

namespace zanthd {
namespace {

struct Refusal {
    const char* body;
    const char* field;
    const char* message;  // a part of the message that says what was expected
};

template <class Input, class Parse>
void ExpectRefusals(Parse parse, const std::vector<Refusal>& refusals) {
    for (const Refusal& r : refusals) {
        Input in;
        ApiError e;
        EXPECT_FALSE(parse(r.body, &in, &e)) << r.body;
        EXPECT_EQ(e.status, 400) << r.body;
        EXPECT_EQ(e.field, r.field) << r.body;
        EXPECT_NE(e.message.find(r.message), std::string::npos) << r.body << " -> " << e.message;
    }
}

TEST(CardholderInput, EachMistakeNamesItsField) {
    ExpectRefusals<CardholderInput>(ParseCardholder, {
        {"", "", "not valid JSON"},
        {"[1]", "", "a JSON object"},
        {R"({"nmae":"Ada"})", "nmae", "unknown field"},
        {R"({"pin":"1"})", "name", "required"},
        {R"({"name":""})", "name", "1 to 200"},
        {R"({"name":7})", "name", "a string"},
        {R"({"name":"Ada","pin":"12a4"})", "pin", "digits only"},
        {R"({"name":"Ada","pin":"12345678901234567"})", "pin", "at most 16"},
        {R"({"name":"Ada","valid_from":"2026-02-30T08:00"})", "valid_from", "site-local time"},
        {R"({"name":"Ada","valid_from":"2026-01-01 08:00"})", "valid_from", "site-local time"},
        {R"({"name":"Ada","valid_from":"2026-06-01T08:00","valid_until":"2026-06-01T08:00"})",
         "valid_until", "after valid_from"},
        {R"({"name":"Ada","enabled":1})", "enabled", "true or false"},
        {R"({"name":"Ada","cards":{"number":1}})", "cards", "an array"},
        {R"({"name":"Ada","cards":[{"number":1},7]})", "cards[1]", "an object"},
        {R"({"name":"Ada","cards":[{"facility":3}]})", "cards[0].number", "required"},
        {R"({"name":"Ada","cards":[{"number":-1}]})", "cards[0].number", "0 to 4294967295"},
        {R"({"name":"Ada","cards":[{"number":4294967296}]})", "cards[0].number", "0 to 4294967295"},
        {R"({"name":"Ada","cards":[{"number":1.5}]})", "cards[0].number", "an integer"},
        {R"({"name":"Ada","cards":[{"number":1,"facility":2147483648}]})", "cards[0].facility",
         "-2147483648 to 2147483647"},
        {R"({"name":"Ada","cards":[{"number":1,"colour":"red"}]})", "cards[0].colour", "unknown field"},
        {R"({"name":"Ada","cards":[{"number":5,"facility":1},{"number":5,"facility":1}]})", "cards[1]",
         "the same card twice"},
        {R"({"name":"Ada","access":[{"schedule":"day"}]})", "access[0].door", "required"},
        {R"({"name":"Ada","access":[{"door":"front","pin":"yes"}]})", "access[0].pin", "true or false"},
    });
}

TEST(CardholderInput, TheBoundsThemselvesAreTakenAndComeBackAsGiven) {
    const std::string body =
        R"({"name":"Ada","pin":"1234567890123456","valid_from":"2026-03-29T02:30",)"
        R"("valid_until":"2026-10-25T02:30:59","enabled":false,)"
        R"("cards":[{"number":0},{"number":4294967295,"facility":-2147483648},{"number":0,"facility":0}],)"
        R"("access":[{"door":"front","schedule":"day","pin":true},{"door":"back"}]})";
    CardholderInput c;
    ApiError e;
    ASSERT_TRUE(ParseCardholder(body, &c, &e)) << e.field << ": " << e.message;
    ASSERT_EQ(c.cards.size(), 3u) << "a card without a facility and one with facility 0 are two cards";
    EXPECT_EQ(c.cards[1].number, 4294967295u);
    EXPECT_EQ(c.cards[1].facility, -2147483648);
    EXPECT_FALSE(c.cards[0].facility.has_value());
    EXPECT_FALSE(c.enabled);
    EXPECT_TRUE(c.access[0].pin);
    EXPECT_TRUE(c.access[1].schedule.empty());
    // What the API shows back reads in again as the same cardholder.
    CardholderInput again;
    ASSERT_TRUE(ParseCardholder(ToJson(c), &again, &e)) << ToJson(c);
    EXPECT_EQ(ToJson(again), ToJson(c));
    // null stands for "not given".
    ASSERT_TRUE(ParseCardholder(R"({"name":"Bo","pin":null,"cards":null,"access":null})", &c, &e));
    EXPECT_TRUE(c.pin.empty() && c.cards.empty() && c.access.empty() && c.enabled);
}

TEST(ScheduleInput, EachMistakeNamesItsField) {
    ExpectRefusals<ScheduleInput>(ParseSchedule, {
        {R"({"name":"day"})", "intervals", "required"},
        {R"({"name":"day","intervals":[{"days":[],"from":"08:00","to":"18:00"}]})", "intervals[0].days",
         "non-empty"},
        {R"({"name":"day","intervals":[{"days":["mon","Tue"],"from":"08:00","to":"18:00"}]})",
         "intervals[0].days[1]", "\"mon\""},
        {R"({"name":"day","intervals":[{"days":["mon"],"from":"24:00","to":"24:00"}]})", "intervals[0].from",
         "00:00 to 23:59"},
        {R"({"name":"day","intervals":[{"days":["mon"],"from":"8:00","to":"18:00"}]})", "intervals[0].from",
         "HH:MM"},
        {R"({"name":"day","intervals":[{"days":["mon"],"from":"08:00","to":"24:01"}]})", "intervals[0].to",
         "up to 24:00"},
        {R"({"name":"night","intervals":[{"days":["fri"],"from":"22:00","to":"06:00"}]})", "intervals[0].to",
         "over midnight is two intervals"},
        {R"({"name":"day","intervals":[{"days":["mon"],"from":"08:00","to":"08:00"}]})", "intervals[0].to",
         "after from"},
        {R"({"name":"day","intervals":[{"days":["mon"],"from":"08:00","to":"18:00","tz":"UTC"}]})",
         "intervals[0].tz", "unknown field"},
    });
    ScheduleInput s;
    ApiError e;
    ASSERT_TRUE(ParseSchedule(
        R"({"name":"all","intervals":[{"days":["sun","mon","sun"],"from":"00:00","to":"24:00"}]})", &s, &e))
        << e.message;
    EXPECT_EQ(s.intervals[0].days, 0x41) << "Monday is bit 0, Sunday bit 6, a repeated day counts once";
    EXPECT_EQ(s.intervals[0].toMinute, 1440);
    EXPECT_EQ(ToJson(s), R"({"intervals":[{"days":["mon","sun"],"from":"00:00","to":"24:00"}],"name":"all"})");
}

TEST(EventsQuery, BoundsOfThePageAndTheKinds) {
    auto refused = [](const char* after, const char* limit, const char* kind) {
        std::string a = after ? after : "", l = limit ? limit : "", k = kind ? kind : "";
        EventsQuery q;
        ApiError e;
        bool ok = ParseEventsQuery(after ? &a : nullptr, limit ? &l : nullptr, kind ? &k : nullptr, &q, &e);
        return ok ? std::string() : e.field;
    };
    EXPECT_EQ(refused(nullptr, nullptr, nullptr), "");
    EXPECT_EQ(refused("0", "1", "event"), "");
    EXPECT_EQ(refused("4611686018427387904", "1000", "audit"), "");
    EXPECT_EQ(refused("-1", nullptr, nullptr), "after");
    EXPECT_EQ(refused("12x", nullptr, nullptr), "after");
    EXPECT_EQ(refused("", nullptr, nullptr), "after");
    EXPECT_EQ(refused(nullptr, "0", nullptr), "limit");
    EXPECT_EQ(refused(nullptr, "1001", nullptr), "limit");
    EXPECT_EQ(refused(nullptr, nullptr, "Event"), "kind");
    EXPECT_EQ(refused(nullptr, nullptr, ""), "kind");

    EventsQuery q;
    ApiError e;
    std::string limit = "7";
    ASSERT_TRUE(ParseEventsQuery(nullptr, &limit, nullptr, &q, &e));
    EXPECT_EQ(q.after, 0);
    EXPECT_EQ(q.limit, 7);
    EXPECT_TRUE(q.kind.empty());
}

TEST(PathsAndClocks, IdsAndTimesAtTheirBounds) {
    int64_t id = 0;
    EXPECT_TRUE(ParseId("1", &id));
    EXPECT_EQ(id, 1);
    EXPECT_TRUE(ParseId("9007199254740992", &id));
    EXPECT_EQ(id, int64_t{1} << 53);
    for (const char* bad : {"0", "9007199254740993", "-3", "", "1e3", "0x10", "18446744073709551617"}) {
        EXPECT_FALSE(ParseId(bad, &id)) << bad;
    }
    int minutes = -1;
    EXPECT_TRUE(ParseClock("00:00", &minutes));
    EXPECT_EQ(minutes, 0);
    EXPECT_TRUE(ParseClock("24:00", &minutes));
    EXPECT_EQ(minutes, 1440);
    for (const char* bad : {"24:01", "23:60", "7:00", "07-00", "07:0a", "", "07:000"}) {
        EXPECT_FALSE(ParseClock(bad, &minutes)) << bad;
    }
    LocalDateTime t;
    EXPECT_TRUE(ParseLocalDateTime("2028-02-29T23:59:59", &t)) << "a leap day";
    EXPECT_FALSE(ParseLocalDateTime("2027-02-29T00:00", &t));
    EXPECT_FALSE(ParseLocalDateTime("2026-13-01T00:00", &t));
    EXPECT_FALSE(ParseLocalDateTime("2026-01-01T24:00", &t));
    EXPECT_FALSE(ParseLocalDateTime("1969-12-31T23:59", &t));
    EXPECT_FALSE(ParseLocalDateTime("2026-1-01T00:00:0", &t)) << "every field has its width";
    EXPECT_FALSE(ParseLocalDateTime("2026-01-01T00:00Z", &t));
}

TEST(SiteClock, LocalTimeOfAnInstantAndBackOverAYearsChanges) {
    SiteClock berlin("Europe/Berlin");
    // 2026-03-29 01:00 UTC is when Berlin's clocks go from 02:00 to 03:00.
    const int64_t spring = 1774746000000;
    EXPECT_EQ(berlin.ToLocal(spring - 1000).text, "2026-03-29T01:59:59");
    EXPECT_EQ(berlin.ToLocal(spring).text, "2026-03-29T03:00:00");
    EXPECT_EQ(berlin.ToLocal(spring).weekday, 6) << "a Sunday";
    EXPECT_EQ(berlin.ToLocal(spring).minuteOfDay, 180);
    // Every whole hour of the year in local time maps back to the same instant, except those the
    // spring change skips.
    for (int64_t ms = spring - 86400000LL * 10; ms < spring + 86400000LL * 220; ms += 3600000) {
        SiteClock::Local l = berlin.ToLocal(ms);
        LocalDateTime back;
        ASSERT_TRUE(ParseLocalDateTime(l.text, &back)) << l.text;
        int64_t again = berlin.ToUnixMs(back);
        // In the repeated autumn hour the local text stands for two instants: the first is taken.
        EXPECT_TRUE(again == ms || again == ms - 3600000) << l.text;
    }
}

}  // namespace
}  // namespace zanthd
