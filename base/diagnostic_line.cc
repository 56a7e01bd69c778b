#include "base/diagnostic_line.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <climits>

#include "base/mutex.h"

namespace base {
namespace {

std::atomic<bool> baseIsHexadecimal = false;

// How long a line waits for room in an output that blocks its writers: long enough for a reader
// that is slow, and a limit where nobody reads. Any thread of the engine may write lines.
constexpr int kPatienceMs = 1000;

// Keeps the lines of several threads apart where the system would take one in pieces, and guards
// the outcome of the last lines.
Mutex outputMutex;
bool cutShort GUARDED_BY(outputMutex) = false;
bool waitedInVain GUARDED_BY(outputMutex) = false;

std::string inHexadecimal(std::uintptr_t value) {
  char digits[2 * sizeof value];
  const auto end = std::to_chars(std::begin(digits), std::end(digits), value, 16).ptr;
  return {digits, end};
}

bool outputBlocks() {
  const int flags = fcntl(STDOUT_FILENO, F_GETFL);
  return flags >= 0 && (flags & O_NONBLOCK) == 0;
}

// Whether a piece can be written without being blocked. Only the first of several lines waits.
bool awaitRoom() REQUIRES(outputMutex) {
  pollfd output = {STDOUT_FILENO, POLLOUT, 0};
  int ready = -1;
  do {
    ready = poll(&output, 1, waitedInVain ? 0 : kPatienceMs);
  } while (ready < 0 && errno == EINTR);
  waitedInVain = ready == 0;
  return !waitedInVain;
}

// Writes as much of `text` as the standard output takes now and returns the number of bytes.
std::size_t writeNow(std::string_view text) REQUIRES(outputMutex) {
  const bool blocks = outputBlocks();
  // A pipe that has room at all has room for so much.
  const std::size_t piece = blocks ? PIPE_BUF : text.size();
  std::size_t written = 0;
  while (written < text.size() && (!blocks || awaitRoom())) {
    const ssize_t count =
        ::write(STDOUT_FILENO, text.data() + written, std::min(piece, text.size() - written));
    if (count >= 0) {
      written += static_cast<std::size_t>(count);
    } else if (errno != EINTR) {
      break;
    }
  }
  return written;
}

}  // namespace

DiagnosticLine::~DiagnosticLine() {
  text_ += '\n';
  MutexLock lock(outputMutex);
  // A line that was cut short must not swallow the next one.
  if (cutShort) text_.insert(0, 1, '\n');
  const std::size_t written = writeNow(text_);
  if (written > 0) cutShort = written < text_.size();
}

DiagnosticLine& DiagnosticLine::text(std::string_view text) {
  text_ += text;
  return *this;
}

DiagnosticLine& DiagnosticLine::integer(std::int32_t value) {
  if (!isHexadecimal_.value_or(baseIsHexadecimal)) return dec(value);
  text_ += inHexadecimal(static_cast<std::uint32_t>(value));
  return *this;
}

DiagnosticLine& DiagnosticLine::address(const void* pointer) {
  if (pointer == nullptr) return text("0");
  text_ += "0x" + inHexadecimal(reinterpret_cast<std::uintptr_t>(pointer));
  return *this;
}

DiagnosticLine& DiagnosticLine::hexadecimal() { return switchBase(true); }

DiagnosticLine& DiagnosticLine::decimal() { return switchBase(false); }

DiagnosticLine& DiagnosticLine::switchBase(bool isHexadecimal) {
  isHexadecimal_ = isHexadecimal;
  baseIsHexadecimal = isHexadecimal;
  return *this;
}

}  // namespace base
