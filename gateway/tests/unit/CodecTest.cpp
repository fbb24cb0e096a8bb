// The payload codec against the texts the project's controllers send.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "gateway/Ingest.h"
#include "gateway/PayloadCodec.h"

namespace zanthd {
namespace {

TEST(Codec, EventsAndAlarmsNameTheirController) {
    ZanthPayloadCodec codec;
    auto m = codec.ParseRecord("00:0a:01;17;03/30/2025;02:59:58;1;3;2;Access granted;");
    ASSERT_TRUE(m);
    EXPECT_EQ(m->mac, "00:0A:01");
    EXPECT_EQ(m->fields.at("msg_id"), "17");
    EXPECT_EQ(m->fields.at("time"), "2025-03-30T02:59:58");
    EXPECT_EQ(m->fields.at("door"), "2");
    EXPECT_EQ(m->fields.at("description"), "Access granted");
    auto h = codec.ParseRecord("00:00:01;12/31/2024;23:59:59;HEARTBEAT;");
    ASSERT_TRUE(h);
    EXPECT_EQ(h->fields.at("type"), "heartbeat");
    // A record as the message file holds it: padded with NULs to 144 bytes.
    std::string slot = "00:00:02;1;01/02/2025;03:04:05;1;1;1;x;";
    slot.resize(144, '\0');
    Record r = Ingest::FromRing(codec, 'a', slot, 5);
    EXPECT_EQ(r.kind, "alarm");
    EXPECT_EQ(r.mac, "00:00:02");
    EXPECT_EQ(r.raw, "00:00:02;1;01/02/2025;03:04:05;1;1;1;x;");
    EXPECT_EQ(nlohmann::json::parse(r.fields)["description"], "x");
}

TEST(Codec, TextsOfAnotherShapeAreRefusedNotGuessed) {
    ZanthPayloadCodec codec;
    // The format before events carried the MAC.
    EXPECT_FALSE(codec.ParseRecord("17;03/30/2025;02:59:58;1;3;2;Access granted;"));
    EXPECT_FALSE(codec.ParseRecord("00:00:01;17;3/30/2025;02:59:58;1;3;2;x;"));
    EXPECT_FALSE(codec.ParseRecord("00:00:01;x;03/30/2025;02:59:58;1;3;2;x;"));
    EXPECT_FALSE(codec.ParseRecord(""));
    EXPECT_FALSE(codec.ParseLookup("00:00:01;1;4294967296;0;"));
    EXPECT_FALSE(codec.ParseLookup("00:00:01;1;-1;0;"));
    EXPECT_FALSE(codec.ParseLookup("nomac;1;1;0;"));
    EXPECT_FALSE(codec.ParseDoorReport("00:00:01;1;1001;MAYBE;"));
    Record r = Ingest::FromRing(codec, 'e', "garbage", 1);
    EXPECT_EQ(r.mac, "");
    EXPECT_EQ(r.fields, "{}");
    EXPECT_EQ(r.raw, "garbage");
}

TEST(Codec, LookupsAndDecisionsRoundTrip) {
    ZanthPayloadCodec codec;
    auto l = codec.ParseLookup("00:00:01;3;4294967295;-7;");
    ASSERT_TRUE(l);
    EXPECT_EQ(l->door, 3);
    EXPECT_EQ(l->card, 4294967295u);
    EXPECT_EQ(l->facility, -7);
    EXPECT_EQ(codec.DecisionText(*l, true), "3;4294967295;1;");
    EXPECT_EQ(codec.DecisionText(*l, false), "3;4294967295;0;");
    auto p = codec.ParsePin("00:00:01;3;0042;");
    ASSERT_TRUE(p);
    EXPECT_EQ(p->pin, "0042");
    auto d = codec.ParseDoorReport("00:00:01;3;1001;DENIED;");
    ASSERT_TRUE(d);
    EXPECT_EQ(d->fields.at("result"), "denied");
}

}  // namespace
}  // namespace zanthd
