#include "engine/webrtc/exit_guard.h"

#include <link.h>

#include <atomic>
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

// How many libraries this process has ever loaded.
unsigned long long loadedLibraries() {
  unsigned long long count = 0;
  dl_iterate_phdr(
      [](dl_phdr_info* info, std::size_t, void* found) {
        *static_cast<unsigned long long*>(found) = info->dlpi_adds;
        return 1;
      },
      &count);
  return count;
}

}  // namespace

ExitGuard::ExitGuard(support::TaskLoop& loop, std::function<void()> end)
    : loop_(loop), end_(std::move(end)) {
  {
    base::MutexLock lock(guards().mutex);
    guards().all.insert(this);
  }
  arm();
}

ExitGuard::~ExitGuard() {
  base::MutexLock lock(guards().mutex);
  guards().all.erase(this);
}

void ExitGuard::arm() {
  static std::atomic<unsigned long long> armedAt = 0;
  const unsigned long long libraries = loadedLibraries();
  if (armedAt.exchange(libraries) != libraries) std::atexit(runAll);
}

void ExitGuard::runAll() {
  base::MutexLock lock(guards().mutex);
  for (const ExitGuard* const guard : guards().all) guard->run();
}

void ExitGuard::run() const {
  if (std::exchange(hasRun_, true)) return;
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
