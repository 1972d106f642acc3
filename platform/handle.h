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

#include "base/status.h"
#include "base/types.h"

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
