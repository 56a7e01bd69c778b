#include "engine/support/event_subscriptions.h"

#include "engine/support/json.h"

namespace support {
namespace {

using namespace std::chrono_literals;

constexpr Time kPeriod = 1s;
constexpr std::size_t kMostSubscriptions = 1000;

std::string bodyOf(const std::string& name, std::uint64_t sequence, bool isJson) {
  if (!isJson) return name + ' ' + std::to_string(sequence);
  return writeJson({{"event", name}, {"sequence", sequence}});
}

}  // namespace

void EventSubscriptions::add(const std::string& name, std::uint32_t expires,
                             const std::string& mimeType, const std::string& mimeSubType) {
  if (!subscriptions_.contains(name) && subscriptions_.size() == kMostSubscriptions) {
    log_->write("too many event subscriptions");
    return;
  }
  auto& subscription = subscriptions_[name];
  subscription = std::make_unique<Subscription>(loop_);
  subscription->next = loop_.now() + kPeriod;
  subscription->expiry = loop_.now() + std::chrono::seconds(expires);
  subscription->isJson = isJsonType(mimeType, mimeSubType);
  setTimer(name, *subscription);
}

void EventSubscriptions::remove(const std::string& name) { subscriptions_.erase(name); }

void EventSubscriptions::setTimer(const std::string& name, Subscription& subscription) {
  if (subscription.next > subscription.expiry) {
    remove(name);
  } else {
    subscription.timer.runAt(subscription.next, [this, name] { happen(name); });
  }
}

void EventSubscriptions::happen(const std::string& name) {
  Subscription& subscription = *subscriptions_.at(name);
  const std::string body = bodyOf(name, ++subscription.sequence, subscription.isJson);
  subscription.next += kPeriod;
  setTimer(name, subscription);
  notifier_.notify(&INotifyCallback::NotifyEvent, name, body);
}

}  // namespace support
