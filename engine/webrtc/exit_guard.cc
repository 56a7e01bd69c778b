#include "engine/webrtc/exit_guard.h"

#include <cstdlib>
#include <future>
#include <memory>
#include <set>
#include <utility>

#include "base/mutex.h"

namespace webrtc {
namespace {

struct Guards {
  base::Mutex mutex;
  std::set<const ExitGuard*> all GUARDED_BY(mutex);
};

// Of the process; never destroyed, since engines may end while exit() runs.
Guards& guards() {
  static Guards& made = *new Guards;
  return made;
}

}  // namespace

ExitGuard::ExitGuard(support::TaskLoop& loop, std::function<void()> end)
    : loop_(loop), end_(std::move(end)) {
  base::MutexLock lock(guards().mutex);
  guards().all.insert(this);
}

ExitGuard::~ExitGuard() {
  base::MutexLock lock(guards().mutex);
  guards().all.erase(this);
}

void ExitGuard::arm() { [[maybe_unused]] static const int isArmed = std::atexit(runAll); }

void ExitGuard::runAll() {
  base::MutexLock lock(guards().mutex);
  for (const ExitGuard* const guard : guards().all) guard->run();
}

void ExitGuard::run() const {
  auto done = std::make_shared<std::promise<void>>();
  const std::future<void> ended = done->get_future();
  // A stopped loop drops the task, and with it the promise, which ends the wait.
  loop_.post([this, kept = std::move(done)] {
    end_();
    kept->set_value();
  });
  ended.wait();
}

}  // namespace webrtc
