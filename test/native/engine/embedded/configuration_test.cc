#include "test/native/engine/embedded/engine_test.h"

namespace embedded {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using EngineConfigurationTest = EngineTest;

TEST_F(EngineConfigurationTest, AChangedIndexIsNotified) {
  const auto configuration = manager_->GetConfigDataPtr();
  configuration->update(R"({"maxVOQualityIndex": 3})");
  pass(support::Time(0));
  EXPECT_THAT(takeLines(), ElementsAre("quality 3"));
  manager_->DeInitialize();
  configuration->update(R"({"maxVOQualityIndex": 2})");
  EXPECT_THAT(takeLines(), IsEmpty());
  EXPECT_EQ(manager_->GetConfigDataPtr()->maxVOQualityIndex(), 2);
}

}  // namespace
}  // namespace embedded
