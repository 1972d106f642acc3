// The framework's lock and event classes over the platform layer.
//
// CCritSec is a recursive lock (a critical section); CAutoLock holds one for
// a scope.  CAMEvent is an event that the framework's waits use.
#pragma once

#include "platform/sync.h"

class CCritSec {
 public:
  CCritSec() { InitializeCriticalSection(&m_cs); }
  ~CCritSec() { DeleteCriticalSection(&m_cs); }
  CCritSec(const CCritSec&) = delete;
  CCritSec& operator=(const CCritSec&) = delete;

  void Lock() { EnterCriticalSection(&m_cs); }
  void Unlock() { LeaveCriticalSection(&m_cs); }

 private:
  CRITICAL_SECTION m_cs;
};

class CAutoLock {
 public:
  explicit CAutoLock(CCritSec* lock) : m_lock(lock) { m_lock->Lock(); }
  ~CAutoLock() { m_lock->Unlock(); }
  CAutoLock(const CAutoLock&) = delete;
  CAutoLock& operator=(const CAutoLock&) = delete;

 private:
  CCritSec* m_lock;
};

class CAMEvent {
 public:
  explicit CAMEvent(BOOL manualReset = FALSE) : m_h(CreateEventW(nullptr, manualReset, FALSE, nullptr)) {}
  ~CAMEvent() {
    if (m_h) CloseHandle(m_h);
  }
  CAMEvent(const CAMEvent&) = delete;
  CAMEvent& operator=(const CAMEvent&) = delete;

  bool IsValid() const { return m_h != nullptr; }
  void Set() { SetEvent(m_h); }
  void Reset() { ResetEvent(m_h); }
  // TRUE when the event was signalled within `milliseconds`.
  BOOL Wait(DWORD milliseconds = INFINITE) { return WaitForSingleObject(m_h, milliseconds) == WAIT_OBJECT_0; }
  HANDLE Handle() const { return m_h; }

 private:
  HANDLE m_h;
};
