#include "engine/support/processor_load.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <sstream>
#include <utility>

namespace support {
namespace {

std::string contentOf(const char* path) {
  std::ifstream stream(path);
  return {std::istreambuf_iterator<char>(stream), {}};
}

std::int32_t percentage(std::uint64_t part, std::uint64_t whole) {
  return whole == 0 ? 0 : static_cast<std::int32_t>(std::min(part, whole) * 100 / whole);
}

// The kernel's counts may step back a little.
std::uint64_t growth(std::uint64_t before, std::uint64_t after) {
  return after > before ? after - before : 0;
}

}  // namespace

std::optional<ProcessorTicks> parseProcessorTicks(const std::string& stat,
                                                  const std::string& selfStat) {
  ProcessorTicks ticks;
  // "cpu" and the ticks by use: user, nice, system, idle, waiting for input and output, ... The
  // guests' ticks, from the ninth on, are part of the user's.
  std::istringstream machine(stat);
  std::string name;
  machine >> name;
  if (name != "cpu") return std::nullopt;
  for (int use = 0; use < 8; ++use) {
    std::uint64_t count = 0;
    if (!(machine >> count)) return std::nullopt;
    const bool isIdle = use == 3 || use == 4;
    ticks.total += count;
    if (!isIdle) ticks.busy += count;
  }
  // The program's name stands in brackets and may hold anything. User and system ticks are the
  // twelfth and thirteenth field behind it.
  const std::size_t bracket = selfStat.rfind(')');
  if (bracket == std::string::npos) return std::nullopt;
  std::istringstream process(selfStat.substr(bracket + 1));
  std::string skipped;
  for (int field = 0; field < 11; ++field) process >> skipped;
  std::uint64_t user = 0;
  std::uint64_t system = 0;
  if (!(process >> user >> system)) return std::nullopt;
  ticks.process = user + system;
  return ticks;
}

ProcessorLoad::Percentages ProcessorLoad::measure() {
  const auto after = read();
  const auto before = std::exchange(before_, after);
  return before && after ? between(*before, *after) : Percentages();
}

ProcessorLoad::Percentages ProcessorLoad::between(const ProcessorTicks& before,
                                                  const ProcessorTicks& after) {
  const std::uint64_t total = growth(before.total, after.total);
  return {percentage(growth(before.busy, after.busy), total),
          percentage(growth(before.process, after.process), total)};
}

std::optional<ProcessorTicks> ProcessorLoad::read() {
  return parseProcessorTicks(contentOf("/proc/stat"), contentOf("/proc/self/stat"));
}

}  // namespace support
