#include "engine/embedded/meeting/meeting_uri.h"

#include <algorithm>
#include <charconv>
#include <functional>
#include <map>
#include <set>
#include <string_view>
#include <utility>

#include "engine/embedded/devices/device_catalogue.h"
#include "engine/support/pictures/card_code.h"

namespace embedded {
namespace {

constexpr std::size_t kLongestUri = 8192;
constexpr std::size_t kLongestRoom = 64;
constexpr std::size_t kLongestName = 64;
constexpr std::size_t kMostEvents = 1000;
// Fifty participants of this size still fit into an ordinary machine's memory.
constexpr std::uint32_t kLargestSide = 1920;
constexpr std::uint32_t kHighestRate = 60;
constexpr std::uint32_t kLatestSecond = 86'400;
constexpr std::uint32_t kFarthestMonitor = 100'000;
constexpr std::uint32_t kLargestMonitorSide = 16'384;
constexpr std::size_t kMostMonitors = 16;
constexpr std::string_view kScheme = "tessel:";
constexpr std::string_view kLocalName = "me";

// Thrown by the readers of values; the parameter's name is added on the way out.
struct BadValue {};

[[noreturn]] void refuse(const std::string& reason) { throw JoinRefused(kBadUri, reason); }

// Foreign text for a reason: kept short.
std::string quoted(std::string_view text) { return std::string(text.substr(0, 80)); }

// Splits at every `separator`; a text without one is one piece.
std::vector<std::string_view> split(std::string_view text, char separator) {
  std::vector<std::string_view> pieces;
  while (true) {
    const std::size_t end = text.find(separator);
    pieces.push_back(text.substr(0, end));
    if (end == std::string_view::npos) return pieces;
    text.remove_prefix(end + 1);
  }
}

// Splits in two at the only `separator`.
std::pair<std::string_view, std::string_view> splitInTwo(std::string_view text, char separator) {
  const auto pieces = split(text, separator);
  if (pieces.size() != 2) throw BadValue();
  return {pieces[0], pieces[1]};
}

std::uint32_t toNumber(std::string_view text, std::uint32_t least, std::uint32_t most) {
  std::uint32_t number = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || stop != end || number < least || number > most) throw BadValue();
  return number;
}

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
  return {toNumber(width, support::kSmallestCard.width, kLargestSide),
          toNumber(height, support::kSmallestCard.height, kLargestSide)};
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

int hexadecimalDigit(char digit) {
  if (digit >= '0' && digit <= '9') return digit - '0';
  if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
  if (digit >= 'A' && digit <= 'F') return digit - 'A' + 10;
  throw BadValue();
}

// Replaces each % and two hexadecimal digits by the byte that they stand for.
std::string decoded(std::string_view text) {
  std::string plain;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      plain += text[i];
      continue;
    }
    if (i + 2 >= text.size()) throw BadValue();
    plain += static_cast<char>(hexadecimalDigit(text[i + 1]) * 16 + hexadecimalDigit(text[i + 2]));
    i += 2;
  }
  // A zero byte would cut a file's name short.
  if (plain.find('\0') != std::string::npos) throw BadValue();
  return plain;
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
  using Read = std::function<void(std::string_view)>;

  void readParameter(std::string_view parameter);
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
  std::set<std::string, std::less<>> given_;

  // Given once at most.
  const std::map<std::string_view, Read> single_ = {
      {"participants",
       [this](auto value) {
         plan_.participants = static_cast<int>(toNumber(value, 0, kMostParticipants));
       }},
      {"seed", [this](auto value) { plan_.seed = toNumber(value, 0, UINT32_MAX); }},
      {"size", [this](auto value) { plan_.size = toSize(value); }},
      {"fps",
       [this](auto value) {
         plan_.rate = support::FrameRate{toNumber(value, 1, kHighestRate), 1};
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
  const std::map<std::string_view, Read> lists_ = {
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
    for (const auto parameter : split(uri.substr(question + 1), '&')) readParameter(parameter);
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

void Parser::readParameter(std::string_view parameter) {
  const std::string_view name = parameter.substr(0, parameter.find('='));
  const auto single = single_.find(name);
  const auto list = lists_.find(name);
  if (single == single_.end() && list == lists_.end()) {
    refuse("unknown parameter: " + quoted(name));
  }
  if (single != single_.end() && !given_.emplace(name).second) {
    refuse("parameter given twice: " + quoted(name));
  }
  try {
    if (name.size() == parameter.size()) throw BadValue();
    const std::string value = decoded(parameter.substr(name.size() + 1));
    if (single != single_.end()) {
      single->second(value);
    } else {
      for (const auto item : split(value, ',')) list->second(item);
    }
  } catch (const BadValue&) {
    refuse("bad value: " + quoted(parameter));
  }
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

MeetingPlan parseMeetingUri(const std::string& uri) { return Parser().parse(uri); }

}  // namespace embedded
