// A camera that films a clip.

#ifndef ENGINE_EMBEDDED_CLIP_SOURCE_H_
#define ENGINE_EMBEDDED_CLIP_SOURCE_H_

#include <memory>
#include <utility>

#include "engine/embedded/picture_source.h"
#include "engine/embedded/y4m_clip.h"

namespace embedded {

// Plays a clip once or in a loop: picture n is the clip's frame n - 1, counted around.
class ClipSource final : public PictureSource {
 public:
  ClipSource(std::shared_ptr<const Y4mClip> clip, bool isLooped)
      : clip_(std::move(clip)), isLooped_(isLooped) {}

  Size size() const override { return clip_->size(); }
  bool draw(std::uint64_t number, std::uint32_t, std::uint8_t* pixels) override {
    const std::uint64_t index = number - 1;
    if (!isLooped_ && index >= clip_->frameCount()) return false;
    return clip_->readFrame(index % clip_->frameCount(), pixels);
  }

 private:
  const std::shared_ptr<const Y4mClip> clip_;
  const bool isLooped_;
};

}  // namespace embedded

#endif  // ENGINE_EMBEDDED_CLIP_SOURCE_H_
