// The picture that the benchmarks move: 1280x720 in I420, 1.4 MB.

#ifndef BENCH_NATIVE_PICTURE_H_
#define BENCH_NATIVE_PICTURE_H_

#include <cstdint>
#include <vector>

#include "tesselclient/video_frame.h"

class Picture : public QVXCommon::IVideoFrame {
 public:
  static constexpr std::uint32_t kWidth = 1280;
  static constexpr std::uint32_t kHeight = 720;
  static constexpr std::uint32_t kLumaSize = kWidth * kHeight;
  static constexpr std::uint32_t kChromaSize = kLumaSize / 4;
  static constexpr std::uint32_t kSize = kLumaSize + 2 * kChromaSize;

  // Every byte is `value`.
  explicit Picture(std::uint8_t value) : pixels_(kSize, value) {}

  std::uint32_t frameWidth() const override { return kWidth; }
  std::uint32_t frameHeight() const override { return kHeight; }
  const std::uint8_t* frameBuffer() const override { return pixels_.data(); }
  std::uint32_t frameValueA() const override { return 0; }
  std::uint32_t frameValueB() const override { return 0; }
  std::uint32_t frameValueC() const override { return 0; }
  std::uint64_t frameBufferSize() const override { return pixels_.size(); }

 private:
  std::vector<std::uint8_t> pixels_;
};

#endif  // BENCH_NATIVE_PICTURE_H_
