#include "engine/support/roster.h"

#include <chrono>
#include <utility>

#include "engine/support/json.h"

namespace support {
namespace {

const char* typeOf(const StreamKey& key) {
  switch (key.first) {
    case TSLM_STREAM_LOCAL:
      return "local";
    case TSLM_STREAM_CONTENT:
      return "content";
    case TSLM_STREAM_REMOTE:
      break;
  }
  return "remote";
}

}  // namespace

std::string participantsJson(const std::vector<Person>& people) {
  auto participants = nlohmann::ordered_json::array();
  for (const Person& person : people) {
    participants.push_back(
        {{"stream", {{"type", typeOf(person.stream)}, {"streamIndex", person.stream.second}}},
         {"csrc", person.csrc},
         {"guid", person.guid},
         {"name", person.name},
         {"audioMuted", person.audioMuted},
         {"videoMuted", person.videoMuted},
         {"speaking", person.speaking},
         {"presenting", person.presenting}});
  }
  nlohmann::ordered_json body;
  body["participants"] = std::move(participants);
  return writeJson(body);
}

bool Roster::isRequested(const std::string& name, const std::string& mimeType,
                         const std::string& mimeSubType) {
  return name == kEventName && isJsonType(mimeType, mimeSubType);
}

void Roster::subscribe(std::uint32_t expires) {
  unsubscribe();
  if (expires == 0) return;
  expiry_ = loop_.now() + std::chrono::seconds(expires);
  update();
}

void Roster::unsubscribe() {
  timer_.stop();
  expiry_.reset();
  notified_.reset();
}

void Roster::update() {
  if (expiry_) timer_.runAt(loop_.now(), [this] { compare(); });
}

void Roster::compare() {
  if (loop_.now() > *expiry_) {
    unsubscribe();
    return;
  }
  auto people = people_();
  if (people == notified_) return;
  notified_ = std::move(people);
  notifier_.notify(&INotifyCallback::NotifyEvent, kEventName, participantsJson(*notified_));
}

}  // namespace support
