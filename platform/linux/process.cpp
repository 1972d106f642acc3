// Child processes, socket pairs and the executable's path.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <thread>

#include "platform/linux/object.h"
#include "platform/process.h"
#include "platform/text.h"

extern char** environ;

#ifndef P_PIDFD
#define P_PIDFD 3
#endif

namespace zq::platform {

namespace {

class ProcessObject : public Object {
 public:
  ProcessObject(pid_t p, int fd) : Object(Kind::Process), pid(p), pidfd(fd) {}
  ~ProcessObject() override { close(pidfd); }
  bool IsSignaledFor(const Waiter&) const override { return ended; }

  const pid_t pid;
  const int pidfd;
  // Under WaitLock.
  bool ended = false;
  DWORD exitCode = STILL_ACTIVE;
  bool terminated = false;
  DWORD terminateCode = 0;
};

// Waits for the child's end on a thread of its own, reaps it and signals the
// process object.  The reference keeps the descriptor open meanwhile.
void WatchChild(Ref<ProcessObject> process) {
  siginfo_t info;
  std::memset(&info, 0, sizeof info);
  int r;
  do {
    r = waitid(static_cast<idtype_t>(P_PIDFD), static_cast<id_t>(process->pidfd), &info, WEXITED);
  } while (r != 0 && errno == EINTR);
  std::lock_guard<std::mutex> guard(WaitLock());
  if (r != 0) {
    process->exitCode = ERROR_GEN_FAILURE;  // reaped elsewhere: the status is lost
  } else if (info.si_code == CLD_EXITED) {
    process->exitCode = static_cast<DWORD>(info.si_status);
  } else if (process->terminated && info.si_status == SIGKILL) {
    process->exitCode = process->terminateCode;
  } else {
    process->exitCode = ZQ_EXIT_CODE_SIGNALED | static_cast<DWORD>(info.si_status);
  }
  process->ended = true;
  Wake(process.get());
}

}  // namespace

}  // namespace zq::platform

using namespace zq::platform;

DWORD GetCurrentProcessId() { return static_cast<DWORD>(getpid()); }

BOOL ZqSpawnProcess(const char* path, const char* const* argv, const ZqSpawnDescriptor* descriptors,
                    size_t descriptorCount, HANDLE* process, DWORD* processId) {
  if (path == nullptr || argv == nullptr || argv[0] == nullptr || process == nullptr ||
      (descriptorCount > 0 && descriptors == nullptr)) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return FALSE;
  }
  *process = nullptr;
  // Copies of the descriptors above every target number, so that moving one
  // into place never overwrites another still to be moved.
  int highest = 2;
  for (size_t i = 0; i < descriptorCount; ++i) {
    if (descriptors[i].childFd < 0 || descriptors[i].parentFd < 0) {
      SetLastError(ERROR_INVALID_PARAMETER);
      return FALSE;
    }
    highest = std::max(highest, descriptors[i].childFd);
  }
  std::vector<int> copies;
  auto closeCopies = [&] {
    for (int fd : copies) close(fd);
  };
  for (size_t i = 0; i < descriptorCount; ++i) {
    const int copy = fcntl(descriptors[i].parentFd, F_DUPFD_CLOEXEC, highest + 1);
    if (copy < 0) {
      const int error = errno;
      closeCopies();
      ZqSetLastErrorFromErrno(error);
      return FALSE;
    }
    copies.push_back(copy);
  }
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  for (size_t i = 0; i < descriptorCount; ++i) {
    posix_spawn_file_actions_adddup2(&actions, copies[i], descriptors[i].childFd);
  }
  posix_spawn_file_actions_addclosefrom_np(&actions, highest + 1);
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  // The child starts with default signal handling and an empty mask, whatever
  // the host has installed.
  sigset_t all, none;
  sigfillset(&all);
  sigemptyset(&none);
  posix_spawnattr_setsigdefault(&attributes, &all);
  posix_spawnattr_setsigmask(&attributes, &none);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);

  pid_t pid = 0;
  char* const* args = const_cast<char* const*>(argv);
  const int error = std::strchr(path, '/') != nullptr
                        ? posix_spawn(&pid, path, &actions, &attributes, args, environ)
                        : posix_spawnp(&pid, path, &actions, &attributes, args, environ);
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&actions);
  closeCopies();
  if (error != 0) {
    ZqSetLastErrorFromErrno(error);
    return FALSE;
  }
  // The child cannot have been reaped yet (only its watcher reaps it), so its
  // id still names it.
  const int pidfd = static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
  if (pidfd < 0) {
    const int e = errno;
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
    ZqSetLastErrorFromErrno(e);
    return FALSE;
  }
  fcntl(pidfd, F_SETFD, FD_CLOEXEC);
  Ref<ProcessObject> child = MakeRef<ProcessObject>(pid, pidfd);
  try {
    std::thread(WatchChild, child).detach();
  } catch (...) {
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return FALSE;
  }
  if (processId) *processId = static_cast<DWORD>(pid);
  *process = NewHandle(std::move(child));
  return TRUE;
}

BOOL GetExitCodeProcess(HANDLE handle, DWORD* exitCode) {
  Ref<ProcessObject> p = LookupHandleAs<ProcessObject>(handle, Object::Kind::Process);
  if (!p) return FALSE;
  if (exitCode == nullptr) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return FALSE;
  }
  std::lock_guard<std::mutex> guard(WaitLock());
  *exitCode = p->ended ? p->exitCode : STILL_ACTIVE;
  return TRUE;
}

BOOL TerminateProcess(HANDLE handle, UINT exitCode) {
  Ref<ProcessObject> p = LookupHandleAs<ProcessObject>(handle, Object::Kind::Process);
  if (!p) return FALSE;
  {
    std::lock_guard<std::mutex> guard(WaitLock());
    if (p->ended) return TRUE;
    if (!p->terminated) {
      p->terminated = true;
      p->terminateCode = exitCode;
    }
  }
  if (syscall(SYS_pidfd_send_signal, p->pidfd, SIGKILL, nullptr, 0) != 0 && errno != ESRCH) {
    ZqSetLastErrorFromErrno(errno);
    return FALSE;
  }
  return TRUE;
}

DWORD GetProcessId(HANDLE handle) {
  Ref<ProcessObject> p = LookupHandleAs<ProcessObject>(handle, Object::Kind::Process);
  return p ? static_cast<DWORD>(p->pid) : 0;
}

BOOL ZqCreateSocketPair(int descriptors[2]) {
  if (descriptors == nullptr) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return FALSE;
  }
  if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, descriptors) != 0) {
    ZqSetLastErrorFromErrno(errno);
    return FALSE;
  }
  return TRUE;
}

long long ZqSocketSend(int socket, const void* data, size_t size, const int* fds, size_t fdCount) {
  if (data == nullptr || size == 0 || fdCount > ZQ_MAX_PASSED_DESCRIPTORS ||
      (fdCount > 0 && fds == nullptr)) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return -1;
  }
  iovec io{const_cast<void*>(data), size};
  msghdr msg{};
  msg.msg_iov = &io;
  msg.msg_iovlen = 1;
  alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int) * ZQ_MAX_PASSED_DESCRIPTORS)];
  if (fdCount > 0) {
    msg.msg_control = control;
    msg.msg_controllen = CMSG_SPACE(sizeof(int) * fdCount);
    cmsghdr* c = CMSG_FIRSTHDR(&msg);
    c->cmsg_level = SOL_SOCKET;
    c->cmsg_type = SCM_RIGHTS;
    c->cmsg_len = CMSG_LEN(sizeof(int) * fdCount);
    std::memcpy(CMSG_DATA(c), fds, sizeof(int) * fdCount);
  }
  ssize_t n;
  do {
    n = sendmsg(socket, &msg, MSG_NOSIGNAL);
  } while (n < 0 && errno == EINTR);
  if (n < 0) {
    ZqSetLastErrorFromErrno(errno);
    return -1;
  }
  return n;
}

long long ZqSocketReceive(int socket, void* buffer, size_t capacity, int* fds, size_t* fdCount,
                          DWORD timeoutMs) {
  const size_t room = fdCount ? *fdCount : 0;
  if (fdCount) *fdCount = 0;
  if (buffer == nullptr || capacity == 0 || (room > 0 && fds == nullptr)) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return -1;
  }
  if (timeoutMs != INFINITE) {
    pollfd p{socket, POLLIN, 0};
    const int timeout = timeoutMs > static_cast<DWORD>(INT_MAX) ? INT_MAX : static_cast<int>(timeoutMs);
    int r;
    do {
      r = poll(&p, 1, timeout);
    } while (r < 0 && errno == EINTR);
    if (r < 0) {
      ZqSetLastErrorFromErrno(errno);
      return -1;
    }
    if (r == 0) {
      SetLastError(ERROR_TIMEOUT);
      return -1;
    }
  }
  iovec io{buffer, capacity};
  msghdr msg{};
  msg.msg_iov = &io;
  msg.msg_iovlen = 1;
  alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int) * 64)];
  msg.msg_control = control;
  msg.msg_controllen = sizeof control;
  ssize_t n;
  do {
    n = recvmsg(socket, &msg, MSG_CMSG_CLOEXEC);
  } while (n < 0 && errno == EINTR);
  if (n < 0) {
    ZqSetLastErrorFromErrno(errno);
    return -1;
  }
  size_t got = 0;
  for (cmsghdr* c = CMSG_FIRSTHDR(&msg); c != nullptr; c = CMSG_NXTHDR(&msg, c)) {
    if (c->cmsg_level != SOL_SOCKET || c->cmsg_type != SCM_RIGHTS) continue;
    const size_t count = (c->cmsg_len - CMSG_LEN(0)) / sizeof(int);
    for (size_t i = 0; i < count; ++i) {
      int fd;
      std::memcpy(&fd, CMSG_DATA(c) + i * sizeof(int), sizeof fd);
      if (got < room) {
        fds[got++] = fd;
      } else {
        close(fd);
      }
    }
  }
  if (fdCount) *fdCount = got;
  if (msg.msg_flags & MSG_TRUNC) {
    SetLastError(ERROR_MORE_DATA);
    return -1;
  }
  return n;
}

void ZqCloseDescriptor(int descriptor) {
  if (descriptor >= 0) close(descriptor);
}

std::u16string ZqGetExecutablePath() {
  char path[PATH_MAX];
  const ssize_t n = readlink("/proc/self/exe", path, sizeof path - 1);
  if (n <= 0) return std::u16string();
  path[n] = 0;
  char resolved[PATH_MAX];
  if (realpath(path, resolved) == nullptr) return ZqUtf8ToUtf16(std::string_view(path, static_cast<size_t>(n)));
  return ZqUtf8ToUtf16(resolved);
}
