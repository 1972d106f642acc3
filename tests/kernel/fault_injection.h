// Runs an operation with the N-th kernel allocation failing, for N = 1, 2, ...
// until a run reaches no failing allocation.  Reusable by every test of the
// kernel: only the calling thread's allocations are counted, so helper threads
// of the code under test do not shift N.
#pragma once

#include <gtest/gtest.h>

#include "kernel/memory.h"

struct ZqFaultRun {
  HRESULT status;  // what the operation answered
  bool failed;     // an allocation was made to fail during it
  LONG n;          // which allocation call was made to fail
};

// `setup()` builds a fresh state (not counted), `act(state)` runs the
// operation under the armed hook and answers a status, `check(state, run)`
// asserts on the outcome and cleans up.  Answers how many allocation points
// the operation has; fails the test when it never completes within `limit`.
template <class Setup, class Act, class Check>
LONG ZqForEachAllocFailure(Setup setup, Act act, Check check, LONG limit = 500) {
  for (LONG n = 1; n <= limit; ++n) {
    auto state = setup();
    ZqFaultRun run{};
    run.n = n;
    {
      ZqScopedAllocFailure fail(n, ZQMEMFAIL_CALLING_THREAD);
      run.status = act(state);
      run.failed = fail.Triggered();
    }
    check(state, run);
    if (!run.failed) return n - 1;
  }
  ADD_FAILURE() << "the operation still allocated after " << limit << " injected failures";
  return limit;
}
