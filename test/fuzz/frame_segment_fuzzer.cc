// What the reader makes of a frame segment whose header holds any bytes: no plane may reach beyond
// the segment, and the lock has to be given back every time.

#include <cstddef>
#include <cstdint>

#include "test/fuzz/frame_reader.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static fuzz::FrameReader reader;
  reader.segment().put(0, data, size, sizeof(sharedmem::SharedFrameHeader));
  reader.read();
  return 0;
}
