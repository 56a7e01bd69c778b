// What a sender films.

#ifndef ENGINE_EMBEDDED_PICTURE_SOURCE_H_
#define ENGINE_EMBEDDED_PICTURE_SOURCE_H_

#include <cstdint>

#include "engine/embedded/picture.h"

namespace embedded {

// Yields the pictures of one stream. Belongs to the engine's thread.
class PictureSource {
 public:
  virtual ~PictureSource() = default;

  // Of the pictures to come.
  virtual Size size() const = 0;
  // Draws picture `number`, counted from 1, into i420Bytes(size()) bytes. `level` is how loud the
  // sender is, 0 to 100. False when there is no such picture, and then there are none after it.
  virtual bool draw(std::uint64_t number, std::uint32_t level, std::uint8_t* pixels) = 0;
};

}  // namespace embedded

#endif  // ENGINE_EMBEDDED_PICTURE_SOURCE_H_
