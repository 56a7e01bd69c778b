#include "engine/support/log.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <system_error>

namespace support {
namespace {

constexpr std::size_t kLongestText = 2000;

FileDescriptor openLogFile(const std::string& directory, const std::string& prefix) {
  // The prefix belongs to the file's name; it must not lead to another directory.
  if (directory.empty() || prefix.find('/') != std::string::npos) return {};
  std::error_code ignored;
  std::filesystem::create_directories(directory, ignored);
  const std::string path = directory + '/' + prefix + "tesselclient.log";
  // Not blocking, so that a pipe of that name cannot stop the engine.
  FileDescriptor file =
      FileDescriptor::open(path, O_WRONLY | O_CREAT | O_APPEND | O_NONBLOCK, 0600);
  struct stat status = {};
  if (!file.isOpen() || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) return {};
  return file;
}

std::string timeOfDay() {
  timespec now = {};
  ::clock_gettime(CLOCK_REALTIME, &now);
  tm parts = {};
  ::gmtime_r(&now.tv_sec, &parts);
  std::array<char, 64> text = {};
  const int length =
      std::snprintf(text.data(), text.size(), "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ",
                    parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday, parts.tm_hour,
                    parts.tm_min, parts.tm_sec, static_cast<int>(now.tv_nsec / 1'000'000));
  return {text.data(), static_cast<std::size_t>(length)};
}

}  // namespace

Log::Log(const std::string& directory, const std::string& prefix)
    : file_(openLogFile(directory, prefix)) {}

void Log::write(std::string_view text) const {
  if (!file_.isOpen()) return;
  std::string line = timeOfDay() + ' ';
  for (const char character : text.substr(0, kLongestText)) {
    const auto code = static_cast<unsigned char>(character);
    line += code < 0x20 || code == 0x7f ? '?' : character;
  }
  line += '\n';
  // One write appends the whole line; what a full disk does not take is lost.
  [[maybe_unused]] const ssize_t written = ::write(file_.get(), line.data(), line.size());
}

}  // namespace support
