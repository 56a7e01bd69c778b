// The server-side events that the application subscribed to.

#ifndef ENGINE_SUPPORT_EVENT_SUBSCRIPTIONS_H_
#define ENGINE_SUPPORT_EVENT_SUBSCRIPTIONS_H_

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "engine/support/log.h"
#include "engine/support/notifier.h"
#include "engine/support/task_loop.h"

namespace support {

// Notifies each subscribed event once a second, the first time after a second, until it expires:
// at that moment for the last time. Belongs to the engine's thread.
class EventSubscriptions {
 public:
  EventSubscriptions(TaskLoop& loop, Notifier& notifier, std::shared_ptr<const Log> log)
      : loop_(loop), notifier_(notifier), log_(std::move(log)) {}
  EventSubscriptions(const EventSubscriptions&) = delete;
  EventSubscriptions& operator=(const EventSubscriptions&) = delete;

  // Replaces a subscription of the same name. `expires` is in seconds. The bodies are JSON objects
  // for the MIME type "application/json", plain text otherwise.
  void add(const std::string& name, std::uint32_t expires, const std::string& mimeType,
           const std::string& mimeSubType);
  void remove(const std::string& name);

 private:
  struct Subscription {
    explicit Subscription(TaskLoop& loop) : timer(loop) {}

    Time next = {};
    Time expiry = {};
    bool isJson = false;
    std::uint64_t sequence = 0;
    Timer timer;
  };

  void setTimer(const std::string& name, Subscription& subscription);
  void happen(const std::string& name);

  TaskLoop& loop_;
  Notifier& notifier_;
  const std::shared_ptr<const Log> log_;
  std::map<std::string, std::unique_ptr<Subscription>> subscriptions_;
};

}  // namespace support

#endif  // ENGINE_SUPPORT_EVENT_SUBSCRIPTIONS_H_
