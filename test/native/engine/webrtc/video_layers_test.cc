#include "engine/webrtc/video_layers.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <string>

namespace webrtc {
namespace {

const std::string kSession =
    "v=0\r\n"
    "m=audio 9 UDP/TLS/RTP/SAVPF 100 101\r\n"
    "a=ssrc-group:FID 7 8\r\n"
    "a=ssrc:7 cname:c\r\n";
const std::string kVideo = "m=video 9 UDP/TLS/RTP/SAVPF 96 98\r\na=rtcp-mux\r\n";
const std::string kSources = "a=ssrc-group:FID 30 31\r\na=ssrc:30 cname:c\r\n";

TEST(VideoLayers, AreOfferedFromTheLowestWithTheirRepetitions) {
  EXPECT_EQ(withLowerLayers(kSession + kVideo + kSources, {{20, 21}, {10, 11}}),
            kSession + kVideo +
                "a=ssrc-group:SIM 10 20 30\r\n"
                "a=ssrc-group:FID 10 11\r\n"
                "a=ssrc-group:FID 20 21\r\n" +
                kSources);
}

TEST(VideoLayers, AreNotOfferedWithoutAVideoThatIsRepeated) {
  for (const std::string& offer : {std::string(), kSession, kSession + kVideo}) {
    EXPECT_EQ(withLowerLayers(offer, {{20, 21}, {10, 11}}), offer);
  }
}

TEST(RepetitionSsrcs, AreThoseOfAllMedia) {
  const std::map<std::uint32_t, std::uint32_t> all = {{7, 8}, {30, 31}};
  EXPECT_EQ(repetitionSsrcs(kSession + kVideo + kSources), all);
}

TEST(RepetitionSsrcs, AreNotReadFromInvalidLines) {
  for (const char* const line : {"a=ssrc-group:FID", "a=ssrc-group:FID 5", "a=ssrc-group:FID x y",
                                 "a=ssrc-group:SIM 1 2", " a=ssrc-group:FID 1 2"}) {
    EXPECT_TRUE(repetitionSsrcs(line).empty()) << line;
  }
}

}  // namespace
}  // namespace webrtc
