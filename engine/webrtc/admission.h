// Who of a room is received.

#ifndef ENGINE_WEBRTC_ADMISSION_H_
#define ENGINE_WEBRTC_ADMISSION_H_

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "engine/webrtc/feed.h"

namespace webrtc {

// Gives those who send to a room their places, the indices of the remote streams: the lowest one
// that is free. Who finds none waits for one. Owned by the call; belongs to the engine's thread.
class Admission {
 public:
  // Not more than `mostWaiting` wait; who comes later is forgotten.
  Admission(int places, std::size_t mostWaiting) : places_(places), mostWaiting_(mostWaiting) {}

  // The place of somebody who is there or who has come. Nothing for who waits.
  std::optional<int> place(const Feed& feed);
  bool isWaiting(const std::string& key) const;
  void forgetWaiting() { waiting_.clear(); }
  // The keys of those who have a place.
  std::vector<std::string> placed() const;
  // Somebody has gone. Answers with who gets a place now, if anybody does.
  std::optional<Feed> remove(const std::string& key);

 private:
  std::optional<int> freePlace() const;

  struct Waiting {
    std::string key;
    Feed feed;
  };

  const int places_;
  const std::size_t mostWaiting_;
  std::map<std::string, int> taken_;  // by the key of the feed
  std::vector<Waiting> waiting_;      // in the order of their coming
};

}  // namespace webrtc

#endif  // ENGINE_WEBRTC_ADMISSION_H_
