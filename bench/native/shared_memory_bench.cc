// What it costs to put a frame into shared memory.
//
// Storing a 1280 x 720 frame through the manager, as an engine's frame thread does, is measured
// against a plain memcpy of the same bytes from the same place into private memory, with 1, 10 and
// 50 streams in turn. Rounds of both alternate, so that the machine's moods meet both. Both are
// done again and again, which leaves a few streams in the processor's caches, and also one at a
// time, with the caches emptied in between, as other work does between two frames of a meeting.
// What the lock takes is measured by itself.
//
// Prints JSON: medians of the rounds, in microseconds for each frame or lock.

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

#include "addon/sharedmem/shared_memory_allocator.h"
#include "addon/sharedmem/shared_memory_manager.h"
#include "bench/native/picture.h"

using sharedmem::SharedMemoryAllocator;
using sharedmem::SharedMemoryInfo;
using sharedmem::SharedMemoryManager;

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kRounds = 101;
constexpr int kColdRounds = 51;
// More than the caches hold.
constexpr std::size_t kCacheBytes = 128 << 20;

template <typename Action>
double nanosecondsOf(Action&& action) {
  const auto start = Clock::now();
  action();
  return std::chrono::duration<double, std::nano>(Clock::now() - start).count();
}

double median(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

// Streams in shared memory, and as many frames' space of private memory.
struct Streams {
  explicit Streams(int count) {
    for (int i = 0; i < count; ++i) {
      keys.emplace_back(TSLM_STREAM_REMOTE, i);
      copies.emplace_back(Picture::kSize);
      haveRoom = haveRoom && manager->enableSharedMemory(keys.back());
    }
  }

  void store(std::size_t i) const { manager->NotifyFrameArrived(frame, 1, keys[i]); }
  void copy(std::size_t i) { std::memcpy(copies[i].data(), frame->frameBuffer(), Picture::kSize); }

  std::shared_ptr<SharedMemoryManager> manager = SharedMemoryManager::CreateSharedMemoryManager();
  std::shared_ptr<Picture> frame = std::make_shared<Picture>(std::uint8_t{1});
  std::vector<StreamKey> keys;
  std::vector<std::vector<std::uint8_t>> copies;
  bool haveRoom = true;
};

struct Times {
  std::vector<double> store;
  std::vector<double> copy;
};

void print(std::FILE* out, const char* kind, const Streams& streams, const Times& times) {
  std::fprintf(out, R"("%sStore%zu": %.3f, "%sCopy%zu": %.3f, )", kind, streams.keys.size(),
               median(times.store) / 1000, kind, streams.keys.size(), median(times.copy) / 1000);
}

Times benchInARow(Streams& streams) {
  const std::size_t count = streams.keys.size();
  const std::size_t frames = std::max<std::size_t>(count, 20);
  Times times;
  for (int round = 0; round < kRounds; ++round) {
    times.store.push_back(nanosecondsOf([&] {
                            for (std::size_t i = 0; i < frames; ++i) streams.store(i % count);
                          }) /
                          static_cast<double>(frames));
    times.copy.push_back(nanosecondsOf([&] {
                           for (std::size_t i = 0; i < frames; ++i) streams.copy(i % count);
                         }) /
                         static_cast<double>(frames));
  }
  return times;
}

// Fills the caches with something else, line by line: a memset of this size goes past them.
void emptyCaches(std::vector<std::uint8_t>& otherWork) {
  constexpr std::size_t kLine = 64;
  for (std::size_t i = 0; i < otherWork.size(); i += kLine) ++otherWork[i];
}

Times benchOneAtATime(Streams& streams) {
  std::vector<std::uint8_t> otherWork(kCacheBytes);
  Times times;
  for (int round = 0; round < kColdRounds; ++round) {
    const std::size_t i = static_cast<std::size_t>(round) % streams.keys.size();
    emptyCaches(otherWork);
    times.store.push_back(nanosecondsOf([&] { streams.store(i); }));
    emptyCaches(otherWork);
    times.copy.push_back(nanosecondsOf([&] { streams.copy(i); }));
  }
  return times;
}

void benchLock(std::FILE* out) {
  const auto manager = SharedMemoryManager::CreateSharedMemoryManager();
  SharedMemoryInfo info = manager->getSharedMemInfo();
  info.create = false;
  SharedMemoryAllocator allocator(info);
  constexpr int kLocks = 10'000;
  std::vector<double> rounds;
  rounds.reserve(kRounds);
  for (int round = 0; round < kRounds; ++round) {
    rounds.push_back(nanosecondsOf([&] {
      for (int i = 0; i < kLocks; ++i) {
        allocator.lockDataAccess();
        allocator.unlockDataAccess();
      }
    }));
  }
  std::fprintf(out, R"("lock": %.4f)", median(rounds) / kLocks / 1000);
}

}  // namespace

int main() {
  // The results alone on the standard output, without the classes' own lines.
  std::FILE* out = fdopen(dup(STDOUT_FILENO), "w");
  dup2(open("/dev/null", O_WRONLY), STDOUT_FILENO);

  std::fprintf(out, "{");
  for (const int count : {1, 10, 50}) {
    Streams streams(count);
    if (!streams.haveRoom) {
      std::fprintf(stderr, "/dev/shm has no room for %d streams\n", count);
      return 1;
    }
    print(out, "hot", streams, benchInARow(streams));
    print(out, "cold", streams, benchOneAtATime(streams));
  }
  benchLock(out);
  std::fprintf(out, "}\n");
  std::fclose(out);
}
