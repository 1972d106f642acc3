// Handles of the platform layer and the error numbers they report.
//
// A HANDLE names a reference-counted object of the layer: an event, a
// semaphore, a mutex, a thread, a process, an open file or a directory
// search.  Handle values are never reused while the process lives, so a
// closed handle is reliably refused (ERROR_INVALID_HANDLE) instead of reaching
// another object.  CloseHandle closes every kind; an object lives until its
// last handle is closed and nothing (such as a thread waiting on it) still
// uses it.
//
// Every function here may be called from any thread.
#pragma once

#include "platform/base.h"

#include "kernel/com/status.h"

#if !defined(_WIN32)

#define INVALID_HANDLE_VALUE (reinterpret_cast<HANDLE>(static_cast<intptr_t>(-1)))

// Accepted for the shape of the calls; the layer has no security model and
// handles are never inherited (ZqSpawnProcess passes descriptors explicitly).
struct SECURITY_ATTRIBUTES {
  DWORD nLength;
  LPVOID lpSecurityDescriptor;
  BOOL bInheritHandle;
};
typedef SECURITY_ATTRIBUTES* LPSECURITY_ATTRIBUTES;
typedef const void* LPCVOID;

// Platform error numbers this layer reports that the system's status table
// does not list (same values as the original platform).
constexpr DWORD ERROR_INVALID_FUNCTION = 1;
constexpr DWORD ERROR_INVALID_DATA = 13;
constexpr DWORD ERROR_NOT_SAME_DEVICE = 17;
constexpr DWORD ERROR_NO_MORE_FILES = 18;
constexpr DWORD ERROR_WRITE_PROTECT = 19;
constexpr DWORD ERROR_GEN_FAILURE = 31;
constexpr DWORD ERROR_SHARING_VIOLATION = 32;
constexpr DWORD ERROR_NOT_SUPPORTED = 50;
constexpr DWORD ERROR_BROKEN_PIPE = 109;
constexpr DWORD ERROR_NEGATIVE_SEEK = 131;
constexpr DWORD ERROR_DIR_NOT_EMPTY = 145;
constexpr DWORD ERROR_BUSY = 170;
constexpr DWORD ERROR_FILENAME_EXCED_RANGE = 206;
constexpr DWORD ERROR_DIRECTORY = 267;
constexpr DWORD ERROR_NOT_OWNER = 288;
constexpr DWORD ERROR_TOO_MANY_POSTS = 298;
constexpr DWORD ERROR_NOACCESS = 998;
constexpr DWORD ERROR_INVALID_FLAGS = 1004;
constexpr DWORD ERROR_NO_UNICODE_TRANSLATION = 1113;
constexpr DWORD ERROR_IO_DEVICE = 1117;
constexpr DWORD ERROR_INVALID_WINDOW_HANDLE = 1400;
constexpr DWORD ERROR_INVALID_THREAD_ID = 1444;
constexpr DWORD ERROR_CANT_RESOLVE_FILENAME = 1921;

// Closes a handle of any kind of this layer.  FALSE with ERROR_INVALID_HANDLE
// for a handle that is not open (null, INVALID_HANDLE_VALUE, already closed).
ZQ_EXTERN_C BOOL CloseHandle(HANDLE handle);

#endif  // !_WIN32

// A second handle to the same object (both must be closed).  Null with
// ERROR_INVALID_HANDLE when `handle` is not open.
ZQ_EXTERN_C HANDLE ZqDuplicateHandle(HANDLE handle);

// The platform error number for an operating-system error number (errno).
// The one place where such numbers are translated: ENOENT 2, ENOTDIR 3,
// EMFILE/ENFILE 4, EACCES/EPERM/EISDIR 5, EBADF 6, ENOMEM 8, EROFS 19,
// EEXIST 80, EINVAL 87, EPIPE/ECONNRESET 109, ENOSPC/EDQUOT 112, ENOTEMPTY
// 145, EBUSY/ETXTBSY 170, ENOEXEC 193, ENAMETOOLONG 206, ENOSYS/EOPNOTSUPP
// 50, EXDEV 17, EIO 1117, ETIMEDOUT 1460, ELOOP 1921, 0 gives 0; any other
// number ERROR_GEN_FAILURE (31).
ZQ_EXTERN_C DWORD ZqErrorFromErrno(int error);
// SetLastError(ZqErrorFromErrno(error)).
ZQ_EXTERN_C void ZqSetLastErrorFromErrno(int error);
