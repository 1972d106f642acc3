// Paths and files: see paths.h.
#include "kernel/paths.h"

#include <algorithm>
#include <string>

#include "kernel/com/stream.h"
#include "kernel/errorhandler.h"
#include "kernel/kformat.h"
#include "kernel/langtable.h"
#include "platform/folders.h"
#include "platform/module.h"
#include "platform/registry.h"
#include "platform/text.h"
#include "platform/time.h"

namespace {

using Text = std::u16string;

constexpr WCHAR kSlash = u'/';
constexpr const WCHAR* kEllipsis = u"...";
constexpr const WCHAR* kSharedKey = u"Software\\Ostrand\\Shared Information";
constexpr const WCHAR* kSharedComponents = u"SharedComponentsFolder";
constexpr const WCHAR* kOstrandFolderValues[] = {u"MelliferThemesFolder", u"AudioTransitionsFolder"};
constexpr const WCHAR* kOstrandFolderNames[] = {u"Mellifer Themes", u"Audio Transitions"};

int Len(const WCHAR* text) { return lstrlenW(text); }

WCHAR Fold(WCHAR c) { return ZqToLowerW(c); }

bool IsBlank(WCHAR c) { return c == u' ' || c == u'\t' || c == u'\r' || c == u'\n' || c == 0x3000 || c == 0xA0; }

template <class C>
const C* FileNamePtr(const C* path) {
  if (!path) return nullptr;
  const C* name = path;
  for (const C* p = path; *p; ++p)
    if (*p == C('/')) name = p + 1;
  return name;
}

template <class C>
const C* ExtensionPtr(const C* name) {
  if (!name) return nullptr;
  const C* dot = nullptr;
  const C* p = name;
  for (; *p; ++p)
    if (*p == C('.')) dot = p;
  if (!dot) return p;
  for (const C* q = dot + 1; *q; ++q)
    if (IsBlank(static_cast<WCHAR>(static_cast<std::make_unsigned_t<C>>(*q)))) return p;
  return dot;
}

bool EqualNoCase(const WCHAR* a, const WCHAR* b) { return lstrcmpiW(a, b) == 0; }

// Writes `text` into `dst` of `size`, cut to fit.
int Put(LPWSTR dst, int size, const Text& text) { return ZqKernelCopy(dst, size, text.c_str()); }

bool IsFolder(const WCHAR* path) {
  const DWORD attributes = GetFileAttributesW(path);
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY);
}

bool Exists(const WCHAR* path) { return GetFileAttributesW(path) != INVALID_FILE_ATTRIBUTES; }

HRESULT LastStatus() {
  const HRESULT hr = ZqErrorHandler_TranslateWin32Error(GetLastError());
  return SUCCEEDED(hr) ? E_FAIL : hr;
}

Text Join(const WCHAR* folder, const WCHAR* name) {
  Text path = folder ? folder : u"";
  if (!path.empty() && path.back() != kSlash) path += kSlash;
  return path + (name ? name : u"");
}

// Calls `fn(data)` for each entry of `folder` but "." and "..".  False when
// the folder cannot be listed.
template <class F>
bool ForEachEntry(const WCHAR* folder, F&& fn) {
  WIN32_FIND_DATAW data;
  HANDLE search = FindFirstFileW(Join(folder, u"*.*").c_str(), &data);
  if (search == INVALID_HANDLE_VALUE) return false;
  do {
    if (lstrcmpW(data.cFileName, u".") == 0 || lstrcmpW(data.cFileName, u"..") == 0) continue;
    if (!fn(data)) break;
  } while (FindNextFileW(search, &data));
  FindClose(search);
  return true;
}

bool IsHiddenName(const WCHAR* name) { return name && name[0] == u'.'; }

// Width of a text on a device.
int Width(HZQTEXTDEVICE device, const Text& text) {
  return ZqTextDevice_Width(device, text.c_str(), static_cast<int>(text.size()));
}

}  // namespace

// ---------------------------------------------------------------------------
// Texts only.
// ---------------------------------------------------------------------------

ZQ_API LPCWSTR ZqGetFileNamePtrW(LPCWSTR path) { return FileNamePtr(path); }
ZQ_API LPCSTR ZqGetFileNamePtrA(LPCSTR path) { return FileNamePtr(path); }
ZQ_API LPCWSTR ZqGetFileNameExtensionPtrW(LPCWSTR name) { return ExtensionPtr(name); }
ZQ_API LPCSTR ZqGetFileNameExtensionPtrA(LPCSTR name) { return ExtensionPtr(name); }

ZQ_API int ZqGetFileNameWithoutPathOrExtension(LPCWSTR path, LPWSTR dst, int size) {
  if (!path || !dst || size < 1) return 0;
  const WCHAR* name = FileNamePtr(path);
  const WCHAR* extension = ExtensionPtr(name);
  return Put(dst, size, Text(name, extension));
}

ZQ_API int ZqAddSlashToPathName(LPWSTR path, int size) {
  if (!path || !path[0]) return 0;
  const int length = Len(path);
  if (length >= size) return 0;
  if (path[length - 1] == kSlash) return length;
  if (size < length + 2) return 0;
  path[length] = kSlash;
  path[length + 1] = 0;
  return length + 1;
}

ZQ_API int ZqRemoveSlashFromPathNameEnd(LPWSTR path, int size) {
  if (!path) return 0;
  int length = 0;
  while (length < size && path[length]) ++length;
  if (length == size || length == 0) return 0;
  if (path[length - 1] == kSlash) path[--length] = 0;
  return length;
}

ZQ_API int ZqAppendToPathName(LPWSTR path, int size, LPCWSTR part, LPCWSTR extension) {
  if (!path || size < 1) return 0;
  int length = Len(path);
  if (length > 0 && (length = ZqAddSlashToPathName(path, size)) == 0) return 0;
  if (part) {
    while (*part == kSlash) ++part;
    length += ZqKernelCopy(path + length, size - length, part);
  }
  if (extension) length = ZqAddExtensionToPathName(path, size, extension);
  return length;
}

ZQ_API int ZqAddExtensionToPathName(LPWSTR path, int size, LPCWSTR extension) {
  if (!path || size < 1) return 0;
  if (!extension) return Len(path);
  if (*extension == u'.') ++extension;
  const WCHAR* present = ExtensionPtr(FileNamePtr(path));
  if (*present == u'.' && EqualNoCase(present + 1, extension)) return Len(path);
  ZqReplaceExtensionOnPathName(path, size, extension);
  return Len(path);
}

ZQ_API int ZqReplaceExtensionOnPathName(LPWSTR path, int size, LPCWSTR extension) {
  if (!path || size < 1) return 0;
  if (extension && *extension == u'.') ++extension;
  const int at = static_cast<int>(ExtensionPtr(FileNamePtr(path)) - path);
  if (at + 1 >= size) return 0;
  path[at] = u'.';
  ZqKernelCopy(path + at + 1, size - at - 1, extension);
  return at;
}

ZQ_API int ZqGetPathNameFromFilePath(LPCWSTR path, LPWSTR dst, int size) {
  if (!path) return 0;
  const int length = static_cast<int>(FileNamePtr(path) - path);
  if (length == 0 || !dst || size < length + 1) return length;
  return Put(dst, size, Text(path, length));
}

ZQ_API int ZqGetRootPathFromFilePath(LPCWSTR path, LPWSTR dst, int size) {
  if (!path || !dst || size < 1) return 0;
  dst[0] = 0;
  const Text text = path;
  Text root;
  if (text.size() > 2 && text[0] == kSlash && text[1] == kSlash && text[2] != kSlash) {
    const size_t server = text.find(kSlash, 2);
    if (server == Text::npos || server + 1 >= text.size()) return 0;
    const size_t share = text.find(kSlash, server + 1);
    root = share == Text::npos ? text + kSlash : text.substr(0, share + 1);
  } else {
    const size_t first = text.find(kSlash);
    if (first == Text::npos) return 0;
    root = text.substr(0, first + 1);
  }
  if (static_cast<int>(root.size()) >= size) return 0;
  return Put(dst, size, root);
}

ZQ_API BOOL ZqDirectoryUpOneLevel(LPWSTR path, int size) {
  if (!path) return 0;
  int length = 0;
  while (length < MAX_PATH && length < size && path[length]) ++length;
  if (length >= MAX_PATH || length >= size || length < 4) return 0;
  int end = path[length - 1] == kSlash ? length - 1 : length;
  while (end > 0 && path[end - 1] != kSlash) --end;
  if (end == 0) return 0;
  path[end] = 0;
  return 1;
}

ZQ_API BOOL ZqValidateFileName(LPWSTR name, bool fix) {
  if (!name) return 1;
  static constexpr WCHAR kInvalid[] = u"\n\r\"*/:<>?\\|";
  BOOL valid = 1;
  const int length = Len(name);
  for (int i = 0; i < length; ++i) {
    bool bad = std::char_traits<WCHAR>::find(kInvalid, 11, name[i]) != nullptr;
    if (i == length - 1 && (name[i] == u' ' || name[i] == u'.')) bad = true;
    if (!bad) continue;
    if (!fix) return 0;
    name[i] = u'_';
    valid = 0;
  }
  return valid;
}

ZQ_API BOOL ZqIsMatchWildCard(LPCWSTR pattern, LPCWSTR name) {
  if (!pattern || !name) return 0;
  if (pattern[0] == u'*' && pattern[1] == 0) return 1;
  const auto same = [](WCHAR a, WCHAR b) { return (a & 0xFF) == (b & 0xFF); };
  const WCHAR* p = pattern;
  const WCHAR* n = name;
  for (;;) {
    if (*n == 0) {
      if (*p == 0 || *p == u'*') return 1;
      return *p == u'.' && p[1] == 0;
    }
    if (*p == 0) return *n == u'.' && n[1] == 0;
    if (*p == u'?') {
      ++p;
      ++n;
    } else if (*p == u'*') {
      const WCHAR stop = p[1];
      ++p;
      while (*n && *n != u'.' && !(stop && same(*n, stop))) ++n;
    } else {
      if (!same(*p, *n)) return 0;
      ++p;
      ++n;
    }
  }
}

ZQ_API int ZqFilenameLogicalCompare(LPCWSTR a, LPCWSTR b) {
  const auto digit = [](WCHAR c) { return c >= u'0' && c <= u'9'; };
  a = a ? a : u"";
  b = b ? b : u"";
  while (*a && *b) {
    if (digit(*a) && digit(*b)) {
      while (*a == u'0') ++a;
      while (*b == u'0') ++b;
      const WCHAR* ea = a;
      const WCHAR* eb = b;
      while (digit(*ea)) ++ea;
      while (digit(*eb)) ++eb;
      if (ea - a != eb - b) return ea - a < eb - b ? -1 : 1;
      for (; a < ea; ++a, ++b)
        if (*a != *b) return *a < *b ? -1 : 1;
      continue;
    }
    const WCHAR fa = Fold(*a), fb = Fold(*b);
    if (fa != fb) return fa < fb ? -1 : 1;
    ++a;
    ++b;
  }
  return *a ? 1 : (*b ? -1 : 0);
}

ZQ_API LPCWSTR ZqGetFileNamePtrRelative(LPCWSTR base, LPCWSTR path) {
  if (!path) return nullptr;
  if (!base) return path + Len(path);
  int i = Len(path), j = Len(base);
  while (i > 0 && j > 0 && Fold(path[i - 1]) == Fold(base[j - 1])) {
    --i;
    --j;
  }
  const bool boundary = (i == 0 || path[i - 1] == kSlash) && (j == 0 || base[j - 1] == kSlash);
  const WCHAR* tail = path + i;
  if (!boundary)
    while (*tail && *tail != kSlash) ++tail;
  while (*tail == kSlash) ++tail;
  return tail;
}

ZQ_API int ZqGetBasePathRelative(LPCWSTR base, LPCWSTR path, LPWSTR dst, int size) {
  if (!path || !dst || size < 1) return 0;
  const WCHAR* tail = ZqGetFileNamePtrRelative(base, path);
  Text head(path, tail);
  while (!head.empty() && head.back() == kSlash) head.pop_back();
  if (head.empty() && tail == path) return Put(dst, size, Text());
  return Put(dst, size, head + kSlash);
}

ZQ_API HRESULT ZqReplaceBasePathRelative(LPCWSTR path, LPCWSTR oldBase, LPCWSTR newBase, LPWSTR dst,
                                         int size) {
  if (!dst || size < 1) return E_FAIL;
  dst[0] = 0;
  if (!path || !oldBase) return E_FAIL;
  const int oldLength = Len(oldBase);
  if (Len(path) < oldLength) return E_FAIL;
  for (int i = 0; i < oldLength; ++i)
    if (Fold(path[i]) != Fold(oldBase[i])) return E_FAIL;
  const Text result = Text(newBase ? newBase : u"") + (path + oldLength);
  if (result.size() >= MAX_PATH + 1) return E_FAIL;
  Put(dst, size, result);
  return static_cast<int>(result.size()) < size ? S_OK : E_FAIL;
}

// ---------------------------------------------------------------------------
// Shortening to a width.
// ---------------------------------------------------------------------------

ZQ_API int ZqCalcPathEllipsisEx(HZQTEXTDEVICE device, LPCWSTR path, LPWSTR dst, int size, int width) {
  if (!path || !dst || size < 1) return 0;
  const Text text = path;
  const size_t slash = text.rfind(kSlash);
  if (slash == Text::npos || Width(device, text) <= width) return Put(dst, size, text);
  const Text tail = kEllipsis + text.substr(slash);
  if (Width(device, tail) > width) return Put(dst, size, text);
  Text head = text.substr(0, slash);
  while (!head.empty() && Width(device, head + tail) > width) head.pop_back();
  return Put(dst, size, head + tail);
}

ZQ_API int ZqCalcPathEllipsis(LPCWSTR path, LPWSTR dst, int size, int width) {
  return ZqCalcPathEllipsisEx(nullptr, path, dst, size, width);
}

ZQ_API int ZqCalcPathEllipsisExCtl(HWND__*, LPCWSTR path, LPWSTR dst, int size, int width) {
  return ZqCalcPathEllipsisEx(nullptr, path, dst, size, width);
}

namespace {

// Shortens `text` in place from its end (fromEnd false) or its front.
BOOL StringEllipsis(HZQTEXTDEVICE device, LPWSTR text, int size, int width, bool fromEnd) {
  if (!text || size < 1) return 0;
  Text kept = text;
  const int room = width - 2;
  if (Width(device, kept) <= room) return 0;
  const auto joined = [&] { return fromEnd ? kEllipsis + kept : kept + kEllipsis; };
  while (!kept.empty() && (Width(device, joined()) > room || static_cast<int>(kept.size()) + 3 >= size))
    kept.erase(fromEnd ? kept.begin() : kept.end() - 1);
  Put(text, size, joined());
  return 1;
}

}  // namespace

ZQ_API BOOL ZqCalcStringEllipsis(HZQTEXTDEVICE device, LPWSTR text, int size, int width) {
  return StringEllipsis(device, text, size, width, false);
}

ZQ_API BOOL ZqCalcStringEllipsisFromEnd(HZQTEXTDEVICE device, LPWSTR text, int size, int width) {
  return StringEllipsis(device, text, size, width, true);
}

ZQ_API HRESULT ZqFilenameFormat(HZQTEXTDEVICE device, int width, LPCWSTR path, LPWSTR dst, int size,
                                int style) {
  if (!path || !dst || style < 0 || style > ZQFNF_PATH_SHORTENED) return E_INVALIDARG;
  if (style == ZQFNF_NOTHING) return S_OK;
  if (!path[0]) {
    if (size >= 2) dst[0] = 0;
    return S_OK;
  }
  switch (style) {
    case ZQFNF_NAME:
      Put(dst, size, FileNamePtr(path));
      break;
    case ZQFNF_PATH_ELLIPSIS:
      ZqCalcPathEllipsisEx(device, path, dst, size, width);
      break;
    case ZQFNF_NAME_ELLIPSIS:
      Put(dst, size, FileNamePtr(path));
      ZqCalcStringEllipsis(device, dst, size, width);
      break;
    default:
      Put(dst, size, path);
      ZqCalcStringEllipsis(device, dst, size, width);
      break;
  }
  return S_OK;
}

ZQ_API HRESULT ZqFilenameFormatForWidth(HWND__*, int width, LPCWSTR path, LPWSTR dst, int size, int style) {
  return ZqFilenameFormat(nullptr, width, path, dst, size, style);
}

ZQ_API HRESULT ZqFilenameFormatForCtl(HWND__*, int width, LPCWSTR path, LPWSTR dst, int size, int style) {
  return ZqFilenameFormat(nullptr, width, path, dst, size, style);
}

// ---------------------------------------------------------------------------
// On the disk.
// ---------------------------------------------------------------------------

ZQ_API BOOL ZqDoesFileExist(LPCWSTR path, bool refuseHidden) {
  if (!path || !path[0]) return 0;
  const DWORD attributes = GetFileAttributesW(path);
  if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_DIRECTORY)) return 0;
  return !(refuseHidden && IsHiddenName(FileNamePtr(path)));
}

ZQ_API BOOL ZqIsFileWritable(LPCWSTR path) {
  HANDLE file = CreateFileW(path, GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                            nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return 0;
  CloseHandle(file);
  return 1;
}

ZQ_API BOOL ZqIsDirectoryWritable(LPCWSTR path) {
  if (!path || !IsFolder(path)) return 0;
  WCHAR probe[MAX_PATH];
  if (FAILED(ZqCreateTempFileAndNameEx(path, u".zqwrite", u".tmp", nullptr, probe, MAX_PATH))) return 0;
  DeleteFileW(probe);
  return 1;
}

ZQ_API HRESULT ZqGetFileSizeByName(LPCWSTR path, ULONGLONG* size) {
  if (!size) return E_POINTER;
  *size = 0;
  HANDLE file = CreateFileW(path, 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                            OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return LastStatus();
  LARGE_INTEGER bytes{};
  const BOOL ok = GetFileSizeEx(file, &bytes);
  const HRESULT hr = ok ? S_OK : LastStatus();
  CloseHandle(file);
  if (ok) *size = static_cast<ULONGLONG>(bytes.QuadPart);
  return hr;
}

ZQ_API DWORD ZqGetLongPathName(LPCWSTR path, LPWSTR dst, DWORD size) {
  if (!dst || size < 1) return 0;
  ZqKernelCopy(dst, static_cast<int>(size), path);
  if (!path || !Exists(path) || static_cast<DWORD>(Len(path)) >= size) return 0;
  return static_cast<DWORD>(Len(dst));
}

ZQ_API DWORD ZqGetFullPathName(LPCWSTR path, DWORD size, LPWSTR dst, LPWSTR* name) {
  if (name) *name = nullptr;
  if (!path || !dst || size < 1) return 0;
  const DWORD length = GetFullPathNameW(path, size, dst, name);
  if (length == 0 || length >= size) {
    dst[0] = 0;
    if (name) *name = nullptr;
    return 0;
  }
  return length;
}

ZQ_API BOOL ZqQualifyPath(LPCWSTR path, LPWSTR dst, int size) {
  return size > 0 && ZqGetFullPathName(path, static_cast<DWORD>(size), dst, nullptr) != 0;
}

ZQ_API DWORD ZqGetTempPath(DWORD size, LPWSTR dst) {
  if (!dst || size < 1) return 0;
  const DWORD length = GetTempPathW(size, dst);
  if (length == 0 || length >= size) {
    dst[0] = 0;
    return 0;
  }
  return length;
}

ZQ_API DWORD ZqGetModuleFileName(HMODULE module, LPWSTR dst, DWORD size) {
  if (!dst || size < 1) return 0;
  dst[0] = 0;
  WCHAR name[MAX_PATH];
  const DWORD length = GetModuleFileNameW(module, name, MAX_PATH);
  if (length == 0 || length >= MAX_PATH || length >= size) return 0;
  return static_cast<DWORD>(ZqKernelCopy(dst, static_cast<int>(size), name));
}

ZQ_API DWORD ZqGetModulePath(HMODULE module, LPWSTR dst, DWORD size) {
  if (ZqGetModuleFileName(module, dst, size) == 0) return 0;
  const DWORD length = static_cast<DWORD>(FileNamePtr(dst) - dst);
  dst[length] = 0;
  return length;
}

ZQ_API BOOL ZqCreateDirectory(LPCWSTR path, LPSECURITY_ATTRIBUTES security) {
  if (!path || Len(path) >= MAX_PATH) return 0;
  WCHAR root[MAX_PATH];
  const int rootLength = ZqGetRootPathFromFilePath(path, root, MAX_PATH);
  if (rootLength < 1 || !IsFolder(root)) return 0;
  const Text text = path;
  if (text.find(u"//", static_cast<size_t>(rootLength)) != Text::npos) return 0;
  for (size_t end = rootLength; end < text.size();) {
    size_t next = text.find(kSlash, end);
    if (next == Text::npos) next = text.size();
    const Text level = text.substr(0, next);
    if (!IsFolder(level.c_str()) && !CreateDirectoryW(level.c_str(), security)) return 0;
    end = next + 1;
  }
  return 1;
}

ZQ_API HRESULT ZqCreateTempFileAndNameEx(LPCWSTR folder, LPCWSTR prefix, LPCWSTR suffix, LPCWSTR numberFormat,
                                         LPWSTR dst, int size) {
  if (!dst || (!folder && !prefix && !suffix)) return E_INVALIDARG;
  const Text head = (folder && folder[0] ? Join(folder, nullptr) : Text()) + (prefix ? prefix : u"");
  constexpr DWORD kMostNames = 1u << 20;
  for (DWORD counter = 1; counter <= kMostNames; ++counter) {
    WCHAR number[41];
    ZqKernelFormat(number, 41, numberFormat ? numberFormat : u"%d", counter);
    const Text name = head + number + (suffix ? suffix : u"");
    if (size < 1 || static_cast<int>(name.size()) >= size) {
      if (size > 0) dst[0] = 0;
      return E_INVALIDARG;
    }
    HANDLE file = CreateFileW(name.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file != INVALID_HANDLE_VALUE) {
      CloseHandle(file);
      Put(dst, size, name);
      return S_OK;
    }
    const DWORD error = GetLastError();
    if (error == ERROR_FILE_EXISTS || error == ERROR_SHARING_VIOLATION || error == ERROR_ALREADY_EXISTS)
      continue;
    dst[0] = 0;
    const HRESULT hr = ZqErrorHandler_TranslateWin32Error(error);
    return SUCCEEDED(hr) ? E_FAIL : hr;
  }
  dst[0] = 0;
  return E_FAIL;
}

ZQ_API HRESULT ZqCreateTempFileAndName(LPCWSTR folder, LPCWSTR prefix, LPCWSTR suffix, LPWSTR dst) {
  return ZqCreateTempFileAndNameEx(folder, prefix, suffix, nullptr, dst, MAX_PATH);
}

ZQ_API HRESULT ZqDeleteFiles(LPCWSTR folder, LPCWSTR pattern) {
  HRESULT first = S_OK;
  const bool listed = ForEachEntry(folder, [&](const WIN32_FIND_DATAW& data) {
    if (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) return true;
    if (pattern && !ZqIsMatchWildCard(pattern, data.cFileName)) return true;
    if (!DeleteFileW(Join(folder, data.cFileName).c_str()) && first == S_OK) first = LastStatus();
    return true;
  });
  return listed ? first : LastStatus();
}

ZQ_API HRESULT ZqDeleteDirectoryTree(LPCWSTR folder) {
  if (!folder || !folder[0]) return E_INVALIDARG;
  HRESULT first = S_OK;
  const bool listed = ForEachEntry(folder, [&](const WIN32_FIND_DATAW& data) {
    const Text path = Join(folder, data.cFileName);
    const HRESULT hr = (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) ? ZqDeleteDirectoryTree(path.c_str())
                       : DeleteFileW(path.c_str())                         ? S_OK
                                                                           : LastStatus();
    if (FAILED(hr) && first == S_OK) first = hr;
    return true;
  });
  if (!listed) return LastStatus();
  if (!RemoveDirectoryW(folder) && first == S_OK) first = LastStatus();
  return first;
}

namespace {

// `inner` lies in or is `outer` (both absolute after qualification).
bool LiesInside(const WCHAR* outer, const WCHAR* inner) {
  WCHAR a[MAX_PATH], b[MAX_PATH];
  if (!ZqQualifyPath(outer, a, MAX_PATH) || !ZqQualifyPath(inner, b, MAX_PATH)) return false;
  ZqAddSlashToPathName(a, MAX_PATH);
  ZqAddSlashToPathName(b, MAX_PATH);
  return Text(b).rfind(a, 0) == 0;
}

}  // namespace

ZQ_API BOOL ZqCanMoveFolder(LPCWSTR from, LPCWSTR to) {
  return from && to && IsFolder(from) && !Exists(to) && !LiesInside(from, to);
}

ZQ_API HRESULT ZqMoveFolder(LPCWSTR from, LPCWSTR to) {
  if (!from || !to) return E_INVALIDARG;
  if (LiesInside(from, to)) return ZQ_E_DESTINATION_INSIDE;
  return MoveFileExW(from, to, MOVEFILE_COPY_ALLOWED) ? S_OK : LastStatus();
}

ZQ_API BOOL ZqIsDirectoryEmpty(LPCWSTR path) {
  if (!path || Len(path) >= MAX_PATH) return 0;
  bool empty = true;
  ForEachEntry(path, [&](const WIN32_FIND_DATAW&) { return empty = false; });
  return empty;
}

ZQ_API BOOL ZqIsDirectoryEmptyRecursive(LPCWSTR path, BOOL ignoreHidden) {
  if (!path || Len(path) >= MAX_PATH) return 0;
  bool empty = true;
  ForEachEntry(path, [&](const WIN32_FIND_DATAW& data) {
    if (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)
      empty = ZqIsDirectoryEmptyRecursive(Join(path, data.cFileName).c_str(), ignoreHidden);
    else
      empty = ignoreHidden && IsHiddenName(data.cFileName);
    return empty;
  });
  return empty;
}

ZQ_API HRESULT ZqGetDirectorySize(LPCWSTR path, ULONGLONG* size) {
  if (!size) return E_INVALIDARG;
  *size = 0;
  ForEachEntry(path, [&](const WIN32_FIND_DATAW& data) {
    if (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) {
      ULONGLONG inner = 0;
      ZqGetDirectorySize(Join(path, data.cFileName).c_str(), &inner);
      *size += inner;
    } else {
      *size += (static_cast<ULONGLONG>(data.nFileSizeHigh) << 32) | data.nFileSizeLow;
    }
    return true;
  });
  return S_OK;
}

ZQ_API HRESULT ZqGetDiskFreeSpace(LPCWSTR path, ULONGLONG* freeBytes) {
  if (!freeBytes) return E_POINTER;
  ULARGE_INTEGER value{};
  *freeBytes = 0;
  if (!GetDiskFreeSpaceExW(path, &value, nullptr, nullptr)) return LastStatus();
  *freeBytes = value.QuadPart;
  return S_OK;
}

ZQ_API HRESULT ZqGetDiskTotalSpace(LPCWSTR path, ULONGLONG* totalBytes) {
  if (!totalBytes) return E_POINTER;
  ULARGE_INTEGER value{};
  *totalBytes = 0;
  if (!GetDiskFreeSpaceExW(path, nullptr, &value, nullptr)) return LastStatus();
  *totalBytes = value.QuadPart;
  return S_OK;
}

ZQ_API int ZqFormatDiskFreeSpace(LPCWSTR path, LPWSTR dst, int size) {
  if (!dst || size < 1) return 0;
  dst[0] = 0;
  ULONGLONG bytes = 0;
  if (FAILED(ZqGetDiskFreeSpace(path, &bytes))) return 0;
  if (bytes < 1024)
    return ZqKernelFormat(dst, size, ZqGetString(nullptr, ZqLangEntryRef(ZQSTR::SIZE_BYTES)), static_cast<int>(bytes));
  static constexpr ZQSTR kUnits[] = {ZQSTR::SIZE_KB_SPACED, ZQSTR::SIZE_MB_SPACED, ZQSTR::SIZE_GB_SPACED};
  int unit = 0;
  while (unit < 2 && bytes >= (1ULL << (10 * (unit + 2)))) ++unit;
  const double value = static_cast<double>(bytes) / static_cast<double>(1ULL << (10 * (unit + 1)));
  return ZqKernelFormat(dst, size, ZqGetString(nullptr, ZqLangEntryRef(kUnits[unit])), value);
}

ZQ_API HRESULT ZqGetUniqueSubFolder(LPCWSTR parent, LPCWSTR prefix, LPWSTR dst, int size) {
  if (!parent || !prefix || !dst || size < MAX_PATH) return E_INVALIDARG;
  const Text first = Join(parent, prefix);
  Text name = first;
  for (DWORD counter = 1; IsFolder(name.c_str()); ++counter) {
    if (counter >= 0x10000) return E_FAIL;
    WCHAR number[16];
    ZqKernelFormat(number, 16, u"%lu", counter);
    name = first + number;
  }
  if (static_cast<int>(name.size()) >= size) return E_FAIL;
  Put(dst, size, name);
  return S_OK;
}

ZQ_API BOOL ZqIsHiddenFolderByDefault(int folder) {
  switch (folder & ~0xFF00) {
    case 5: case 12: case 16: case 25: case 40: case 46: case 53: case 54: case 55: return 0;
    default: return 1;
  }
}

namespace {

HRESULT SpecialFolder(LPWSTR dst, int size, int folder, LPCWSTR app, const WCHAR* version) {
  if (!dst || size < MAX_PATH) return E_INVALIDARG;
  dst[0] = 0;
  WCHAR base[MAX_PATH];
  if (FAILED(SHGetFolderPathW(nullptr, folder & ~0xFF00, nullptr, SHGFP_TYPE_CURRENT, base))) return E_FAIL;
  Text path = Join(base, ZqIsHiddenFolderByDefault(folder) ? u"Ostrand/" : u"");
  path += app ? app : u"";
  path += kSlash;
  if (version) path += Text(version) + kSlash;
  if (static_cast<int>(path.size()) >= size || !ZqCreateDirectory(path.c_str(), nullptr)) return E_FAIL;
  Put(dst, size, path);
  return S_OK;
}

// A string value of the machine's shared key into `dst` of MAX_PATH.
bool ReadShared(const WCHAR* value, WCHAR (&dst)[MAX_PATH]) {
  HKEY key = nullptr;
  dst[0] = 0;
  if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, kSharedKey, 0, KEY_READ, &key) != ERROR_SUCCESS) return false;
  BYTE bytes[520] = {};
  DWORD type = 0, cb = sizeof bytes - 2;
  const LSTATUS status = RegQueryValueExW(key, value, nullptr, &type, bytes, &cb);
  RegCloseKey(key);
  if (status != ERROR_SUCCESS || type != REG_SZ) return false;
  ZqKernelCopy(dst, MAX_PATH, reinterpret_cast<const WCHAR*>(bytes));
  return dst[0] != 0;
}

}  // namespace

ZQ_API HRESULT ZqGetSpecialFolderVer(LPWSTR dst, int size, int folder, LPCWSTR app, int major, int minor) {
  WCHAR version[32];
  ZqKernelFormat(version, 32, u"%d.%d", major, minor);
  return SpecialFolder(dst, size, folder, app, version);
}

ZQ_API HRESULT ZqGetSpecialFolderNoVer(LPWSTR dst, int size, int folder, LPCWSTR app) {
  return SpecialFolder(dst, size, folder, app, nullptr);
}

ZQ_API HRESULT ZqGetSharedComponentsFolder(LPWSTR dst, int size) {
  WCHAR folder[MAX_PATH];
  if (!dst || !ReadShared(kSharedComponents, folder)) return E_FAIL;
  const int length = ZqAddSlashToPathName(folder, MAX_PATH);
  if (length == 0 || size <= length) return E_FAIL;
  Put(dst, size, folder);
  return S_OK;
}

ZQ_API HRESULT ZqGetSpecialOstrandFolder(LPWSTR dst, int size, int index) {
  if (!dst || size < 1) return E_INVALIDARG;
  WCHAR folder[MAX_PATH];
  if (index >= 0 && index <= 1 && ReadShared(kOstrandFolderValues[index], folder)) {
    Put(dst, size, folder);
    return S_OK;
  }
  if (index < 0 || index > 1) return E_INVALIDARG;
  const HRESULT hr = ZqGetSharedComponentsFolder(folder, MAX_PATH);
  if (FAILED(hr)) return hr;
  const Text path = Text(folder) + kOstrandFolderNames[index] + kSlash;
  if (static_cast<int>(path.size()) >= size) return E_FAIL;
  Put(dst, size, path);
  return S_OK;
}

ZQ_API HRESULT ZqSetSpecialOstrandFolder(LPCWSTR path, int index) {
  if (!path || index < 0 || index > 1) return E_INVALIDARG;
  HKEY key = nullptr;
  if (RegCreateKeyExW(HKEY_LOCAL_MACHINE, kSharedKey, 0, nullptr, 0, KEY_WRITE, nullptr, &key, nullptr) !=
      ERROR_SUCCESS)
    return ZQ_E_ADMIN_REQUIRED;
  const DWORD bytes = static_cast<DWORD>((Len(path) + 1) * sizeof(WCHAR));
  const LSTATUS status =
      RegSetValueExW(key, kOstrandFolderValues[index], 0, REG_SZ, reinterpret_cast<const BYTE*>(path), bytes);
  RegCloseKey(key);
  return status == ERROR_SUCCESS ? S_OK : ZQ_E_ADMIN_REQUIRED;
}

ZQ_API HRESULT ZqGetSpecialOstrandDefaultFolderName(LPWSTR dst, int size, int index) {
  if (!dst || size < 1 || index < 0 || index > 1) return E_INVALIDARG;
  Put(dst, size, kOstrandFolderNames[index]);
  return S_OK;
}

namespace {

BOOL PackTime(const FILETIME& time, WORD* date, WORD* clock) {
  SYSTEMTIME st{};
  if (!FileTimeToSystemTime(&time, &st) || st.wYear < 1980 || st.wYear > 2107) return 0;
  if (date) *date = static_cast<WORD>((st.wYear - 1980) << 9 | st.wMonth << 5 | st.wDay);
  if (clock) *clock = static_cast<WORD>(st.wHour << 11 | st.wMinute << 5 | st.wSecond / 2);
  return 1;
}

BOOL FileDateTime(HANDLE file, WORD* date, WORD* clock, bool local) {
  FILETIME written{}, shown{};
  if (!GetFileTime(file, nullptr, nullptr, &written)) return 0;
  if (!local) return PackTime(written, date, clock);
  return FileTimeToLocalFileTime(&written, &shown) && PackTime(shown, date, clock);
}

}  // namespace

ZQ_API BOOL ZqDosGetDateTime(HANDLE file, WORD* date, WORD* time) { return FileDateTime(file, date, time, true); }

ZQ_API BOOL ZqDosGetDateTimeUTC(HANDLE file, WORD* date, WORD* time) {
  return FileDateTime(file, date, time, false);
}

ZQ_API BOOL ZqGetDateTime(LPCWSTR path, WORD* date, WORD* time) {
  HANDLE file = CreateFileW(path, 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                            OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
  if (file == INVALID_HANDLE_VALUE) return 0;
  const BOOL ok = FileDateTime(file, date, time, true);
  CloseHandle(file);
  return ok;
}

ZQ_API BOOL ZqReadFile(HANDLE file, LPVOID buffer, DWORD size, DWORD* bytesRead) {
  return ReadFile(file, buffer, size, bytesRead, nullptr);
}

ZQ_API HRESULT ZqReadIStream(IStream* stream, void* buffer, ULONG size, ULONG* bytesRead) {
  if (!stream) return E_POINTER;
  return stream->Read(buffer, size, bytesRead);
}
