#include "engine/support/processor_load.h"

#include <gtest/gtest.h>

#include <ctime>

namespace support {
namespace {

TEST(ProcessorTicks, AreParsedFromTheKernelsFiles) {
  const auto ticks = parseProcessorTicks("cpu  10 20 30 400 50 6 7 8 9 9\ncpu0 1 2 3\n",
                                         "42 (a) b) S 1 2 3 4 5 6 7 8 9 10 1100 220 13 14 15");
  ASSERT_TRUE(ticks);
  EXPECT_EQ(ticks->total, 531U);
  EXPECT_EQ(ticks->busy, 81U);
  EXPECT_EQ(ticks->process, 1320U);
}

TEST(ProcessorTicks, AreUnknownWhenAFileIsMalformed) {
  const std::string stat = "cpu 1 2 3 4 5 6 7 8";
  const std::string self = "42 (a) S 1 2 3 4 5 6 7 8 9 10 11 12 13";
  EXPECT_TRUE(parseProcessorTicks(stat, self));
  EXPECT_FALSE(parseProcessorTicks("", self));
  EXPECT_FALSE(parseProcessorTicks("cpu0 1 2 3 4 5 6 7 8", self));
  EXPECT_FALSE(parseProcessorTicks("cpu 1 2 3 4 5 6 7", self));
  EXPECT_FALSE(parseProcessorTicks(stat, ""));
  EXPECT_FALSE(parseProcessorTicks(stat, "42 (a) S 1 2"));
}

TEST(ProcessorLoad, IsTheFractionOfAllProcessors) {
  const auto load = ProcessorLoad::between({1000, 100, 10}, {1200, 150, 40});
  EXPECT_EQ(load.system, 25);
  EXPECT_EQ(load.process, 15);
}

TEST(ProcessorLoad, IsZeroWhenNoTimePassedOrCountsDecrease) {
  EXPECT_EQ(ProcessorLoad::between({1000, 100, 10}, {1000, 100, 10}).system, 0);
  const auto load = ProcessorLoad::between({1000, 100, 10}, {1100, 99, 9});
  EXPECT_EQ(load.system, 0);
  EXPECT_EQ(load.process, 0);
}

TEST(ProcessorLoad, IsMeasuredOnThisMachine) {
  ProcessorLoad load;
  load.measure();
  // The kernel counts in ticks of 10 ms, and updates a process's count slightly before the
  // machine's: only many ticks give a reliable share.
  const std::clock_t start = std::clock();
  while (std::clock() - start < CLOCKS_PER_SEC / 5) continue;
  const auto percentages = load.measure();
  EXPECT_GT(percentages.process, 0);
  EXPECT_LE(percentages.process, 100);
  EXPECT_LE(percentages.system, 100);
  EXPECT_GE(percentages.system, percentages.process / 2);
}

}  // namespace
}  // namespace support
