#pragma once
// The wire tables of the interface board and administration commands: a call, the frames it must
// send with the scripted controller's answer to each, and what the caller must get back.

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "support/FakeController.h"
#include "support/Library.h"
#include "tools/sim/Simulator.h"
#include "zanth.h"

namespace zanth::test {

// One frame the call must send, and the controller's answer ("" for none).
struct Exchange {
    std::string sent;
    std::string answer;
};

struct WireRow {
    const char* name;
    std::function<int32_t()> call;
    std::vector<Exchange> exchanges;
    int32_t result;
    // Checks of the outputs, after the call.
    std::function<void()> check = [] {};
    // A Rsp form: the last answer must reach the response queue under this id.
    uint32_t rspid = 0;
};

inline constexpr const char* kMac = "AA:BB:CC";
// Valid, never connected.
inline constexpr const char* kIdleMac = "DD:EE:FF";
// Not on the valid list.
inline constexpr const char* kStrangerMac = "11:22:33";

class BoardsWireTest : public LibraryTest {
  protected:
    void SetUp() override {
        LibraryTest::SetUp();
        Start("AA:BB:CC, DD:EE:FF");
        ASSERT_TRUE(c_.Connect(port_));
        ASSERT_TRUE(c_.Identify(kMac));
        ASSERT_TRUE(WaitUntil([] {
            char list[64];
            return GetConnectedControllers(list, sizeof list) == 0 && std::strcmp(list, kMac) == 0;
        }));
    }

    void Run(const std::vector<WireRow>& rows) {
        for (const WireRow& row : rows) {
            SCOPED_TRACE(row.name);
            std::thread controller([&] {
                for (const Exchange& e : row.exchanges) {
                    auto frame = c_.ReadFrame();
                    ASSERT_TRUE(frame);
                    EXPECT_EQ(*frame, e.sent);
                    if (!e.answer.empty()) c_.SendRaw(e.answer);
                }
            });
            EXPECT_EQ(row.call(), row.result);
            controller.join();
            if (row.rspid != 0) {
                int32_t rspid = 0;
                char text[4200] = {};
                ASSERT_TRUE(
                    WaitUntil([&] { return GetNextResponse(&rspid, text, sizeof text) == 0; }));
                EXPECT_EQ(static_cast<uint32_t>(rspid), row.rspid);
                EXPECT_EQ(std::string(text), row.exchanges.back().answer);
            }
            row.check();
        }
    }

    FakeController c_;
};

// The simulator with the library over loopback: one controller, identified at both ends.
class BoardsSimTest : public LibraryTest {
  protected:
    void TearDown() override {
        sim_.Stop();
        LibraryTest::TearDown();
    }

    sim::Controller& Identified(const char* mac) {
        Start(mac);
        sim::ControllerConfig config;
        config.mac = mac;
        config.port = port_;
        config.reconnectMinMs = 50;
        config.reconnectMaxMs = 500;
        config.rebootDelayMs = 200;
        sim::Controller& c = sim_.Add(config);
        sim_.Start();
        EXPECT_TRUE(c.WaitIdentified(std::chrono::seconds(10)));
        EXPECT_TRUE(WaitUntil([&] {
            char list[64];
            return GetConnectedControllers(list, sizeof list) == 0 && std::strcmp(list, mac) == 0;
        }));
        return c;
    }

    sim::Simulator sim_;
};

}  // namespace zanth::test
