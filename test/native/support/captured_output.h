// Captures the standard output of the process for tests.

#ifndef TEST_NATIVE_SUPPORT_CAPTURED_OUTPUT_H_
#define TEST_NATIVE_SUPPORT_CAPTURED_OUTPUT_H_

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

namespace test {

// Replaces the standard output by a file during its lifetime: the file collects the output of this
// process, and of children that it forks meanwhile, to descriptor 1. That includes the messages of
// failed expectations, so the collected output is printed when the test has failed.
class CapturedOutput {
 public:
  CapturedOutput() {
    std::fflush(stdout);
    dup2(file_, STDOUT_FILENO);
  }
  ~CapturedOutput() {
    const std::string collected = text();
    dup2(original_, STDOUT_FILENO);
    if (testing::Test::HasFailure()) std::fputs(collected.c_str(), stdout);
    close(original_);
    close(file_);
  }
  CapturedOutput(const CapturedOutput&) = delete;
  CapturedOutput& operator=(const CapturedOutput&) = delete;

  // Everything since the beginning.
  std::string text() const {
    std::fflush(stdout);
    std::string text(static_cast<std::size_t>(lseek(file_, 0, SEEK_END)), '\0');
    const ssize_t count = pread(file_, text.data(), text.size(), 0);
    text.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
    return text;
  }

  // The same, without the ends of the lines. A last line without an end shows as "...(no end)".
  std::vector<std::string> lines() const {
    std::vector<std::string> lines;
    const std::string all = text();
    std::size_t start = 0;
    for (std::size_t end; (end = all.find('\n', start)) != std::string::npos; start = end + 1) {
      lines.push_back(all.substr(start, end - start));
    }
    if (start < all.size()) lines.push_back(all.substr(start) + "(no end)");
    return lines;
  }

 private:
  const int original_ = dup(STDOUT_FILENO);
  const int file_ = memfd_create("captured output", 0);
};

// The lines that `action` writes.
template <typename Action>
std::vector<std::string> linesWrittenBy(Action&& action) {
  const CapturedOutput output;
  action();
  return output.lines();
}

// The same with every address replaced by "0xADDRESS", for comparing lines as a whole.
inline std::vector<std::string> withoutAddresses(std::vector<std::string> lines) {
  for (std::string& line : lines) {
    // After a colon: the same characters may be part of a random name.
    for (std::size_t at = 0; (at = line.find(":0x", at)) != std::string::npos;) {
      at += 3;
      const std::size_t end = std::min(line.find_first_not_of("0123456789abcdef", at), line.size());
      line.replace(at, end - at, "ADDRESS");
    }
  }
  return lines;
}

}  // namespace test

#endif  // TEST_NATIVE_SUPPORT_CAPTURED_OUTPUT_H_
