#include "kernel/containers/xml.h"

#include <cstring>
#include <iterator>

#include "kernel/containers/xmlencoding.h"
#include "kernel/memory.h"
#include "platform/file.h"
#include "platform/text.h"

namespace {

constexpr DWORD kContentListOptions = ZQLIST_ANYTHREAD | ZQLIST_HEAPITEMS;

struct Entity {
  const char16_t* text;
  INT length;
  WCHAR character;
};
constexpr Entity kEntities[] = {{u"&amp;", 5, u'&'}, {u"&lt;", 4, u'<'}, {u"&gt;", 4, u'>'}};

// The entity that starts at `p`, or null.
const Entity* EntityAt(LPCWSTR p) {
  for (const Entity& e : kEntities) {
    INT i = 0;
    while (i < e.length && p[i] == e.text[i]) ++i;
    if (i == e.length) return &e;
  }
  return nullptr;
}
const Entity* EntityFor(WCHAR c) {
  for (const Entity& e : kEntities)
    if (e.character == c) return &e;
  return nullptr;
}

// Strings of the tree: zero-filled, one character longer than the text.
LPWSTR AllocString(size_t length) { return static_cast<LPWSTR>(ZqMemory_AllocZ((length + 1) * sizeof(WCHAR))); }
void FreeString(LPWSTR text) { ZqMemory_Free(text); }

tZQLIST* NewContentList() {
  tZQLIST* list = nullptr;
  return SUCCEEDED(ZqList_CreateExZ(&list, sizeof(void*), 0, 0, kContentListOptions, 0, 0, 0)) ? list : nullptr;
}

template <class T>
T* At(const tZQLIST* list, INT i) {
  return static_cast<T*>(ZqList_Slot(list, i));
}

// Allocates a zeroed item of `size` through a heap list and appends it.  A
// full list doubles its slots first: an element may have hundreds of
// thousands of children, and growing by the list's fixed step would copy
// them all again every few items.
void* Append(tZQLIST* list, UINT size) {
  if (list->count == list->allocated && list->count >= 64) ZqList_GrowAllocated(list, list->count);
  void* item = nullptr;
  if (FAILED(ZqList_AllocItem(list, size, &item))) return nullptr;
  if (FAILED(ZqList_InsertList(list, -1, nullptr, -1))) {
    ZqList_DeleteList(list, -1, -1, 0);
    return nullptr;
  }
  return item;
}

// What a content holds besides its own slot: its text, or an element's name,
// attributes and (empty) child list.
void FreeOwn(tagZQXML_CONTENT* content) {
  if (content->type != XML_CONTENT_ELEMENT) {
    FreeString(content->text);
    content->text = nullptr;
    return;
  }
  tagZQXML_ELEMENT& e = content->element;
  FreeString(e.name);
  e.name = nullptr;
  if (e.attributes) {
    for (INT i = 0; i < e.attributes->count; ++i) {
      auto* a = At<tagZQXML_ATTRIBUTE>(e.attributes, i);
      FreeString(a->name);
      FreeString(a->value);
    }
    ZqList_Destroy(e.attributes);
    e.attributes = nullptr;
  }
  ZqList_Destroy(e.children);
  e.children = nullptr;
}

bool HasChildren(const tagZQXML_CONTENT* c) {
  return c->type == XML_CONTENT_ELEMENT && c->element.children && c->element.children->count > 0;
}

// Frees everything below `top` and what `top` holds, leaving its slot to its
// owner.  Iterative, from the last child up, so that depth costs no stack.
void FreeSubtree(tagZQXML_CONTENT* top) {
  tagZQXML_CONTENT* node = top;
  for (;;) {
    if (HasChildren(node)) {
      tZQLIST* children = node->element.children;
      auto* last = At<tagZQXML_CONTENT>(children, children->count - 1);
      if (HasChildren(last)) {
        node = last;
        continue;
      }
      FreeOwn(last);
      ZqList_DeleteList(children, children->count - 1, 1, 0);
      continue;
    }
    if (node == top) {
      FreeOwn(node);
      return;
    }
    node = node->parent->content;  // `node` is now a leaf; its parent frees it next turn
  }
}

}  // namespace

struct CZqXML_Document::Search {
  tagZQXML_ELEMENT* element;  // null: the top level
  INT index;
};

CZqXML_Document::CZqXML_Document()
    : m_dataSize(0),
      m_data(nullptr),
      m_path{},
      m_file(INVALID_HANDLE_VALUE),
      m_mapping(INVALID_HANDLE_VALUE),
      m_view(nullptr),
      m_encoding(nullptr),
      m_current(nullptr),
      m_version{},
      m_encodingName{},
      m_standalone{},
      m_root(nullptr),
      m_searches(nullptr),
      m_topLevel(nullptr) {}

CZqXML_Document::~CZqXML_Document() {
  CloseMemory();
  ReleaseFile();
}

void CZqXML_Document::ReleaseFile() {
  ZqMemory_Free(m_view);
  m_view = nullptr;
  if (m_mapping != INVALID_HANDLE_VALUE) CloseHandle(m_mapping);
  m_mapping = INVALID_HANDLE_VALUE;
  if (m_file != INVALID_HANDLE_VALUE) CloseHandle(m_file);
  m_file = INVALID_HANDLE_VALUE;
}

HRESULT CZqXML_Document::OpenFile(LPCWSTR path) {
  if (m_encoding) return E_UNEXPECTED;
  if (path == nullptr) return E_INVALIDARG;
  ReleaseFile();  // a file closed earlier keeps its handle until here
  if (GetFileAttributesW(path) == INVALID_FILE_ATTRIBUTES) return ZQ_E_FILE_EXISTS;
  lstrcpynW(m_path, path, MAX_PATH);
  m_file = CreateFileW(path, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, FILE_FLAG_SEQUENTIAL_SCAN,
                       nullptr);
  if (m_file == INVALID_HANDLE_VALUE) return ZQ_E_OPEN_FILE;
  LARGE_INTEGER size;
  if (!GetFileSizeEx(m_file, &size)) return ZQ_E_OPEN_FILE;
  if (size.QuadPart == 0) return ZQ_E_BAD_FILE;
  // The read-only view: the whole file in one block.
  const ULONGLONG bytes = static_cast<ULONGLONG>(size.QuadPart);
  if (bytes > (1ull << 40)) return ZQ_E_OPEN_FILE;
  m_view = ZqMemory_Alloc(static_cast<size_t>(bytes));
  if (m_view == nullptr) return ZQ_E_OPEN_FILE;
  for (ULONGLONG done = 0; done < bytes;) {
    const DWORD step = static_cast<DWORD>(bytes - done < 0x40000000u ? bytes - done : 0x40000000u);
    DWORD got = 0;
    if (!ReadFile(m_file, static_cast<BYTE*>(m_view) + done, step, &got, nullptr) || got == 0) {
      ReleaseFile();
      return ZQ_E_OPEN_FILE;
    }
    done += got;
  }
  return Open(m_view, bytes);
}

HRESULT CZqXML_Document::OpenMemory(const void* data, ULONGLONG size) {
  if (m_encoding) return E_UNEXPECTED;
  return Open(data, size);
}

HRESULT CZqXML_Document::Open(const void* data, ULONGLONG size) {
  IZqXMLEncoding* encoding = nullptr;
  HRESULT hr = GetEncodingInterface(data, size, &encoding);
  if (FAILED(hr)) return hr;
  tZQLIST* searches = NewContentList();
  tZQLIST* top = NewContentList();
  if (!searches || !top) {
    ZqList_Destroy(searches);
    ZqList_Destroy(top);
    encoding->Release();
    return E_OUTOFMEMORY;
  }
  m_data = static_cast<const BYTE*>(data);
  m_dataSize = size;
  m_encoding = encoding;
  m_searches = searches;
  m_topLevel = top;
  m_current = nullptr;
  m_root = nullptr;
  m_version[0] = m_encodingName[0] = m_standalone[0] = 0;
  return S_OK;
}

HRESULT CZqXML_Document::CloseMemory() {
  ZqList_Destroy(m_searches);
  m_searches = nullptr;
  if (m_topLevel) {
    while (m_topLevel->count > 0) {
      FreeSubtree(At<tagZQXML_CONTENT>(m_topLevel, m_topLevel->count - 1));
      ZqList_DeleteList(m_topLevel, m_topLevel->count - 1, 1, 0);
    }
    ZqList_Destroy(m_topLevel);
    m_topLevel = nullptr;
  }
  m_root = nullptr;
  m_current = nullptr;
  if (m_encoding) m_encoding->Release();
  m_encoding = nullptr;
  return S_OK;
}

HRESULT CZqXML_Document::CloseFile() { return CloseMemory(); }

// --- Building the tree --------------------------------------------------------------

tagZQXML_CONTENT* CZqXML_Document::NewContent(tagXML_CONTENT_TYPE type) {
  tZQLIST* owner = m_current ? m_current->children : m_topLevel;
  auto* content = static_cast<tagZQXML_CONTENT*>(Append(owner, sizeof(tagZQXML_CONTENT)));
  if (content == nullptr) return nullptr;
  content->type = type;
  content->parent = m_current;
  if (type == XML_CONTENT_ELEMENT) {
    content->element.content = content;
    content->element.attributes = NewContentList();
    content->element.children = NewContentList();
    if (!content->element.attributes || !content->element.children) {
      RemoveLastContent(content);
      return nullptr;
    }
  }
  return content;
}

// Frees a content that was the last one added to its owner.
void CZqXML_Document::RemoveLastContent(tagZQXML_CONTENT* content) {
  tZQLIST* owner = content->parent ? content->parent->children : m_topLevel;
  FreeSubtree(content);
  if (owner->count > 0 && ZqList_Slot(owner, owner->count - 1) == content)
    ZqList_DeleteList(owner, owner->count - 1, 1, 0);
}

// The text up to the first delimiter, in a new string; null when out of
// memory (the position then stays).
LPWSTR CZqXML_Document::ReadText(LPCWSTR delimiters) {
  const INT n = m_encoding->ReadUntil(nullptr, 0, delimiters);
  LPWSTR text = AllocString(static_cast<size_t>(n));
  if (text) m_encoding->ReadUntil(text, n + 1, delimiters);
  return text;
}

void CZqXML_Document::SkipTo(LPCWSTR delimiters) {
  WCHAR none[1];
  m_encoding->ReadUntil(none, 1, delimiters);
}

// A text content of `type` under the current element.  Whatever happens the
// text is passed, so that the parse moves on.
HRESULT CZqXML_Document::AddText(tagXML_CONTENT_TYPE type, LPCWSTR delimiters) {
  tagZQXML_CONTENT* content = NewContent(type);
  LPWSTR text = content ? ReadText(delimiters) : nullptr;
  if (text == nullptr) {
    if (content) RemoveLastContent(content);
    SkipTo(delimiters);
    return E_OUTOFMEMORY;
  }
  content->text = text;
  return S_OK;
}

HRESULT CZqXML_Document::ParseFile() {
  if (m_encoding == nullptr) return E_UNEXPECTED;
  HRESULT status = S_OK;
  for (;;) {
    switch (m_encoding->CharClass()) {
      case 6: case 7: case 8: case 9: case 16: case 18: case 26:
        status = ParseCharData();
        break;
      case ZQXML_CLASS_LT:
        status = ParseLT();
        break;
      case ZQXML_CLASS_END:
        return status;
      default:
        m_encoding->Advance();
        break;
    }
  }
}

HRESULT CZqXML_Document::ParseCharData() { return AddText(XML_CONTENT_CHARDATA, u"<"); }

HRESULT CZqXML_Document::ParseLT() {
  m_encoding->Advance();
  switch (m_encoding->CharClass()) {
    case ZQXML_CLASS_BANG: return ParseMarkupDeclaration();
    case ZQXML_CLASS_SLASH: return ParseEndTag();
    case ZQXML_CLASS_QUESTION: return m_current ? ParsePI() : ParseXMLDeclaration();
    case ZQXML_CLASS_NAME: return ParseStartTag();
    default: return S_OK;
  }
}

HRESULT CZqXML_Document::ParseStartTag() {
  tagZQXML_CONTENT* const formerRoot = m_root;
  tagZQXML_ELEMENT* const parent = m_current;
  tagZQXML_CONTENT* content = NewContent(XML_CONTENT_ELEMENT);
  if (content == nullptr) return E_OUTOFMEMORY;
  if (parent == nullptr) m_root = content;

  HRESULT hr = S_OK;
  if (m_encoding->ReadUntil(nullptr, 0, u" />") == 0) {
    hr = E_FAIL;
  } else if ((content->element.name = ReadText(u" />")) == nullptr) {
    hr = E_OUTOFMEMORY;
  } else {
    m_current = &content->element;
    while (m_encoding->CharClass() == ZQXML_CLASS_SPACE) m_encoding->Advance();
    switch (m_encoding->CharClass()) {
      case ZQXML_CLASS_SLASH:
        content->element.closed = TRUE;
        m_current = parent;
        m_encoding->Advance();
        m_encoding->Advance();
        break;
      case ZQXML_CLASS_GT:
        m_encoding->Advance();
        break;
      case ZQXML_CLASS_NAME:
        hr = ParseAttributes();
        break;
      default:
        hr = E_FAIL;
        break;
    }
  }
  if (FAILED(hr)) {
    m_current = parent;
    if (m_root == content) m_root = formerRoot;
    RemoveLastContent(content);
  }
  return hr;
}

HRESULT CZqXML_Document::ParseAttributes() {
  IZqXMLEncoding* const enc = m_encoding;
  if (enc->CharClass() != ZQXML_CLASS_GT) {
    for (;;) {
      if (enc->CharClass() == ZQXML_CLASS_SLASH) break;
      auto* a = static_cast<tagZQXML_ATTRIBUTE*>(Append(m_current->attributes, sizeof(tagZQXML_ATTRIBUTE)));
      if (a == nullptr) return E_OUTOFMEMORY;
      a->element = m_current;
      if ((a->name = ReadText(u"=")) == nullptr) return E_OUTOFMEMORY;
      if (enc->CharClass() != ZQXML_CLASS_EQUALS) return E_FAIL;
      enc->Advance();
      if (enc->CharClass() != ZQXML_CLASS_QUOTE) return E_FAIL;  // only a double quote opens a value
      enc->Advance();
      if ((a->value = ReadText(u"\"")) == nullptr) return E_OUTOFMEMORY;
      if (enc->CharClass() != ZQXML_CLASS_QUOTE) return E_FAIL;
      enc->Advance();
      if (enc->CharClass() == ZQXML_CLASS_SPACE) enc->Advance();
      if (enc->CharClass() == ZQXML_CLASS_GT) break;
    }
  }
  if (enc->CharClass() == ZQXML_CLASS_SLASH) {
    enc->Advance();
    m_current = m_current->content->parent;
  }
  return S_OK;
}

HRESULT CZqXML_Document::ParseEndTag() {
  m_encoding->Advance();
  LPWSTR name = ReadText(u">");
  if (name == nullptr) {
    SkipTo(u">");
    return E_OUTOFMEMORY;
  }
  HRESULT hr = E_FAIL;
  if (m_current && lstrcmpW(name, m_current->name) == 0) {
    m_current = m_current->content->parent;
    hr = S_OK;
  }
  FreeString(name);
  return hr;
}

HRESULT CZqXML_Document::ParseMarkupDeclaration() {
  m_encoding->Advance();
  for (;;) {
    HRESULT hr = S_OK;
    switch (m_encoding->CharClass()) {
      case ZQXML_CLASS_DASH: hr = ParseComment(); break;
      case ZQXML_CLASS_LBRACKET: hr = AddText(XML_CONTENT_CDATA, u">"); break;
      case ZQXML_CLASS_GT: m_encoding->Advance(); return S_OK;
      case ZQXML_CLASS_END: return E_FAIL;
      default: m_encoding->Advance(); break;
    }
    if (hr != S_OK) return hr;
  }
}

HRESULT CZqXML_Document::ParseComment() {
  tagZQXML_CONTENT* content = NewContent(XML_CONTENT_COMMENT);
  if (content == nullptr) {
    SkipTo(u">");
    return E_OUTOFMEMORY;
  }
  size_t length = 0;
  size_t capacity = 0;
  LPWSTR text = nullptr;
  for (bool first = true;; first = false) {
    if (!first) {
      if (m_encoding->CharClass() == ZQXML_CLASS_END) {
        content->text = text;
        return E_FAIL;  // the data ended inside the comment
      }
      m_encoding->Advance();  // the ">" that did not end it stays in the text
    }
    const size_t piece = static_cast<size_t>(m_encoding->ReadUntil(nullptr, 0, u">"));
    const size_t need = length + (first ? 0 : 1) + piece + 1;
    if (need > capacity) {
      const size_t grown = need > 2 * capacity ? need : 2 * capacity;
      auto* bigger = static_cast<LPWSTR>(ZqMemory_ReAlloc(text, grown * sizeof(WCHAR)));
      if (bigger == nullptr) {
        content->text = text;
        SkipTo(u">");
        return E_OUTOFMEMORY;
      }
      text = bigger;
      capacity = grown;
    }
    if (!first) text[length++] = u'>';
    m_encoding->ReadUntil(text + length, static_cast<INT>(piece + 1), u">");
    length += piece;
    text[length] = 0;
    if (length >= 2 && text[length - 1] == u'-' && text[length - 2] == u'-') break;
  }
  content->text = text;
  return S_OK;
}

HRESULT CZqXML_Document::ParsePI() { return AddText(XML_CONTENT_PI, u"<"); }

HRESULT CZqXML_Document::ParseXMLDeclaration() {
  IZqXMLEncoding* const enc = m_encoding;
  enc->Advance();
  if (INT r = enc->Match(u"xml", FALSE); r != 0) return r;
  for (;;) {
    switch (enc->CharClass()) {
      case ZQXML_CLASS_SPACE:
        enc->Advance();
        break;
      case ZQXML_CLASS_NAME: {
        WCHAR* target = nullptr;
        INT room = 0;
        if (enc->Match(u"version", FALSE) == 0) {
          target = m_version;
          room = static_cast<INT>(std::size(m_version));
        } else if (enc->Match(u"encoding", FALSE) == 0) {
          target = m_encodingName;
          room = static_cast<INT>(std::size(m_encodingName));
        } else if (enc->Match(u"standalone", FALSE) == 0) {
          target = m_standalone;
          room = static_cast<INT>(std::size(m_standalone));
        }
        if (target == nullptr) {
          for (INT c = enc->CharClass(); c != ZQXML_CLASS_SPACE && c != ZQXML_CLASS_QUESTION && c != ZQXML_CLASS_END;
               c = enc->CharClass())
            enc->Advance();
          break;
        }
        if (enc->CharClass() != ZQXML_CLASS_EQUALS) return E_FAIL;
        enc->Advance();
        if (enc->CharClass() != ZQXML_CLASS_QUOTE) return E_FAIL;
        enc->Advance();
        enc->ReadUntil(target, room, u"\"");
        if (enc->CharClass() == ZQXML_CLASS_QUOTE) enc->Advance();
        break;
      }
      case ZQXML_CLASS_QUESTION:
        enc->Advance();
        if (enc->CharClass() != ZQXML_CLASS_GT) return E_FAIL;
        enc->Advance();
        return S_OK;
      default:
        return E_FAIL;
    }
  }
}

// --- Looking things up --------------------------------------------------------------

CZqXML_Document::Search* CZqXML_Document::FindSearch(HANDLE handle) const {
  if (handle == nullptr || handle == INVALID_HANDLE_VALUE || m_searches == nullptr) return nullptr;
  return ZqList_FindSpecificItemRange(m_searches, 0, -1, handle) >= 0 ? static_cast<Search*>(handle) : nullptr;
}

HANDLE CZqXML_Document::FindContentFirst(tagZQXML_ELEMENT* element, tagZQXML_CONTENT** content) {
  if (content) *content = nullptr;
  if (m_searches == nullptr) return INVALID_HANDLE_VALUE;
  tagZQXML_CONTENT* first = nullptr;
  if (element == nullptr)
    first = m_root;
  else if (element->children && element->children->count > 0)
    first = At<tagZQXML_CONTENT>(element->children, 0);
  if (first == nullptr) return INVALID_HANDLE_VALUE;
  auto* search = static_cast<Search*>(Append(m_searches, sizeof(Search)));
  if (search == nullptr) return INVALID_HANDLE_VALUE;
  search->element = element;
  search->index = 0;
  if (content) *content = first;
  return search;
}

HRESULT CZqXML_Document::FindContentNext(HANDLE handle, tagZQXML_CONTENT** content) {
  if (content) *content = nullptr;
  Search* search = FindSearch(handle);
  if (search == nullptr) return E_HANDLE;
  tZQLIST* children = search->element ? search->element->children : nullptr;
  if (children == nullptr || search->index + 1 >= children->count) return ZQ_E_NOT_FOUND;
  ++search->index;
  if (content) *content = At<tagZQXML_CONTENT>(children, search->index);
  return S_OK;
}

HRESULT CZqXML_Document::FindContentClose(HANDLE handle) {
  if (FindSearch(handle) == nullptr) return E_HANDLE;
  return ZqList_DeleteList(m_searches, ZqList_FindSpecificItemRange(m_searches, 0, -1, handle), 1, 0);
}

HRESULT CZqXML_Document::FindChild(tagZQXML_CONTENT* content, LPCWSTR name, tagZQXML_CONTENT** child) {
  if (child == nullptr || name == nullptr) return E_INVALIDARG;
  *child = nullptr;
  tagZQXML_ELEMENT* element = nullptr;
  if (content) {
    if (content->type != XML_CONTENT_ELEMENT) return ZQ_E_NOT_FOUND;
    element = &content->element;
  }
  tagZQXML_CONTENT* at = nullptr;
  HANDLE search = FindContentFirst(element, &at);
  if (search == INVALID_HANDLE_VALUE) return ZQ_E_NOT_FOUND;
  HRESULT hr = at->type == XML_CONTENT_ELEMENT ? S_OK : ZQ_E_NOT_FOUND;
  while (hr == S_OK) {
    if (at->type != XML_CONTENT_ELEMENT) break;  // the walk ends here, without a child
    if (lstrcmpW(at->element.name, name) == 0) {
      *child = at;
      break;
    }
    hr = FindContentNext(search, &at);
  }
  FindContentClose(search);
  return hr;
}

HRESULT CZqXML_Document::GetCharDataContent(tagZQXML_ELEMENT* element, tagZQXML_CONTENT** content) {
  if (element == nullptr || content == nullptr) return E_INVALIDARG;
  *content = nullptr;
  if (element->closed || element->children == nullptr) return ZQ_E_NOT_FOUND;
  for (INT i = 0; i < element->children->count; ++i) {
    auto* c = At<tagZQXML_CONTENT>(element->children, i);
    if (c->type == XML_CONTENT_CHARDATA) {
      *content = c;
      return S_OK;
    }
  }
  return ZQ_E_NOT_FOUND;
}

HRESULT CZqXML_Document::GetContentStringReqLen(tagZQXML_ELEMENT* element, INT* length) {
  if (element == nullptr || length == nullptr) return E_INVALIDARG;
  tagZQXML_CONTENT* c = nullptr;
  HRESULT hr = GetCharDataContent(element, &c);
  if (SUCCEEDED(hr)) *length = lstrlenW(c->text) + 1;
  return hr;
}

HRESULT CZqXML_Document::GetContentString(tagZQXML_ELEMENT* element, LPWSTR buffer, INT length) {
  if (buffer == nullptr || length <= 0) return E_INVALIDARG;
  tagZQXML_CONTENT* c = nullptr;
  HRESULT hr = GetCharDataContent(element, &c);
  if (FAILED(hr)) return hr;
  lstrcpynW(buffer, c->text, length);
  if (ZqXML_DoesStringHaveEscapes(buffer)) ZqXML_RemoveEscapes(buffer);
  return S_OK;
}

HRESULT CZqXML_Document::GetAttribute(tagZQXML_ELEMENT* element, LPCWSTR name, tagZQXML_ATTRIBUTE** attribute) {
  if (element == nullptr || name == nullptr || attribute == nullptr) return E_INVALIDARG;
  *attribute = nullptr;
  if (element->attributes == nullptr) return ZQ_E_NOT_FOUND;
  for (INT i = 0; i < element->attributes->count; ++i) {
    auto* a = At<tagZQXML_ATTRIBUTE>(element->attributes, i);
    if (a->name && a->value && lstrcmpW(a->name, name) == 0) {
      *attribute = a;
      return S_OK;
    }
  }
  return ZQ_E_NOT_FOUND;
}

HRESULT CZqXML_Document::GetAttributeString(tagZQXML_ELEMENT* element, LPCWSTR name, LPWSTR buffer, INT length) {
  if (buffer == nullptr || length <= 0) return E_INVALIDARG;
  tagZQXML_ATTRIBUTE* a = nullptr;
  HRESULT hr = GetAttribute(element, name, &a);
  if (FAILED(hr)) return hr;
  lstrcpynW(buffer, a->value, length);
  if (ZqXML_DoesStringHaveEscapes(buffer)) ZqXML_RemoveEscapes(buffer);
  return S_OK;
}

HRESULT CZqXML_Document::GetChildContentString(tagZQXML_CONTENT* content, LPCWSTR name, LPWSTR buffer,
                                               INT length) {
  tagZQXML_CONTENT* child = nullptr;
  HRESULT hr = FindChild(content, name, &child);
  if (FAILED(hr)) return hr;
  if (child == nullptr) return ZQ_E_NOT_FOUND;
  return GetContentString(&child->element, buffer, length);
}

// --- Entities -----------------------------------------------------------------------

BOOL ZqXML_DoesStringNeedEscapes(LPCWSTR text) {
  if (text == nullptr) return FALSE;
  for (LPCWSTR p = text; *p; ++p) {
    if (*p == u'<' || *p == u'>') return TRUE;
    if (*p == u'&' && EntityAt(p) == nullptr) return TRUE;
  }
  return FALSE;
}

BOOL ZqXML_DoesStringHaveEscapes(LPCWSTR text) {
  if (text == nullptr) return FALSE;
  for (LPCWSTR p = text; *p; ++p)
    if (*p == u'&' && EntityAt(p)) return TRUE;
  return FALSE;
}

HRESULT ZqXML_RemoveEscapes(LPWSTR text) {
  if (text == nullptr) return E_INVALIDARG;
  LPWSTR to = text;
  for (LPCWSTR from = text; *from;) {
    const Entity* e = *from == u'&' ? EntityAt(from) : nullptr;
    if (e) {
      *to++ = e->character;
      from += e->length;
    } else {
      *to++ = *from++;
    }
  }
  *to = 0;
  return S_OK;
}

HRESULT ZqXML_AddEscapes(LPWSTR destination, INT size, LPCWSTR text) {
  if (destination == nullptr || text == nullptr || size <= 0) return E_INVALIDARG;
  // `left` is the room as the routine has always counted it: once the first
  // entity is written it drops to 0 and only falls from there, so no later
  // entity is written, though its room is passed over.  `at` is where the
  // next character goes; nothing is ever written at or past `size` - 1.
  LONG_PTR left = size;
  LONG_PTR at = 0;
  const LONG_PTR last = size - 1;
  for (LPCWSTR p = text; *p; ++p) {
    if (const Entity* e = EntityFor(*p)) {
      if (left > e->length && at + e->length <= last) {
        std::memcpy(destination + at, e->text, static_cast<size_t>(e->length) * sizeof(WCHAR));
        left = 0;
      }
      at += e->length;
    } else {
      if (at < last) destination[at] = *p;
      ++at;
      --left;
    }
  }
  destination[at < last ? at : last] = 0;
  return S_OK;
}
