// Shared code of the tests of shared memory.

#ifndef TEST_NATIVE_SHAREDMEM_SHARED_MEMORY_TEST_H_
#define TEST_NATIVE_SHAREDMEM_SHARED_MEMORY_TEST_H_

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "addon/sharedmem/shared_memory_info.h"
#include "base/diagnostic_line.h"
#include "test/native/support/captured_output.h"
#include "test/native/support/shared_names.h"

// Hands out names of this test's own, and expects that none of them is left at the end.
class SharedMemoryTest : public testing::Test {
 protected:
  void TearDown() override {
    test::linesWrittenBy([] { base::DiagnosticLine("").decimal(); });
    EXPECT_THAT(names_.present(), testing::IsEmpty());
  }

  sharedmem::SharedMemoryInfo creating(std::uint32_t size) const {
    return {.shmName = names_.shm(),
            .semName = names_.sem(),
            .size = size,
            .create = true,
            .owner = true};
  }
  sharedmem::SharedMemoryInfo opening(std::uint32_t size) const {
    return {.shmName = names_.shm(), .semName = names_.sem(), .size = size};
  }

  const test::TestNames names_;
};

// Makes later integers without an explicit base print in hexadecimal, as a wrapper's line does.
inline void switchToHexadecimal() {
  test::linesWrittenBy([] { base::DiagnosticLine("").hexadecimal(); });
}

inline std::string inHexadecimal(std::integral auto value) {
  std::ostringstream digits;
  digits << std::hex << value;
  return digits.str();
}

inline std::string addressText(const void* pointer) {
  return "0x" + inHexadecimal(reinterpret_cast<std::uintptr_t>(pointer));
}

// The process id as the segments' own lines show it.
inline std::string hexPid() { return inHexadecimal(getpid()); }

// The bytes of a shared-memory object, seen without the classes under test.
class RawObject {
 public:
  // Opens an object that exists, or makes one of `newSize` bytes.
  explicit RawObject(const std::string& shmName, std::size_t newSize = 0) {
    const int fd = shm_open(shmName.c_str(), O_RDWR | (newSize > 0 ? O_CREAT : 0), 0600);
    EXPECT_GE(fd, 0) << shmName;
    if (newSize > 0) {
      EXPECT_EQ(ftruncate(fd, static_cast<off_t>(newSize)), 0);
    }
    struct stat status = {};
    fstat(fd, &status);
    size_ = static_cast<std::size_t>(status.st_size);
    reserved_ = static_cast<std::size_t>(status.st_blocks) * 512;
    void* mapped = mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    EXPECT_NE(mapped, MAP_FAILED);
    bytes_ = static_cast<std::uint8_t*>(mapped);
    close(fd);
  }
  ~RawObject() { munmap(bytes_, size_); }
  RawObject(const RawObject&) = delete;
  RawObject& operator=(const RawObject&) = delete;

  std::uint8_t* bytes() const { return bytes_; }
  std::size_t size() const { return size_; }
  // Bytes that have memory behind them.
  std::size_t reserved() const { return reserved_; }

  template <typename T>
  T at(std::size_t offset) const {
    T value;
    std::memcpy(&value, bytes_ + offset, sizeof value);
    return value;
  }
  template <typename T>
  void put(std::size_t offset, T value) const {
    std::memcpy(bytes_ + offset, &value, sizeof value);
  }

 private:
  std::uint8_t* bytes_ = nullptr;
  std::size_t size_ = 0;
  std::size_t reserved_ = 0;
};

// Makes a semaphore's file of `size` bytes, as a faulty program might leave it.
inline void makeSemaphoreFile(const std::string& semName, std::size_t size, char byte = '\0') {
  std::ofstream(test::semaphorePath(semName)) << std::string(size, byte);
}

inline int openDescriptors() {
  int count = 0;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    static_cast<void>(entry);
    ++count;
  }
  return count;
}

// The process's mappings of whatever has, or had, a name that contains `part`.
inline int mappingsOf(const std::string& part) {
  std::ifstream maps("/proc/self/maps");
  int count = 0;
  for (std::string line; std::getline(maps, line);) {
    count += line.find(part) != std::string::npos ? 1 : 0;
  }
  return count;
}

#endif  // TEST_NATIVE_SHAREDMEM_SHARED_MEMORY_TEST_H_
