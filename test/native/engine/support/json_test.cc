#include "engine/support/json.h"

#include <gtest/gtest.h>

namespace support {
namespace {

TEST(Json, ReadsValuesOfAllTypes) {
  const auto value = parseJson(
      R"( { "a" : [ true , false , null ] , "b" : -12.5e1 , "c" : "x" , "d" : { } , "e" : [] } )");
  ASSERT_TRUE(value);
  EXPECT_EQ(value->at("a"), nlohmann::json({true, false, nullptr}));
  EXPECT_EQ(value->at("b").get<double>(), -125);
  EXPECT_EQ(value->at("c"), "x");
  EXPECT_TRUE(value->at("d").is_object() && value->at("d").empty());
  EXPECT_TRUE(value->at("e").is_array() && value->at("e").empty());
}

TEST(Json, ReadsEscapes) {
  EXPECT_EQ(parseJson(R"("\"\\\/\b\f\n\r\t")"), "\"\\/\b\f\n\r\t");
  EXPECT_EQ(parseJson(R"("\u0041\u00e9\u20AC\ud83d\ude00")"), "Aé€😀");
}

class JsonRefusal : public testing::TestWithParam<std::string> {};

TEST_P(JsonRefusal, OfAMalformedText) { EXPECT_FALSE(parseJson(GetParam())); }

INSTANTIATE_TEST_SUITE_P(Texts, JsonRefusal,
                         testing::Values("", " ", "{", "}", "[1,]", "[1 2]", "{\"a\":1,}",
                                         "{\"a\"}", "{a:1}", "{\"a\":1,\"a\":2}",
                                         "[{\"b\":{\"a\":1,\"a\":2}}]", "true false", "tru", "nul",
                                         "01", "-", "1.", ".5", "1e", "+1", "1e999", "NaN",
                                         "Infinity", "\"", "\"\\\"", "\"\\x\"", "\"\\u12\"",
                                         "\"\\u12g4\"", "\"\\ud800\"", "\"\\ud800\\u0041\"",
                                         "\"\\udc00\\udc00\"", "\"\n\"", "'a'", "[1]]", "/**/1",
                                         "\"\xff\"", std::string("1\0", 2)));

TEST(Json, AllowsTheSameNamesInSiblingObjects) {
  EXPECT_TRUE(parseJson(R"([{"a":{"a":1}},{"a":2}])"));
}

TEST(Json, LimitsTheNestingDepth) {
  EXPECT_TRUE(parseJson(std::string(32, '[') + std::string(32, ']')));
  EXPECT_FALSE(parseJson(std::string(33, '[') + std::string(33, ']')));
  EXPECT_FALSE(parseJson(std::string(1'000'000, '[')));
  const auto objects = [](int depth) {
    std::string text = "1";
    for (int i = 0; i < depth; ++i) text = R"({"a":)" + text + '}';
    return text;
  };
  EXPECT_TRUE(parseJson(objects(32)));
  EXPECT_FALSE(parseJson(objects(33)));
}

TEST(Json, WritesStringsThatAreNotUtf8) {
  EXPECT_EQ(writeJson("a\"b\\c\nd é \xff"), "\"a\\\"b\\\\c\\nd é \uFFFD\"");
}

}  // namespace
}  // namespace support
