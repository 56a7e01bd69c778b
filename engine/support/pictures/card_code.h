// The machine-readable corner of a test card.

#ifndef ENGINE_SUPPORT_PICTURES_CARD_CODE_H_
#define ENGINE_SUPPORT_PICTURES_CARD_CODE_H_

#include <array>
#include <cstdint>
#include <optional>

#include "engine/support/pictures/picture.h"

namespace support {

// What a test card says about itself.
struct CardCode {
  std::uint8_t kind = 0;     // of the stream, 0 to 3
  std::uint8_t index = 0;    // of the stream, 0 to 63
  std::uint32_t number = 0;  // low 32 bits of the frame's identifier
  std::uint32_t detail = 0;  // 24 bits, see contentDetail() for a content stream

  bool operator==(const CardCode&) const = default;
};

// What a content stream shows.
enum class ContentKind : std::uint32_t {
  kParticipant = 0,
  kScreen = 1,
  kApplication = 2,
  kWindow = 3,
};

// Two bits of kind, then the low 22 bits of the participant's number or of what is shared.
constexpr std::uint32_t contentDetail(ContentKind kind, std::uint32_t id) {
  return static_cast<std::uint32_t>(kind) << 22 | (id & 0x3fffff);
}

// The code is 72 bits in three rows of 24 square blocks in the top left corner of the Y plane, row
// after row, the most significant bit first. A block's side is blockSide() pixels. Every pixel of
// a block has the luminance 235 for a 1 and 16 for a 0; a reader samples the middle of the block,
// at row * side + side / 2 and column * side + side / 2, and takes 126 and more for a 1.
//
// The bits make nine bytes: kind * 64 + index; the number in four bytes, the highest first; the
// detail in three bytes, the highest first; and the exclusive or of these eight bytes with 0xa5,
// by which a reader tells a card from any other picture.
constexpr std::uint32_t kCodeRows = 3;
constexpr std::uint32_t kCodeColumns = 24;
constexpr std::uint8_t kCodeDark = 16;
constexpr std::uint8_t kCodeLight = 235;

// The smallest picture that holds a code.
constexpr Size kSmallestCard = {64, 36};

// Side of a block: the smaller of width / 32 and height / 24, but at least 2.
constexpr std::uint32_t blockSide(Size size) {
  const std::uint32_t side =
      size.width / 32 < size.height / 24 ? size.width / 32 : size.height / 24;
  return side < 2 ? 2 : side;
}

// Writes the code into the Y plane of a picture, whose rows are tightly packed.
void writeCode(const CardCode& code, Size size, std::uint8_t* yPlane);
// Nothing when there is no code in the picture.
std::optional<CardCode> readCode(Size size, const std::uint8_t* yPlane);

}  // namespace support

#endif  // ENGINE_SUPPORT_PICTURES_CARD_CODE_H_
