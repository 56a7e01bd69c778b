// Prints the layout of the segments as JSON, by the names of js/segment_layout.js.

#include <semaphore.h>

#include <cstddef>
#include <cstdio>
#include <utility>

#include "addon/sharedmem/shared_memory_layout.h"

int main() {
  const std::pair<const char*, std::size_t> values[] = {
      {"entrySize", sizeof(SharedStreamEntry)},
      {"validOffset", offsetof(SharedStreamEntry, valid)},
      {"shmNameOffset", offsetof(SharedStreamEntry, shmName)},
      {"semNameOffset", offsetof(SharedStreamEntry, semName)},
      {"nameSize", sizeof(SharedStreamEntry::shmName)},
      {"localEntry", kLocalStreamEntry},
      {"contentEntry", kContentStreamEntry},
      {"firstRemoteEntry", kFirstRemoteStreamEntry},
      {"remoteStreams", std::size_t{kRemoteStreams}},
      {"mainSegmentSize", kMainSegmentSize},
      {"frameSegmentSize", kFrameSegmentSize},
      {"semaphoreSize", sizeof(sem_t)},
  };
  static_assert(sizeof(SharedStreamEntry::shmName) == sizeof(SharedStreamEntry::semName));
  const char* separator = "{";
  for (const auto& [name, value] : values) {
    std::printf("%s\"%s\": %zu", separator, name, value);
    separator = ", ";
  }
  std::printf("}\n");
}
