#include "engine/support/pictures/y4m_clip.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <string>
#include <system_error>

namespace support {
namespace {

constexpr std::uint32_t kLargestSide = 4096;
constexpr std::uint32_t kLargestRatePart = 100'000;
constexpr std::uint32_t kHighestRate = 240;
constexpr std::size_t kLongestLine = 1024;
constexpr std::size_t kMostFrames = 100'000;

constexpr std::string_view kMagic = "YUV4MPEG2";
constexpr std::string_view kFrameMagic = "FRAME";

[[noreturn]] void unsupported(const std::string& reason) {
  throw ClipError(ClipError::Kind::kUnsupported, reason);
}

[[noreturn]] void unreadable(const std::string& reason) {
  throw ClipError(ClipError::Kind::kUnreadable, reason);
}

// Nothing unless the whole text is a number.
std::optional<std::uint32_t> toNumber(std::string_view text) {
  std::uint32_t number = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || stop != end) return std::nullopt;
  return number;
}

std::uint32_t parseSide(std::string_view text) {
  const auto side = toNumber(text);
  if (!side || *side == 0 || *side > kLargestSide) unsupported("the clip's size is out of range");
  return *side;
}

FrameRate parseRate(std::string_view text) {
  const std::size_t colon = text.find(':');
  if (colon == std::string_view::npos) unsupported("the clip's frame rate is malformed");
  const auto numerator = toNumber(text.substr(0, colon));
  const auto denominator = toNumber(text.substr(colon + 1));
  if (!numerator || !denominator) unsupported("the clip's frame rate is malformed");
  // 0:0 stands for an unknown rate.
  if (*numerator == 0 && *denominator == 0) return {};
  const bool inRange = *numerator > 0 && *denominator > 0 && *numerator <= kLargestRatePart &&
                       *denominator <= kLargestRatePart &&
                       *numerator <= std::uint64_t{kHighestRate} * *denominator;
  if (!inRange) unsupported("the clip's frame rate is out of range");
  return {*numerator, *denominator};
}

void checkColourSpace(std::string_view text) {
  for (const std::string_view known : {"420", "420jpeg", "420paldv", "420mpeg2"}) {
    if (text == known) return;
  }
  unsupported("the clip's colour space is not 8-bit 4:2:0");
}

bool startsWithWord(std::string_view text, std::string_view word) {
  return text.starts_with(word) && (text.size() == word.size() || text[word.size()] == ' ');
}

}  // namespace

Y4mHeader parseY4mHeader(std::string_view line) {
  if (!startsWithWord(line, kMagic)) unsupported("the clip is not a YUV4MPEG2 file");
  Y4mHeader header;
  line.remove_prefix(kMagic.size());
  while (!line.empty()) {
    line.remove_prefix(1);
    const std::string_view field = line.substr(0, line.find(' '));
    line.remove_prefix(field.size());
    if (field.empty()) continue;
    const std::string_view value = field.substr(1);
    switch (field.front()) {
      case 'W':
        header.size.width = parseSide(value);
        break;
      case 'H':
        header.size.height = parseSide(value);
        break;
      case 'F':
        header.rate = parseRate(value);
        break;
      case 'C':
        checkColourSpace(value);
        break;
      default:
        break;
    }
  }
  if (header.size.width == 0 || header.size.height == 0) unsupported("the clip has no size");
  return header;
}

Y4mClip::Y4mClip(const std::string& path)
    // Not blocking, so that a pipe of that name cannot stop the engine.
    : file_(FileDescriptor::open(path, O_RDONLY | O_NONBLOCK)) {
  if (!file_.isOpen()) {
    unreadable(std::string("the clip cannot be opened: ") + std::generic_category().message(errno));
  }
  struct stat status = {};
  if (::fstat(file_.get(), &status) != 0 || !S_ISREG(status.st_mode)) {
    unreadable("the clip is not a file");
  }
  const auto line = readLine(0);
  if (!line) unsupported("the clip is not a YUV4MPEG2 file");
  header_ = parseY4mHeader(*line);
  findFrames(line->size() + 1, static_cast<std::uint64_t>(status.st_size));
}

bool Y4mClip::readFrame(std::uint64_t index, std::uint8_t* pixels) const {
  const std::size_t size = i420Bytes(header_.size);
  std::size_t done = 0;
  while (done < size) {
    const auto offset = static_cast<off_t>(frameOffsets_[index] + done);
    const ssize_t count = ::pread(file_.get(), pixels + done, size - done, offset);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    done += static_cast<std::size_t>(count);
  }
  return true;
}

std::string Y4mClip::read(std::uint64_t offset, std::size_t count) const {
  std::string text(count, '\0');
  ssize_t got = 0;
  do {
    got = ::pread(file_.get(), text.data(), count, static_cast<off_t>(offset));
  } while (got < 0 && errno == EINTR);
  if (got < 0)
    unreadable(std::string("the clip cannot be read: ") + std::generic_category().message(errno));
  text.resize(static_cast<std::size_t>(got));
  return text;
}

std::optional<std::string> Y4mClip::readLine(std::uint64_t offset) const {
  std::string text = read(offset, kLongestLine);
  const std::size_t end = text.find('\n');
  if (end == std::string::npos) return std::nullopt;
  text.resize(end);
  return text;
}

void Y4mClip::findFrames(std::uint64_t offset, std::uint64_t fileSize) {
  const std::uint64_t frameSize = i420Bytes(header_.size);
  while (offset < fileSize) {
    const auto line = readLine(offset);
    if (!line || !startsWithWord(*line, kFrameMagic)) unsupported("the clip has a malformed frame");
    offset += line->size() + 1;
    if (offset > fileSize || fileSize - offset < frameSize) {
      unsupported("the clip's last frame is cut short");
    }
    if (frameOffsets_.size() == kMostFrames) unsupported("the clip has too many frames");
    frameOffsets_.push_back(offset);
    offset += frameSize;
  }
  if (frameOffsets_.empty()) unsupported("the clip has no frames");
}

}  // namespace support
