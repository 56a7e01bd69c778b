// What the parts of one engine share.

#ifndef ENGINE_EMBEDDED_ENGINE_PARTS_H_
#define ENGINE_EMBEDDED_ENGINE_PARTS_H_

#include <memory>

#include "engine/embedded/frame_pool.h"
#include "engine/embedded/log.h"
#include "engine/embedded/notifier.h"
#include "engine/embedded/stream_table.h"
#include "engine/embedded/task_loop.h"

namespace embedded {

// Owned by the engine, which outlives its parts.
struct EngineParts {
  std::shared_ptr<Log> log;
  std::shared_ptr<FramePool> pool;
  Notifier notifier;
  StreamTable streams;
  TaskLoop loop;
};

}  // namespace embedded

#endif  // ENGINE_EMBEDDED_ENGINE_PARTS_H_
