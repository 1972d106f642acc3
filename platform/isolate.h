// Running a program in a child process under a time limit.
//
// Foreign code that hangs cannot be stopped inside the process that runs it:
// a thread stuck in a plug-in cannot be taken out of it here.  Work that may
// hang therefore runs in a child process, which is killed when its time is
// up.  A child that faults or ends itself takes nothing else with it.
//
// The answer says how the child ended; what that means (a status, a
// result) is the caller's business.  A child may also hand back one short
// message through a socket it inherits, so that a result can be told from
// an exit code that the foreign code chose.
#pragma once

#include <cstddef>

#include "platform/handle.h"

#if !defined(_WIN32)

enum class ZqChildEnd : int {
  Exited = 0,         // ended by itself: exit() or a return from main
  KilledAtLimit = 1,  // still running at the time limit, and killed
  DiedOfSignal = 2,   // ended by a signal it did not handle (a fault, an abort)
};

struct ZqChildOutcome {
  ZqChildEnd end;
  DWORD exitCode;     // Exited: the exit status (0 to 255), otherwise 0
  int signal;         // DiedOfSignal: the signal number, otherwise 0
  DWORD processId;    // the child's id; the child no longer exists
  size_t answerSize;  // bytes of the child's message in the answer buffer (0: none)
};

// The child's way back: one end of a connected socket pair (datagrams that
// keep their boundaries) at descriptor `childFd` of the child.  The first
// message the child sends lands in `buffer`; a longer one than `capacity` is
// dropped, later ones are ignored.  The child also learns from the socket's
// hang-up that its parent has gone (a receive answers 0), and may end
// itself then instead of running on alone.
struct ZqChildAnswer {
  int childFd;  // 3 or above
  void* buffer;
  size_t capacity;
};

// Starts `path` with `argv` (as ZqSpawnProcess does: UTF-8, null-terminated,
// argv[0] the name the child sees; a bare name is searched in PATH; the
// caller's environment and standard descriptors), waits at most
// `timeLimitMs` (INFINITE: without limit) for its end and kills it at the
// limit.  Returns only once the child no longer exists, so that nothing is
// left running whatever happened.  `answer` is optional.  A child that ends
// by itself just at the limit is reported as it ended.  Children of the child
// are not followed: ending them is its own business.
// TRUE with `*outcome` filled; FALSE with the last error when the child
// could not be started (a missing program gives ERROR_FILE_NOT_FOUND).
ZQ_EXTERN_C BOOL ZqRunChildWithTimeLimit(const char* path, const char* const* argv, DWORD timeLimitMs,
                                         const ZqChildAnswer* answer, ZqChildOutcome* outcome);

#endif  // !_WIN32
