// CZqTextStream: a stream that collects text (or any bytes) in a buffer that
// grows as it is written, and reads it back.
//
// Capacity, read position and write position are 32-bit.  The buffer is the
// stream's own; it starts as 16,384 zero bytes made by Init, and before Init
// neither Read nor Write works (E_UNEXPECTED).  Bytes that were never
// written stay zero.
//
//   Read   from the read position up to the capacity, not only up to what
//          was written: unwritten zero bytes can be read.  At or past the
//          capacity the status is ZQ_S_TEXT_STREAM_END with 0 bytes.  A null
//          buffer or count is E_INVALIDARG.
//   Write  at the write position.  When the buffer is too small a new one of
//          twice the capacity, or of the size needed if that is more,
//          replaces it.  Without memory for it, what fits in the old buffer
//          is written and E_OUTOFMEMORY is answered.
//   Seek   moves the read position by the low 32 bits of the offset: origin 0
//          from the start, origin 1 from the read position, origin 2 back
//          from the capacity (the offset is subtracted).  The new read
//          position is stored first; a read position beyond the write
//          position then gives E_FAIL, and stays where it was put.  The read
//          position is given out in every case but an unknown origin
//          (STG_E_INVALIDFUNCTION).
//   Stat, Clone and the other operations answer E_NOTIMPL.
#pragma once

#include "kernel/containers/streambase.h"

// Read at or past the capacity: a success that tells of the end (the
// platform's end-of-file number, as the stream has always answered).
constexpr HRESULT ZQ_S_TEXT_STREAM_END = 38;

// The buffer that Init makes.
constexpr ULONG ZQ_TEXT_STREAM_INITIAL_CAPACITY = 16384;

class CZqTextStream final : public ZqStreamObject<CZqTextStream> {
 public:
  CZqTextStream() = default;

  // A new stream, set up, with one reference; E_INVALIDARG for a null out,
  // E_OUTOFMEMORY without memory.
  static HRESULT Create(CZqTextStream** stream);

  // Makes the first buffer.  S_FALSE when it exists already (nothing
  // changes), E_OUTOFMEMORY without memory.
  HRESULT Init();

  HRESULT STDMETHODCALLTYPE Read(void* buffer, ULONG size, ULONG* read) override;
  HRESULT STDMETHODCALLTYPE Write(const void* buffer, ULONG size, ULONG* written) override;
  HRESULT STDMETHODCALLTYPE Seek(LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER* newPosition) override;

  // The bytes so far: `WritePosition()` of them were written, the rest of
  // the capacity is zero.  Valid until the next Write.
  const BYTE* Data() const { return m_buffer; }
  ULONG Capacity() const { return m_capacity; }
  ULONG ReadPosition() const { return m_readPosition; }
  ULONG WritePosition() const { return m_writePosition; }

 private:
  friend ComBase;
  ~CZqTextStream();

  BYTE* m_buffer;
  ULONG m_capacity;
  ULONG m_readPosition;
  ULONG m_writePosition;
};
