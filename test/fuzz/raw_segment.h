// A shared-memory object as a hostile process writes it: any bytes, under any name.

#ifndef TEST_FUZZ_RAW_SEGMENT_H_
#define TEST_FUZZ_RAW_SEGMENT_H_

#include <fcntl.h>
#include <semaphore.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

#include "addon/sharedmem/shared_memory_info.h"
#include "test/fuzz/require.h"
#include "test/native/support/shared_names.h"

namespace fuzz {

// The first call removes the leftovers of killed runs.
inline const test::TestNames& ownNames() {
  static const test::TestNames names;
  return names;
}

// An object of `size` zero bytes and a free semaphore, during its lifetime. A process that opens
// the pair removes the names when it closes it; makeNamesAgain() restores them.
class RawSegment {
 public:
  RawSegment(const std::string& suffix, std::uint32_t size)
      : info_{.shmName = ownNames().shm() + suffix,
              .semName = ownNames().sem() + suffix,
              .size = size} {
    const int fd = shm_open(info_.shmName.c_str(), O_RDWR | O_CREAT | O_EXCL, 0600);
    require(fd >= 0 && ftruncate(fd, static_cast<off_t>(size)) == 0);
    void* const mapped = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    require(mapped != MAP_FAILED);
    bytes_ = static_cast<std::uint8_t*>(mapped);
    close(fd);
    semaphore_ = sem_open(info_.semName.c_str(), O_CREAT | O_EXCL, 0600, 1);
    require(semaphore_ != SEM_FAILED);
    for (const std::string& file : files()) require(link(file.c_str(), kept(file).c_str()) == 0);
  }
  ~RawSegment() {
    for (const std::string& file : files()) {
      unlink(file.c_str());
      unlink(kept(file).c_str());
    }
    sem_close(semaphore_);
    munmap(bytes_, info_.size);
  }
  RawSegment(const RawSegment&) = delete;
  RawSegment& operator=(const RawSegment&) = delete;

  // What opens the pair.
  const sharedmem::SharedMemoryInfo& info() const { return info_; }
  std::uint8_t* bytes() const { return bytes_; }

  // The pair stays the same, since new pages would take most of a fuzzer's time. Whoever had opened
  // it must have given back its lock.
  void makeNamesAgain() {
    for (const std::string& file : files()) {
      unlink(file.c_str());
      require(link(kept(file).c_str(), file.c_str()) == 0);
    }
    int count = 0;
    require(sem_getvalue(semaphore_, &count) == 0 && count == 1);
  }

  // Fills `space` bytes at an offset: with an input, and zeros where it is shorter. Nothing of the
  // input before it is left, so that an input alone repeats what it did.
  void put(std::size_t offset, const std::uint8_t* data, std::size_t size, std::size_t space) {
    std::uint8_t* const end = std::copy_n(data, std::min(size, space), bytes_ + offset);
    std::fill(end, bytes_ + offset + space, std::uint8_t{0});
  }

 private:
  std::array<std::string, 2> files() const {
    return {test::objectPath(info_.shmName), test::semaphorePath(info_.semName)};
  }
  // The second name of a file, under which it outlives the first.
  static std::string kept(const std::string& file) { return file + "_kept"; }

  const sharedmem::SharedMemoryInfo info_;
  std::uint8_t* bytes_ = nullptr;
  sem_t* semaphore_ = nullptr;
};

}  // namespace fuzz

#endif  // TEST_FUZZ_RAW_SEGMENT_H_
