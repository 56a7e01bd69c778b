#include "base/diagnostic_line.h"

#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <charconv>

#include "base/mutex.h"

namespace base {
namespace {

std::atomic<bool> baseIsHexadecimal = false;

// Keeps the lines of several threads apart where the system would take one in pieces, and guards
// whether the last line was cut short.
Mutex outputMutex;
bool cutShort GUARDED_BY(outputMutex) = false;

std::string inHexadecimal(std::uintptr_t value) {
  char digits[2 * sizeof value];
  const auto end = std::to_chars(std::begin(digits), std::end(digits), value, 16).ptr;
  return {digits, end};
}

// Writes as much of `text` as the standard output takes now and returns the number of bytes.
std::size_t writeNow(std::string_view text) {
  std::size_t written = 0;
  while (written < text.size()) {
    const ssize_t count = ::write(STDOUT_FILENO, text.data() + written, text.size() - written);
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
