#include "addon/sharedmem/locked_table.h"

#include <cstddef>
#include <cstring>
#include <optional>
#include <string>

namespace sharedmem {
namespace {

// Empty for a kind, or a remote index, for which the table has no entry.
std::optional<std::size_t> entryIndexOf(const StreamKey& key) {
  switch (key.first) {
    case TSLM_STREAM_LOCAL:
      return kLocalStreamEntry;
    case TSLM_STREAM_CONTENT:
      return kContentStreamEntry;
    case TSLM_STREAM_REMOTE:
      if (key.second < 0 || key.second >= kRemoteStreams) return std::nullopt;
      return kFirstRemoteStreamEntry + static_cast<std::size_t>(key.second);
  }
  return std::nullopt;
}

template <std::size_t size>
void writeName(char (&field)[size], const std::string& name) {
  field[name.copy(field, size - 1)] = '\0';
}

// Another process may be writing the field, and may have left out the NUL: the bytes are copied
// before they are examined.
template <std::size_t size>
std::string readName(const char (&field)[size]) {
  char copy[size];
  std::memcpy(copy, field, size);
  return {copy, strnlen(copy, size)};
}

}  // namespace

bool isRemoteOutsideTable(const StreamKey& key) {
  return key.first == TSLM_STREAM_REMOTE && !entryIndexOf(key);
}

void setEntry(SharedStreamEntry& entry, const SharedMemoryKey& names) {
  entry.valid = 1;
  writeName(entry.shmName, names.shmName);
  writeName(entry.semName, names.semName);
}

void clearEntry(SharedStreamEntry& entry) {
  entry.valid = 0;
  entry.shmName[0] = '\0';
  entry.semName[0] = '\0';
}

bool isValid(const SharedStreamEntry& entry) { return readOnce(entry.valid) != 0; }

SharedMemoryKey namesIn(const SharedStreamEntry& entry) {
  return {.shmName = readName(entry.shmName), .semName = readName(entry.semName)};
}

LockedTable::LockedTable(SharedMemoryAllocator& allocator)
    : allocator_(allocator), locked_(allocator.lockDataAccess()) {
  if (locked_) entries_ = static_cast<SharedStreamEntry*>(allocator_.getDataPtr());
}

LockedTable::~LockedTable() {
  if (locked_) allocator_.unlockDataAccess();
}

SharedStreamEntry* LockedTable::entryOf(const StreamKey& key) const {
  const auto index = entryIndexOf(key);
  return mapped() && index ? entries_ + *index : nullptr;
}

void LockedTable::clear() const { std::memset(entries_, 0, kMainSegmentSize); }

}  // namespace sharedmem
