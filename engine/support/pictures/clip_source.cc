#include "engine/support/pictures/clip_source.h"

#include <utility>

namespace support {
namespace {

// Takes the pixel in the middle of what each pixel of `to` stands for.
void sample(const std::uint8_t* source, Size from, std::uint8_t* target, Size to) {
  for (std::size_t y = 0; y < to.height; ++y) {
    const std::uint8_t* const row =
        source + (2 * y + 1) * from.height / (std::size_t{2} * to.height) * from.width;
    for (std::size_t x = 0; x < to.width; ++x) {
      *target++ = row[(2 * x + 1) * from.width / (std::size_t{2} * to.width)];
    }
  }
}

}  // namespace

ClipSource::ClipSource(std::shared_ptr<const Y4mClip> clip, bool isLooped, Size size)
    : clip_(std::move(clip)),
      isLooped_(isLooped),
      size_(size),
      original_(size == clip_->size() ? 0 : i420Bytes(clip_->size())) {}

bool ClipSource::has(std::uint64_t number) const {
  return isLooped_ || number <= clip_->frameCount();
}

bool ClipSource::draw(std::uint64_t number, std::uint32_t, std::uint8_t* pixels) {
  const std::uint64_t index = (number - 1) % clip_->frameCount();
  if (original_.empty()) return clip_->readFrame(index, pixels);
  if (!clip_->readFrame(index, original_.data())) return false;
  const std::uint8_t* source = original_.data();
  const Size chroma = chromaSize(clip_->size());
  sample(source, clip_->size(), pixels, size_);
  source += support::pixels(clip_->size());
  pixels += support::pixels(size_);
  for (int plane = 0; plane < 2; ++plane) {
    sample(source, chroma, pixels, chromaSize(size_));
    source += support::pixels(chroma);
    pixels += support::pixels(chromaSize(size_));
  }
  return true;
}

}  // namespace support
