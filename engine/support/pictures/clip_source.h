// A clip as the pictures of a stream.

#ifndef ENGINE_SUPPORT_PICTURES_CLIP_SOURCE_H_
#define ENGINE_SUPPORT_PICTURES_CLIP_SOURCE_H_

#include <memory>
#include <vector>

#include "engine/support/pictures/picture_source.h"
#include "engine/support/pictures/y4m_clip.h"

namespace support {

// Plays a clip once or in a loop: picture n is the clip's frame n - 1, counted around. Pictures of
// the clip's own size are the clip's bytes; those of another size are sampled from them.
class ClipSource final : public PictureSource {
 public:
  ClipSource(std::shared_ptr<const Y4mClip> clip, bool isLooped, Size size);

  Size size() const override { return size_; }
  bool has(std::uint64_t number) const override;
  bool draw(std::uint64_t number, std::uint32_t level, std::uint8_t* pixels) override;

 private:
  const std::shared_ptr<const Y4mClip> clip_;
  const bool isLooped_;
  const Size size_;
  std::vector<std::uint8_t> original_;  // of another size
};

}  // namespace support

#endif  // ENGINE_SUPPORT_PICTURES_CLIP_SOURCE_H_
