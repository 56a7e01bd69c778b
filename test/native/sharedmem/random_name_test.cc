#include "addon/utils/random_name.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>

#include "test/native/sharedmem/system_calls.h"

namespace {

using Utils::gen_random;

class RandomNameTest : public testing::Test {
 protected:
  void SetUp() override { test::systemCalls() = {}; }
  void TearDown() override { test::systemCalls() = {}; }

  static void itIsSecond(time_t second) { test::systemCalls().second = second; }
};

TEST_F(RandomNameTest, IsASlashThePrefixAndTheRequestedNumberOfLettersAndDigits) {
  EXPECT_THAT(gen_random("SHM", 25), testing::MatchesRegex("/SHM[0-9A-Za-z]{25}"));
  EXPECT_THAT(gen_random("", 3), testing::MatchesRegex("/[0-9A-Za-z]{3}"));
  EXPECT_EQ(gen_random("SEM", 0), "/SEM");
}

TEST_F(RandomNameTest, DependsOnTheProcessAndTheSecondOnly) {
  const char alphabet[] = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
  for (const time_t second : {time_t{1'700'000'000}, time_t{4'000'000'000}}) {
    itIsSecond(second);
    const std::string name = gen_random("SHM", 25);
    // The product, cut to 32 bits.
    srand(static_cast<unsigned int>(static_cast<unsigned long>(getpid()) *
                                    static_cast<unsigned long>(second)));
    std::string expected = "/SHM";
    for (int i = 0; i < 25; ++i) expected += alphabet[rand() % 62];
    EXPECT_EQ(name, expected);
  }
}

TEST_F(RandomNameTest, RepeatsItsCharactersWithinASecond) {
  itIsSecond(1'700'000'000);
  const std::string semaphore = gen_random("SEM", 20).substr(4);
  const std::string object = gen_random("SHM", 25).substr(4);
  EXPECT_EQ(object.substr(0, 20), semaphore);
  EXPECT_EQ(gen_random("SHM", 25).substr(4), object);
}

TEST_F(RandomNameTest, DrawsOtherCharactersInAnotherSecond) {
  itIsSecond(1'700'000'000);
  const std::string before = gen_random("SHM", 25);
  itIsSecond(1'700'000'001);
  EXPECT_NE(gen_random("SHM", 25), before);
}

}  // namespace
