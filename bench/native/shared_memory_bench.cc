// What it costs to put a frame into shared memory.
//
// Storing a 1280 x 720 frame through the manager, as an engine's frame thread does, is measured
// against a plain memcpy of the same bytes from the same place into private memory, with 1, 10 and
// 50 streams in turn. Rounds of both alternate, so that the machine's moods meet both, and the
// medians of their times are compared. What the lock takes is measured by itself.

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

#include "sharedmem/shared_memory_allocator.h"
#include "sharedmem/shared_memory_manager.h"
#include "tesselclient/video_frame.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::uint32_t kWidth = 1280;
constexpr std::uint32_t kHeight = 720;
constexpr std::size_t kFrameBytes = kWidth * kHeight * 3 / 2;
constexpr int kRounds = 301;

class Frame : public QVXCommon::IVideoFrame {
 public:
  std::uint32_t frameWidth() const override { return kWidth; }
  std::uint32_t frameHeight() const override { return kHeight; }
  const std::uint8_t* frameBuffer() const override { return pixels_.data(); }
  std::uint32_t frameValueA() const override { return 0; }
  std::uint32_t frameValueB() const override { return 0; }
  std::uint32_t frameValueC() const override { return 0; }
  std::uint64_t frameBufferSize() const override { return pixels_.size(); }

 private:
  std::vector<std::uint8_t> pixels_ = std::vector<std::uint8_t>(kFrameBytes, 1);
};

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

void benchStreams(std::FILE* out, int streams) {
  const auto manager = SharedMemoryManager::CreateSharedMemoryManager();
  const auto frame = std::make_shared<Frame>();
  std::vector<StreamKey> keys;
  std::vector<std::vector<std::uint8_t>> copies;
  for (int i = 0; i < streams; ++i) {
    keys.emplace_back(TSLM_STREAM_REMOTE, i);
    copies.emplace_back(kFrameBytes);
    if (!manager->enableSharedMemory(keys.back())) {
      std::fprintf(out, "%2d streams: /dev/shm is too small\n", streams);
      return;
    }
  }
  const int passes = std::max(1, 20 / streams);
  std::vector<double> stores;
  std::vector<double> plainCopies;
  for (int round = 0; round < kRounds; ++round) {
    stores.push_back(nanosecondsOf([&] {
      for (int pass = 0; pass < passes; ++pass) {
        for (const StreamKey& key : keys) manager->NotifyFrameArrived(frame, 1, key);
      }
    }));
    plainCopies.push_back(nanosecondsOf([&] {
      for (int pass = 0; pass < passes; ++pass) {
        for (auto& copy : copies) std::memcpy(copy.data(), frame->frameBuffer(), kFrameBytes);
      }
    }));
  }
  const double frames = passes * streams;
  std::fprintf(out, "%2d streams: store %.1f us, plain memcpy %.1f us, ratio %.3f\n", streams,
               median(stores) / frames / 1000, median(plainCopies) / frames / 1000,
               median(stores) / median(plainCopies));
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
  std::fprintf(out, "lock and unlock, nobody else there: %.1f ns\n", median(rounds) / kLocks);
}

}  // namespace

int main() {
  // The results alone on the standard output, without the classes' own lines.
  std::FILE* out = fdopen(dup(STDOUT_FILENO), "w");
  dup2(open("/dev/null", O_WRONLY), STDOUT_FILENO);

  std::fprintf(out, "%u x %u, %zu bytes, medians of %d rounds\n", kWidth, kHeight, kFrameBytes,
               kRounds);
  for (const int streams : {1, 10, 50}) benchStreams(out, streams);
  benchLock(out);
  std::fclose(out);
}
