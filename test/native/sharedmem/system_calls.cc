#include "test/native/sharedmem/system_calls.h"

#include <fcntl.h>
#include <semaphore.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <utility>

#include "test/native/support/shared_names.h"

namespace test {

SystemCalls& systemCalls() {
  static SystemCalls calls;
  return calls;
}

}  // namespace test

namespace {

// Whether the call is to fail; errno says why.
bool fails(const char* name) {
  const std::optional<int> error = test::systemCalls().take(name);
  if (error) errno = *error;
  return error.has_value();
}

// The result of a call that releases a resource: that of `call`, unless it must fail.
template <typename Call>
int release(const char* name, Call call) {
  if (!fails(name)) return call();
  test::systemCalls().makeUp = std::move(call);
  return -1;
}

}  // namespace

extern "C" {

int __real_shm_open(const char* name, int flags, mode_t mode);
int __wrap_shm_open(const char* name, int flags, mode_t mode) {
  if ((flags & O_CREAT) != 0) test::systemCalls().created.insert(test::objectPath(name));
  return fails("shm_open") ? -1 : __real_shm_open(name, flags, mode);
}

int __real_shm_unlink(const char* name);
int __wrap_shm_unlink(const char* name) {
  return release("shm_unlink",
                 [name = std::string(name)] { return __real_shm_unlink(name.c_str()); });
}

uid_t __real_geteuid();
uid_t __wrap_geteuid() {
  return __real_geteuid() + (--test::systemCalls().strangeLook == 0 ? 1 : 0);
}

int __real_ftruncate(int fd, off_t size);
int __wrap_ftruncate(int fd, off_t size) {
  return fails("ftruncate") ? -1 : __real_ftruncate(fd, size);
}

int __real_posix_fallocate(int fd, off_t offset, off_t size);
int __wrap_posix_fallocate(int fd, off_t offset, off_t size) {
  return fails("posix_fallocate") ? errno : __real_posix_fallocate(fd, offset, size);
}

int __real_fstat(int fd, struct stat* status);
int __wrap_fstat(int fd, struct stat* status) {
  return fails("fstat") ? -1 : __real_fstat(fd, status);
}

int __real_stat(const char* path, struct stat* status);
int __wrap_stat(const char* path, struct stat* status) {
  return fails("stat") ? -1 : __real_stat(path, status);
}

int __real_close(int fd);
int __wrap_close(int fd) {
  return release("close", [fd] { return __real_close(fd); });
}

void* __real_mmap(void* address, size_t size, int protection, int flags, int fd, off_t offset);
void* __wrap_mmap(void* address, size_t size, int protection, int flags, int fd, off_t offset) {
  if (fails("mmap")) return errno == 0 ? nullptr : MAP_FAILED;
  return __real_mmap(address, size, protection, flags, fd, offset);
}

int __real_munmap(void* address, size_t size);
int __wrap_munmap(void* address, size_t size) {
  return release("munmap", [=] { return __real_munmap(address, size); });
}

sem_t* __real_sem_open(const char* name, int flags, ...);
sem_t* __wrap_sem_open(const char* name, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
  const unsigned int count = (flags & O_CREAT) != 0 ? va_arg(arguments, unsigned int) : 0;
  va_end(arguments);
  if ((flags & O_CREAT) != 0) test::systemCalls().created.insert(test::semaphorePath(name));
  return fails("sem_open") ? SEM_FAILED : __real_sem_open(name, flags, mode, count);
}

int __real_sem_close(sem_t* semaphore);
int __wrap_sem_close(sem_t* semaphore) {
  return release("sem_close", [semaphore] { return __real_sem_close(semaphore); });
}

int __real_sem_unlink(const char* name);
int __wrap_sem_unlink(const char* name) {
  return release("sem_unlink",
                 [name = std::string(name)] { return __real_sem_unlink(name.c_str()); });
}

int __real_sem_post(sem_t* semaphore);
int __wrap_sem_post(sem_t* semaphore) {
  return fails("sem_post") ? -1 : __real_sem_post(semaphore);
}

int __real_sem_timedwait(sem_t* semaphore, const timespec* deadline);
int __wrap_sem_timedwait(sem_t* semaphore, const timespec* deadline) {
  test::systemCalls().deadlines.push_back(*deadline);
  if (fails("sem_timedwait")) return -1;
  if (test::systemCalls().waits) return __real_sem_timedwait(semaphore, deadline);
  if (sem_trywait(semaphore) == 0) return 0;
  errno = ETIMEDOUT;
  return -1;
}

int __real_clock_gettime(clockid_t clock, timespec* now);
int __wrap_clock_gettime(clockid_t clock, timespec* now) {
  if (fails("clock_gettime")) return -1;
  if (!test::systemCalls().wallTime || clock != CLOCK_REALTIME) {
    return __real_clock_gettime(clock, now);
  }
  *now = *test::systemCalls().wallTime;
  return 0;
}

time_t __real_time(time_t* now);
time_t __wrap_time(time_t* now) {
  return test::systemCalls().second ? *test::systemCalls().second : __real_time(now);
}

}  // extern "C"
