// The engine's thread and what it does when.

#ifndef ENGINE_SUPPORT_TASK_LOOP_H_
#define ENGINE_SUPPORT_TASK_LOOP_H_

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <utility>

#include "base/mutex.h"
#include "engine/support/clock.h"
#include "engine/support/log.h"
#include "engine/support/worker.h"

namespace support {

// One thread that runs tasks at their times, in the order of these times, and tasks of one time in
// the order in which they were handed over. Owned by the engine. All operations may be called from
// any thread, also from a task.
class TaskLoop {
 public:
  using Task = std::function<void()>;
  // When a task is due, and its place among those of the same time.
  using TaskId = std::pair<Time, std::uint64_t>;

  TaskLoop(std::shared_ptr<const Clock> clock, std::shared_ptr<const Log> log);
  ~TaskLoop();
  TaskLoop(const TaskLoop&) = delete;
  TaskLoop& operator=(const TaskLoop&) = delete;

  // Starts the thread, which keeps `owner` alive; it must own this loop. Called once.
  void start(std::shared_ptr<const void> owner);
  // No task starts any more. Returns when the one that was running has ended, unless called by it.
  void stop() EXCLUDES(mutex_);

  // Before the first stop().
  bool isCurrentThread() const { return worker_.isCurrentThread(); }

  Time now() const { return clock_->now(); }
  // Runs `task` as soon as possible. Dropped when the loop was stopped.
  void post(Task task) { runAt(now(), std::move(task)); }
  TaskId runAt(Time time, Task task) EXCLUDES(mutex_);
  // Does nothing when the task has started already.
  void cancel(TaskId id) EXCLUDES(mutex_);

  // When the next task is due, if there is one.
  std::optional<Time> nextDue() const EXCLUDES(mutex_);
  // Waits until no task is due or running. For whoever drives the clock.
  void settle() EXCLUDES(mutex_);

 private:
  void run() EXCLUDES(mutex_);
  // Waits for the next task and takes it; an empty one when the loop was stopped.
  Task takeNext() EXCLUDES(mutex_);
  bool somethingIsDue() const REQUIRES(mutex_);

  const std::shared_ptr<const Clock> clock_;
  const std::shared_ptr<const Log> log_;
  Worker worker_;  // changed by start(), and by the first stop() alone

  mutable base::Mutex mutex_;
  base::CondVar changed_;
  std::map<TaskId, Task> tasks_ GUARDED_BY(mutex_);
  std::uint64_t nextNumber_ GUARDED_BY(mutex_) = 0;
  bool running_ GUARDED_BY(mutex_) = false;
  bool stopped_ GUARDED_BY(mutex_) = false;
};

// One task that is due later, and again if it says so. Belongs to the loop's thread; a task that
// has not started when the timer goes is cancelled.
class Timer {
 public:
  explicit Timer(TaskLoop& loop) : loop_(loop) {}
  ~Timer() { stop(); }
  Timer(const Timer&) = delete;
  Timer& operator=(const Timer&) = delete;

  // Replaces what was set before. The task may set the timer again, or delete it.
  void runAt(Time time, TaskLoop::Task task);
  void stop();

 private:
  TaskLoop& loop_;
  std::optional<TaskLoop::TaskId> id_;
};

}  // namespace support

#endif  // ENGINE_SUPPORT_TASK_LOOP_H_
