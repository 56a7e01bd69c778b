// The engine's configuration.

#ifndef ENGINE_SUPPORT_CONFIGURATION_H_
#define ENGINE_SUPPORT_CONFIGURATION_H_

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "base/mutex.h"
#include "engine/support/log.h"
#include "tesselclient/tslm_manager.h"

namespace support {

// Reads JSON texts such as {"isVesperCapable": true, "maxVOQualityIndex": 3}. Both members are
// optional, other members are ignored, and a text that is not JSON or has a wrong value in one of
// the two changes nothing. Shared by the facade and the application; all operations may be called
// from any thread.
class Configuration final : public ConfigData {
 public:
  using IndexObserver = std::function<void(std::int32_t)>;

  static constexpr std::int32_t kHighestIndex = 4;

  explicit Configuration(std::shared_ptr<const Log> log) : log_(std::move(log)) {}
  Configuration(const Configuration&) = delete;
  Configuration& operator=(const Configuration&) = delete;

  // Called with each new maxVOQualityIndex, on the thread that updates, without a lock.
  void observeIndex(IndexObserver observer) EXCLUDES(mutex_);
  // Updates from a file, or from the file "tesselclient.json" in a directory, if there is one.
  void load(const std::string& path) EXCLUDES(mutex_);

  bool isVesperCapable() override EXCLUDES(mutex_);
  std::int32_t maxVOQualityIndex() override EXCLUDES(mutex_);
  void update(const std::string& configText) override EXCLUDES(mutex_);

 private:
  const std::shared_ptr<const Log> log_;

  base::Mutex mutex_;
  IndexObserver observer_ GUARDED_BY(mutex_);
  bool isVesperCapable_ GUARDED_BY(mutex_) = false;
  std::int32_t maxVOQualityIndex_ GUARDED_BY(mutex_) = kHighestIndex;
};

}  // namespace support

#endif  // ENGINE_SUPPORT_CONFIGURATION_H_
