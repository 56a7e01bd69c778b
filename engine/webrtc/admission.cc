#include "engine/webrtc/admission.h"

#include <algorithm>
#include <set>

namespace webrtc {
namespace {

auto find(auto& waiting, const std::string& key) {
  return std::find_if(waiting.begin(), waiting.end(),
                      [&key](const auto& each) { return each.key == key; });
}

}  // namespace

std::optional<int> Admission::place(const Feed& feed) {
  const std::string key = feed.key();
  if (const auto taken = taken_.find(key); taken != taken_.end()) return taken->second;
  const auto waiting = find(waiting_, key);
  if (waiting != waiting_.end()) {
    waiting->feed = feed;
    return std::nullopt;
  }
  const auto place = freePlace();
  if (place) {
    taken_.emplace(key, *place);
  } else if (waiting_.size() < mostWaiting_) {
    waiting_.push_back({key, feed});
  }
  return place;
}

bool Admission::isWaiting(const std::string& key) const {
  return find(waiting_, key) != waiting_.end();
}

std::vector<std::string> Admission::placed() const {
  std::vector<std::string> keys;
  for (const auto& [key, place] : taken_) keys.push_back(key);
  return keys;
}

std::optional<Feed> Admission::remove(const std::string& key) {
  taken_.erase(key);
  if (const auto waiting = find(waiting_, key); waiting != waiting_.end()) waiting_.erase(waiting);
  if (waiting_.empty() || !freePlace()) return std::nullopt;
  Feed next = std::move(waiting_.front().feed);
  waiting_.erase(waiting_.begin());
  return next;
}

std::optional<int> Admission::freePlace() const {
  std::set<int> used;
  for (const auto& [key, place] : taken_) used.insert(place);
  int place = 0;
  while (used.contains(place)) ++place;
  if (place == places_) return std::nullopt;
  return place;
}

}  // namespace webrtc
