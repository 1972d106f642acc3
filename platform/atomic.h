// Interlocked operations: atomic read-modify-write with a full barrier, as on
// the original platform.  Header only.
#pragma once

#include "base/types.h"

#if !defined(_WIN32)

// Answers the new value.
inline LONG InterlockedIncrement(volatile LONG* target) {
  return __atomic_add_fetch(target, 1, __ATOMIC_SEQ_CST);
}
inline LONG InterlockedDecrement(volatile LONG* target) {
  return __atomic_sub_fetch(target, 1, __ATOMIC_SEQ_CST);
}
// Answers the previous value.
inline LONG InterlockedExchange(volatile LONG* target, LONG value) {
  return __atomic_exchange_n(target, value, __ATOMIC_SEQ_CST);
}
inline LONG InterlockedExchangeAdd(volatile LONG* target, LONG value) {
  return __atomic_fetch_add(target, value, __ATOMIC_SEQ_CST);
}
// Stores `exchange` when the target holds `comparand`; answers the value the
// target held before.
inline LONG InterlockedCompareExchange(volatile LONG* target, LONG exchange, LONG comparand) {
  __atomic_compare_exchange_n(target, &comparand, exchange, false, __ATOMIC_SEQ_CST,
                              __ATOMIC_SEQ_CST);
  return comparand;
}
inline LONG InterlockedOr(volatile LONG* target, LONG value) {
  return __atomic_fetch_or(target, value, __ATOMIC_SEQ_CST);
}
inline LONG InterlockedAnd(volatile LONG* target, LONG value) {
  return __atomic_fetch_and(target, value, __ATOMIC_SEQ_CST);
}

inline LONGLONG InterlockedIncrement64(volatile LONGLONG* target) {
  return __atomic_add_fetch(target, 1, __ATOMIC_SEQ_CST);
}
inline LONGLONG InterlockedDecrement64(volatile LONGLONG* target) {
  return __atomic_sub_fetch(target, 1, __ATOMIC_SEQ_CST);
}
inline LONGLONG InterlockedExchange64(volatile LONGLONG* target, LONGLONG value) {
  return __atomic_exchange_n(target, value, __ATOMIC_SEQ_CST);
}
inline LONGLONG InterlockedExchangeAdd64(volatile LONGLONG* target, LONGLONG value) {
  return __atomic_fetch_add(target, value, __ATOMIC_SEQ_CST);
}
inline LONGLONG InterlockedCompareExchange64(volatile LONGLONG* target, LONGLONG exchange,
                                             LONGLONG comparand) {
  __atomic_compare_exchange_n(target, &comparand, exchange, false, __ATOMIC_SEQ_CST,
                              __ATOMIC_SEQ_CST);
  return comparand;
}

inline void* InterlockedExchangePointer(void* volatile* target, void* value) {
  return __atomic_exchange_n(target, value, __ATOMIC_SEQ_CST);
}
inline void* InterlockedCompareExchangePointer(void* volatile* target, void* exchange,
                                               void* comparand) {
  __atomic_compare_exchange_n(target, &comparand, exchange, false, __ATOMIC_SEQ_CST,
                              __ATOMIC_SEQ_CST);
  return comparand;
}

// A full barrier.
inline void MemoryBarrier() { __atomic_thread_fence(__ATOMIC_SEQ_CST); }

#endif  // !_WIN32
