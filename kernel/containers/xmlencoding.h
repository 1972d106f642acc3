// IZqXMLEncoding: the XML reader's view of its data as a run of characters
// with a position, and the two classes behind it.
//
//   ZqXMLEncodingUtf8   one byte a character.  In spite of its name the bytes
//                       are read as windows-1252, the single-byte page of
//                       the documents the family writes: every byte is one
//                       character, and no byte-order mark is looked for.
//   ZqXMLEncodingUtf16  two bytes a character, little-endian, without
//                       surrogate handling.  Chosen when the data starts
//                       with FF FE, which is skipped.
// The encoding text of a document's declaration changes nothing.
//
// The object reads the caller's block and never past its `size` bytes: a
// last byte that does not make a whole 16-bit character counts as the end.
// The block must outlive the object.  One thread at a time.
#pragma once

#include "base/status.h"
#include "base/types.h"
#include "kernel/com/unknown.h"

// Character classes of CharClass (the named ones; digits are 18, and the
// other punctuation has classes of its own from 6 to 20).  From 128 on the
// 8-bit class answers 0 and the 16-bit class 26.
constexpr INT ZQXML_CLASS_CONTROL = 0;
constexpr INT ZQXML_CLASS_SPACE = 1;      // tab, line feed, carriage return, space
constexpr INT ZQXML_CLASS_BANG = 4;       // !
constexpr INT ZQXML_CLASS_QUOTE = 5;      // "
constexpr INT ZQXML_CLASS_AMP = 9;        // &
constexpr INT ZQXML_CLASS_DASH = 16;      // -
constexpr INT ZQXML_CLASS_SLASH = 17;     // /
constexpr INT ZQXML_CLASS_DIGIT = 18;
constexpr INT ZQXML_CLASS_LT = 21;        // <
constexpr INT ZQXML_CLASS_EQUALS = 22;    // =
constexpr INT ZQXML_CLASS_GT = 23;        // >
constexpr INT ZQXML_CLASS_QUESTION = 24;  // ?
constexpr INT ZQXML_CLASS_NAME = 26;      // letters, "." and "_"
constexpr INT ZQXML_CLASS_LBRACKET = 27;  // [
constexpr INT ZQXML_CLASS_RBRACKET = 28;  // ]
constexpr INT ZQXML_CLASS_END = 29;       // end of data

class IZqXMLEncoding : public IUnknown {
 public:
  using Base = IUnknown;
  static constexpr GUID kIid = ZqGuid("{3F0C5E21-7B9A-4D6E-A1C4-59E2B8D7034F}");

  // Moves one character unless at the end; answers the at-end state as it
  // was before the move.
  virtual BOOL STDMETHODCALLTYPE Advance() = 0;
  // The class of the present character; ZQXML_CLASS_END at the end.
  virtual INT STDMETHODCALLTYPE CharClass() = 0;
  // When `text` stands at the position, moves past it and answers 0;
  // otherwise answers 1 and stays.  `matchCase` 0 ignores case.
  virtual INT STDMETHODCALLTYPE Match(LPCWSTR text, BOOL matchCase) = 0;
  // Counts the characters up to the first of the single characters of
  // `delimiters` or the end.  With a null buffer only counts.  With a buffer
  // copies at most `capacity` - 1 of them and a NUL, and moves to the
  // delimiter (not past it).  Answers the count, also when the copy was cut.
  virtual INT STDMETHODCALLTYPE ReadUntil(LPWSTR buffer, INT capacity, LPCWSTR delimiters) = 0;
  // Non-zero when no character is left.
  virtual BOOL STDMETHODCALLTYPE AtEnd() = 0;
};

// Picks the class for `data` as described above and gives a new object with
// one reference.  Null `encoding` E_INVALIDARG; null `data` with a size
// E_INVALIDARG; no memory E_OUTOFMEMORY.
HRESULT GetEncodingInterface(const void* data, ULONGLONG size, IZqXMLEncoding** encoding);

// The class of one 16-bit character as the 16-bit class sees it.
INT ZqXmlCharClass16(WCHAR c);
