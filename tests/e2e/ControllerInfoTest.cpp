// A command from end to end over a real socket: valid and connected checks, the frame on the
// wire, the reply's way back.

#include <gtest/gtest.h>

#include <cstring>
#include <thread>

#include "support/FakeController.h"
#include "support/Library.h"
#include "zanth.h"

namespace zanth::test {
namespace {

class ControllerInfoTest : public LibraryTest {};

TEST_F(ControllerInfoTest, ReplyTextReachesTheCaller) {
    Start("AA:BB:CC");
    FakeController c;
    ASSERT_TRUE(c.Connect(port_));
    ASSERT_TRUE(c.Identify("AA:BB:CC"));
    ASSERT_TRUE(WaitUntil([] {
        char list[64];
        return GetConnectedControllers(list, sizeof list) == 0 &&
               std::strcmp(list, "AA:BB:CC") == 0;
    }));
    // Both names land in one method: the same frame out, the same text back.
    for (auto info : {&ControllerInfo, &GatewayInfo}) {
        std::thread controller([&] {
            auto request = c.ReadFrame();
            ASSERT_TRUE(request);
            EXPECT_EQ(*request, "0079;0010;");
            c.SendFrame(1079, "Zanth;4.2;AA:BB:CC;");
        });
        char text[64];
        EXPECT_EQ(info("aa:bb:cc", text, sizeof text), 0);
        EXPECT_STREQ(text, "Zanth;4.2;AA:BB:CC;");
        controller.join();
    }
}

}  // namespace
}  // namespace zanth::test
