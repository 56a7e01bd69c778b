// An open file.

#ifndef ENGINE_SUPPORT_FILE_DESCRIPTOR_H_
#define ENGINE_SUPPORT_FILE_DESCRIPTOR_H_

#include <sys/types.h>
#include <unistd.h>

#include <string>
#include <utility>

namespace support {

// Owns a file descriptor and closes it.
class FileDescriptor {
 public:
  // As open(), but never one of the standard descriptors, which are free when the application has
  // closed them: what it prints would go into the file.
  static FileDescriptor open(const std::string& path, int flags, mode_t mode = 0);

  FileDescriptor() = default;
  // Takes over what the system returned, also when it failed.
  explicit FileDescriptor(int descriptor) : descriptor_(descriptor) {}
  ~FileDescriptor() {
    if (isOpen()) ::close(descriptor_);
  }
  FileDescriptor(FileDescriptor&& other) noexcept
      : descriptor_(std::exchange(other.descriptor_, -1)) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    std::swap(descriptor_, other.descriptor_);
    return *this;
  }

  bool isOpen() const { return descriptor_ >= 0; }
  int get() const { return descriptor_; }

 private:
  int descriptor_ = -1;
};

}  // namespace support

#endif  // ENGINE_SUPPORT_FILE_DESCRIPTOR_H_
