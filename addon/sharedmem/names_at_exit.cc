#include "addon/sharedmem/names_at_exit.h"

#include <semaphore.h>
#include <sys/mman.h>

#include <cstdlib>
#include <set>
#include <utility>

#include "base/mutex.h"

namespace sharedmem {
namespace {

// All objects of the process. Never destroyed, as threads may go on while the process ends.
class Living {
 public:
  static Living& instance() {
    static Living& only = *new Living;
    return only;
  }

  void add(const NamesAtExit* names) EXCLUDES(mutex_) {
    const base::MutexLock lock(mutex_);
    names_.insert(names);
  }
  void forget(const NamesAtExit* names) EXCLUDES(mutex_) {
    const base::MutexLock lock(mutex_);
    names_.erase(names);
  }

 private:
  Living() {
    std::atexit([] { instance().removeAll(); });
  }
  void removeAll() EXCLUDES(mutex_) {
    const base::MutexLock lock(mutex_);
    for (const NamesAtExit* names : names_) names->remove();
  }

  base::Mutex mutex_;
  std::set<const NamesAtExit*> names_ GUARDED_BY(mutex_);
};

}  // namespace

NamesAtExit::NamesAtExit(std::string shmName, std::string semName)
    : shmName_(std::move(shmName)), semName_(std::move(semName)) {
  Living::instance().add(this);
}

NamesAtExit::~NamesAtExit() { Living::instance().forget(this); }

void NamesAtExit::remove() const {
  shm_unlink(shmName_.c_str());
  sem_unlink(semName_.c_str());
}

}  // namespace sharedmem
