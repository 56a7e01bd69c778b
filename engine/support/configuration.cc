#include "engine/support/configuration.h"

#include <cmath>
#include <filesystem>
#include <fstream>
#include <optional>
#include <system_error>
#include <utility>

#include "engine/support/json.h"

namespace support {
namespace {

constexpr std::uintmax_t kLargestFile = 1 << 20;

struct Update {
  std::optional<bool> isVesperCapable;
  std::optional<std::int32_t> maxVOQualityIndex;
};

// Nothing when the text is not a configuration.
std::optional<Update> parse(const std::string& text) {
  const auto value = parseJson(text);
  if (!value || !value->is_object()) return std::nullopt;
  Update update;
  if (const auto given = value->find("isVesperCapable"); given != value->end()) {
    if (!given->is_boolean()) return std::nullopt;
    update.isVesperCapable = given->get<bool>();
  }
  if (const auto given = value->find("maxVOQualityIndex"); given != value->end()) {
    if (!given->is_number()) return std::nullopt;
    const auto number = given->get<double>();
    if (number != std::trunc(number) || number < 0 || number > Configuration::kHighestIndex) {
      return std::nullopt;
    }
    update.maxVOQualityIndex = static_cast<std::int32_t>(number);
  }
  return update;
}

}  // namespace

void Configuration::observeIndex(IndexObserver observer) {
  base::MutexLock lock(mutex_);
  observer_.swap(observer);
}

void Configuration::load(const std::string& path) {
  std::error_code ignored;
  std::filesystem::path file = path;
  if (std::filesystem::is_directory(file, ignored)) file /= "tesselclient.json";
  if (!std::filesystem::is_regular_file(file, ignored)) return;
  if (std::filesystem::file_size(file, ignored) > kLargestFile) {
    log_->write("configuration file too large");
    return;
  }
  std::ifstream stream(file, std::ios::binary);
  update({std::istreambuf_iterator<char>(stream), {}});
}

bool Configuration::isVesperCapable() {
  base::MutexLock lock(mutex_);
  return isVesperCapable_;
}

std::int32_t Configuration::maxVOQualityIndex() {
  base::MutexLock lock(mutex_);
  return maxVOQualityIndex_;
}

void Configuration::update(const std::string& configText) {
  const auto update = parse(configText);
  if (!update) {
    log_->write("configuration not understood");
    return;
  }
  IndexObserver observer;
  std::int32_t index = 0;
  {
    base::MutexLock lock(mutex_);
    isVesperCapable_ = update->isVesperCapable.value_or(isVesperCapable_);
    index = update->maxVOQualityIndex.value_or(maxVOQualityIndex_);
    if (index != std::exchange(maxVOQualityIndex_, index)) observer = observer_;
  }
  log_->write("configuration updated");
  if (observer) observer(index);
}

}  // namespace support
