// What the parts of one engine share.

#ifndef ENGINE_EMBEDDED_ENGINE_PARTS_H_
#define ENGINE_EMBEDDED_ENGINE_PARTS_H_

#include <memory>
#include <set>
#include <string>
#include <vector>

#include "engine/support/frame_pool.h"
#include "engine/support/log.h"
#include "engine/support/notifier.h"
#include "engine/support/published.h"
#include "engine/support/stream_table.h"
#include "engine/support/task_loop.h"
#include "tesselclient/records.h"

namespace embedded {

// Owned by the engine, which outlives its parts.
struct EngineParts {
  std::shared_ptr<support::Log> log;
  std::shared_ptr<support::FramePool> pool;
  support::Notifier notifier;
  support::StreamTable streams;
  support::Published<std::vector<tsl::ScreenMonitor>> monitors;
  support::Published<std::set<std::string>> requiredAttributes;
  support::Published<tsl::MeetingStats> statistics;
  support::TaskLoop loop;
};

}  // namespace embedded

#endif  // ENGINE_EMBEDDED_ENGINE_PARTS_H_
