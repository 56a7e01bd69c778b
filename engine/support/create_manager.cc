// What an engine library exports. Compiled into each engine's library, which defines makeEngine().

#include "engine/support/engine_manager.h"

namespace {

// Some frames for each of 50 streams; more is not kept when nobody uses it.
constexpr std::size_t kSpareBytes = std::size_t{64} << 20;

// All that the engines of a process share.
const std::shared_ptr<support::FramePool>& processPool() {
  static const auto pool = std::make_shared<support::FramePool>(kSpareBytes);
  return pool;
}

}  // namespace

namespace TSLM {

TSLMManager* TSLMManager::CreateTSLMManager(const tsl::CreateParams& params) {
  return new support::EngineManager(
      params, support::realClock(),
      [](support::EngineContext& context) { return support::makeEngine(context, processPool()); });
}

void TSLMManager::DestroyTSLMManager() { processPool()->trim(); }

}  // namespace TSLM
