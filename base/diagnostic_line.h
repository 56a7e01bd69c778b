// Diagnostic lines on the standard output.

#ifndef BASE_DIAGNOSTIC_LINE_H_
#define BASE_DIAGNOSTIC_LINE_H_

#include <concepts>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace base {

// One line of diagnostics: composed piece by piece, then written as a whole, at once and
// unbuffered, when the object goes out of scope. Lines of several threads never mix. Text from
// elsewhere is data here, never a format.
//
// When the standard output is full and blocks its writers, a line waits for room for at most one
// second; after a line that waited in vain, no line waits until there is room again. A non-blocking
// output is never waited for. What the output does not take is lost: the whole line, or its end.
// Each line is tried anew, and starts at the beginning of a line.
//
// A process-wide integer base applies to integers whose base the call does not fix. It starts as
// decimal; hexadecimal() and decimal() switch it for all later lines, on purpose: a reader of the
// output can rely on the same base as in a stream that was switched and not switched back. A line
// that has switched it keeps its own base, whatever other threads do.
class DiagnosticLine {
 public:
  DiagnosticLine() = default;
  explicit DiagnosticLine(std::string_view text) : text_(text) {}
  ~DiagnosticLine();
  DiagnosticLine(const DiagnosticLine&) = delete;
  DiagnosticLine& operator=(const DiagnosticLine&) = delete;

  DiagnosticLine& text(std::string_view text);
  // In decimal, whatever the base.
  DiagnosticLine& dec(std::integral auto value) {
    text_ += std::to_string(value);
    return *this;
  }
  // In the process-wide base. Hexadecimal shows a negative value as 32-bit two's complement.
  DiagnosticLine& integer(std::int32_t value);
  // "0x" and hexadecimal digits; "0" for null. Leaves the base alone.
  DiagnosticLine& address(const void* pointer);

  // Switch the process-wide base.
  DiagnosticLine& hexadecimal();
  DiagnosticLine& decimal();

 private:
  DiagnosticLine& switchBase(bool isHexadecimal);

  std::string text_;
  std::optional<bool> isHexadecimal_;  // empty until this line switches the base
};

}  // namespace base

#endif  // BASE_DIAGNOSTIC_LINE_H_
