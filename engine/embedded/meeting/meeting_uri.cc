#include "engine/embedded/meeting/meeting_uri.h"

#include <algorithm>
#include <charconv>
#include <set>
#include <string_view>
#include <utility>

#include "engine/embedded/devices/device_catalogue.h"
#include "engine/support/pictures/card_code.h"
#include "engine/support/uri_text.h"

namespace embedded {
namespace {

using support::BadValue;
using support::split;
using support::splitInTwo;
using support::toNumber;

constexpr std::size_t kLongestUri = 8192;
constexpr std::size_t kLongestRoom = 64;
constexpr std::size_t kLongestName = 64;
constexpr std::size_t kMostEvents = 1000;
// Fifty participants of this size still fit into an ordinary machine's memory.
constexpr std::uint32_t kLargestVideoSide = 1920;
constexpr std::uint32_t kHighestVideoRate = 60;
constexpr std::uint32_t kLatestSecond = 86'400;
constexpr std::uint32_t kFarthestMonitor = 100'000;
constexpr std::uint32_t kLargestMonitorSide = 16'384;
constexpr std::size_t kMostMonitors = 16;
constexpr std::string_view kScheme = "tessel:";
constexpr std::string_view kLocalName = "me";

[[noreturn]] void refuse(const std::string& reason) { throw JoinRefused(kBadUri, reason); }

// Seconds with up to three decimals.
support::Time toTime(std::string_view text) {
  const auto pieces = split(text, '.');
  if (pieces.size() > 2) throw BadValue();
  support::Time time = std::chrono::seconds(toNumber(pieces[0], 0, kLatestSecond));
  if (pieces.size() == 2) {
    std::string decimals(pieces[1]);
    if (decimals.empty() || decimals.size() > 3) throw BadValue();
    decimals.resize(3, '0');
    time += std::chrono::milliseconds(toNumber(decimals, 0, 999));
  }
  return time;
}

support::Size toSize(std::string_view text) {
  const auto [width, height] = splitInTwo(text, 'x');
  return {toNumber(width, support::kSmallestCard.width, kLargestVideoSide),
          toNumber(height, support::kSmallestCard.height, kLargestVideoSide)};
}

bool toFlag(std::string_view text) { return toNumber(text, 0, 1) == 1; }

double toFraction(std::string_view text) {
  // Digits and a point alone: no signs, exponents or names of numbers.
  if (text.empty() || text.find_first_not_of("0123456789.") != std::string_view::npos) {
    throw BadValue();
  }
  double number = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || stop != end || number > 1) throw BadValue();
  return number;
}

// Of the desktop's space.
std::int32_t toCoordinate(std::string_view text) {
  const bool isNegative = text.starts_with('-');
  if (isNegative) text.remove_prefix(1);
  const auto distance = static_cast<std::int32_t>(toNumber(text, 0, kFarthestMonitor));
  return isNegative ? -distance : distance;
}

// WIDTHxHEIGHT@X:Y.
tsl::ScreenMonitor toMonitor(std::string_view text, std::size_t id) {
  const auto [extent, corner] = splitInTwo(text, '@');
  const auto [width, height] = splitInTwo(extent, 'x');
  const auto [x, y] = splitInTwo(corner, ':');
  return {toCoordinate(x), toCoordinate(y),
          static_cast<std::int32_t>(toNumber(width, 1, kLargestMonitorSide)),
          static_cast<std::int32_t>(toNumber(height, 1, kLargestMonitorSide)),
          static_cast<std::int32_t>(id)};
}

int toParticipant(std::string_view text) {
  return static_cast<int>(toNumber(text, 0, kMostParticipants - 1));
}

bool isRoomCharacter(char character) {
  return (character >= '0' && character <= '9') || (character >= 'a' && character <= 'z') ||
         (character >= 'A' && character <= 'Z') ||
         std::string_view("-._~").find(character) != std::string_view::npos;
}

class Parser {
 public:
  MeetingPlan parse(std::string_view uri);

 private:
  using Read = support::QueryReader::Read;

  void readRoom(std::string_view room);
  void addEvent(PlannedEvent event);
  void checkParticipants() const;

  // Items of lists: who@time, who@from or who@from-to, and device@time.
  Read moments(PlannedEvent::Kind kind);
  Read spans(PlannedEvent::Kind begin, PlannedEvent::Kind end, bool mayBeLocal);
  Read deviceMoments(PlannedEvent::Kind kind);
  void readSpeech(std::string_view item);
  void readLoss(std::string_view item);
  void readName(std::string_view item);
  void readMonitors(std::string_view value);

  MeetingPlan plan_;

  // Given once at most.
  const support::QueryReader::Reads single_ = {
      {"participants",
       [this](auto value) {
         plan_.participants = static_cast<int>(toNumber(value, 0, kMostParticipants));
       }},
      {"seed", [this](auto value) { plan_.seed = toNumber(value, 0, UINT32_MAX); }},
      {"size", [this](auto value) { plan_.size = toSize(value); }},
      {"fps",
       [this](auto value) {
         plan_.rate = support::FrameRate{toNumber(value, 1, kHighestVideoRate), 1};
       }},
      {"video",
       [this](auto value) {
         if (value.empty()) throw BadValue();
         plan_.clipPath = value;
       }},
      {"loop", [this](auto value) { plan_.isClipLooped = toFlag(value); }},
      {"join", [this](auto value) { plan_.joinDelay = toTime(value); }},
      {"refuse",
       [this](auto value) { plan_.refusal = static_cast<int>(toNumber(value, 300, 699)); }},
      {"drop", [this](auto value) { plan_.dropAfter = toTime(value); }},
      {"monitors", [this](auto value) { readMonitors(value); }},
  };
  // Given any number of times; each is a list, separated by commas.
  const support::QueryReader::Reads lists_ = {
      {"come", moments(PlannedEvent::Kind::kJoin)},
      {"leave", moments(PlannedEvent::Kind::kLeave)},
      {"speak", [this](auto item) { readSpeech(item); }},
      {"videomute", spans(PlannedEvent::Kind::kMuteVideo, PlannedEvent::Kind::kUnmuteVideo, true)},
      {"audiomute", spans(PlannedEvent::Kind::kMuteAudio, PlannedEvent::Kind::kUnmuteAudio, true)},
      {"present", spans(PlannedEvent::Kind::kPresent, PlannedEvent::Kind::kStopPresenting, false)},
      {"cut", spans(PlannedEvent::Kind::kCutLink, PlannedEvent::Kind::kRestoreLink, false)},
      {"loss", [this](auto item) { readLoss(item); }},
      {"name", [this](auto item) { readName(item); }},
      {"plug", deviceMoments(PlannedEvent::Kind::kPlug)},
      {"unplug", deviceMoments(PlannedEvent::Kind::kUnplug)},
      {"attributes",
       [this](auto item) {
         if (item.empty()) throw BadValue();
         plan_.requiredAttributes.emplace(item);
       }},
  };
};

MeetingPlan Parser::parse(std::string_view uri) {
  if (uri.size() > kLongestUri) refuse("the uri is too long");
  if (!uri.starts_with(kScheme)) refuse("the uri's scheme is not tessel");
  uri.remove_prefix(kScheme.size());
  const std::size_t question = uri.find('?');
  readRoom(uri.substr(0, question));
  if (question != std::string_view::npos) {
    support::QueryReader(single_, lists_).read(uri.substr(question + 1));
  }
  checkParticipants();
  std::stable_sort(plan_.events.begin(), plan_.events.end(),
                   [](const auto& a, const auto& b) { return a.at < b.at; });
  return std::move(plan_);
}

void Parser::readRoom(std::string_view room) {
  if (room.empty() || room.size() > kLongestRoom ||
      !std::all_of(room.begin(), room.end(), isRoomCharacter)) {
    refuse("the uri's room is missing or malformed");
  }
  plan_.room = room;
}

void Parser::addEvent(PlannedEvent event) {
  if (plan_.events.size() == kMostEvents) refuse("the uri has too many events");
  plan_.events.push_back(std::move(event));
}

void Parser::checkParticipants() const {
  std::set<int> known = {kLocalParticipant};
  for (int i = 0; i < plan_.participants; ++i) known.insert(i);
  for (const auto& event : plan_.events) {
    if (event.kind == PlannedEvent::Kind::kJoin) known.insert(event.participant);
  }
  const auto check = [&known](int participant) {
    if (!known.contains(participant)) {
      refuse("there is no participant " + std::to_string(participant));
    }
  };
  for (const auto& event : plan_.events) check(event.participant);
  for (const auto& speech : plan_.speech) check(speech.participant);
  for (const auto& [participant, loss] : plan_.losses) check(participant);
  for (const auto& [participant, name] : plan_.names) check(participant);
}

Parser::Read Parser::moments(PlannedEvent::Kind kind) {
  return [this, kind](std::string_view item) {
    const auto [who, when] = splitInTwo(item, '@');
    addEvent({kind, toTime(when), toParticipant(who)});
  };
}

Parser::Read Parser::spans(PlannedEvent::Kind begin, PlannedEvent::Kind end, bool mayBeLocal) {
  return [this, begin, end, mayBeLocal](std::string_view item) {
    const auto [who, when] = splitInTwo(item, '@');
    const int participant =
        mayBeLocal && who == kLocalName ? kLocalParticipant : toParticipant(who);
    const auto times = split(when, '-');
    if (times.size() > 2) throw BadValue();
    const support::Time from = toTime(times[0]);
    addEvent({begin, from, participant});
    if (times.size() == 1) return;
    const support::Time to = toTime(times[1]);
    if (from >= to) throw BadValue();
    addEvent({end, to, participant});
  };
}

Parser::Read Parser::deviceMoments(PlannedEvent::Kind kind) {
  return [this, kind](std::string_view item) {
    const auto [device, when] = splitInTwo(item, '@');
    if (!isDevice(std::string(device))) throw BadValue();
    addEvent({kind, toTime(when), kLocalParticipant, std::string(device)});
  };
}

void Parser::readSpeech(std::string_view item) {
  const auto [who, when] = splitInTwo(item, '@');
  const auto [from, to] = splitInTwo(when, '-');
  const PlannedSpeech speech = {who == kLocalName ? kLocalParticipant : toParticipant(who),
                                toTime(from), toTime(to)};
  if (speech.from >= speech.to) throw BadValue();
  if (plan_.speech.size() == kMostEvents) refuse("the uri has too many events");
  plan_.speech.push_back(speech);
}

void Parser::readLoss(std::string_view item) {
  if (item.find(':') == std::string_view::npos) {
    plan_.loss = toFraction(item);
    return;
  }
  const auto [who, loss] = splitInTwo(item, ':');
  plan_.losses[toParticipant(who)] = toFraction(loss);
}

void Parser::readName(std::string_view item) {
  const std::size_t colon = item.find(':');
  if (colon == std::string_view::npos) throw BadValue();
  const auto name = item.substr(colon + 1);
  if (name.empty() || name.size() > kLongestName) throw BadValue();
  const bool isNew = plan_.names.emplace(toParticipant(item.substr(0, colon)), name).second;
  if (!isNew) throw BadValue();
}

void Parser::readMonitors(std::string_view value) {
  auto& monitors = plan_.monitors.emplace();
  if (value == "none") return;
  for (const auto item : split(value, ',')) monitors.push_back(toMonitor(item, monitors.size()));
  if (monitors.size() > kMostMonitors) throw BadValue();
}

}  // namespace

MeetingPlan parseMeetingUri(const std::string& uri) {
  try {
    return Parser().parse(uri);
  } catch (const support::BadUri& error) {
    refuse(error.what());
  }
}

}  // namespace embedded
