// Frames as an engine might deliver them.

#ifndef TEST_NATIVE_SHAREDMEM_FAKE_VIDEO_FRAME_H_
#define TEST_NATIVE_SHAREDMEM_FAKE_VIDEO_FRAME_H_

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "tesselclient/video_frame.h"

// A frame with the values that a test gives it.
struct FakeVideoFrame : QVXCommon::IVideoFrame {
  FakeVideoFrame() = default;
  // A 4:2:0 picture whose bytes count up from `firstByte`.
  FakeVideoFrame(std::uint32_t w, std::uint32_t h, std::uint8_t firstByte = 0)
      : width(w), height(h) {
    const std::size_t chroma = std::size_t{(w + 1) / 2} * ((h + 1) / 2);
    pixels.resize(std::size_t{w} * h + 2 * chroma);
    for (std::uint8_t& pixel : pixels) pixel = firstByte++;
    buffer = pixels.data();
    bufferSize = pixels.size();
  }

  std::uint32_t frameWidth() const override {
    if (whileAsked) whileAsked();
    return width;
  }
  std::uint32_t frameHeight() const override { return height; }
  const std::uint8_t* frameBuffer() const override { return buffer; }
  std::uint32_t frameValueA() const override { return valueA; }
  std::uint32_t frameValueB() const override { return valueB; }
  std::uint32_t frameValueC() const override { return valueC; }
  std::uint64_t frameBufferSize() const override { return bufferSize; }

  std::vector<std::uint8_t> pixels;
  const std::uint8_t* buffer = nullptr;
  std::uint64_t bufferSize = 0;
  std::uint32_t width = 0;
  std::uint32_t height = 0;
  std::uint32_t valueA = 0;
  std::uint32_t valueB = 0;
  std::uint32_t valueC = 0;
  std::function<void()> whileAsked;  // runs when the frame is asked for its width
};

#endif  // TEST_NATIVE_SHAREDMEM_FAKE_VIDEO_FRAME_H_
