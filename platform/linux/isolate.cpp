// A child process under a time limit: spawn, wait on its process
// descriptor, kill at the limit, read its one message.
#include "platform/isolate.h"
#include "platform/process.h"
#include "platform/sync.h"
#include "platform/thread.h"

namespace {

// The exit code TerminateProcess records for our own kill.  A child that
// ends by itself reports 0 to 255 or ZQ_EXIT_CODE_SIGNALED | signal, so this
// value tells our kill apart from an end that raced with it.
constexpr UINT kKilledAtLimit = 0xFFFFFFFEu;

void CloseBoth(int pair[2]) {
  ZqCloseDescriptor(pair[0]);
  ZqCloseDescriptor(pair[1]);
}

}  // namespace

BOOL ZqRunChildWithTimeLimit(const char* path, const char* const* argv, DWORD timeLimitMs,
                             const ZqChildAnswer* answer, ZqChildOutcome* outcome) {
  if (outcome == nullptr || (answer != nullptr && (answer->childFd < 3 || answer->buffer == nullptr ||
                                                   answer->capacity == 0))) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return FALSE;
  }
  int pair[2] = {-1, -1};
  if (answer != nullptr && !ZqCreateSocketPair(pair)) return FALSE;
  const ZqSpawnDescriptor passed{pair[1], answer != nullptr ? answer->childFd : 0};
  HANDLE process = nullptr;
  DWORD processId = 0;
  if (!ZqSpawnProcess(path, argv, answer != nullptr ? &passed : nullptr, answer != nullptr ? 1 : 0, &process,
                      &processId)) {
    const DWORD error = GetLastError();
    CloseBoth(pair);
    SetLastError(error);
    return FALSE;
  }
  // Only the child holds its end now, so its end closes with it.
  ZqCloseDescriptor(pair[1]);
  pair[1] = -1;

  bool killed = false;
  if (WaitForSingleObject(process, timeLimitMs) != WAIT_OBJECT_0) {
    TerminateProcess(process, kKilledAtLimit);
    killed = true;
  }
  // After SIGKILL the end is certain; waiting for it means the child has
  // been reaped when we return.
  WaitForSingleObject(process, INFINITE);
  DWORD code = 0;
  GetExitCodeProcess(process, &code);
  CloseHandle(process);

  *outcome = ZqChildOutcome{};
  outcome->processId = processId;
  if (killed && code == kKilledAtLimit) {
    outcome->end = ZqChildEnd::KilledAtLimit;
  } else if (code & ZQ_EXIT_CODE_SIGNALED) {
    outcome->end = ZqChildEnd::DiedOfSignal;
    outcome->signal = static_cast<int>(code & ~ZQ_EXIT_CODE_SIGNALED);
  } else {
    outcome->end = ZqChildEnd::Exited;
    outcome->exitCode = code;
  }
  if (answer != nullptr) {
    // The message waits in the socket after the sender has gone.
    const long long n = ZqSocketReceive(pair[0], answer->buffer, answer->capacity, nullptr, nullptr, 0);
    outcome->answerSize = n > 0 ? static_cast<size_t>(n) : 0;
    ZqCloseDescriptor(pair[0]);
  }
  return TRUE;
}
