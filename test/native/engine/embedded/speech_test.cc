#include "engine/embedded/meeting/speech.h"

#include <gtest/gtest.h>

#include <set>

#include "engine/embedded/streams/identity.h"
#include "engine/support/streams/stream_keys.h"

namespace embedded {
namespace {

using namespace std::chrono_literals;

TEST(Speech, FollowsThePlan) {
  const Speech speech(1, 3, {{2, 1s, 3s}, {kLocalParticipant, 2s, 4s}});
  EXPECT_EQ(speech.level(2, 999ms), 0U);
  EXPECT_GE(speech.level(2, 1s), 40U);
  EXPECT_GE(speech.level(2, 2999ms), 40U);
  EXPECT_EQ(speech.level(2, 3s), 0U);
  EXPECT_GE(speech.level(kLocalParticipant, 3500ms), 40U);
  EXPECT_EQ(speech.level(0, 2s), 0U);
}

TEST(Speech, AlternatesSpeakersWithoutAPlan) {
  const Speech speech(7, 3, {});
  std::set<int> speakers;
  for (support::Time time = 0s; time < 300s; time += 100ms) {
    int count = 0;
    for (const int number : {kLocalParticipant, 0, 1, 2}) {
      const auto level = speech.level(number, time);
      EXPECT_LE(level, 100U);
      if (level == 0) continue;
      ++count;
      speakers.insert(number);
    }
    EXPECT_EQ(count, 1);
  }
  EXPECT_EQ(speakers.size(), 4U);
}

TEST(Identity, IsDifferentForEachStream) {
  std::set<std::uint32_t> csrcs = {csrcOf(7, support::kLocalStream),
                                   csrcOf(7, support::kContentStream)};
  std::set<std::string> guids;
  for (int number = 0; number < kMostParticipants; ++number) {
    csrcs.insert(csrcOf(7, support::remoteStream(number)));
    guids.insert(guidOf(7, number));
  }
  EXPECT_EQ(csrcs.size(), 52U);
  EXPECT_EQ(guids.size(), 50U);
  EXPECT_EQ(csrcs.count(0), 0U);
  EXPECT_NE(csrcOf(7, support::remoteStream(0)), csrcOf(8, support::remoteStream(0)));
  EXPECT_EQ(guids.begin()->size(), 36U);
}

}  // namespace
}  // namespace embedded
