// Sharing memory and waking threads across a process border, and reaching
// the memory and descriptors of another process.
//
// Shared blocks are anonymous memory files (they have no name anywhere on
// the file system and are private to the processes that hold a descriptor
// of them).  Their size is sealed at creation, so that a peer can neither
// shrink a block under a mapping (which would fault the reader) nor grow
// it; a receiver checks the seals before it maps a block it was handed.
//
// Wake-ups are futexes on a 32-bit word inside a shared block; they work
// between threads of one process and between processes alike.
//
// Every call may come from any thread.  Failures set the last error.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/handle.h"

#if !defined(_WIN32)

// A new shared block of `size` bytes (1 or more), zero-filled, its size
// sealed.  The descriptor is closed on exec; close it with ZqCloseDescriptor
// (platform/process.h).  -1 on failure.
ZQ_EXTERN_C int ZqSharedMemoryCreate(size_t size);
// The size of the block behind `fd` when its size is sealed (it cannot
// shrink or grow any more); 0 when it is not a sealed block (or not a block).
ZQ_EXTERN_C size_t ZqSharedMemorySealedSize(int fd);
// Maps `size` bytes of the block from its start, readable and writable
// (`writable` FALSE: readable only).  Null on failure.
ZQ_EXTERN_C void* ZqSharedMemoryMap(int fd, size_t size, BOOL writable);
ZQ_EXTERN_C void ZqSharedMemoryUnmap(void* address, size_t size);

// Sleeps while `*word` equals `expected`, at most `timeoutMs` (INFINITE:
// without limit).  Answers TRUE when woken or when the word differed at
// once, FALSE at the limit.  Spurious returns happen: callers loop on their
// own condition.  The word must be 4-byte aligned, in memory shared with
// the waker (a shared block) or in the same process.
ZQ_EXTERN_C BOOL ZqFutexWait(const volatile uint32_t* word, uint32_t expected, DWORD timeoutMs);
// Wakes up to `count` sleepers on `word` (INT32_MAX: all of them).
ZQ_EXTERN_C void ZqFutexWake(const volatile uint32_t* word, int count);

// Copies `size` bytes at `address` in process `processId` into `buffer`
// (or, for the write form, from `buffer` to there).  Answers the bytes
// moved; fewer than `size` (0 included) when the process is gone, the
// range is not mapped there, or this process may not look into that one.
ZQ_EXTERN_C size_t ZqReadProcessMemory(DWORD processId, uint64_t address, void* buffer, size_t size);
ZQ_EXTERN_C size_t ZqWriteProcessMemory(DWORD processId, uint64_t address, const void* buffer, size_t size);
// A descriptor of this process for descriptor `fd` of process `processId`
// (the same open file, closed on exec).  -1 when the process or the
// descriptor does not exist or may not be reached from here.
ZQ_EXTERN_C int ZqDuplicateDescriptorFrom(DWORD processId, int fd);

#endif  // !_WIN32
