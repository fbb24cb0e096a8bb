// The pieces every command method is made of: the payload builder, the reply field reader and
// the argument checks, each on its own, without a controller.

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "frame/ArgumentCheck.h"
#include "frame/ReplyFields.h"
#include "protocol/MessageUtil.h"
#include "protocol/Payload.h"
#include "protocol/Result.h"
#include "support/Library.h"

namespace zanth {
namespace {

using test::LogContains;
using test::LogCount;

std::string Text(const Payload& p) {
    return std::string(p.Data(), p.Length());
}

TEST(Payload, FieldsAndTheirSeparators) {
    struct Case {
        Payload p;
        const char* expected;
    };
    Case cases[] = {
        {Payload(), ""},
        {Payload().Int(32), "32;"},
        {Payload().Int(-1).Int(INT32_MIN), "-1;-2147483648;"},
        {Payload().Uint(4294967295u).Uint(0), "4294967295;0;"},
        {Payload().Text("abc").Text("").Text(nullptr), "abc;;;"},
        {Payload().Int(7).Raw("1;2"), "7;1;2"},
        {Payload().Raw(nullptr), ""},
        {Payload().Text("user").Text("pass").EndWithoutSeparator(), "user;pass"},
        {Payload().Int(1).Raw("x").EndWithoutSeparator(), "1;x"},  // only a field's own ';'
        {Payload().Int(3).Raw("data").EnsureSeparator(), "3;data;"},
        {Payload().Int(3).Raw("data;").EnsureSeparator(), "3;data;"},
        {Payload().EnsureSeparator(), ";"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(Text(c.p), c.expected);
        EXPECT_TRUE(c.p.Fits());
        EXPECT_EQ(std::strlen(c.p.Data()), c.p.Length()) << "always terminated";
    }
}

TEST(Payload, TheLargestFrameBuildsAndOneByteMoreIsRefusedWhole) {
    MessageUtil util;
    // As in Master: a spare byte after the message keeps a full frame terminated.
    char out[kMessageBufferSize + 1] = {};
    struct Case {
        std::string text;
        bool endWithout;
        bool fits;
    };
    std::string max(Payload::kCapacity - 1, 'x');  // 4086 bytes and a ';' make 4087
    std::vector<Case> cases = {
        {max, false, true},
        {max + "y", false, false},               // 4088
        {max + "y", true, true},                 // 4088 less the last ';'
        {std::string(10000, 'z'), true, false},  // cut inside the buffer: stays too long
    };
    for (const Case& c : cases) {
        Payload p;
        p.Text(c.text.c_str());
        if (c.endWithout) p.EndWithoutSeparator();
        EXPECT_EQ(p.Fits(), c.fits) << c.text.size();
        int32_t rc = util.BuildMessage(79, p.Data(), p.Length(), out, kMessageBufferSize);
        if (c.fits) {
            EXPECT_EQ(rc, kOk);
            EXPECT_EQ(std::strlen(out), kClearHeaderSize + p.Length());
        } else {
            EXPECT_EQ(rc, kTooLarge);
            EXPECT_EQ(out[0], '\0') << "nothing framed";
        }
    }
    // Fields after an overflow change nothing.
    Payload p;
    p.Raw(std::string(Payload::kCapacity + 5, 'a').c_str()).Int(1).Text("b");
    EXPECT_FALSE(p.Fits());
    EXPECT_EQ(p.Length(), Payload::kCapacity + 1);
}

class ReplyFieldsTest : public test::TraceLogTest {
  protected:
    ReplyFields Read(const std::string& text, FieldWalk walk = FieldWalk::kTokens) {
        text_ = text;
        result_ = 0;
        return ReplyFields(text_.c_str(), text_.size(), result_, "Master::Test", "master", walk);
    }
    std::string text_;
    int32_t result_ = 0;
};

TEST_F(ReplyFieldsTest, TypedFieldsInOrder) {
    int32_t a = 9, b = 9, c = 9;
    uint32_t u1 = 9, u2 = 9, u3 = 9;
    char name[8];
    char date[11], time[9];
    Read(";;-12;4294967295;-1;abc;junk;+7x;;2012/01/02-13:14:15;  42;;")
        .Int(&a)
        .Uint(&u1)
        .Uint(&u2)
        .Text(name, sizeof name)
        .Uint(&u3)  // no digit: left as it was
        .Int(&b)
        .Stamp(date, sizeof date, time, sizeof time)
        .Int(&c);
    EXPECT_EQ(result_, kOk);
    EXPECT_EQ(a, -12);
    EXPECT_EQ(u1, 4294967295u);
    EXPECT_EQ(u2, 4294967295u) << "a minus wraps, as the unsigned scan does";
    EXPECT_STREQ(name, "abc");
    EXPECT_EQ(u3, 9u);
    EXPECT_EQ(b, 7);
    EXPECT_STREQ(date, "2012/01/02");
    EXPECT_STREQ(time, "13:14:15");
    EXPECT_EQ(c, 42);
}

TEST_F(ReplyFieldsTest, NumbersReadAsTheRuntimeReadsThem) {
    struct Case {
        const char* field;
        int32_t asInt;
        uint32_t asUint;  // 77: no digit, untouched
    };
    const Case cases[] = {
        {"0", 0, 0},
        {"x1", 0, 77},
        {"99999999999", INT32_MAX, 1215752191u},  // the scan keeps the low 32 bits
        {"-99999999999", INT32_MIN, 3079215105u},
        {"99999999999999999999999", INT32_MAX, 4294967295u},
        {" \t5", 5, 5},
        {"-", 0, 77},
    };
    for (const Case& c : cases) {
        int32_t i = 77;
        uint32_t u = 77;
        Read(std::string(c.field) + ";" + c.field + ";").Int(&i).Uint(&u);
        EXPECT_EQ(i, c.asInt) << c.field;
        EXPECT_EQ(u, c.asUint) << c.field;
    }
}

TEST_F(ReplyFieldsTest, FieldsAreCutAtHashAndAnEmptyOneEndsTheWalk) {
    char a[8], b[8];
    int32_t n = 5;
    ReplyFields f = Read("12#ab;x#;#gone;34;");
    f.Text(a, sizeof a).Text(b, sizeof b);
    EXPECT_STREQ(a, "12");
    EXPECT_STREQ(b, "x");
    f.Int(&n);
    EXPECT_EQ(result_, kMissingField) << "a field cut to nothing ends the walk";
    EXPECT_EQ(n, 5);
}

TEST_F(ReplyFieldsTest, MissingFieldFailsOnceAndLaterReadsDoNothing) {
    int32_t a = 0, b = 5;
    char text[4] = "old";
    ReplyFields f = Read("1;");
    f.Int(&a).Skip().Int(&b).Text(text, sizeof text);
    EXPECT_EQ(a, 1);
    EXPECT_EQ(b, 5);
    EXPECT_STREQ(text, "old");
    EXPECT_EQ(result_, kMissingField);
    EXPECT_EQ(f.Count(), 1);
    EXPECT_FALSE(f.Ok());
    // Optional fields: a short reply is a success and leaves the outputs as they were.
    Read("1;").Int(&a).Optional().Int(&b).Int(&b);
    EXPECT_EQ(result_, kOk);
    EXPECT_EQ(b, 5);
}

TEST_F(ReplyFieldsTest, AtMostOneHundredFiftyTokens) {
    std::string text;
    for (int i = 1; i <= 151; ++i) text += std::to_string(i) + ";";
    int32_t last = 0;
    Read(text).Skip(149).Int(&last);
    EXPECT_EQ(last, 150);
    EXPECT_EQ(result_, kOk);
    Read(text).Skip(150).Int(&last);
    EXPECT_EQ(result_, kMissingField);
}

TEST_F(ReplyFieldsTest, TextNeedsRoomForItsTerminator) {
    char buffer[6];
    std::memset(buffer, 'x', sizeof buffer);
    int32_t after = 3;
    Read("abcdef;1;").Text(buffer, sizeof buffer).Int(&after);
    EXPECT_EQ(result_, kTooLarge);
    EXPECT_EQ(buffer[0], 'x') << "nothing written";
    EXPECT_EQ(after, 3) << "the walk ended at the failure";
    Read("abcde;").Text(buffer, sizeof buffer);
    EXPECT_EQ(result_, kOk);
    EXPECT_STREQ(buffer, "abcde");
    Read("a;").Text(buffer, 0);
    EXPECT_EQ(result_, kTooLarge);
    Read("a;").Text(buffer, -1);
    EXPECT_EQ(result_, kTooLarge);
}

TEST_F(ReplyFieldsTest, StampSplitAndItsSizes) {
    struct Case {
        const char* field;
        int32_t dateSize, timeSize;
        int32_t result;
        const char* date;  // as it stands afterwards ("?" untouched)
        const char* time;
    };
    const Case cases[] = {
        {"2012/01/02-00:00:00", 11, 9, kOk, "2012/01/02", "00:00:00"},
        {"2012/01/02-00:00:00", 10, 9, kTooLarge, "?", "?"},
        {"2012/01/02-00:00:00", 11, 8, kTooLarge, "2012/01/02", "?"},
        {"0", 2, 2, kOk, "0", "0"},
        {"0", 1, 2, kTooLarge, "?", "?"},
        {"0", 2, 1, kTooLarge, "?", "?"},
        {"-", 1, 1, kOk, "", ""},
        {"a-b-c", 2, 4, kOk, "a", "b-c"},
    };
    for (const Case& c : cases) {
        char date[16] = "?", time[16] = "?";
        Read(std::string(c.field) + ";").Stamp(date, c.dateSize, time, c.timeSize);
        EXPECT_EQ(result_, c.result) << c.field << " " << c.dateSize << "/" << c.timeSize;
        EXPECT_STREQ(date, c.date) << c.field;
        EXPECT_STREQ(time, c.time) << c.field;
    }
}

TEST_F(ReplyFieldsTest, EveryDelimiterWalkCountsEmptyFieldsAndDropsAnUnendedTail) {
    int32_t a = 9, b = 9, c = 9;
    char text[8] = "old";
    Read("0;;#3;x;tail", FieldWalk::kEveryDelimiter)
        .Int(&a)
        .Int(&b)
        .Text(text, sizeof text)
        .Skip()
        .Optional()
        .Int(&c);
    EXPECT_EQ(a, 0);
    EXPECT_EQ(b, 0) << "an empty field is a field";
    EXPECT_STREQ(text, "#3") << "no cut at '#'";
    EXPECT_EQ(c, 9) << "bytes after the last ';' make no field";
    EXPECT_EQ(result_, kOk);
    // An empty text field still needs a byte for its terminator.
    Read(";", FieldWalk::kEveryDelimiter).Text(text, 0);
    EXPECT_EQ(result_, kTooLarge);
}

TEST_F(ReplyFieldsTest, ControllerResultIsMappedAndLogged) {
    struct Case {
        const char* text;
        bool mapLow;
        int32_t result;
    };
    const Case cases[] = {
        {"0;", true, 0},
        {"5;x;", true, 5},
        {"-1;", true, kTerminating},
        {"-99;", true, kTerminating},
        {"-100;", true, -100},
        {"-1;", false, -1},
        {"", true, kMissingField},
        {";;", true, kMissingField},
    };
    for (const Case& c : cases) {
        int32_t rslt = 12345;
        Read(c.text).ControllerResult(&rslt, c.mapLow);
        EXPECT_EQ(result_, c.result) << c.text;
    }
    EXPECT_TRUE(LogContains("[Master::Test] rslt=-100"));
    // A positive result leaves the walk running; a negative one stops it.
    int32_t next = 0;
    Read("3;4;").ControllerResult().Int(&next);
    EXPECT_EQ(result_, 3);
    EXPECT_EQ(next, 4);
    next = 0;
    Read("-100;4;").ControllerResult().Int(&next);
    EXPECT_EQ(next, 0);
}

TEST_F(ReplyFieldsTest, NullOutputsTakeTheirFieldAndWriteNothing) {
    int32_t last = 0;
    Read("1;2;abc;0;9;")
        .Int(nullptr)
        .Uint(nullptr)
        .Text(nullptr, 4)
        .Stamp(nullptr, 2, nullptr, 2)
        .Int(&last);
    EXPECT_EQ(result_, kOk);
    EXPECT_EQ(last, 9);
}

class ArgumentCheckTest : public test::TraceLogTest {
  protected:
    ArgumentCheck Checks(const char* method = "Master::RebootBoard") {
        result_ = 0;
        return ArgumentCheck(method, result_, logText_, "master");
    }
    int32_t result_ = 0;
    char logText_[kLogTextSize] = {};
};

TEST_F(ArgumentCheckTest, TextsNameTheArgumentAndItsBounds) {
    struct Case {
        bool (*check)(ArgumentCheck&);
        const char* text;
    };
    const Case cases[] = {
        {[](ArgumentCheck& c) { return c.Check("target", 33, 0, 32); },
         "[Master::RebootBoard] target value must be between 0 and 32"},
        {[](ArgumentCheck& c) { return c.Check("unique ID", 0, 1, 4294967295LL); },
         "[Master::RebootBoard] unique ID value must be between 1 and 4294967295"},
        {[](ArgumentCheck& c) { return c.CheckBetween("wait time", -1, 0, 600000); },
         "[Master::RebootBoard] wait time must be between 0 and 600000"},
        {[](ArgumentCheck& c) {
             return c.CheckRange(
                 -1, 0, 4294967295LL,
                 "[Master:GetCardRecord[2] uniqueid value must be between %d and %u");
         },
         "[Master:GetCardRecord[2] uniqueid value must be between 0 and 4294967295"},
        {[](ArgumentCheck& c) { return c.Refuse("[Master::X] Invalid start date"); },
         "[Master::X] Invalid start date"},
    };
    for (const Case& c : cases) {
        ArgumentCheck checks = Checks();
        EXPECT_FALSE(c.check(checks));
        EXPECT_EQ(result_, kBadArgument);
        EXPECT_EQ(LogCount(c.text), 1) << c.text;
    }
}

TEST_F(ArgumentCheckTest, BoundsPassAndOnlyTheFirstFailureIsLogged) {
    ArgumentCheck c = Checks("Master::Gen");
    EXPECT_TRUE(c.Check("a", 0, 0, 32));
    EXPECT_TRUE(c.Check("a", 32, 0, 32));
    EXPECT_TRUE(c.Check("a", 4294967295LL, 0, 4294967295LL));
    EXPECT_EQ(result_, kOk);
    EXPECT_FALSE(c.Check("first", 2, 0, 1));
    EXPECT_FALSE(c.Check("second", 2, 0, 1));
    EXPECT_FALSE(c.Present("text"));
    EXPECT_TRUE(LogContains("[Master::Gen] first value must be between 0 and 1"));
    EXPECT_FALSE(LogContains("second value"));
}

TEST_F(ArgumentCheckTest, NullPointersAreRefusedWithoutALogLine) {
    int32_t value = 0;
    const char* none = nullptr;
    ArgumentCheck c = Checks("Master::Nulls");
    EXPECT_TRUE(c.Present("text", &value));
    EXPECT_FALSE(c.Present("text", none, &value));
    EXPECT_EQ(result_, kBadArgument);
    EXPECT_FALSE(LogContains("[Master::Nulls]"));
}

}  // namespace
}  // namespace zanth
