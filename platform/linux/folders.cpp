// Folders by number (XDG) and free space (statvfs).
#include <sys/stat.h>
#include <sys/statvfs.h>

#include <cerrno>
#include <cstdlib>
#include <string>

#include "platform/folders.h"
#include "platform/text.h"

namespace {

// An absolute value of `variable`, or $HOME/`fallback` (an empty fallback:
// $HOME itself).
std::string XdgFolder(const char* variable, const char* fallback) {
  if (variable) {
    const char* value = std::getenv(variable);
    if (value && value[0] == '/') return value;
  }
  const char* home = std::getenv("HOME");
  std::string base = home && home[0] ? home : "/";
  if (!fallback || !fallback[0]) return base;
  if (base.back() != '/') base += '/';
  return base + fallback;
}

// The first absolute folder of $XDG_DATA_DIRS.
std::string SharedDataFolder() {
  const char* value = std::getenv("XDG_DATA_DIRS");
  std::string dirs = value ? value : "";
  size_t start = 0;
  while (start <= dirs.size()) {
    const size_t end = std::min(dirs.find(':', start), dirs.size());
    const std::string one = dirs.substr(start, end - start);
    if (!one.empty() && one[0] == '/') return one;
    start = end + 1;
  }
  return "/usr/local/share";
}

// The folder of a number, or an empty text for an unknown one.
std::string FolderOf(int csidl) {
  switch (csidl) {
    case 0:
    case 16: return XdgFolder("XDG_DESKTOP_DIR", "Desktop");
    case 5:
    case 12: return XdgFolder("XDG_DOCUMENTS_DIR", "Documents");
    case 13: return XdgFolder("XDG_MUSIC_DIR", "Music");
    case 14: return XdgFolder("XDG_VIDEOS_DIR", "Videos");
    case 39: return XdgFolder("XDG_PICTURES_DIR", "Pictures");
    case 21: return XdgFolder("XDG_TEMPLATES_DIR", "Templates");
    case 26: return XdgFolder("XDG_DATA_HOME", ".local/share");
    case 28: return XdgFolder("XDG_STATE_HOME", ".local/state");
    case 32: return XdgFolder("XDG_CACHE_HOME", ".cache");
    case 40: return XdgFolder(nullptr, nullptr);
    case 25:
    case 35:
    case 46:
    case 53:
    case 54:
    case 55: return SharedDataFolder();
    case 36: return "/usr";
    case 37:
    case 38:
    case 43: return "/usr/lib";
    default: return std::string();
  }
}

// Creates `path` and the folders on the way to it (0700 for new ones).
int CreateFolders(const std::string& path) {
  for (size_t slash = path.find('/', 1);; slash = path.find('/', slash + 1)) {
    const std::string part = path.substr(0, slash);
    if (!part.empty() && mkdir(part.c_str(), 0700) != 0 && errno != EEXIST) return errno;
    if (slash == std::string::npos) break;
  }
  struct stat st;
  if (stat(path.c_str(), &st) != 0) return errno;
  return S_ISDIR(st.st_mode) ? 0 : ENOTDIR;
}

}  // namespace

ZQ_EXTERN_C HRESULT SHGetFolderPathW(void*, int csidl, HANDLE, DWORD, LPWSTR path) {
  if (!path) return E_INVALIDARG;
  path[0] = 0;
  std::string folder = FolderOf(csidl & 0xFF);
  if (folder.empty()) return E_INVALIDARG;
  while (folder.size() > 1 && folder.back() == '/') folder.pop_back();
  const std::u16string wide = ZqUtf8ToUtf16(folder);
  if (wide.size() >= MAX_PATH) return HRESULT_FROM_WIN32(ERROR_FILENAME_EXCED_RANGE);
  if (csidl & CSIDL_FLAG_CREATE) {
    if (const int error = CreateFolders(folder)) return HRESULT_FROM_WIN32(ZqErrorFromErrno(error));
  }
  wide.copy(path, wide.size());
  path[wide.size()] = 0;
  return S_OK;
}

ZQ_EXTERN_C BOOL GetDiskFreeSpaceExW(LPCWSTR path, ULARGE_INTEGER* freeToCaller,
                                     ULARGE_INTEGER* total, ULARGE_INTEGER* totalFree) {
  struct statvfs st;
  const std::string native = ZqUtf16ToUtf8(path && path[0] ? path : u".");
  if (statvfs(native.c_str(), &st) != 0) {
    ZqSetLastErrorFromErrno(errno);
    return FALSE;
  }
  const ULONGLONG unit = st.f_frsize ? st.f_frsize : st.f_bsize;
  if (freeToCaller) freeToCaller->QuadPart = unit * st.f_bavail;
  if (total) total->QuadPart = unit * st.f_blocks;
  if (totalFree) totalFree->QuadPart = unit * st.f_bfree;
  SetLastError(0);
  return TRUE;
}
