// An engine reads an arbitrary configuration text: it must not crash or hang, the configuration
// stays within its bounds, and no accepted text is nested deeper than the limit.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "engine/support/configuration.h"
#include "engine/support/json.h"
#include "engine/support/log.h"
#include "test/fuzz/require.h"

namespace {

int depthOf(const nlohmann::json& value) {
  if (!value.is_structured()) return 0;
  int deepest = 0;
  for (const auto& item : value) deepest = std::max(deepest, depthOf(item));
  return deepest + 1;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  // Random input hardly nests as deep as the limit, so the first byte is the number of arrays
  // around the rest.
  const std::size_t arrays = data[0] % (2 * support::kDeepestJson);
  const std::string text = std::string(arrays, '[') +
                           std::string(reinterpret_cast<const char*>(data + 1), size - 1) +
                           std::string(arrays, ']');
  const auto value = support::parseJson(text);
  if (value) {
    fuzz::require(depthOf(*value) <= support::kDeepestJson);
    // Writing and reading the value again gives the same value.
    const auto again = support::parseJson(support::writeJson(*value));
    fuzz::require(again && *again == *value);
  }

  static const auto log = std::make_shared<const support::Log>("", "");
  support::Configuration configuration(log);
  configuration.update(text);
  const auto index = configuration.maxVOQualityIndex();
  fuzz::require(index >= 0 && index <= support::Configuration::kHighestIndex);
  const bool isChanged =
      configuration.isVesperCapable() || index != support::Configuration::kHighestIndex;
  if (isChanged) fuzz::require(value && value->is_object());
  return 0;
}
