// Schedules and Contact ID records against a simulated controller over loopback: written, read
// back, replaced, deleted, and refused for an unknown key, as a host sees it through the
// exports and as the controller keeps it.

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <string>
#include <vector>

#include "support/FakeController.h"
#include "support/Library.h"
#include "tools/sim/Simulator.h"
#include "tools/sim/families/ContactId.h"
#include "tools/sim/families/Schedules.h"
#include "zanth.h"

namespace zanth::test {
namespace {

using namespace std::chrono_literals;

constexpr const char* kMac = "AA:00:71";

struct Text {
    std::vector<char> bytes = std::vector<char>(ZANTH_PARAMETER_TEXT_SIZE, '\0');
    char* get() { return bytes.data(); }
    std::string str() const { return bytes.data(); }
};

class SchedulesContactIdTest : public LibraryTest {
  protected:
    void SetUp() override {
        LibraryTest::SetUp();
        Start(kMac);
        sim::ControllerConfig config;
        config.mac = kMac;
        config.port = port_;
        config.reconnectMinMs = 50;
        controller_ = &sim_.Add(config);
        sim_.Start();
        ASSERT_TRUE(controller_->WaitIdentified(10s));
        ASSERT_TRUE(WaitUntil([] {
            char list[64] = {};
            return GetConnectedControllers(list, sizeof list) == 0 && std::strcmp(list, kMac) == 0;
        }));
    }
    void TearDown() override {
        sim_.Stop();
        LibraryTest::TearDown();
    }

    int32_t ReadSchedule(int32_t id) {
        return GetSchedule(kMac, id, t_[0].get(), t_[1].get(), t_[2].get(), t_[3].get(),
                           t_[4].get(), &v_[0], &v_[1], &v_[2], &v_[3], &v_[4]);
    }
    int32_t ReadRecord(int32_t key) {
        v_[2] = key;
        return GetContactIDRecord(kMac, t_[0].get(), &v_[0], &v_[1], &v_[2], &v_[3], &v_[4], &v_[5],
                                  &v_[6], t_[1].get(), t_[2].get());
    }

    sim::Simulator sim_;
    sim::Controller* controller_ = nullptr;
    Text t_[5];
    int32_t v_[7] = {};
};

TEST_F(SchedulesContactIdTest, WriteReadDeleteEachKind) {
    // A schedule, replaced by a second write under the same ID.
    EXPECT_EQ(UpdateSchedule(kMac, "night", "22:00", "06:00", "", "", 12, 1, 2, 3, 4, 5), 0);
    EXPECT_EQ(UpdateSchedule(kMac, "day", "07:00", "18:00", "gate", "", 12, 9, 8, 7, 6, 5), 0);
    ASSERT_EQ(ReadSchedule(12), 0);
    EXPECT_EQ(t_[0].str(), "day");
    EXPECT_EQ(t_[3].str(), "gate");
    EXPECT_EQ(t_[4].str(), "");
    EXPECT_EQ(std::vector<int32_t>(v_, v_ + 5), (std::vector<int32_t>{12, 9, 8, 7, 6}));
    auto& schedules = controller_->Family<sim::Schedules>();
    ASSERT_TRUE(schedules.Find(12));
    EXPECT_EQ(schedules.Find(12)->values[5], 5) << "the sixth value is kept, though not passed on";
    EXPECT_EQ(DeleteSchedule(kMac, 12), 0);
    EXPECT_EQ(ReadSchedule(12), -1) << "the controller's refusal has too few fields";
    EXPECT_EQ(DeleteSchedule(kMac, 12), sim::kResultUnknownRecord);
    EXPECT_EQ(UpdateSchedule(kMac, "", "", "", "", "", 0, 0, 0, 0, 0, 0), sim::kResultBadArgument);
    EXPECT_EQ(schedules.Count(), 0u);

    // A Contact ID record: its update never reports the controller's answer.
    EXPECT_EQ(UpdateContactIDRecord(kMac, "burglary", 1, 130, 501, 3, 0, 7, 9, "zone 3", "hall"),
              0);
    ASSERT_EQ(ReadRecord(501), 0);
    EXPECT_EQ(t_[0].str(), "burglary");
    EXPECT_EQ(std::vector<int32_t>(v_, v_ + 7), (std::vector<int32_t>{1, 130, 501, 3, 0, 7, 9}));
    EXPECT_EQ(t_[2].str(), "hall");
    EXPECT_EQ(DeleteContactIDRecord(kMac, 501), 0);
    EXPECT_FALSE(controller_->Family<sim::ContactId>().Record(501));
    EXPECT_EQ(ReadRecord(501), -1);
    EXPECT_EQ(DeleteContactIDRecord(kMac, 501), 0) << "the answer, -101, is not read";

    // A group record: the key given is not overwritten.
    EXPECT_EQ(UpdateContactIDGroupRecord(kMac, 4, "north", 77), 0);
    int32_t groupValue = 0;
    ASSERT_EQ(GetContactIDGroupRecord(kMac, 4, t_[0].get(), &groupValue), 0);
    EXPECT_EQ(t_[0].str(), "north");
    EXPECT_EQ(groupValue, 77);
    EXPECT_EQ(DeleteContactIDGroupRecord(kMac, 4), 0);
    EXPECT_EQ(DeleteContactIDGroupRecord(kMac, 4), sim::kResultUnknownRecord);
    EXPECT_EQ(GetContactIDGroupRecord(kMac, 4, t_[0].get(), &groupValue), -1);

    // A communication record, read back as one text.
    EXPECT_EQ(UpdateContactIDCommRecord(kMac, 3, "555-0100", 65535), 0);
    ASSERT_EQ(GetContactIDCommRecord(kMac, 3, t_[0].get()), 0);
    EXPECT_EQ(t_[0].str(), "0;555-0100;65535;");
    EXPECT_EQ(UpdateContactIDCommRecord(kMac, 3, "a#b", 1), sim::kResultBadArgument);
    EXPECT_EQ(DeleteContactIDCommRecord(kMac, "555-0100", 3), 0);
    EXPECT_EQ(GetContactIDCommRecord(kMac, 3, t_[0].get()), 0);
    EXPECT_EQ(t_[0].str(), "-101;") << "the refusal is the text";
    EXPECT_EQ(DeleteContactIDCommRecord(kMac, "", 3), sim::kResultUnknownRecord);
}

TEST_F(SchedulesContactIdTest, RspFormsReturnAtOnceAndTheReplyComesByTheResponseQueue) {
    EXPECT_EQ(UpdateSchedule(kMac, "a", "b", "c", "d", "e", 3, 1, 1, 1, 1, 1), 0);
    // -1 though the message went out: the reply arrives under its rspid all the same.
    EXPECT_EQ(RspGetSchedule(901, kMac, 3), -1);
    int32_t rspid = 0;
    char reply[4117] = {};
    ASSERT_TRUE(WaitUntil([&] { return GetNextResponse(&rspid, reply, sizeof reply) == 0; }));
    EXPECT_EQ(rspid, 901);
    EXPECT_EQ(std::string(reply), Frame(1116, "0;a;b;c;d;e;3;1;1;1;1;1;"));
    EXPECT_EQ(RspDeleteContactIDRecord(902, kMac, 1), 0);
    ASSERT_TRUE(WaitUntil([&] { return GetNextResponse(&rspid, reply, sizeof reply) == 0; }));
    EXPECT_EQ(rspid, 902);
    EXPECT_EQ(std::string(reply), Frame(1116, "-101;"));
    // The link is free for the next blocking command.
    EXPECT_EQ(DeleteSchedule(kMac, 3), 0);
}

}  // namespace
}  // namespace zanth::test
