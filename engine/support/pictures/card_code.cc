#include "engine/support/pictures/card_code.h"

#include <algorithm>
#include <cstddef>

namespace support {
namespace {

using Bytes = std::array<std::uint8_t, kCodeRows * kCodeColumns / 8>;

std::uint8_t byteOf(std::uint32_t value, int shift) {
  return static_cast<std::uint8_t>(value >> shift);
}

std::uint8_t checkOf(const Bytes& bytes) {
  std::uint8_t check = 0xa5;
  for (std::size_t i = 0; i + 1 < bytes.size(); ++i) check ^= bytes[i];
  return check;
}

}  // namespace

void writeCode(const CardCode& code, Size size, std::uint8_t* yPlane) {
  Bytes bytes = {static_cast<std::uint8_t>(code.kind << 6 | (code.index & 0x3f)),
                 byteOf(code.number, 24),
                 byteOf(code.number, 16),
                 byteOf(code.number, 8),
                 byteOf(code.number, 0),
                 byteOf(code.detail, 16),
                 byteOf(code.detail, 8),
                 byteOf(code.detail, 0)};
  bytes.back() = checkOf(bytes);
  const std::size_t side = blockSide(size);
  for (std::size_t row = 0; row < kCodeRows; ++row) {
    std::uint8_t* const line = yPlane + row * side * size.width;
    for (std::size_t column = 0; column < kCodeColumns; ++column) {
      const std::size_t bit = row * kCodeColumns + column;
      const bool isSet = (bytes[bit / 8] >> (7 - bit % 8) & 1) != 0;
      std::fill_n(line + column * side, side, isSet ? kCodeLight : kCodeDark);
    }
    for (std::size_t i = 1; i < side; ++i) {
      std::copy_n(line, kCodeColumns * side, line + i * size.width);
    }
  }
}

std::optional<CardCode> readCode(Size size, const std::uint8_t* yPlane) {
  if (size.width < kSmallestCard.width || size.height < kSmallestCard.height) return std::nullopt;
  const std::size_t side = blockSide(size);
  Bytes bytes = {};
  for (std::size_t bit = 0; bit < std::size_t{kCodeRows} * kCodeColumns; ++bit) {
    const std::size_t y = bit / kCodeColumns * side + side / 2;
    const std::size_t x = bit % kCodeColumns * side + side / 2;
    const bool isSet = yPlane[y * size.width + x] >= 126;
    bytes[bit / 8] = static_cast<std::uint8_t>(bytes[bit / 8] << 1 | (isSet ? 1 : 0));
  }
  if (bytes.back() != checkOf(bytes)) return std::nullopt;
  const auto at = [&bytes](std::size_t i) { return static_cast<std::uint32_t>(bytes[i]); };
  return CardCode{static_cast<std::uint8_t>(bytes[0] >> 6),
                  static_cast<std::uint8_t>(bytes[0] & 0x3f),
                  at(1) << 24 | at(2) << 16 | at(3) << 8 | at(4), at(5) << 16 | at(6) << 8 | at(7)};
}

}  // namespace support
