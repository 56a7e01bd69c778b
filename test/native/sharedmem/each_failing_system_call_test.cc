// Every system call of the shared memory classes fails once, in each place: from the creation of
// the first segment to the release of the last one.

#include <cerrno>
#include <map>
#include <optional>
#include <ostream>
#include <set>
#include <utility>

#include "addon/sharedmem/shared_memory_layout.h"
#include "addon/sharedmem/shared_memory_manager.h"
#include "addon/sharedmem/shared_memory_video_frame_source.h"
#include "test/native/sharedmem/fake_video_frame.h"
#include "test/native/sharedmem/shared_memory_test.h"
#include "test/native/sharedmem/system_calls.h"

using sharedmem::kMainSegmentSize;
using sharedmem::SharedMemoryManager;

namespace {

using test::systemCalls;
using test::withoutAddresses;

const StreamKey kStream(TSLM_STREAM_REMOTE, 3);
constexpr unsigned long kNoFrame = 1'000'000;

// An error that no call gives here by itself, so that a line with it is about the injected failure.
constexpr int kError = ENOTRECOVERABLE;

// The shared-memory resources of the process.
struct Held {
  int descriptors = 0;
  int mappings = 0;
  int names = 0;

  bool operator==(const Held&) const = default;
};
void PrintTo(const Held& held, std::ostream* out) {
  *out << held.descriptors << " descriptors, " << held.mappings << " mappings, " << held.names
       << " names";
}

Held heldNow(const std::set<std::string>& files) {
  Held held{.descriptors = openDescriptors(), .mappings = mappingsOf("/dev/shm/")};
  for (const std::string& file : files) held.names += std::filesystem::exists(file) ? 1 : 0;
  return held;
}

// The expectation for a failed call: its line (one of two, when the call has two purposes), whether
// its step fails, and the resource that leaks. Calls that release a resource, and the check of a
// semaphore's size, fail without a line and without an effect on other steps.
struct Stated {
  std::string line;
  bool refuses = false;
  Held keeps = {};
  std::string otherLine = {};
};
std::map<std::string, Stated> statedCalls() {
  const std::string number = std::to_string(kError);
  return {
      {"clock_gettime", {"clock_gettime failed, error:" + number, true}},
      {"close", {"", false, {.descriptors = 1}}},
      {"fstat",
       {"initialize: mmap failed, error:" + number, true, {}, "shm_open failed, error:" + number}},
      {"ftruncate",
       {"initialize: Trucating data for pid" + std::to_string(getpid()) + " ,Ret = -1"}},
      {"mmap", {"initialize: mmap failed, error:" + number, true}},
      {"munmap", {"", false, {.mappings = 1}}},
      {"posix_fallocate", {"initialize: posix_fallocate failed, error:" + number, true}},
      {"sem_close", {"", false, {.mappings = 1}}},
      {"sem_open", {"initialize: sem_open failed, error:" + number, true}},
      {"sem_post", {"unlockDataAccess sem_post failed, error:" + number}},
      {"sem_timedwait", {"sem_timedwait timedout, error:" + number, true}},
      {"sem_unlink", {"", false, {.names = 1}}},
      {"shm_open", {"shm_open failed, error:" + number, true}},
      {"shm_unlink", {"", false, {.names = 1}}},
      {"stat", {}},
  };
}

// Two processes with one stream, in this process.
enum class Kind {
  kStreamEndsFirst,       // the stream, then the widget, then the main process
  kMainProcessEndsFirst,  // with the stream in use
  kNoWidget,              // nobody but the main process
};
constexpr Kind kKinds[] = {Kind::kStreamEndsFirst, Kind::kMainProcessEndsFirst, Kind::kNoWidget};

// One thing that a process does for the stream.
struct Step {
  std::string name;
  std::optional<bool> worked;  // none for a step that has no answer
  std::size_t callsUntilEnd;
};

struct Life {
  std::vector<Step> steps;
  std::vector<std::string> lines;
  test::SystemCalls calls;

  const Step& stepOfCall(std::size_t call) const {
    return *std::find_if(steps.begin(), steps.end(),
                         [call](const Step& step) { return call < step.callsUntilEnd; });
  }
};

class EachFailingSystemCallTest : public SharedMemoryTest {
 protected:
  // The steps continue to the end, whatever fails.
  Life live(Kind kind, std::optional<std::size_t> failingCall = std::nullopt) const {
    Life life;
    life.lines = withoutAddresses(test::linesWrittenBy([&] {
      systemCalls() = {};
      systemCalls().second = 1'700'000'000;
      systemCalls().waits = false;
      if (failingCall) systemCalls().failCall(*failingCall, kError);
      life.steps = stepsOf(kind);
      life.calls = std::exchange(systemCalls(), {});
    }));
    return life;
  }

 private:
  std::vector<Step> stepsOf(Kind kind) const {
    std::vector<Step> steps;
    const auto done = [&](const std::string& name, std::optional<bool> worked = {}) {
      steps.push_back({name, worked, systemCalls().made.size()});
    };
    auto main = std::make_shared<SharedMemoryManager>(creating(kMainSegmentSize));
    done("create");
    done("enable", main->enableSharedMemory(kStream));
    std::shared_ptr<SharedMemoryManager> widget;
    if (kind != Kind::kNoWidget) {
      widget = std::make_shared<SharedMemoryManager>(opening(kMainSegmentSize));
      done("open");
    }
    // The widget's first look-up opens the stream, its second confirms it.
    for (std::uint8_t turn = 1; turn <= 2; ++turn) {
      main->NotifyFrameArrived(std::make_shared<FakeVideoFrame>(4, 4, turn), 1, kStream);
      done("store");
      if (!widget) continue;
      const auto source = widget->getVideoFrameSource(kStream);
      done("look up", source != nullptr);
      VideoFrame frame;
      const bool read = source && source->getVideoFrame(frame, kNoFrame);
      done("read", read);
      done("release", read && source->releaseVideoFrame());
    }
    if (kind == Kind::kMainProcessEndsFirst) {
      main->close();
    } else {
      done("disable", main->disableSharedMemory(kStream));
      if (widget) widget->getVideoFrameSource(kStream);
      done("look up in vain");
    }
    widget.reset();
    main.reset();
    done("end");
    return steps;
  }
};

TEST_F(EachFailingSystemCallTest, WithoutAFailureEachIsCalledAndNothingIsLeft) {
  const Held before = heldNow({});
  std::set<std::string> made;
  for (const Kind kind : kKinds) {
    const Life life = live(kind);
    for (const Step& step : life.steps) EXPECT_TRUE(step.worked.value_or(true)) << step.name;
    EXPECT_EQ(life.calls.created.size(), 4u) << "two segments, each with a semaphore";
    EXPECT_EQ(heldNow(life.calls.created), before);
    made.insert(life.calls.made.begin(), life.calls.made.end());
  }
  std::set<std::string> stated;
  for (const auto& [call, statement] : statedCalls()) stated.insert(call);
  EXPECT_EQ(made, stated);
}

TEST_F(EachFailingSystemCallTest, EachHasItsLineAndItsResultAndLeaksNothing) {
  const auto stated = statedCalls();
  std::size_t failed = 0;
  for (const Kind kind : kKinds) {
    const Life undisturbed = live(kind);
    const std::vector<std::string>& calls = undisturbed.calls.made;
    const Held before = heldNow(undisturbed.calls.created);
    for (std::size_t call = 0; call < calls.size(); ++call) {
      const Life life = live(kind, call);
      const Step& step = life.stepOfCall(call);
      SCOPED_TRACE(calls[call] + ", call " + std::to_string(call) + ", in " + step.name);

      const auto& [line, refuses, keeps, otherLine] = stated.at(calls[call]);
      if (line.empty()) {
        EXPECT_EQ(life.lines, undisturbed.lines);
      } else {
        const auto count = [&](const std::string& which) {
          return which.empty() ? 0 : std::count(life.lines.begin(), life.lines.end(), which);
        };
        EXPECT_EQ(count(line) + count(otherLine), 1) << line;
      }
      if (step.worked) {
        const bool keepsLock = calls[call] == "sem_post" && step.name == "release";
        EXPECT_EQ(*step.worked, !refuses && !keepsLock);
      }

      Held after = before;
      after.descriptors += keeps.descriptors;
      after.mappings += keeps.mappings;
      // Names that one process fails to remove are removed by the other one.
      if (kind == Kind::kNoWidget) after.names += keeps.names;
      EXPECT_EQ(heldNow(life.calls.created), after);
      if (life.calls.makeUp) life.calls.makeUp();
      ASSERT_EQ(heldNow(undisturbed.calls.created), before);
      ++failed;
    }
  }
  // For the report of the trial.
  RecordProperty("failed_calls", static_cast<int>(failed));
}

}  // namespace
