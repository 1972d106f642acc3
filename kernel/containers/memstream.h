// CZqMemStream: an IStream over a block of memory with a fixed capacity.
//
// The first `length` bytes are readable; writes may fill the block up to its
// capacity and move the length along.  Positions, capacity and length are
// 64-bit.  The block is the caller's unless the stream copied it, and only a
// block the stream owns is freed with it.
//
//   Read   at or past the length: S_FALSE with 0 bytes; otherwise up to the
//          length, S_OK also for a short read.
//   Write  at or past the capacity: S_FALSE with 0 bytes; otherwise the end is
//          cut to the capacity, a gap between the length and the position is
//          zeroed, and the length grows to the end of the write.
//   Seek   the target must lie between 0 and the capacity (it may pass the
//          length); origin 2 counts from the length and needs an offset of 0
//          or less.  A refusal is STG_E_INVALIDFUNCTION and the position stays.
//          The position is given out in every case.
//   Stat   a zeroed STATSTG but for cbSize, the length (so no name, whatever
//          the flag).
//   Clone  re-initialises this stream over its own block without copying
//          (position 0, the stream no longer counts as the block's owner),
//          answers that status and gives no clone: `*clone` is not written.
//          Callers do not rely on Clone of this stream.  A block the stream
//          had copied is still freed with it.
//   The other operations answer E_NOTIMPL.
#pragma once

#include "kernel/containers/streambase.h"

class CZqMemStream final : public ZqStreamObject<CZqMemStream> {
 public:
  CZqMemStream() = default;

  // Without `copy` the stream works on `data` as it stands.  With `copy`
  // the capacity must fit in 32 bits (else E_FAIL), and `capacity` bytes are
  // copied from `data` into a block the stream owns (E_OUTOFMEMORY when
  // there is no memory; the stream is then left as it was).  The position
  // becomes 0.
  HRESULT Init(void* data, ULONGLONG capacity, ULONGLONG length, BOOL copy);

  HRESULT STDMETHODCALLTYPE Read(void* buffer, ULONG size, ULONG* read) override;
  HRESULT STDMETHODCALLTYPE Write(const void* buffer, ULONG size, ULONG* written) override;
  HRESULT STDMETHODCALLTYPE Seek(LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER* newPosition) override;
  HRESULT STDMETHODCALLTYPE Stat(STATSTG* stat, DWORD statFlag) override;
  HRESULT STDMETHODCALLTYPE Clone(IStream** clone) override;

  BYTE* Data() const { return m_data; }
  bool OwnsData() const { return m_owned != FALSE; }
  ULONGLONG Position() const { return m_position; }
  ULONGLONG Capacity() const { return m_capacity; }
  ULONGLONG Length() const { return m_length; }

 private:
  friend ComBase;
  ~CZqMemStream();

  BYTE* m_data;
  BOOL m_owned;
  ULONGLONG m_position;
  ULONGLONG m_capacity;
  ULONGLONG m_length;
  // A copied block that the stream stopped counting as its own (Clone); it
  // is still freed with the stream.
  BYTE* m_retired;
};
