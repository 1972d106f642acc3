// CZqProtectedStream: a window onto another stream that keeps readers inside
// a range of it (IZqProtectedStream, see kernel/containers/streams.h).
//
// The inner stream is held with one reference and released with the window.
// The window remembers the inner stream's absolute position after its last
// operation; every Read and Write asks the inner stream where it stands
// first, so the window follows moves made on the inner stream directly.
// Range end below means start + length.
//
//   Read   no inner stream: STG_E_READFAULT; null buffer:
//          STG_E_INVALIDPOINTER.  Without `limitEnd` nothing is read (S_OK).
//          Mode 1 (clip): a position before the start or past the range end
//          is STG_E_ACCESSDENIED; the read stops at the range end.  Mode 2
//          (blank): a position before the start is STG_E_ACCESSDENIED; the
//          whole count is read from the inner stream and the part of the
//          buffer at and after the range end is zeroed.  S_FALSE when less
//          than asked for came, else S_OK.  Other modes read nothing (S_OK).
//   Write  no inner stream: STG_E_WRITEFAULT; null buffer:
//          STG_E_INVALIDPOINTER.  With `limitStart`, a position before the
//          start is STG_E_ACCESSDENIED.  A write is never refused at the end:
//          with `limitEnd`, one that passes the range end grows the range.
//   Seek   no inner stream: STG_E_INVALIDFUNCTION.  With either limit set,
//          origin 0 counts from the start, and the position given out counts
//          from the start too; without limits both are absolute.
//            origin 0: with `limitEnd`, a target past the range end is
//                      refused in mode 1 only;
//            origin 1: the inner position + offset; with either limit it may
//                      not lie before the start, with `limitEnd` not past the
//                      range end;
//            origin 2: without `limitEnd` passed to the inner stream as it
//                      is; with it, range end + offset, which must lie within
//                      the range.
//          A refusal is STG_E_INVALIDFUNCTION, the inner stream is not moved
//          and nothing is given out.
//   Stat   the inner stream's (STG_E_INVALIDFUNCTION without one).
//   Clone  a new window over a clone of the inner stream, with no range and
//          the default mode.  E_FAIL when the inner stream's Clone succeeds
//          without giving a clone.
//   The other operations answer E_NOTIMPL.
#pragma once

#include "kernel/containers/streambase.h"
#include "kernel/containers/streams.h"

class CZqProtectedStream final : public ZqStreamObject<CZqProtectedStream, IZqProtectedStream> {
 public:
  CZqProtectedStream() : m_readMode(ZQPROTECTED_READ_CLIP) {}

  HRESULT STDMETHODCALLTYPE Read(void* buffer, ULONG size, ULONG* read) override;
  HRESULT STDMETHODCALLTYPE Write(const void* buffer, ULONG size, ULONG* written) override;
  HRESULT STDMETHODCALLTYPE Seek(LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER* newPosition) override;
  HRESULT STDMETHODCALLTYPE Stat(STATSTG* stat, DWORD statFlag) override;
  HRESULT STDMETHODCALLTYPE Clone(IStream** clone) override;

  HRESULT STDMETHODCALLTYPE SetProtectedRange(BOOL limitEnd, BOOL limitStart, ULONGLONG start,
                                              ULONGLONG length) override;
  HRESULT STDMETHODCALLTYPE SetReadMode(DWORD mode) override;
  HRESULT STDMETHODCALLTYPE AttachStream(IStream* stream) override;

  // The inner stream's absolute position after the last operation.
  ULONGLONG Position() const { return m_position; }
  ULONGLONG RangeStart() const { return m_start; }
  ULONGLONG RangeLength() const { return m_length; }
  DWORD ReadMode() const { return m_readMode; }

 private:
  friend ComBase;
  ~CZqProtectedStream();

  HRESULT InnerPosition(ULONGLONG* position);
  ULONGLONG RangeEnd() const { return m_start + m_length; }

  IStream* m_inner;
  ULONGLONG m_position;
  ULONGLONG m_start;
  ULONGLONG m_length;
  BOOL m_limitEnd;
  BOOL m_limitStart;
  DWORD m_readMode;
};
