#include "addon/sharedmem/shared_memory_video_frame_source.h"

#include <array>
#include <cstring>
#include <optional>

#include "addon/sharedmem/diagnostic_lines.h"
#include "addon/sharedmem/shared_memory_layout.h"
#include "base/diagnostic_line.h"

using base::DiagnosticLine;

namespace sharedmem {
namespace {

std::uint8_t* pixelSpaceOf(SharedFrameHeader* header) {
  return reinterpret_cast<std::uint8_t*>(header + 1);
}

// The part of a frame that is stored. Read from the frame once, before the segment is locked: the
// checked values are the copied ones, and no code of the engine runs under the lock.
struct Picture {
  explicit Picture(const QVXCommon::IVideoFrame& frame)
      : valueA(frame.frameValueA()),
        valueB(frame.frameValueB()),
        valueC(frame.frameValueC()),
        buffer(frame.frameBuffer()),
        bufferSize(frame.frameBufferSize()),
        width(frame.frameWidth()),
        height(frame.frameHeight()) {}

  // Prints a line when the picture cannot be stored.
  bool isStorable() const {
    if (buffer == nullptr) {
      DiagnosticLine("storeVideoFrame: Frame dropped, its buffer is null");
      return false;
    }
    if (bufferSize > kPixelSpace) {
      DiagnosticLine("storeVideoFrame: Frame dropped, its buffer is too large, size:")
          .dec(bufferSize);
      return false;
    }
    return true;
  }

  void storeIn(SharedFrameHeader* header) const {
    header->frameValueA = valueA;
    header->frameValueB = valueB;
    header->frameValueC = valueC;
    std::memcpy(pixelSpaceOf(header), buffer, bufferSize);
    header->width = width;
    header->height = height;
  }

  std::uint32_t valueA;
  std::uint32_t valueB;
  std::uint32_t valueC;
  const std::uint8_t* buffer;
  std::uint64_t bufferSize;
  std::uint32_t width;
  std::uint32_t height;
};

VideoPlane planeOf(const std::uint8_t* data, std::uint64_t width, std::uint64_t height) {
  return {.data = data,
          .width = static_cast<std::uint32_t>(width),
          .height = static_cast<std::uint32_t>(height),
          .size = static_cast<std::uint32_t>(width * height),
          .stride = static_cast<std::uint32_t>(width)};
}

// The planes Y, U and V of the 4:2:0 picture at `pixels`, whose rows are tightly packed and whose
// planes follow each other. Empty when the picture would not fit the pixel space.
std::optional<std::array<VideoPlane, 3>> planesOf(const std::uint8_t* pixels, std::uint32_t width,
                                                  std::uint32_t height) {
  const std::uint64_t chromaWidth = (std::uint64_t{width} + 1) / 2;
  const std::uint64_t chromaHeight = (std::uint64_t{height} + 1) / 2;
  const std::uint64_t lumaSize = std::uint64_t{width} * height;
  const std::uint64_t chromaSize = chromaWidth * chromaHeight;
  // With the luma plane in bounds, the sum cannot overflow.
  if (lumaSize > kPixelSpace || lumaSize + 2 * chromaSize > kPixelSpace) return std::nullopt;
  return std::array{planeOf(pixels, width, height),
                    planeOf(pixels + lumaSize, chromaWidth, chromaHeight),
                    planeOf(pixels + lumaSize + chromaSize, chromaWidth, chromaHeight)};
}

// Describes the picture at `header` in `frame`. False, with `frame` as it was, when what the header
// says cannot be a picture.
bool describePicture(SharedFrameHeader* header, VideoFrame& frame) {
  const std::uint32_t width = readOnce(header->width);
  const std::uint32_t height = readOnce(header->height);
  const auto planes = planesOf(pixelSpaceOf(header), width, height);
  if (!planes) return false;
  frame.width = width;
  frame.height = height;
  frame.yPlane = planes->at(0);
  frame.uPlane = planes->at(1);
  frame.vPlane = planes->at(2);
  return true;
}

}  // namespace

std::shared_ptr<SharedMemoryVideoFrameSource> SharedMemoryVideoFrameSource::CreateVideoFrameSource(
    const SharedMemoryInfo& info) {
  auto source = std::make_shared<SharedMemoryVideoFrameSource>(info);
  if (!source->initialised()) return nullptr;
  DiagnosticLine("++++++++ Memory Data to read from ++++++++++ ");
  DiagnosticLine("ShmName = ").text(info.shmName);
  DiagnosticLine("SemName = ").text(info.semName);
  return source;
}

SharedMemoryVideoFrameSource::SharedMemoryVideoFrameSource(const SharedMemoryInfo& info)
    : allocator_(std::make_unique<SharedMemoryAllocator>(info)) {
  if (!initialised()) {
    DiagnosticLine("SharedMemoryVideoFrameSource:Failed to initialise video frame shared memory");
    return;
  }
  if (info.create) makeAvailable();
  printObject("SharedMemoryVideoFrameSource:", this, "created");
}

SharedMemoryVideoFrameSource::~SharedMemoryVideoFrameSource() {
  printObject("~SharedMemoryVideoFrameSource:", this, "destroyed");
}

// The first unlock of a created segment opens it to readers.
void SharedMemoryVideoFrameSource::makeAvailable() {
  if (!allocator_->lockDataAccess()) {
    DiagnosticLine("SharedMemoryVideoFrameSource:Unable to gain lock on video shared memory");
    return;
  }
  if (auto* header = static_cast<SharedFrameHeader*>(allocator_->getDataPtr())) {
    header->reservedAtCreation = 0;
  } else {
    DiagnosticLine("SharedMemoryVideoFrameSource:Failed to get video shared memory for clearing");
  }
  allocator_->unlockDataAccess();
}

bool SharedMemoryVideoFrameSource::storeVideoFrame(
    const std::shared_ptr<QVXCommon::IVideoFrame>& videoFrame, unsigned int csrc) {
  std::optional<Picture> picture;
  if (videoFrame) {
    picture.emplace(*videoFrame);
    if (!picture->isStorable()) return false;
  }
  if (!allocator_->lockDataAccess()) return false;
  auto* header = static_cast<SharedFrameHeader*>(allocator_->getDataPtr());
  header->reservedOnStore = 0;
  header->clearFrame = 0;
  header->sequence = nextSequence_++;
  header->csrc = csrc;
  if (picture) picture->storeIn(header);
  return allocator_->unlockDataAccess();
}

bool SharedMemoryVideoFrameSource::getVideoFrame(VideoFrame& frame, unsigned long lastFrameId) {
  if (!allocator_->lockDataAccess()) {
    DiagnosticLine("getVideoFrame: Failed to get lock on video frame object");
    return false;
  }
  auto* header = static_cast<SharedFrameHeader*>(allocator_->getDataPtr());
  const bool hasNewPicture = header != nullptr && readOnce(header->sequence) != lastFrameId &&
                             describePicture(header, frame);
  frame.noUpdate = !hasNewPicture;
  if (!hasNewPicture) {
    frame.frameId = lastFrameId;
    return true;
  }
  frame.clearFrame = readOnce(header->clearFrame) != 0;
  frame.frameId = reinterpret_cast<std::uintptr_t>(pixelSpaceOf(header));
  frame.csrc = readOnce(header->csrc);
  return true;
}

bool SharedMemoryVideoFrameSource::releaseVideoFrame() { return allocator_->unlockDataAccess(); }

}  // namespace sharedmem
