// Owners of what POSIX shared memory hands out: a descriptor, a mapping, a named semaphore.
//
// Each is move-only, is empty by default, and releases what it owns when it is reset or destroyed.
// None of them removes a name from the system. A failing call leaves its reason in errno.
// accepted_files.h says what they are opened on.

#ifndef ADDON_SHAREDMEM_POSIX_SHARED_MEMORY_H_
#define ADDON_SHAREDMEM_POSIX_SHARED_MEMORY_H_

#include <semaphore.h>
#include <sys/types.h>

#include <cstddef>
#include <ctime>
#include <optional>
#include <string>
#include <utility>

namespace sharedmem {

class FileDescriptor {
 public:
  // As shm_open.
  static FileDescriptor openSharedMemory(const std::string& name, int flags, mode_t mode);

  FileDescriptor() = default;
  // Takes over `fd`; a negative one is empty.
  explicit FileDescriptor(int fd) : fd_(fd) {}
  FileDescriptor(FileDescriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept;
  ~FileDescriptor() { reset(); }

  explicit operator bool() const { return fd_ >= 0; }
  int get() const { return fd_; }
  void reset();

  // The same file under a number above those of the standard descriptors; empty when that fails.
  FileDescriptor aboveStandardDescriptors() &&;

 private:
  int fd_ = -1;
};

class SharedMapping {
 public:
  // Maps the first `size` bytes of `object` for reading and writing, shared with every other
  // mapping of it. An object that is shorter is refused with ENXIO: touching a mapping beyond the
  // end of its object raises SIGBUS.
  static std::optional<SharedMapping> map(const FileDescriptor& object, std::size_t size);

  SharedMapping() = default;
  SharedMapping(SharedMapping&& other) noexcept
      : data_(std::exchange(other.data_, nullptr)), size_(other.size_) {}
  SharedMapping& operator=(SharedMapping&& other) noexcept;
  ~SharedMapping() { reset(); }

  void* data() const { return data_; }
  void reset();

 private:
  SharedMapping(void* data, std::size_t size) : data_(data), size_(size) {}

  void* data_ = nullptr;
  std::size_t size_ = 0;
};

class NamedSemaphore {
 public:
  // As sem_open; `mode` and `initialCount` count only when the semaphore is created.
  static NamedSemaphore open(const std::string& name, int flags, mode_t mode,
                             unsigned int initialCount);

  NamedSemaphore() = default;
  NamedSemaphore(NamedSemaphore&& other) noexcept
      : semaphore_(std::exchange(other.semaphore_, nullptr)) {}
  NamedSemaphore& operator=(NamedSemaphore&& other) noexcept;
  ~NamedSemaphore() { reset(); }

  explicit operator bool() const { return semaphore_ != nullptr; }
  const sem_t* get() const { return semaphore_; }
  void reset();

  // As sem_timedwait and sem_post, true for 0.
  bool timedWait(const timespec& deadline) const;
  bool post() const;

 private:
  explicit NamedSemaphore(sem_t* semaphore) : semaphore_(semaphore) {}

  sem_t* semaphore_ = nullptr;
};

}  // namespace sharedmem

#endif  // ADDON_SHAREDMEM_POSIX_SHARED_MEMORY_H_
