// What the parts of one engine share.

#ifndef ENGINE_EMBEDDED_ENGINE_PARTS_H_
#define ENGINE_EMBEDDED_ENGINE_PARTS_H_

#include <memory>
#include <set>
#include <string>
#include <vector>

#include "engine/embedded/frame_pool.h"
#include "engine/embedded/log.h"
#include "engine/embedded/notifier.h"
#include "engine/embedded/published.h"
#include "engine/embedded/stream_table.h"
#include "engine/embedded/task_loop.h"
#include "tesselclient/records.h"

namespace embedded {

// Owned by the engine, which outlives its parts.
struct EngineParts {
  std::shared_ptr<Log> log;
  std::shared_ptr<FramePool> pool;
  Notifier notifier;
  StreamTable streams;
  Published<std::vector<tsl::ScreenMonitor>> monitors;
  Published<std::set<std::string>> requiredAttributes;
  Published<tsl::MeetingStats> statistics;
  TaskLoop loop;
};

}  // namespace embedded

#endif  // ENGINE_EMBEDDED_ENGINE_PARTS_H_
