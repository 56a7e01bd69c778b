// Where a sender gets its pictures.

#ifndef ENGINE_SUPPORT_PICTURES_PICTURE_SOURCE_H_
#define ENGINE_SUPPORT_PICTURES_PICTURE_SOURCE_H_

#include <cstdint>

#include "engine/support/pictures/picture.h"

namespace support {

// Yields the pictures of one stream, numbered from 1. Belongs to the engine's thread.
class PictureSource {
 public:
  virtual ~PictureSource() = default;

  virtual Size size() const = 0;
  // False when the pictures end before `number`.
  virtual bool has(std::uint64_t number) const = 0;
  // Draws a picture that there is into i420Bytes(size()) bytes. `level` is how loud the sender is,
  // 0 to 100. False when it cannot be drawn after all.
  virtual bool draw(std::uint64_t number, std::uint32_t level, std::uint8_t* pixels) = 0;
};

}  // namespace support

#endif  // ENGINE_SUPPORT_PICTURES_PICTURE_SOURCE_H_
