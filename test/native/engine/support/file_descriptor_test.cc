#include "engine/support/file_descriptor.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include "test/native/engine/support/temporary_directory.h"

namespace support {
namespace {

TEST(FileDescriptor, IsOpenedAndClosedAgain) {
  int number = -1;
  {
    const FileDescriptor file = FileDescriptor::open("/dev/null", O_RDONLY);
    number = file.get();
    EXPECT_TRUE(file.isOpen());
    EXPECT_EQ(::fcntl(number, F_GETFD), FD_CLOEXEC);
  }
  EXPECT_EQ(::fcntl(number, F_GETFD), -1);
}

TEST(FileDescriptor, OpensNoFileThatDoesNotExist) {
  const TemporaryDirectory directory;
  EXPECT_FALSE(FileDescriptor::open(directory.path() / "nothing", O_RDONLY).isOpen());
  EXPECT_EQ(errno, ENOENT);
}

TEST(FileDescriptor, DoesNotReuseAClosedStandardDescriptor) {
  const int original = ::dup(STDOUT_FILENO);
  ::close(STDOUT_FILENO);
  const FileDescriptor file = FileDescriptor::open("/dev/null", O_RDONLY);
  const int standardOutput = ::fcntl(STDOUT_FILENO, F_GETFD);
  const int flags = ::fcntl(file.get(), F_GETFD);
  ::dup2(original, STDOUT_FILENO);
  ::close(original);
  EXPECT_GT(file.get(), STDERR_FILENO);
  EXPECT_EQ(flags, FD_CLOEXEC);
  EXPECT_EQ(standardOutput, -1) << "it is as it was";
}

}  // namespace
}  // namespace support
