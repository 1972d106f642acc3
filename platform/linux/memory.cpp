// Readability without a fault: the kernel copies from our own address space
// on our behalf and answers EFAULT instead of raising a signal.
#include "platform/memory.h"

#include <fcntl.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

namespace {

constexpr size_t kBatch = 64;  // pages asked about per system call

// Readability is a property of whole pages: one byte of each page in the
// range tells for the page.  `firsts` are those bytes' addresses.
bool ReadThroughPeer(const uintptr_t* firsts, size_t n, bool* unsupported) {
  char sink[kBatch];
  iovec local{sink, n};
  iovec remote[kBatch];
  for (size_t i = 0; i < n; ++i) remote[i] = {reinterpret_cast<void*>(firsts[i]), 1};
  const ssize_t got = process_vm_readv(getpid(), &local, 1, remote, n, 0);
  if (got < 0 && (errno == ENOSYS || errno == EPERM)) *unsupported = true;
  return got == static_cast<ssize_t>(n);
}

// The same answer where a sandbox refuses process_vm_readv: a write from the
// range into a pipe fails with EFAULT when a byte cannot be read.
bool ReadThroughPipe(const uintptr_t* firsts, size_t n) {
  int fds[2];
  if (pipe2(fds, O_CLOEXEC) != 0) return false;
  bool readable = true;
  char sink;
  for (size_t i = 0; i < n && readable; ++i) {
    ssize_t w;
    do {
      w = write(fds[1], reinterpret_cast<const void*>(firsts[i]), 1);
    } while (w < 0 && errno == EINTR);
    readable = w == 1 && read(fds[0], &sink, 1) == 1;
  }
  close(fds[0]);
  close(fds[1]);
  return readable;
}

}  // namespace

BOOL ZqIsMemoryReadable(const void* address, size_t size) {
  if (size == 0) return TRUE;
  const uintptr_t start = reinterpret_cast<uintptr_t>(address);
  if (start == 0 || size - 1 > UINTPTR_MAX - start) return FALSE;
  const uintptr_t last = start + (size - 1);
  const uintptr_t page = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
  uintptr_t firsts[kBatch];
  uintptr_t at = start;
  bool done = false;
  while (!done) {
    size_t n = 0;
    while (n < kBatch && !done) {
      firsts[n++] = at;
      const uintptr_t next = (at | (page - 1)) + 1;  // start of the following page
      done = next == 0 || next > last;
      at = next;
    }
    bool unsupported = false;
    const bool readable = ReadThroughPeer(firsts, n, &unsupported) || (unsupported && ReadThroughPipe(firsts, n));
    if (!readable) return FALSE;
  }
  return TRUE;
}
