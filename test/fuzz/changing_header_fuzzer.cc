// What the reader makes of a frame segment whose header changes while it is read, by a writer that
// asks for no lock: what was checked has to be what is handed out. An input is two sizes of a
// picture, between which the header goes back and forth.
//
// Whether a fault shows depends on when the threads run; an input may have to be tried again.

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <stop_token>
#include <thread>

#include "test/fuzz/frame_reader.h"

namespace {

struct alignas(8) Size {
  std::uint32_t width = 0;
  std::uint32_t height = 0;
};
static_assert(std::atomic<Size>::is_always_lock_free);

constexpr int kReadsOfEachInput = 50;

// Goes on writing one size and the other into a header, for as long as it lives. It waits for
// nobody and nobody waits for it.
class RestlessWriter {
 public:
  explicit RestlessWriter(sharedmem::SharedFrameHeader& header) : header_(header) {}

  void alternate(Size one, Size other) {
    sizes_[0] = one;
    sizes_[1] = other;
  }

 private:
  void write(Size size) {
    static_cast<volatile std::uint32_t&>(header_.width) = size.width;
    static_cast<volatile std::uint32_t&>(header_.height) = size.height;
  }

  sharedmem::SharedFrameHeader& header_;
  std::array<std::atomic<Size>, 2> sizes_ = {};
  // The last member, so that it ends first.
  std::jthread thread_{[this](const std::stop_token& stop) {
    while (!stop.stop_requested()) {
      for (const auto& size : sizes_) write(size);
    }
  }};
};

struct Fixture {
  fuzz::FrameReader reader;
  RestlessWriter writer{*reinterpret_cast<sharedmem::SharedFrameHeader*>(reader.segment().bytes())};
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static Fixture fixture;
  std::array<Size, 2> sizes;
  std::memcpy(&sizes, data, std::min(size, sizeof sizes));
  fixture.writer.alternate(sizes[0], sizes[1]);
  for (int i = 0; i < kReadsOfEachInput; ++i) fixture.reader.read();
  return 0;
}
