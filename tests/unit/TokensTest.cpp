// The splitter of reply payloads.

#include <gtest/gtest.h>

#include <string>

#include "frame/Tokens.h"

namespace zanth {
namespace {

TEST(Tokens, AtMostOneHundredFiftyFields) {
    std::string text;
    for (int i = 1; i <= 160; ++i) text += std::to_string(i) + ";";
    Tokens tokens;
    tokens.Split(text.data(), ";");
    ASSERT_EQ(tokens.Count(), 150);
    for (int i = 1; i <= 150; ++i) ASSERT_EQ(tokens.NextInt(), i);
    EXPECT_EQ(tokens.Next(), nullptr);
    EXPECT_EQ(tokens.NextInt(), 0) << "no field left";
}

TEST(Tokens, FieldsAreCutAtTheFirstHash) {
    char text[] = "12#ab#c;x#;34";
    Tokens tokens;
    tokens.Split(text, ";");
    ASSERT_EQ(tokens.Count(), 3);
    EXPECT_STREQ(tokens.Next(), "12");
    EXPECT_STREQ(tokens.Next(), "x");
    EXPECT_STREQ(tokens.Next(), "34");
}

TEST(Tokens, FieldStartingWithAHashEndsTheSplit) {
    char text[] = "1;2;#note;3;4";
    Tokens tokens;
    tokens.Split(text, ";");
    ASSERT_EQ(tokens.Count(), 2);
    EXPECT_EQ(tokens.NextInt(), 1);
    EXPECT_EQ(tokens.NextInt(), 2);
    EXPECT_EQ(tokens.Next(), nullptr);
}

TEST(Tokens, RunsOfDelimitersCountAsOneAndASplitStartsAfresh) {
    char first[] = ";;0;;-7;abc;;5";
    Tokens tokens;
    tokens.Split(first, ";");
    ASSERT_EQ(tokens.Count(), 4);
    EXPECT_EQ(tokens.NextInt(), 0);
    EXPECT_EQ(tokens.NextInt(), -7);
    EXPECT_EQ(tokens.NextInt(), 0) << "a field that is no number reads 0";
    EXPECT_EQ(tokens.NextInt(), 5);

    char second[] = "9,8";
    tokens.Split(second, ",;");
    ASSERT_EQ(tokens.Count(), 2);
    EXPECT_STREQ(tokens.Next(), "9") << "the cursor starts again";

    char empty[] = ";;;";
    tokens.Split(empty, ";");
    EXPECT_EQ(tokens.Count(), 0);
    EXPECT_EQ(tokens.Next(), nullptr);
    EXPECT_EQ(tokens.NextInt(), 0);
}

}  // namespace
}  // namespace zanth
