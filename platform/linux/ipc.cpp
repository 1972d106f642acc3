// Shared blocks over sealed memory files, futex wake-ups, and access to the
// memory and descriptors of other processes.
#include <fcntl.h>
#include <linux/futex.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>

#include "platform/ipc.h"
#include "platform/sync.h"

namespace {

constexpr int kSizeSeals = F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL;

timespec Relative(DWORD ms) {
  timespec t;
  t.tv_sec = static_cast<time_t>(ms / 1000);
  t.tv_nsec = static_cast<long>(ms % 1000) * 1000000L;
  return t;
}

}  // namespace

int ZqSharedMemoryCreate(size_t size) {
  if (size == 0) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return -1;
  }
  const int fd = memfd_create("zqshared", MFD_CLOEXEC | MFD_ALLOW_SEALING);
  if (fd < 0) {
    ZqSetLastErrorFromErrno(errno);
    return -1;
  }
  if (ftruncate(fd, static_cast<off_t>(size)) != 0 || fcntl(fd, F_ADD_SEALS, kSizeSeals) != 0) {
    const int error = errno;
    close(fd);
    ZqSetLastErrorFromErrno(error);
    return -1;
  }
  return fd;
}

size_t ZqSharedMemorySealedSize(int fd) {
  const int seals = fcntl(fd, F_GET_SEALS);
  if (seals < 0 || (seals & (F_SEAL_SHRINK | F_SEAL_GROW)) != (F_SEAL_SHRINK | F_SEAL_GROW)) {
    SetLastError(ERROR_INVALID_HANDLE);
    return 0;
  }
  struct stat st;
  if (fstat(fd, &st) != 0) {
    ZqSetLastErrorFromErrno(errno);
    return 0;
  }
  return static_cast<size_t>(st.st_size);
}

void* ZqSharedMemoryMap(int fd, size_t size, BOOL writable) {
  void* p = mmap(nullptr, size, PROT_READ | (writable ? PROT_WRITE : 0), MAP_SHARED, fd, 0);
  if (p == MAP_FAILED) {
    ZqSetLastErrorFromErrno(errno);
    return nullptr;
  }
  return p;
}

void ZqSharedMemoryUnmap(void* address, size_t size) {
  if (address != nullptr) munmap(address, size);
}

BOOL ZqFutexWait(const volatile uint32_t* word, uint32_t expected, DWORD timeoutMs) {
  const timespec t = Relative(timeoutMs);
  // Not the private form: the word may live in a block shared with another
  // process.
  const long r = syscall(SYS_futex, const_cast<uint32_t*>(word), FUTEX_WAIT, expected,
                         timeoutMs == INFINITE ? nullptr : &t, nullptr, 0);
  return r == 0 || errno != ETIMEDOUT;
}

void ZqFutexWake(const volatile uint32_t* word, int count) {
  syscall(SYS_futex, const_cast<uint32_t*>(word), FUTEX_WAKE, count, nullptr, nullptr, 0);
}

size_t ZqReadProcessMemory(DWORD processId, uint64_t address, void* buffer, size_t size) {
  iovec local{buffer, size};
  iovec remote{reinterpret_cast<void*>(static_cast<uintptr_t>(address)), size};
  const ssize_t n = process_vm_readv(static_cast<pid_t>(processId), &local, 1, &remote, 1, 0);
  if (n < 0) {
    ZqSetLastErrorFromErrno(errno);
    return 0;
  }
  return static_cast<size_t>(n);
}

size_t ZqWriteProcessMemory(DWORD processId, uint64_t address, const void* buffer, size_t size) {
  iovec local{const_cast<void*>(buffer), size};
  iovec remote{reinterpret_cast<void*>(static_cast<uintptr_t>(address)), size};
  const ssize_t n = process_vm_writev(static_cast<pid_t>(processId), &local, 1, &remote, 1, 0);
  if (n < 0) {
    ZqSetLastErrorFromErrno(errno);
    return 0;
  }
  return static_cast<size_t>(n);
}

int ZqDuplicateDescriptorFrom(DWORD processId, int fd) {
  const int pidfd = static_cast<int>(syscall(SYS_pidfd_open, static_cast<pid_t>(processId), 0));
  if (pidfd < 0) {
    ZqSetLastErrorFromErrno(errno);
    return -1;
  }
  const int copy = static_cast<int>(syscall(SYS_pidfd_getfd, pidfd, fd, 0));  // closed on exec
  const int error = errno;
  close(pidfd);
  if (copy < 0) ZqSetLastErrorFromErrno(error);
  return copy;
}
