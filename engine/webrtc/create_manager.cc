// What the engine library exports.

#include "engine/support/engine_manager.h"
#include "engine/webrtc/webrtc_engine.h"

namespace {

// Some frames for each of 50 streams; more is not kept when nobody uses it.
constexpr std::size_t kSpareBytes = std::size_t{64} << 20;

// All that the engines of a process share.
const std::shared_ptr<support::FramePool>& processPool() {
  static const auto pool = std::make_shared<support::FramePool>(kSpareBytes);
  return pool;
}

std::unique_ptr<support::Engine> makeEngine(support::EngineContext& context) {
  return std::make_unique<webrtc::WebrtcEngine>(context, processPool());
}

}  // namespace

namespace TSLM {

TSLMManager* TSLMManager::CreateTSLMManager(const tsl::CreateParams& params) {
  return new support::EngineManager(params, support::realClock(), makeEngine);
}

void TSLMManager::DestroyTSLMManager() { processPool()->trim(); }

}  // namespace TSLM
