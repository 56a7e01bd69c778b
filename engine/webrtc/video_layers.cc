#include "engine/webrtc/video_layers.h"

#include <sstream>
#include <string_view>

namespace webrtc {
namespace {

constexpr std::string_view kRepetition = "a=ssrc-group:FID ";

}  // namespace

std::string withLowerLayers(const std::string& offer, const std::vector<LayerSsrcs>& lower) {
  const std::size_t media = offer.find("\nm=video");
  const std::size_t group = offer.find(kRepetition, media);
  if (media == std::string::npos || group == std::string::npos) return offer;
  // The server numbers the layers in the order of this line, from the lowest.
  std::ostringstream lines;
  std::ostringstream repetitions;
  lines << "a=ssrc-group:SIM";
  for (auto layer = lower.rbegin(); layer != lower.rend(); ++layer) {
    lines << ' ' << layer->video;
    repetitions << kRepetition << layer->video << ' ' << layer->repeatedVideo << "\r\n";
  }
  std::uint32_t highest = 0;
  std::istringstream(offer.substr(group + kRepetition.size())) >> highest;
  lines << ' ' << highest << "\r\n" << repetitions.str();
  std::string all = offer;
  return all.insert(group, lines.str());
}

std::map<std::uint32_t, std::uint32_t> repetitionSsrcs(const std::string& description) {
  std::map<std::uint32_t, std::uint32_t> ssrcs;
  std::istringstream lines(description);
  for (std::string line; std::getline(lines, line);) {
    if (!line.starts_with(kRepetition)) continue;
    std::istringstream numbers(line.substr(kRepetition.size()));
    std::uint32_t ssrc = 0;
    std::uint32_t repeated = 0;
    if (numbers >> ssrc >> repeated) ssrcs[ssrc] = repeated;
  }
  return ssrcs;
}

}  // namespace webrtc
