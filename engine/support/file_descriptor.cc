#include "engine/support/file_descriptor.h"

#include <fcntl.h>

namespace support {

FileDescriptor FileDescriptor::open(const std::string& path, int flags, mode_t mode) {
  FileDescriptor opened(::open(path.c_str(), flags | O_CLOEXEC, mode));
  if (!opened.isOpen() || opened.get() > STDERR_FILENO) return opened;
  return FileDescriptor(::fcntl(opened.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
}

}  // namespace support
