// CZqFileStream: an IStream over an open file handle.
//
// The handle is not owned: the stream never closes it.  The stream keeps its
// own 64-bit position and the size it last learnt, and sets the file pointer
// before every read and write, so several streams may share one handle.
//
//   Read   reads at the position; a short read (the end of the file) is S_OK.
//          The count read is given out also on failure.
//   Write  writes at the position; the size grows when the position passes
//          it.  A failure of the file (a handle without write access, a
//          closed handle) answers the platform error as a status.
//   Seek   origin 0 needs an offset of 0 or more; origin 1 may not move
//          before the start; origin 2 counts from the size and needs an
//          offset of 0 or less (and may not move before the start).  A
//          refusal is STG_E_INVALIDFUNCTION and the position stays.  The
//          position is given out in every case.
//   Clone  rewinds this stream to 0 and re-reads the file size, answers S_OK
//          and gives no clone: `*clone` is not written.  Callers do not rely
//          on Clone of this stream.
//   Stat and the other operations answer E_NOTIMPL.
#pragma once

#include "kernel/containers/streambase.h"

class CZqFileStream final : public ZqStreamObject<CZqFileStream> {
 public:
  CZqFileStream() = default;

  // Takes the handle, reads the file size (0 when it cannot be read) and
  // sets the position to 0.
  HRESULT Init(HANDLE file);

  HRESULT STDMETHODCALLTYPE Read(void* buffer, ULONG size, ULONG* read) override;
  HRESULT STDMETHODCALLTYPE Write(const void* buffer, ULONG size, ULONG* written) override;
  HRESULT STDMETHODCALLTYPE Seek(LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER* newPosition) override;
  HRESULT STDMETHODCALLTYPE Clone(IStream** clone) override;

  ULONGLONG Position() const { return m_position; }
  ULONGLONG Size() const { return m_size; }

 private:
  friend ComBase;
  ~CZqFileStream() = default;

  HANDLE m_file;
  ULONGLONG m_position;
  ULONGLONG m_size;
};
