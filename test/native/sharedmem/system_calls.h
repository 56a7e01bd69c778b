// Controls the system calls of the shared memory classes: a test can make the next one of a kind
// fail, or the nth of all, and gets a list of the calls. Other calls reach the system.
//
// A program that uses it is linked with --wrap for each of the calls in system_calls.cc.

#ifndef TEST_NATIVE_SHAREDMEM_SYSTEM_CALLS_H_
#define TEST_NATIVE_SHAREDMEM_SYSTEM_CALLS_H_

#include <algorithm>
#include <cstddef>
#include <ctime>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace test {

struct SystemCalls {
  // Fails the next `times` calls of `name` with `error`. mmap with error 0 succeeds at address 0.
  void fail(const std::string& name, int error, int times = 1) { failures[name] = {error, times}; }
  // Fails the call after `number` others, of any kind.
  void failCall(std::size_t number, int error) { chosen = {number, error}; }

  // Records a call, and returns the error with which it must fail, if any.
  std::optional<int> take(const std::string& name) {
    made.push_back(name);
    if (whenMade) whenMade(name);
    if (chosen && chosen->number == made.size() - 1) return chosen->error;
    const auto found = failures.find(name);
    if (found == failures.end() || found->second.times == 0) return std::nullopt;
    --found->second.times;
    return found->second.error;
  }

  auto countOf(const std::string& name) const { return std::count(made.begin(), made.end(), name); }

  std::vector<std::string> made;                     // by name, in order
  std::function<void(const std::string&)> whenMade;  // runs before each call, with its name
  std::set<std::string> created;     // the files of the names that were opened to be created
  std::vector<timespec> deadlines;   // that sem_timedwait was called with
  std::function<void()> makeUp;      // makes the call after all that was last refused a release
  std::optional<timespec> wallTime;  // what clock_gettime answers, if set
  std::optional<time_t> second;      // what time answers, if set
  bool waits = true;                 // else a semaphore that is taken times out at once
  int strangeLook = 0;  // at the user's own number, counted from 1, that another user's is answered

  struct Failure {
    int error = 0;
    int times = 0;
  };
  std::map<std::string, Failure> failures;

  struct ChosenCall {
    std::size_t number = 0;
    int error = 0;
  };
  std::optional<ChosenCall> chosen;
};

// The instance that the wrapped calls use.
SystemCalls& systemCalls();

}  // namespace test

#endif  // TEST_NATIVE_SHAREDMEM_SYSTEM_CALLS_H_
