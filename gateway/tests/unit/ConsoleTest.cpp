// The site console's session (cookie, Origin and CSRF checks, expiry) and its health history.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "gateway/ConsoleHistory.h"
#include "gateway/ConsoleSession.h"

namespace zanthd {
namespace {

constexpr int64_t kT0 = 1'700'000'000'000;

struct SessionsTest : ::testing::Test {
    Sessions sessions{std::chrono::seconds(60), std::chrono::seconds(600), 8080, false, 3};

    CookieRequest Req(const Session& s, const std::string& method = "GET") {
        return {method, "other=1; " + sessions.CookieName() + "=" + s.id, "http://127.0.0.1:8080",
                "127.0.0.1:8080", "same-origin", ""};
    }
};

TEST_F(SessionsTest, CookieCarriesTheSessionAndItsFlags) {
    Session s = sessions.Open("officer", Scope::Operator, kT0);
    EXPECT_EQ(s.id.size(), 64u);
    EXPECT_NE(s.id, s.csrf);
    EXPECT_EQ(sessions.SetCookie(s), "zanthd_8080=" + s.id + "; Path=/; HttpOnly; SameSite=Strict");
    Sessions tls(std::chrono::seconds(60), std::chrono::seconds(600), 443, true);
    Session t = tls.Open("officer", Scope::Read, kT0);
    EXPECT_EQ(tls.SetCookie(t), "__Host-zanthd_443=" + t.id + "; Path=/; HttpOnly; SameSite=Strict; Secure");
    EXPECT_NE(tls.ClearCookie().find("Max-Age=0"), std::string::npos);
}

TEST_F(SessionsTest, ReadsAndChangesAreCheckedByOriginAndCsrf) {
    Session s = sessions.Open("officer", Scope::Operator, kT0);
    Session got;
    EXPECT_EQ(sessions.Check(Req(s), kT0 + 1, &got), CookieVerdict::kOk);
    EXPECT_EQ(got.name, "officer");
    EXPECT_EQ(got.scope, Scope::Operator);

    CookieRequest change = Req(s, "POST");
    EXPECT_EQ(sessions.Check(change, kT0 + 2, &got), CookieVerdict::kNoCsrf);
    change.csrf = std::string(64, '0');
    EXPECT_EQ(sessions.Check(change, kT0 + 3, &got), CookieVerdict::kWrongCsrf);
    change.csrf = s.csrf.substr(1);
    EXPECT_EQ(sessions.Check(change, kT0 + 3, &got), CookieVerdict::kWrongCsrf);
    change.csrf = s.csrf;
    EXPECT_EQ(sessions.Check(change, kT0 + 4, &got), CookieVerdict::kOk);

    // Another origin, even another port of the same host, and even with the right CSRF token.
    for (const char* origin : {"http://127.0.0.1:9090", "http://evil.example", "https://127.0.0.1:8080", "null",
                               "http://127.0.0.1:8080/x"}) {
        CookieRequest foreign = change;
        foreign.origin = origin;
        EXPECT_EQ(sessions.Check(foreign, kT0 + 5, &got), CookieVerdict::kForeignOrigin) << origin;
    }
    for (const char* site : {"cross-site", "same-site"}) {
        CookieRequest foreign = Req(s);
        foreign.origin.clear();
        foreign.fetchSite = site;
        EXPECT_EQ(sessions.Check(foreign, kT0 + 5, &got), CookieVerdict::kForeignOrigin) << site;
    }
    // No Origin and no Sec-Fetch-Site (an older client): the CSRF token still guards changes.
    CookieRequest bare = change;
    bare.origin.clear();
    bare.fetchSite.clear();
    EXPECT_EQ(sessions.Check(bare, kT0 + 6, &got), CookieVerdict::kOk);
    bare.csrf.clear();
    EXPECT_EQ(sessions.Check(bare, kT0 + 6, &got), CookieVerdict::kNoCsrf);
}

TEST_F(SessionsTest, CookieHeaderParsing) {
    Session s = sessions.Open("officer", Scope::Read, kT0);
    const std::string name = sessions.CookieName();
    EXPECT_EQ(sessions.IdIn(""), "");
    EXPECT_EQ(sessions.IdIn("a=b"), "");
    EXPECT_EQ(sessions.IdIn(name + "=" + s.id), s.id);
    EXPECT_EQ(sessions.IdIn("a=b;" + name + " = " + s.id + " ; c=d"), s.id);
    EXPECT_EQ(sessions.IdIn("x" + name + "=" + s.id), "");
    // Something of our name that can't be an id is an unknown session, never looked up.
    EXPECT_EQ(sessions.IdIn(name + "=" + s.id.substr(2)), "-");
    EXPECT_EQ(sessions.IdIn(name + "=" + std::string(64, 'G')), "-");
    CookieRequest r = Req(s);
    r.cookieHeader = name + "=nonsense";
    Session got;
    EXPECT_EQ(sessions.Check(r, kT0, &got), CookieVerdict::kUnknown);
    r.cookieHeader = "theirs=1";
    EXPECT_EQ(sessions.Check(r, kT0, &got), CookieVerdict::kNoCookie);
}

TEST_F(SessionsTest, SessionsEndIdleAtTheirLifetimeAndOnLogout) {
    Session a = sessions.Open("a", Scope::Read, kT0);
    Session got;
    // Used every 50 s: the idle limit (60 s) never comes, the lifetime (600 s) does.
    int64_t t = kT0;
    for (; t + 50'000 < kT0 + 600'000; t += 50'000) {
        ASSERT_EQ(sessions.Check(Req(a), t, &got), CookieVerdict::kOk) << (t - kT0);
    }
    EXPECT_EQ(sessions.Check(Req(a), kT0 + 600'000, &got), CookieVerdict::kUnknown);

    Session b = sessions.Open("b", Scope::Read, kT0);
    EXPECT_TRUE(sessions.Alive(b.id, kT0 + 59'000));  // an open stream keeps it in use
    EXPECT_TRUE(sessions.Peek(Req(b).cookieHeader, kT0 + 118'000).has_value());
    EXPECT_FALSE(sessions.Alive(b.id, kT0 + 119'000));

    Session c = sessions.Open("c", Scope::Read, kT0);
    EXPECT_TRUE(sessions.End(c.id));
    EXPECT_FALSE(sessions.End(c.id));
    EXPECT_EQ(sessions.Check(Req(c), kT0 + 1, &got), CookieVerdict::kUnknown);
}

TEST_F(SessionsTest, AFullTableDropsTheLeastRecentlyUsed) {
    Session a = sessions.Open("a", Scope::Read, kT0);
    Session b = sessions.Open("b", Scope::Read, kT0 + 1);
    Session c = sessions.Open("c", Scope::Read, kT0 + 2);
    Session got;
    ASSERT_EQ(sessions.Check(Req(a), kT0 + 3, &got), CookieVerdict::kOk);
    Session d = sessions.Open("d", Scope::Read, kT0 + 4);
    EXPECT_EQ(sessions.Count(), 3u);
    EXPECT_EQ(sessions.Check(Req(b), kT0 + 5, &got), CookieVerdict::kUnknown);
    for (const Session* s : {&a, &c, &d}) EXPECT_EQ(sessions.Check(Req(*s), kT0 + 5, &got), CookieVerdict::kOk);
}

TEST(HealthHistoryTest, QuantilesByNearestRank) {
    std::vector<double> none;
    EXPECT_EQ(Quantile(none, 0.5), -1);
    std::vector<double> v;
    for (int i = 100; i >= 1; --i) v.push_back(i);
    EXPECT_EQ(Quantile(v, 0.5), 50);
    EXPECT_EQ(Quantile(v, 0.99), 99);
    EXPECT_EQ(Quantile(v, 1.0), 100);
    std::vector<double> one = {7};
    EXPECT_EQ(Quantile(one, 0.99), 7);
}

TEST(HealthHistoryTest, PointsCountRatesLatenciesAndGaugesAndKeepTheLastOnes) {
    double lag = 0, connected = 0;
    HealthHistory h({[&lag] { return lag; }, [&connected] { return connected; }}, 10, 3);
    auto record = [](const char* kind, double latency) {
        Record r;
        r.kind = kind;
        r.latencyMs = latency;
        return r;
    };
    std::vector<Record> batch;
    for (int i = 0; i < 20; ++i) batch.push_back(record("event", -1));
    for (int i = 1; i <= 4; ++i) batch.push_back(record("lookup", i));
    batch.push_back(record("lookup", -1));  // taken but not decided by the gateway
    h.Stored(batch);
    lag = 50;
    connected = 2;
    h.ReadGauges();
    lag = 5;
    h.ReadGauges();
    int64_t start = NowMs();
    h.Close(start + 10'000);
    std::vector<HealthPoint> p = h.Points();
    ASSERT_EQ(p.size(), 1u);
    EXPECT_EQ(p[0].records.at("event"), 20u);
    EXPECT_EQ(p[0].records.at("lookup"), 5u);
    EXPECT_EQ(p[0].decisions, 4u);
    EXPECT_EQ(p[0].latencyP50Ms, 2);
    EXPECT_EQ(p[0].latencyMaxMs, 4);
    EXPECT_EQ(p[0].journalLag, 50);  // the step's largest
    EXPECT_EQ(p[0].connected, 2);
    nlohmann::json j = h.Json();
    EXPECT_EQ(j["step_s"], 10);
    EXPECT_EQ(j["points"][0]["lookups_per_s"], 0.5);
    // A step without decisions has no latency; only the last `points` are kept.
    for (int i = 2; i <= 4; ++i) h.Close(start + 10'000 * i);
    j = h.Json();
    ASSERT_EQ(j["points"].size(), 3u);
    EXPECT_TRUE(j["points"][0]["decision_p50_ms"].is_null());
    EXPECT_EQ(j["points"][2]["t_ms"], start + 40'000);
    EXPECT_EQ(j["points"][2]["events_per_s"], 0);
}

}  // namespace
}  // namespace zanthd
