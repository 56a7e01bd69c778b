// The names that shared memory and semaphores have in the system, for tests.

#ifndef TEST_NATIVE_SUPPORT_SHARED_NAMES_H_
#define TEST_NATIVE_SUPPORT_SHARED_NAMES_H_

#include <semaphore.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace test {

// A shared-memory object's and a semaphore's files.
inline std::string objectPath(const std::string& shmName) { return "/dev/shm" + shmName; }
inline std::string semaphorePath(const std::string& semName) {
  return "/dev/shm/sem." + semName.substr(1);
}

inline bool objectExists(const std::string& shmName) {
  return std::filesystem::exists(objectPath(shmName));
}
inline bool semaphoreExists(const std::string& semName) {
  return std::filesystem::exists(semaphorePath(semName));
}

// The count of a named semaphore, or -1 when there is none.
inline int semaphoreCount(const std::string& semName) {
  sem_t* semaphore = sem_open(semName.c_str(), 0);
  if (semaphore == SEM_FAILED) return -1;
  int count = -1;
  sem_getvalue(semaphore, &count);
  sem_close(semaphore);
  return count;
}

// Names of one test: they contain the process id, so that several runs at once do not collide and a
// later run recognises the leftovers of a failed one.
class TestNames {
 public:
  TestNames() { removeLeftovers(); }

  std::string shm() const { return "/" + prefix_ + "shm"; }
  std::string sem() const { return "/" + prefix_ + "sem"; }

  // The files that these names have now.
  std::vector<std::string> present() const {
    std::vector<std::string> names;
    for (const std::string& name : filesOfAnyRun()) {
      if (name.find(prefix_) != std::string::npos) names.push_back(name);
    }
    return names;
  }

 private:
  static constexpr const char* kPrefix = "tessel_test_";

  static std::vector<std::string> filesOfAnyRun() {
    std::vector<std::string> names;
    for (const auto& file : std::filesystem::directory_iterator("/dev/shm")) {
      const std::string name = file.path().filename();
      if (name.starts_with(kPrefix) || name.starts_with(std::string("sem.") + kPrefix)) {
        names.push_back(name);
      }
    }
    return names;
  }

  static void removeLeftovers() {
    for (const std::string& name : filesOfAnyRun()) {
      const std::size_t digits = name.find(kPrefix) + std::string(kPrefix).size();
      const int pid = std::atoi(name.c_str() + digits);
      const bool stillRuns = pid != getpid() && (kill(pid, 0) == 0 || errno != ESRCH);
      if (!stillRuns) unlink(("/dev/shm/" + name).c_str());
    }
  }

  // Of the process that made this object; a forked child keeps using its parent's names.
  const std::string prefix_ = kPrefix + std::to_string(getpid()) + "_";
};

}  // namespace test

#endif  // TEST_NATIVE_SUPPORT_SHARED_NAMES_H_
