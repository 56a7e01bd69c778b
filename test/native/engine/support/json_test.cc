#include "engine/support/json.h"

#include <gtest/gtest.h>

namespace support {
namespace {

TEST(Json, ReadsValuesOfAllTypes) {
  const auto value = parseJson(
      R"( { "a" : [ true , false , null ] , "b" : -12.5e1 , "c" : "x" , "d" : { } , "e" : [] } )");
  ASSERT_TRUE(value);
  const auto& object = *value->asObject();
  const auto& array = *object.at("a").asArray();
  EXPECT_TRUE(*array[0].asBool());
  EXPECT_FALSE(*array[1].asBool());
  EXPECT_TRUE(array[2].isNull());
  EXPECT_EQ(*object.at("b").asNumber(), -125);
  EXPECT_EQ(*object.at("c").asString(), "x");
  EXPECT_TRUE(object.at("d").asObject()->empty());
  EXPECT_TRUE(object.at("e").asArray()->empty());
  EXPECT_EQ(object.at("b").asString(), nullptr);
}

TEST(Json, ReadsEscapes) {
  EXPECT_EQ(*parseJson(R"("\"\\\/\b\f\n\r\t")")->asString(), "\"\\/\b\f\n\r\t");
  EXPECT_EQ(*parseJson(R"("\u0041\u00e9\u20AC\ud83d\ude00")")->asString(), "Aé€😀");
}

class JsonRefusal : public testing::TestWithParam<std::string> {};

TEST_P(JsonRefusal, OfAMalformedText) { EXPECT_FALSE(parseJson(GetParam())); }

INSTANTIATE_TEST_SUITE_P(Texts, JsonRefusal,
                         testing::Values("", " ", "{", "}", "[1,]", "[1 2]", "{\"a\":1,}",
                                         "{\"a\"}", "{a:1}", "{\"a\":1,\"a\":2}", "true false",
                                         "tru", "nul", "01", "-", "1.", ".5", "1e", "+1", "1e999",
                                         "NaN", "Infinity", "\"", "\"\\\"", "\"\\x\"", "\"\\u12\"",
                                         "\"\\u12g4\"", "\"\\ud800\"", "\"\\ud800\\u0041\"",
                                         "\"\\udc00\\udc00\"", "\"\n\"", "'a'", "[1]]", "/**/1",
                                         std::string("1\0", 2)));

TEST(Json, NestsToABound) {
  EXPECT_TRUE(parseJson(std::string(32, '[') + std::string(32, ']')));
  EXPECT_FALSE(parseJson(std::string(33, '[') + std::string(33, ']')));
  EXPECT_FALSE(parseJson(std::string(1'000'000, '[')));
}

TEST(Json, QuotesTexts) { EXPECT_EQ(quoteJson("a\"b\\c\nd é"), "\"a\\\"b\\\\c\\u000ad é\""); }

}  // namespace
}  // namespace support
