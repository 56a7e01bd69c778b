#include "engine/support/task_loop.h"

#include <exception>
#include <string>

namespace support {

TaskLoop::TaskLoop(std::shared_ptr<const Clock> clock, std::shared_ptr<const Log> log)
    : clock_(std::move(clock)), log_(std::move(log)) {}

TaskLoop::~TaskLoop() { stop(); }

void TaskLoop::start(std::shared_ptr<const void> owner) {
  worker_.start([this, kept = std::move(owner)] { run(); });
}

void TaskLoop::stop() {
  std::map<TaskId, Task> dropped;
  {
    base::MutexLock lock(mutex_);
    if (stopped_) return;
    stopped_ = true;
    dropped.swap(tasks_);
    changed_.NotifyAll();
  }
  worker_.finish();
}

TaskLoop::TaskId TaskLoop::runAt(Time time, Task task) {
  base::MutexLock lock(mutex_);
  const TaskId id(time, nextNumber_++);
  if (!stopped_) {
    tasks_.emplace(id, std::move(task));
    changed_.NotifyAll();
  }
  return id;
}

void TaskLoop::cancel(TaskId id) {
  Task cancelled;
  base::MutexLock lock(mutex_);
  const auto found = tasks_.find(id);
  if (found == tasks_.end()) return;
  cancelled.swap(found->second);
  tasks_.erase(found);
}

std::optional<Time> TaskLoop::nextDue() const {
  base::MutexLock lock(mutex_);
  if (tasks_.empty()) return std::nullopt;
  return tasks_.begin()->first.first;
}

void TaskLoop::settle() {
  base::MutexLock lock(mutex_);
  // The thread may be waiting for a time that has passed since.
  changed_.NotifyAll();
  while (!stopped_ && (running_ || somethingIsDue())) changed_.Wait(mutex_);
}

bool TaskLoop::somethingIsDue() const {
  return !tasks_.empty() && tasks_.begin()->first.first <= clock_->now();
}

void TaskLoop::run() {
  while (const Task task = takeNext()) {
    try {
      task();
    } catch (const std::exception& error) {
      log_->write(std::string("a task failed: ") + error.what());
    } catch (...) {
      log_->write("a task failed");
    }
  }
}

TaskLoop::Task TaskLoop::takeNext() {
  base::MutexLock lock(mutex_);
  running_ = false;
  while (!stopped_ && !somethingIsDue()) {
    changed_.NotifyAll();
    clock_->wait(mutex_, changed_, tasks_.empty() ? Time::max() : tasks_.begin()->first.first);
  }
  if (stopped_) return nullptr;
  running_ = true;
  Task task = std::move(tasks_.begin()->second);
  tasks_.erase(tasks_.begin());
  return task;
}

void Timer::runAt(Time time, TaskLoop::Task task) {
  stop();
  id_ = loop_.runAt(time, std::move(task));
}

void Timer::stop() {
  if (id_) loop_.cancel(*id_);
  id_.reset();
}

}  // namespace support
