// Questions about the calling process's own memory.
#pragma once

#include <cstddef>

#include "base/types.h"

// TRUE when all `size` bytes from `address` can be read now without a fault;
// FALSE for a range that touches a page that is unmapped or not readable,
// for a null address with a non-zero size, and for a range that wraps
// around the end of the address space.  A size of 0 is always readable.
// The answer is a snapshot: another thread may unmap the memory right after.
// Never faults, takes no lock and allocates nothing; costs a system call
// per 64 pages.  Any thread.
BOOL ZqIsMemoryReadable(const void* address, size_t size);
