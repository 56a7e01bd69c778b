// Clips of uncompressed video (YUV4MPEG2, ".y4m").

#ifndef ENGINE_SUPPORT_PICTURES_Y4M_CLIP_H_
#define ENGINE_SUPPORT_PICTURES_Y4M_CLIP_H_

#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "engine/support/file_descriptor.h"
#include "engine/support/pictures/picture.h"

namespace support {

// Why a clip cannot be played.
class ClipError : public std::runtime_error {
 public:
  enum class Kind { kUnreadable, kUnsupported };

  ClipError(Kind kind, const std::string& reason) : std::runtime_error(reason), kind_(kind) {}
  Kind kind() const { return kind_; }

 private:
  Kind kind_;
};

// What a clip's first line says.
struct Y4mHeader {
  Size size;
  FrameRate rate;  // 30 when the line has none
};

// Reads the line, without its end. Only 8-bit 4:2:0 is accepted: C420, C420jpeg, C420paldv,
// C420mpeg2 or no colour space. Throws ClipError.
Y4mHeader parseY4mHeader(std::string_view line);

// An open clip, checked from end to end. Shared by the streams that play it; frames may be read
// from any thread.
class Y4mClip {
 public:
  // Throws ClipError.
  explicit Y4mClip(const std::string& path);
  Y4mClip(const Y4mClip&) = delete;
  Y4mClip& operator=(const Y4mClip&) = delete;

  Size size() const { return header_.size; }
  FrameRate rate() const { return header_.rate; }
  std::uint64_t frameCount() const { return frameOffsets_.size(); }

  // Reads the planes of frame `index`, below frameCount(), into i420Bytes(size()) bytes. False when
  // the file cannot be read any more.
  bool readFrame(std::uint64_t index, std::uint8_t* pixels) const;

 private:
  // Reads up to `count` bytes; fewer at the end of the file.
  std::string read(std::uint64_t offset, std::size_t count) const;
  // A line at `offset` without its end; nothing when it is longer than lines may be or has no end.
  std::optional<std::string> readLine(std::uint64_t offset) const;
  void findFrames(std::uint64_t offset, std::uint64_t fileSize);

  FileDescriptor file_;
  Y4mHeader header_;
  std::vector<std::uint64_t> frameOffsets_;  // of the pixels
};

}  // namespace support

#endif  // ENGINE_SUPPORT_PICTURES_Y4M_CLIP_H_
