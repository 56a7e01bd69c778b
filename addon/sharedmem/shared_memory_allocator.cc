#include "addon/sharedmem/shared_memory_allocator.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <utility>

#include "addon/sharedmem/diagnostic_lines.h"
#include "base/diagnostic_line.h"

using base::DiagnosticLine;

namespace sharedmem {
namespace {

// Who may open the pair is left to the process's umask.
constexpr mode_t kPermission = 0666;
// The creating side holds the lock from the start.
constexpr unsigned int kInitialCount = 0;
constexpr time_t kLockSeconds = 5;

// Without O_EXCL: a pair that was left under these names is opened as it is.
int openFlags(const SharedMemoryInfo& info) { return info.create ? O_RDWR | O_CREAT : O_RDWR; }

// Makes sure that the object is at least `size` bytes long and has memory behind each of them.
// Setting the size alone succeeds on a full file system, and the first access then raises SIGBUS.
// Prints a failure.
bool reserve(const FileDescriptor& object, off_t size) {
  int error = EINTR;
  while (error == EINTR) error = posix_fallocate(object.get(), 0, size);
  if (error != 0) DiagnosticLine("initialize: posix_fallocate failed, error:").dec(error);
  return error == 0;
}

}  // namespace

SharedMemoryAllocator::SharedMemoryAllocator(SharedMemoryInfo info) : info_(std::move(info)) {
  initialised_ = initialize();
  printObject("SharedMemoryAllocator:", this, "created");
}

SharedMemoryAllocator::~SharedMemoryAllocator() {
  uninitialize();
  printObject("~SharedMemoryAllocator:", this, "destroyed");
}

bool SharedMemoryAllocator::initialize() {
  DiagnosticLine("initialize: Creating shared mem with name:")
      .text(info_.shmName)
      .text(", SEM name:")
      .text(info_.semName);
  locked_ = info_.create;
  if (!openObject() || !mapObject() || !openSemaphore()) {
    uninitialize();
    return false;
  }
  namesAtExit_.emplace(info_.shmName, info_.semName);
  return true;
}

bool SharedMemoryAllocator::openObject() {
  object_ = openAcceptedObject(info_.shmName, openFlags(info_), kPermission);
  if (!object_) {
    const int error = errno;
    DiagnosticLine("shm_open failed, error:").dec(error);
    return false;
  }
  if (!info_.create) return true;
  const int result = ftruncate(object_.get(), info_.size);
  DiagnosticLine("initialize: Trucating data for pid").dec(getpid()).text(" ,Ret = ").dec(result);
  return reserve(object_, info_.size);
}

bool SharedMemoryAllocator::mapObject() {
  auto mapping = SharedMapping::map(object_, info_.size);
  if (!mapping) {
    const int error = errno;
    DiagnosticLine("initialize: mmap failed, error:").dec(error);
    return false;
  }
  mapping_ = std::move(*mapping);
  // The creator may have set the size only. The mapping proves that the object is long enough.
  if (!info_.create && !reserve(object_, info_.size)) return false;
  DiagnosticLine("initialize: mapped memory with ptr:")
      .address(mapping_.data())
      .text(", size:")
      .dec(info_.size)
      .text(", sem count:")
      .dec(kInitialCount)
      .text(", flags:")
      .dec(openFlags(info_))
      .text(", permission:")
      .dec(kPermission);
  return true;
}

bool SharedMemoryAllocator::openSemaphore() {
  DiagnosticLine("initialize: creating semaphore with initial count:")
      .dec(kInitialCount)
      .text(", flags:")
      .dec(openFlags(info_));
  semaphore_ = AcceptedSemaphore::open(info_.semName, openFlags(info_), kPermission, kInitialCount);
  if (!semaphore_) {
    const int error = errno;
    DiagnosticLine("initialize: sem_open failed, error:").dec(error);
    return false;
  }
  return true;
}

void SharedMemoryAllocator::uninitialize() {
  mapping_.reset();
  if (object_) {
    object_.reset();
    shm_unlink(info_.shmName.c_str());
  }
  if (semaphore_) {
    sem_unlink(info_.semName.c_str());
    semaphore_.reset();
  }
  namesAtExit_.reset();
}

bool SharedMemoryAllocator::lockDataAccess() {
  if (!initialised_) {
    DiagnosticLine("lockDataAccess, not initialised");
    return false;
  }
  if (!semaphore_) {
    DiagnosticLine("lockDataAccess, SEM pointer is null!");
    return false;
  }
  if (locked_) {
    DiagnosticLine("lockDataAccess, already locked!");
    return true;
  }
  timespec deadline = {};
  if (clock_gettime(CLOCK_REALTIME, &deadline) != 0) {
    const int error = errno;
    DiagnosticLine("clock_gettime failed, error:").dec(error);
    return false;
  }
  deadline.tv_sec += kLockSeconds;
  while (!semaphore_.timedWait(deadline)) {
    const int error = errno;
    if (error != EINTR) {
      DiagnosticLine("sem_timedwait timedout, error:").dec(error);
      return false;
    }
    DiagnosticLine("lockDataAccess: in infite loop, error:").dec(error);
  }
  locked_ = true;
  return true;
}

void* SharedMemoryAllocator::getDataPtr() {
  if (!initialised_) {
    DiagnosticLine("getDataPtr, not initialised");
    return nullptr;
  }
  if (!locked_) {
    DiagnosticLine("getDataPtr failed, trying to access data without lock!");
    return nullptr;
  }
  return mapping_.data();
}

bool SharedMemoryAllocator::unlockDataAccess() {
  if (!initialised_) {
    DiagnosticLine("unlockDataAccess, not initialised");
    return false;
  }
  if (!locked_) {
    DiagnosticLine("unlockDataAccess failed, trying to unlock without locking!");
    return false;
  }
  if (!semaphore_.post()) {
    const int error = errno;
    DiagnosticLine("unlockDataAccess sem_post failed, error:").dec(error);
    return false;
  }
  locked_ = false;
  return true;
}

}  // namespace sharedmem
