// The kernel's small IStream implementations and the functions that make
// them.
//
// Five streams let the rest of the system treat a file handle, a block of
// memory, a growing text buffer, a list of records or a window onto another
// stream as an IStream:
//
//   CZqFileStream       kernel/containers/filestream.h
//   CZqMemStream        kernel/containers/memstream.h
//   CZqTextStream       kernel/containers/textstream.h
//   CZqListStream,
//   CZqTemplateStream   kernel/containers/liststream.h
//   CZqProtectedStream  kernel/containers/protectedstream.h
//
// Every stream is reference counted (the count is atomic), allocated
// zero-filled through the kernel's allocation hook (kernel/memory.h) and
// destroyed by the Release that brings the count to 0.  Each answers
// IUnknown and IStream (and ISequentialStream, which IStream extends); the
// protected stream answers IZqProtectedStream as well.  None has a lock: one
// thread at a time uses a stream.  Operations a class does not offer answer
// E_NOTIMPL (SetSize, CopyTo, Commit, Revert, LockRegion, UnlockRegion, and
// Stat or Clone where the class header says so).  No stream shows a message.
//
// Creation functions give a new stream with one reference, owned by the
// caller.  A null argument gives E_INVALIDARG and the out pointer (when there
// is one) is cleared; no memory gives E_OUTOFMEMORY.
#pragma once

#include "base/status.h"
#include "kernel/com/stream.h"
#include "kernel/list.h"
#include "base/types.h"

// Reported by the list stream when it was made without a list.
constexpr HRESULT ZQ_E_STREAM_NO_LIST = ZqMakeStatus(0x800A0026);

// A window onto another stream that confines reads (and, when asked, writes)
// to a range of it.  Nothing in it scrambles data: "protected" means that
// a reader cannot leave the range.
//
// Positions: the range is given in absolute positions of the inner stream.
// The range end is start + length.  While neither limit is set the stream
// passes positions through unchanged; once one is set, positions given out
// by Seek count from the range start.
class IZqProtectedStream : public IStream {
 public:
  using Base = IStream;
  static constexpr GUID kIid = ZqGuid("{FA000DBA-CEDB-4D01-B923-BB722D687EF2}");

  // Stores the four values.  `limitEnd` confines reads to the range (and
  // lets writes at the end grow it); `limitStart` refuses writes that start
  // before the range.  Without `limitEnd` nothing can be read.
  virtual HRESULT STDMETHODCALLTYPE SetProtectedRange(BOOL limitEnd, BOOL limitStart, ULONGLONG start,
                                                      ULONGLONG length) = 0;
  // 1 (the default): reads stop at the range end.  2: reads take the whole
  // count from the inner stream and blank what lies past the range end.
  // Any other mode reads nothing.
  virtual HRESULT STDMETHODCALLTYPE SetReadMode(DWORD mode) = 0;
  // Takes a reference on `stream` (releasing the stream attached before)
  // and asks it for its present position.  When that fails, the reference
  // is given back, no stream stays attached, the position is 0 and the
  // failure is answered.  Null gives E_INVALIDARG.
  virtual HRESULT STDMETHODCALLTYPE AttachStream(IStream* stream) = 0;
};

inline constexpr GUID IID_IZqProtectedStream = IZqProtectedStream::kIid;

// Read modes of IZqProtectedStream::SetReadMode.
constexpr DWORD ZQPROTECTED_READ_CLIP = 1;
constexpr DWORD ZQPROTECTED_READ_BLANK = 2;

// A stream over an open file.  The handle stays the caller's: the stream
// never closes it, and it must outlive the stream.  The stream keeps its own
// position and moves the file pointer before each read and write.
ZQ_API HRESULT ZqCreateStreamFromFile(HANDLE file, IStream** stream);

// A stream over `capacity` bytes at `data`, of which the first `length` are
// readable.  With `copy` the capacity's bytes are copied into a block that
// the stream owns (the capacity must then fit in 32 bits, else E_FAIL);
// without it the caller's memory is used as it stands and must outlive the
// stream.  `length` must not exceed `capacity`.
ZQ_API HRESULT ZqCreateStreamFromMemory(void* data, ULONG capacity, ULONG length, IStream** stream, BOOL copy);
ZQ_API HRESULT ZqCreateStreamFromMemory64(void* data, ULONGLONG capacity, ULONGLONG length, IStream** stream,
                                          BOOL copy);

// A protected stream over `inner` (see AttachStream; its failure is answered
// and nothing is made), over a new file stream on `file`, or over a new
// memory stream on the caller's memory (never copied).  No range is set: it
// reads nothing until SetProtectedRange.
ZQ_API HRESULT ZqProtectedStream_CreateFromStream(IStream* inner, IZqProtectedStream** stream);
ZQ_API HRESULT ZqProtectedStream_CreateFromFile(HANDLE file, IZqProtectedStream** stream);
ZQ_API HRESULT ZqProtectedStream_CreateFromMemory(void* data, ULONG capacity, ULONG length,
                                                  IZqProtectedStream** stream);
ZQ_API HRESULT ZqProtectedStream_CreateFromMemory64(void* data, ULONGLONG capacity, ULONGLONG length,
                                                    IZqProtectedStream** stream);

// A stream over a list of records (a CZqTemplateStream): a 12-byte header of
// three 32-bit words (12, 100, the count of elements) followed by the
// records, each of which begins with its own size as a 32-bit word.  The list
// holds pointers to the records; it stays the caller's and must outlive the
// stream.
ZQ_API HRESULT ZqFio_MakeTemplateListIStream(tZQLIST* list, IStream** stream);
