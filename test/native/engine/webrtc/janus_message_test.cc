#include "engine/webrtc/janus_message.h"

#include <gtest/gtest.h>

#include <string>

namespace webrtc {
namespace {

TEST(JanusMessage, HasReasonsThatFitIntoALine) {
  const Json message = {{"reason", std::string("a\0\nb\x7f\xe2\x80\xae", 8)}};
  EXPECT_EQ(reasonAt(message, "reason"), "a??b????");
  EXPECT_EQ(reasonAt({{"reason", std::string(300, 'x')}}, "reason"), std::string(200, 'x'));
  EXPECT_EQ(reasonAt(message, "other"), "");
}

}  // namespace
}  // namespace webrtc
