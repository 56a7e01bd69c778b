#include "addon/sharedmem/posix_shared_memory.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace sharedmem {

FileDescriptor FileDescriptor::openSharedMemory(const std::string& name, int flags, mode_t mode) {
  return FileDescriptor(shm_open(name.c_str(), flags, mode));
}

FileDescriptor& FileDescriptor::operator=(FileDescriptor&& other) noexcept {
  std::swap(fd_, other.fd_);
  return *this;
}

void FileDescriptor::reset() {
  const int fd = std::exchange(fd_, -1);
  if (fd >= 0) close(fd);
}

FileDescriptor FileDescriptor::aboveStandardDescriptors() && {
  if (fd_ > STDERR_FILENO) return std::move(*this);
  return FileDescriptor(fcntl(fd_, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
}

std::optional<SharedMapping> SharedMapping::map(const FileDescriptor& object, std::size_t size) {
  struct stat status = {};
  if (fstat(object.get(), &status) != 0) return std::nullopt;
  if (status.st_size < static_cast<off_t>(size)) {
    errno = ENXIO;
    return std::nullopt;
  }
  void* data = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, object.get(), 0);
  if (data == MAP_FAILED) return std::nullopt;
  return SharedMapping(data, size);
}

SharedMapping& SharedMapping::operator=(SharedMapping&& other) noexcept {
  std::swap(data_, other.data_);
  std::swap(size_, other.size_);
  return *this;
}

void SharedMapping::reset() {
  void* data = std::exchange(data_, nullptr);
  if (data != nullptr) munmap(data, size_);
}

NamedSemaphore NamedSemaphore::open(const std::string& name, int flags, mode_t mode,
                                    unsigned int initialCount) {
  sem_t* semaphore = sem_open(name.c_str(), flags, mode, initialCount);
  return semaphore == SEM_FAILED ? NamedSemaphore() : NamedSemaphore(semaphore);
}

NamedSemaphore& NamedSemaphore::operator=(NamedSemaphore&& other) noexcept {
  std::swap(semaphore_, other.semaphore_);
  return *this;
}

void NamedSemaphore::reset() {
  sem_t* semaphore = std::exchange(semaphore_, nullptr);
  if (semaphore != nullptr) sem_close(semaphore);
}

bool NamedSemaphore::timedWait(const timespec& deadline) const {
  return sem_timedwait(semaphore_, &deadline) == 0;
}

bool NamedSemaphore::post() const { return sem_post(semaphore_) == 0; }

}  // namespace sharedmem
