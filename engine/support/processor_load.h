// How busy the machine and this process are.

#ifndef ENGINE_SUPPORT_PROCESSOR_LOAD_H_
#define ENGINE_SUPPORT_PROCESSOR_LOAD_H_

#include <cstdint>
#include <optional>
#include <string>

namespace support {

// Counts of clock ticks, as the kernel gives them.
struct ProcessorTicks {
  std::uint64_t total = 0;    // of all processors
  std::uint64_t busy = 0;     // of these, not idle
  std::uint64_t process = 0;  // of these, spent in this process
};

// Reads the texts of /proc/stat and /proc/self/stat; nothing when they are malformed.
std::optional<ProcessorTicks> parseProcessorTicks(const std::string& stat,
                                                  const std::string& selfStat);

// The load between two moments, in percent of all processors. Belongs to one thread.
class ProcessorLoad {
 public:
  struct Percentages {
    std::int32_t system = 0;
    std::int32_t process = 0;
  };

  // Since the last call, or since the object was made; 0 where the kernel does not tell.
  Percentages measure();
  static Percentages between(const ProcessorTicks& before, const ProcessorTicks& after);

 private:
  static std::optional<ProcessorTicks> read();

  std::optional<ProcessorTicks> before_ = read();
};

}  // namespace support

#endif  // ENGINE_SUPPORT_PROCESSOR_LOAD_H_
