#include "sharedmem/posix_shared_memory.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace posix {
namespace {

// Whether the file that holds the named semaphore exists but is too short for one. The C library
// creates such files complete, and opens whatever lies under the name without looking at its size.
bool semaphoreFileIsTooShort(const std::string& name) {
  const std::size_t start = name.find_first_not_of('/');
  if (start == std::string::npos) return false;
  const std::string path = "/dev/shm/sem." + name.substr(start);
  struct stat status = {};
  return stat(path.c_str(), &status) == 0 && status.st_size < static_cast<off_t>(sizeof(sem_t));
}

}  // namespace

FileDescriptor FileDescriptor::openSharedMemory(const std::string& name, int flags, mode_t mode) {
  FileDescriptor opened(shm_open(name.c_str(), flags, mode));
  if (!opened || opened.get() > STDERR_FILENO) return opened;
  FileDescriptor moved(fcntl(opened.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
  if (!moved && (flags & O_CREAT) != 0) {
    const int error = errno;
    shm_unlink(name.c_str());
    errno = error;
  }
  return moved;
}

FileDescriptor& FileDescriptor::operator=(FileDescriptor&& other) noexcept {
  std::swap(fd_, other.fd_);
  return *this;
}

void FileDescriptor::reset() {
  const int fd = std::exchange(fd_, -1);
  if (fd >= 0) close(fd);
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
  if (semaphoreFileIsTooShort(name)) {
    errno = EINVAL;
    return {};
  }
  sem_t* semaphore = sem_open(name.c_str(), flags, mode, initialCount);
  return NamedSemaphore(semaphore == SEM_FAILED ? nullptr : semaphore);
}

NamedSemaphore& NamedSemaphore::operator=(NamedSemaphore&& other) noexcept {
  std::swap(semaphore_, other.semaphore_);
  return *this;
}

void NamedSemaphore::reset() {
  sem_t* semaphore = std::exchange(semaphore_, nullptr);
  if (semaphore != nullptr) sem_close(semaphore);
}

}  // namespace posix
