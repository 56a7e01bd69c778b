#include "engine/support/configuration.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

#include "test/native/engine/support/temporary_directory.h"

namespace support {
namespace {

using testing::ElementsAre;

class ConfigurationTest : public testing::Test {
 protected:
  const TemporaryDirectory directory_;
  Configuration configuration_{std::make_shared<Log>(directory_.path(), "")};
};

TEST_F(ConfigurationTest, StartsWithoutVesperAndWithTheHighestIndex) {
  EXPECT_FALSE(configuration_.isVesperCapable());
  EXPECT_EQ(configuration_.maxVOQualityIndex(), 4);
}

TEST_F(ConfigurationTest, AppliesEachMemberOfAText) {
  configuration_.update(R"({"isVesperCapable": true})");
  EXPECT_TRUE(configuration_.isVesperCapable());
  EXPECT_EQ(configuration_.maxVOQualityIndex(), 4);
  configuration_.update(R"({"maxVOQualityIndex": 2, "other": [1, {}]})");
  EXPECT_TRUE(configuration_.isVesperCapable());
  EXPECT_EQ(configuration_.maxVOQualityIndex(), 2);
}

TEST_F(ConfigurationTest, IsNotChangedByAnInvalidText) {
  for (const auto* const text :
       {"", "no", "[]", R"({"isVesperCapable": 1})", R"({"maxVOQualityIndex": "1"})",
        R"({"maxVOQualityIndex": -1})", R"({"maxVOQualityIndex": 5})",
        R"({"maxVOQualityIndex": 1.5})", R"({"isVesperCapable": true, "maxVOQualityIndex": 9})",
        R"({"isVesperCapable": true, "maxVOQualityIndex": 1)"}) {
    configuration_.update(text);
    EXPECT_FALSE(configuration_.isVesperCapable()) << text;
    EXPECT_EQ(configuration_.maxVOQualityIndex(), 4) << text;
  }
  EXPECT_THAT(TemporaryDirectory::read(directory_.path() / "tesselclient.log"),
              testing::HasSubstr("configuration not understood"));
}

TEST_F(ConfigurationTest, ReportsAnIndexThatChanges) {
  std::vector<int> indexes;
  configuration_.observeIndex([&](int index) { indexes.push_back(index); });
  configuration_.update(R"({"maxVOQualityIndex": 4})");
  configuration_.update(R"({"maxVOQualityIndex": 1})");
  configuration_.update(R"({"maxVOQualityIndex": 1})");
  configuration_.update(R"({"maxVOQualityIndex": 7})");
  EXPECT_THAT(indexes, ElementsAre(1));
}

TEST_F(ConfigurationTest, IsLoadedFromAFileOrADirectory) {
  configuration_.load(directory_.write("mine.json", R"({"maxVOQualityIndex": 1})"));
  EXPECT_EQ(configuration_.maxVOQualityIndex(), 1);
  directory_.write("tesselclient.json", R"({"maxVOQualityIndex": 2})");
  configuration_.load(directory_.path());
  EXPECT_EQ(configuration_.maxVOQualityIndex(), 2);
  configuration_.load(directory_.path() / "none.json");
  configuration_.load("");
  configuration_.load("/dev/zero");
  EXPECT_EQ(configuration_.maxVOQualityIndex(), 2);
}

}  // namespace
}  // namespace support
