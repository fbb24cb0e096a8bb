// zanth::Session: the library started and ended by one object, callbacks as std::function on the
// library's threads, an exception from a host callback kept out of the library, and one session
// at a time.

#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <string>
#include <vector>

#include "hpp/HppSupport.h"
#include "zanth.hpp"

namespace zanth::hpptest {
namespace {

#define ZANTH_REQUIRE(site)                                           \
    if (!(site).Ready()) {                                            \
        if ((site).Failure() == "zanth-sim is not built") GTEST_SKIP(); \
        FAIL() << (site).Failure();                                   \
    }

// What the callbacks saw, from the library's threads.
struct Seen {
    std::mutex mutex;
    std::vector<std::string> connected;
    std::vector<std::string> events;
    std::vector<std::pair<std::string, std::string>> errors;
    std::vector<std::pair<int32_t, std::string>> responses;

    template <class T>
    size_t Count(const std::vector<T>& v) {
        std::lock_guard<std::mutex> lock(mutex);
        return v.size();
    }
};

TEST(HppSession, CallbacksRunAndAThrowingOneStaysOutOfTheLibrary) {
    Seen seen;
    std::atomic<int> calls{0};
    Session::Options o;
    o.onConnected = [&](const std::string& mac) {
        std::lock_guard<std::mutex> lock(seen.mutex);
        seen.connected.push_back(mac);
    };
    o.onEvent = [&](const std::string& text) {
        // The first event's handler throws; the library must go on delivering.
        if (calls++ == 0) throw std::runtime_error("host handler failed");
        std::lock_guard<std::mutex> lock(seen.mutex);
        seen.events.push_back(text);
    };
    o.onCallbackError = [&](const std::string& kind, const std::string& what) {
        std::lock_guard<std::mutex> lock(seen.mutex);
        seen.errors.emplace_back(kind, what);
    };
    SimulatedSite site("C0:01:01", {"--event-interval-ms", "50"}, o);
    ZANTH_REQUIRE(site);
    EXPECT_TRUE(WaitUntil([&] { return seen.Count(seen.connected) >= 1; }));
    EXPECT_TRUE(WaitUntil([&] { return seen.Count(seen.events) >= 3; }, std::chrono::seconds(15)));
    std::lock_guard<std::mutex> lock(seen.mutex);
    ASSERT_FALSE(seen.connected.empty());
    EXPECT_TRUE(Session::SameMac(seen.connected.front(), "c0:01:01"));
    ASSERT_EQ(seen.errors.size(), 1u);
    EXPECT_EQ(seen.errors[0].first, "event");
    EXPECT_EQ(seen.errors[0].second, "host handler failed");
    for (const std::string& e : seen.events) EXPECT_FALSE(e.empty());
}

TEST(HppSession, ResponseCallbackHandsOverRspRepliesThatDecode) {
    Seen seen;
    Session::Options o;
    o.onResponse = [&](int32_t rspid, const std::string& frame) {
        std::lock_guard<std::mutex> lock(seen.mutex);
        seen.responses.emplace_back(rspid, frame);
    };
    SimulatedSite site("C0:01:02", {}, o);
    ZANTH_REQUIRE(site);
    const std::string info = lib::ControllerInfo(site.Mac());
    dynamic::Call queued = dynamic::InvokeRsp("ControllerInfo", 9, {{"mac", site.Mac()}});
    ASSERT_TRUE(queued.ok) << queued.ResultName();
    EXPECT_EQ(queued.exp->name, std::string("RspControllerInfo"));
    ASSERT_TRUE(WaitUntil([&] { return seen.Count(seen.responses) >= 1; }));
    std::lock_guard<std::mutex> lock(seen.mutex);
    EXPECT_EQ(seen.responses[0].first, 9);
    dynamic::Decoded d = dynamic::DecodeReply("RspControllerInfo", seen.responses[0].second);
    EXPECT_TRUE(d.ok);
    EXPECT_EQ(d.code, 1079);
    EXPECT_EQ(std::get<std::string>(d.outputs.at("buffer")), info);
    // The callback took the reply: the queue holds nothing.
    EXPECT_FALSE(lib::GetNextResponse().has_value());
}

TEST(HppSession, OneAtATimeAndAFailedStartLeavesNoneBehind) {
    Session::Options bad;
    bad.port = 80;
    try {
        Session s(bad);
        FAIL() << "a session started on port 80";
    } catch (const Error& e) {
        EXPECT_EQ(e.code(), -10002);
        EXPECT_EQ(e.exportName(), "Initialization");
    }
    // The failed start holds nothing: a session starts now, and a second one is refused.
    Session::Options good;
    good.port = FreePort();
    good.valid = "C0:01:03";
    Session first(good);
    EXPECT_THROW(Session second(good), std::logic_error);
    EXPECT_EQ(lib::GetValidControllers(), "C0:01:03");
}

}  // namespace
}  // namespace zanth::hpptest
