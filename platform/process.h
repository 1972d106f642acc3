// Processes: the calling process, child processes and the socket pairs that
// connect the host with its companion server.
//
// A process handle is waitable: it becomes signalled when the child has
// ended.  Children are started with posix_spawn (never by forking the
// calling process, which may hold foreign threads and locks).
#pragma once

#include <cstddef>
#include <string>

#include "platform/handle.h"

#if !defined(_WIN32)

ZQ_EXTERN_C DWORD GetCurrentProcessId();

// STILL_ACTIVE (259, see platform/thread.h) while the child runs, then its
// exit status (0 to 255).  A child ended by a signal reports
// ZQ_EXIT_CODE_SIGNALED | the signal number (so SIGKILL gives 0x40000009),
// except after TerminateProcess, which reports the code given to it.
constexpr DWORD ZQ_EXIT_CODE_SIGNALED = 0x40000000;
ZQ_EXTERN_C BOOL GetExitCodeProcess(HANDLE process, DWORD* exitCode);
// Kills the child (SIGKILL, through its process descriptor, so a reused
// process id is never hit).  TRUE also when it has already ended.
ZQ_EXTERN_C BOOL TerminateProcess(HANDLE process, UINT exitCode);
ZQ_EXTERN_C DWORD GetProcessId(HANDLE process);

// A descriptor of the caller handed to the child under another number.
struct ZqSpawnDescriptor {
  int parentFd;
  int childFd;
};

// Starts `path` (a path with "/" is taken as it is, a bare name is searched
// in PATH) with the UTF-8 arguments `argv` (null-terminated; argv[0] is the
// program's name as the child sees it) and the caller's environment.  The
// child gets descriptors 0, 1 and 2 of the caller, then each of
// `descriptors` at its `childFd` (replacing 0 to 2 where asked), and no
// other descriptor.  `*process` receives a process handle (close it with
// CloseHandle; the child is reaped by the layer), `*processId` (optional)
// the child's id.  FALSE with the last error on failure (a missing program
// gives ERROR_FILE_NOT_FOUND).
ZQ_EXTERN_C BOOL ZqSpawnProcess(const char* path, const char* const* argv,
                                const ZqSpawnDescriptor* descriptors, size_t descriptorCount,
                                HANDLE* process, DWORD* processId);

// A connected pair of local datagram sockets that keep message boundaries
// (SOCK_SEQPACKET), closed on exec.  FALSE with the last error on failure.
ZQ_EXTERN_C BOOL ZqCreateSocketPair(int descriptors[2]);
// Sends one message of `size` bytes (at least 1) with `fdCount` descriptors
// (up to ZQ_MAX_PASSED_DESCRIPTORS; the receiver gets copies).  Answers the
// bytes sent (all of them), or -1 with the last error (ERROR_BROKEN_PIPE
// when the peer is gone).  Never raises SIGPIPE.
constexpr size_t ZQ_MAX_PASSED_DESCRIPTORS = 16;
ZQ_EXTERN_C long long ZqSocketSend(int socket, const void* data, size_t size, const int* fds,
                                   size_t fdCount);
// Receives one message into `buffer`.  `*fdCount` gives the room in `fds`
// and receives how many descriptors came (they are new descriptors of the
// caller, closed on exec; any beyond the room are closed).  `fds` and
// `fdCount` may be null when none are expected.  Waits at most `timeoutMs`
// (INFINITE: without limit).  Answers the bytes received, 0 when the peer
// has closed its end, or -1 with the last error: ERROR_TIMEOUT, ERROR_MORE_DATA
// (the message was longer than `capacity` and its tail is lost).
ZQ_EXTERN_C long long ZqSocketReceive(int socket, void* buffer, size_t capacity, int* fds,
                                      size_t* fdCount, DWORD timeoutMs);
// Closes a descriptor (of a socket or one received); ignores -1.
ZQ_EXTERN_C void ZqCloseDescriptor(int descriptor);

#endif  // !_WIN32

// The calling program's executable file, as an absolute path with symbolic
// links resolved (empty when it cannot be told).
std::u16string ZqGetExecutablePath();
