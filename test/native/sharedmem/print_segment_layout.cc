// Prints the layout of the segments as JSON, by the names of js/segment_layout.js.

#include <semaphore.h>

#include <cstddef>
#include <cstdio>
#include <utility>

#include "addon/sharedmem/shared_memory_layout.h"

int main() {
  const std::pair<const char*, std::size_t> values[] = {
      {"entrySize", sizeof(sharedmem::SharedStreamEntry)},
      {"validOffset", offsetof(sharedmem::SharedStreamEntry, valid)},
      {"shmNameOffset", offsetof(sharedmem::SharedStreamEntry, shmName)},
      {"semNameOffset", offsetof(sharedmem::SharedStreamEntry, semName)},
      {"nameSize", sizeof(sharedmem::SharedStreamEntry::shmName)},
      {"localEntry", sharedmem::kLocalStreamEntry},
      {"contentEntry", sharedmem::kContentStreamEntry},
      {"firstRemoteEntry", sharedmem::kFirstRemoteStreamEntry},
      {"remoteStreams", std::size_t{sharedmem::kRemoteStreams}},
      {"mainSegmentSize", sharedmem::kMainSegmentSize},
      {"frameSegmentSize", sharedmem::kFrameSegmentSize},
      {"semaphoreSize", sizeof(sem_t)},
  };
  static_assert(sizeof(sharedmem::SharedStreamEntry::shmName) ==
                sizeof(sharedmem::SharedStreamEntry::semName));
  const char* separator = "{";
  for (const auto& [name, value] : values) {
    std::printf("%s\"%s\": %zu", separator, name, value);
    separator = ", ";
  }
  std::printf("}\n");
}
