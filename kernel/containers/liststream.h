// CZqListStream: a read-only stream over a list of items, and
// CZqTemplateStream, the list stream whose items are self-sized records.
//
// The stream is a 12-byte header followed by the items in list order.  The
// header's three 32-bit words are 12 (its own size), 100, and the number of
// elements in the list, taken when the header is read.  The list (of
// pointers, tZQLIST) stays the caller's and must outlive the stream; a list
// made with ZQLIST_LOCKED is read under its lock.
//
// A subclass says what an element is through GetItem(element, data out,
// length out).  The walk asks for the element at the present index whenever
// it has used up the present item: a success starts that item afresh, a
// failure marks it as used up and moves on to the next index.  So an
// implementation that answers a failure for the element it gave last makes
// the walk go through each element once.  A success that gives no bytes
// also counts as used up, so that a walk never stalls.  GetItem(null, ...)
// resets whatever the subclass remembers; it must give null and 0.
//
//   Read   null buffer: E_INVALIDARG; no list: ZQ_E_STREAM_NO_LIST.  Reads
//          until the request is met or the items end.  The count read is
//          given out; the status is that of the last step of the walk: S_OK
//          after a copy, GetItem's after a GetItem, and E_INVALIDARG when the
//          walk made no step at all (already past the last item).  A failure
//          of GetItem on the first element, right after the header, ends the
//          read.
//   Seek   no list: ZQ_E_STREAM_NO_LIST.  Origin 0 rewinds to the header
//          whatever the offset; origin 2 moves past the last item; both reset
//          the subclass.  Origin 1 walks forward by the low 32 bits of the
//          offset as Read does, copying nothing, and answers the walk's
//          status (S_OK for a walk of 0 bytes).  The position given out is
//          the item index, or 0 in the header: it is not a byte position.
//   Write, Stat, Clone and the other operations answer E_NOTIMPL.
#pragma once

#include "kernel/containers/streambase.h"
#include "kernel/list.h"

// The header's middle word.
constexpr DWORD ZQ_LIST_STREAM_HEADER_TAG = 100;
constexpr ULONG ZQ_LIST_STREAM_HEADER_SIZE = 12;

class CZqListStream : public ZqStreamObject<CZqListStream> {
 public:
  // Positioned on the header.  `list` may be null: every operation then
  // answers ZQ_E_STREAM_NO_LIST.
  explicit CZqListStream(tZQLIST* list);

  HRESULT STDMETHODCALLTYPE Read(void* buffer, ULONG size, ULONG* read) override;
  HRESULT STDMETHODCALLTYPE Write(const void* buffer, ULONG size, ULONG* written) override;
  HRESULT STDMETHODCALLTYPE Seek(LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER* newPosition) override;

  // The bytes of `element` and their count.  Null `element`: reset.
  virtual HRESULT GetItem(void* element, const BYTE** data, ULONG* length) = 0;

  // Where the walk stands: -1 in the header, else the element index; and
  // the byte offset within the header or the present item.
  LONG Index() const { return m_index; }
  ULONG Offset() const { return m_offset; }

 protected:
  friend ComBase;
  virtual ~CZqListStream() = default;

 private:
  // Moves forward by up to `size` bytes, copying them to `out` unless it is
  // null.  Answers the status of the last step and the count in `done`.
  HRESULT Walk(BYTE* out, ULONG size, ULONG* done);
  HRESULT WalkLocked(BYTE* out, ULONG size, ULONG* done);
  void ResetItem();
  void* ElementAt(LONG index) const;

  tZQLIST* m_list;
  LONG m_index;
  ULONG m_offset;
  DWORD m_header[3];
  const BYTE* m_item;
  ULONG m_itemLength;
};

// Elements point to records whose first 32-bit word is the record's size in
// bytes (that word included).  GetItem answers E_FAIL for the element it
// gave last, which is how the walk moves on; so the same record twice in a
// row is read once.
class CZqTemplateStream final : public CZqListStream {
 public:
  explicit CZqTemplateStream(tZQLIST* list) : CZqListStream(list) {}

  HRESULT GetItem(void* element, const BYTE** data, ULONG* length) override;

  // The record given out last, or null.
  const void* LastItem() const { return m_last; }

 private:
  ~CZqTemplateStream() override = default;

  void* m_last;
};
