// CZqXML_Document: the kernel's small XML reader.
//
// It reads documents that the family's own programs write: it opens a file
// or a block of memory, parses it in one pass into a tree of elements, text
// and attributes, and finds things by name.  It is deliberately narrow, and
// its narrowness is behaviour that callers rely on:
//   - attribute values open only with a double quote; one white-space
//     character is allowed between attributes (a second one becomes part of
//     the next attribute's name);
//   - the only entities are "&amp;", "&lt;" and "&gt;", resolved when text is
//     copied out; numeric references stay as they stand;
//   - no namespaces, no validation, no document type; a markup declaration
//     is skipped up to its ">", a comment keeps its dashes, a CDATA section
//     keeps the word CDATA and its brackets and ends at the first ">";
//   - white space and characters that cannot start text are skipped between
//     tags, so text that begins with one of them loses it;
//   - a malformed tag frees its own element and parsing goes on; ParseFile
//     answers the status of its last step only.
// Bytes are read as windows-1252 unless the data starts with FF FE, which
// makes it little-endian UTF-16 (see kernel/containers/xmlencoding.h).
//
// Life: open, parse, look up, close, in that order.  The tree and every
// string in it belong to the document and live until CloseMemory/CloseFile
// or the destructor; a caller never frees them.  Search handles that are
// not closed go with the document.  One thread at a time.
#pragma once

#include <cstddef>

#include "base/status.h"
#include "base/types.h"
#include "kernel/list.h"

class IZqXMLEncoding;

enum tagXML_CONTENT_TYPE : INT {
  XML_CONTENT_ELEMENT = 0,
  XML_CONTENT_CHARDATA = 1,
  XML_CONTENT_CDATA = 3,
  XML_CONTENT_PI = 4,
  XML_CONTENT_COMMENT = 5,
};

struct tagZQXML_CONTENT;

struct tagZQXML_ELEMENT {
  tagZQXML_CONTENT* content;  // the content that holds this element
  BOOL closed;                // written as an empty-element tag without attributes
  LPWSTR name;
  tZQLIST* attributes;        // tagZQXML_ATTRIBUTE*, owned
  tZQLIST* children;          // tagZQXML_CONTENT*, owned, in document order
};

struct tagZQXML_CONTENT {
  tagXML_CONTENT_TYPE type;
  tagZQXML_ELEMENT* parent;  // null at top level
  union {
    LPWSTR text;               // the text types
    tagZQXML_ELEMENT element;  // XML_CONTENT_ELEMENT
  };
};

struct tagZQXML_ATTRIBUTE {
  tagZQXML_ELEMENT* element;  // owner
  LPWSTR name;
  LPWSTR value;  // as written: entities are resolved by GetAttributeString
};

class ZQ_EXPORT CZqXML_Document {
 public:
  CZqXML_Document();
  ~CZqXML_Document();
  CZqXML_Document(const CZqXML_Document&) = delete;
  CZqXML_Document& operator=(const CZqXML_Document&) = delete;

  // Reads the whole file.  A missing file 0x8004E032, one that does not open
  // or read 0x8004E007, an empty one 0x8004E00B.  A document already open
  // E_UNEXPECTED.
  HRESULT OpenFile(LPCWSTR path);
  // Works on the caller's block as it stands; it must outlive the document's
  // use of it.  A document already open E_UNEXPECTED.
  HRESULT OpenMemory(const void* data, ULONGLONG size);
  // Builds the tree.  Not open: E_UNEXPECTED.  Otherwise the status of the
  // last text or tag read: S_OK, S_FALSE (a "<?" at top level that is not an
  // XML declaration), E_FAIL (a malformed tag, or data that ends inside a
  // comment or declaration) or E_OUTOFMEMORY.
  HRESULT ParseFile();
  // Drops the searches and the tree; the document may be opened again.
  HRESULT CloseMemory();
  HRESULT CloseFile();

  // Opens a search over the children of `element` (null: the top level,
  // whose one content is the root) and gives the first in *content.
  // INVALID_HANDLE_VALUE when there is none or nothing is open.
  HANDLE FindContentFirst(tagZQXML_ELEMENT* element, tagZQXML_CONTENT** content);
  // The next child: unknown handle E_HANDLE, past the last 0x8004E00A.
  HRESULT FindContentNext(HANDLE search, tagZQXML_CONTENT** content);
  // Null or unknown handle: E_HANDLE.
  HRESULT FindContentClose(HANDLE search);
  // The first child element of `content` (null: the top level) named `name`,
  // case sensitive.  No children, or a first child that is no element:
  // 0x8004E00A.  The walk stops at the first child that is no element: S_OK
  // with a null *child.
  HRESULT FindChild(tagZQXML_CONTENT* content, LPCWSTR name, tagZQXML_CONTENT** child);
  // The first character-data child; none (or a closed element) 0x8004E00A.
  HRESULT GetCharDataContent(tagZQXML_ELEMENT* element, tagZQXML_CONTENT** content);
  // Length + 1 of that text.  Null arguments E_INVALIDARG.
  HRESULT GetContentStringReqLen(tagZQXML_ELEMENT* element, INT* length);
  // That text, cut to `length` characters with its NUL, entities resolved.
  HRESULT GetContentString(tagZQXML_ELEMENT* element, LPWSTR buffer, INT length);
  // First attribute named `name`, case sensitive; none 0x8004E00A.
  HRESULT GetAttribute(tagZQXML_ELEMENT* element, LPCWSTR name, tagZQXML_ATTRIBUTE** attribute);
  HRESULT GetAttributeString(tagZQXML_ELEMENT* element, LPCWSTR name, LPWSTR buffer, INT length);
  // FindChild, then GetContentString of the child (0x8004E00A when the walk
  // gave no child).
  HRESULT GetChildContentString(tagZQXML_CONTENT* content, LPCWSTR name, LPWSTR buffer, INT length);

  // The values of the XML declaration, empty without one.
  LPCWSTR Version() const { return m_version; }
  LPCWSTR EncodingName() const { return m_encodingName; }
  LPCWSTR Standalone() const { return m_standalone; }
  // The last element that started at top level, or null.
  tagZQXML_CONTENT* RootContent() const { return m_root; }
  LPCWSTR FilePath() const { return m_path; }

 private:
  HRESULT Open(const void* data, ULONGLONG size);
  void ReleaseFile();
  tagZQXML_CONTENT* NewContent(tagXML_CONTENT_TYPE type);
  void RemoveLastContent(tagZQXML_CONTENT* content);
  LPWSTR ReadText(LPCWSTR delimiters);
  void SkipTo(LPCWSTR delimiters);
  HRESULT AddText(tagXML_CONTENT_TYPE type, LPCWSTR delimiters);
  HRESULT ParseCharData();
  HRESULT ParseLT();
  HRESULT ParseStartTag();
  HRESULT ParseAttributes();
  HRESULT ParseEndTag();
  HRESULT ParseMarkupDeclaration();
  HRESULT ParseComment();
  HRESULT ParsePI();
  HRESULT ParseXMLDeclaration();
  struct Search;
  Search* FindSearch(HANDLE handle) const;

  ULONGLONG m_dataSize;
  const BYTE* m_data;
  WCHAR m_path[MAX_PATH];
  HANDLE m_file;
  HANDLE m_mapping;  // the file is read whole into m_view; stays -1
  void* m_view;
  IZqXMLEncoding* m_encoding;
  tagZQXML_ELEMENT* m_current;
  WCHAR m_version[10];
  WCHAR m_encodingName[260];
  WCHAR m_standalone[20];
  tagZQXML_CONTENT* m_root;
  tZQLIST* m_searches;  // Search*, owned
  tZQLIST* m_topLevel;  // every top-level content, owned
};

// 1 when a "&", "<" or ">" stands in `text` that is not already the start
// of an entity, else 0.
ZQ_API BOOL ZqXML_DoesStringNeedEscapes(LPCWSTR text);
// 1 when one of the three entities stands in `text`.
ZQ_API BOOL ZqXML_DoesStringHaveEscapes(LPCWSTR text);
// Replaces each entity in place by its character; any other "&" stays.
ZQ_API HRESULT ZqXML_RemoveEscapes(LPWSTR text);
// Copies `text` into `destination` (room for `size` characters, always
// terminated) with "&", "<" and ">" turned into entities.  Only the first
// entity of a text is written out: for each later one the destination moves
// on by the entity's length and those characters are left as they were.
ZQ_API HRESULT ZqXML_AddEscapes(LPWSTR destination, INT size, LPCWSTR text);
