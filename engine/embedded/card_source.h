// A camera that films a test card.

#ifndef ENGINE_EMBEDDED_CARD_SOURCE_H_
#define ENGINE_EMBEDDED_CARD_SOURCE_H_

#include "engine/embedded/picture_source.h"
#include "engine/embedded/test_card.h"

namespace embedded {

class CardSource final : public PictureSource {
 public:
  CardSource(const CardSubject& subject, Size size) : size_(size), card_(subject, size) {}

  Size size() const override { return size_; }
  bool has(std::uint64_t) const override { return true; }
  bool draw(std::uint64_t number, std::uint32_t level, std::uint8_t* pixels) override {
    card_.draw(static_cast<std::uint32_t>(number), level, pixels);
    return true;
  }

 private:
  const Size size_;
  const TestCard card_;
};

}  // namespace embedded

#endif  // ENGINE_EMBEDDED_CARD_SOURCE_H_
