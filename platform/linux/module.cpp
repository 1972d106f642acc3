// The module loader over the system's dynamic loader.
#include "platform/module.h"

#include "base/status.h"
#include "platform/linux/elfheader.h"
#include "platform/text.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <link.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

thread_local std::string t_loadError;

std::string ToUtf8(LPCWSTR text) {
  if (!text) return std::string();
  size_t n = 0;
  while (text[n]) ++n;
  return ZqUtf16ToUtf8(std::u16string_view(text, n));
}

bool Contains(const char* text, const char* part) { return text && std::strstr(text, part) != nullptr; }

// Why a module at `path` did not load.  The file's own header decides what
// it can; the loader's message tells the rest (a dependency or a symbol that
// is missing, a dependency that is itself unfit).
DWORD ClassifyLoadFailure(const std::string& path, const char* message) {
  if (path.find('/') != std::string::npos) {
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
      const int error = errno;
      if (error == EACCES || error == EPERM) return ERROR_ACCESS_DENIED;
      return ERROR_MOD_NOT_FOUND;
    }
    unsigned char header[64];
    size_t got = 0;
    while (got < sizeof(header)) {
      const ssize_t n = read(fd, header + got, sizeof(header) - got);
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) break;
      got += static_cast<size_t>(n);
    }
    close(fd);
    unsigned machine = 0;
    uint16_t characteristics = 0;
    bool shared = false;
    bool is64 = false;
    if (!zq_elf::ReadHeader(header, got, &machine, &characteristics, &shared, &is64)) return ERROR_BAD_EXE_FORMAT;
    if (machine != ZQ_HOST_MACHINE || is64 != (sizeof(void*) == 8) || !shared) return ERROR_BAD_EXE_FORMAT;
  }
  // The object itself fits this process: a library it needs, or a symbol.
  if (Contains(message, "cannot open shared object file") || Contains(message, "No such file")) {
    return ERROR_MOD_NOT_FOUND;
  }
  if (Contains(message, "undefined symbol") || Contains(message, "version `")) return ERROR_PROC_NOT_FOUND;
  if (Contains(message, "ermission denied")) return ERROR_ACCESS_DENIED;
  if (Contains(message, "annot allocate memory")) return ERROR_NOT_ENOUGH_MEMORY;
  return ERROR_BAD_EXE_FORMAT;
}

// The loader's record of a module (the handle itself, with glibc).
link_map* LinkMapOf(HMODULE module) {
  link_map* map = nullptr;
  if (dlinfo(module, RTLD_DI_LINKMAP, &map) != 0) return nullptr;
  return map;
}

std::string ExecutablePath() {
  char buffer[PATH_MAX];
  const ssize_t n = readlink("/proc/self/exe", buffer, sizeof(buffer) - 1);
  if (n <= 0) return std::string();
  buffer[n] = 0;
  char resolved[PATH_MAX];
  if (realpath(buffer, resolved)) return resolved;
  return buffer;
}

}  // namespace

HMODULE LoadLibraryW(LPCWSTR path) {
  if (!path || !path[0]) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return nullptr;
  }
  const std::string utf8 = ToUtf8(path);
  dlerror();
  void* handle = dlopen(utf8.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (handle) {
    t_loadError.clear();
    return handle;
  }
  const char* message = dlerror();
  t_loadError = message ? message : "";
  SetLastError(ClassifyLoadFailure(utf8, message));
  return nullptr;
}

FARPROC GetProcAddress(HMODULE module, LPCSTR name) {
  if (!module || !name) {
    SetLastError(module ? ERROR_PROC_NOT_FOUND : ERROR_INVALID_HANDLE);
    return nullptr;
  }
  dlerror();
  void* symbol = dlsym(module, name);
  if (symbol) {
    // dlsym searches the libraries the module needs as well; an export is
    // the module's only when it lies in the module.
    link_map* own = LinkMapOf(module);
    Dl_info info;
    link_map* where = nullptr;
    if (own && own->l_name && own->l_name[0] &&
        dladdr1(symbol, &info, reinterpret_cast<void**>(&where), RTLD_DL_LINKMAP) != 0 && where && where != own) {
      symbol = nullptr;
    }
  }
  if (!symbol) {
    SetLastError(ERROR_PROC_NOT_FOUND);
    return nullptr;
  }
  return reinterpret_cast<FARPROC>(symbol);
}

BOOL FreeLibrary(HMODULE module) {
  if (!module) {
    SetLastError(ERROR_INVALID_HANDLE);
    return FALSE;
  }
  if (dlclose(module) != 0) {
    SetLastError(ERROR_INVALID_HANDLE);
    return FALSE;
  }
  return TRUE;
}

DWORD GetModuleFileNameW(HMODULE module, LPWSTR buffer, DWORD size) {
  std::string path;
  if (!module) {
    path = ExecutablePath();
  } else {
    link_map* map = LinkMapOf(module);
    if (!map) {
      SetLastError(ERROR_MOD_NOT_FOUND);
      return 0;
    }
    if (!map->l_name || !map->l_name[0]) {
      path = ExecutablePath();  // the executable's own record has no name
    } else {
      char resolved[PATH_MAX];
      path = realpath(map->l_name, resolved) ? resolved : map->l_name;
    }
  }
  if (path.empty()) {
    SetLastError(ERROR_MOD_NOT_FOUND);
    return 0;
  }
  const std::u16string wide = ZqUtf8ToUtf16(path);
  if (!buffer || size == 0) {
    SetLastError(ERROR_INSUFFICIENT_BUFFER);
    return 0;
  }
  if (wide.size() >= size) {
    std::memcpy(buffer, wide.data(), (size - 1) * sizeof(WCHAR));
    buffer[size - 1] = 0;
    SetLastError(ERROR_INSUFFICIENT_BUFFER);
    return size;
  }
  std::memcpy(buffer, wide.data(), wide.size() * sizeof(WCHAR));
  buffer[wide.size()] = 0;
  return static_cast<DWORD>(wide.size());
}

HMODULE GetModuleHandleW(LPCWSTR name) {
  const std::string utf8 = ToUtf8(name);
  void* handle = dlopen(name ? utf8.c_str() : nullptr, RTLD_LAZY | RTLD_NOLOAD);
  if (!handle) {
    SetLastError(ERROR_MOD_NOT_FOUND);
    return nullptr;
  }
  // No new reference: the handle stays valid while the module is loaded.
  dlclose(handle);
  return handle;
}

HMODULE ZqGetModuleOfAddress(const void* address) {
  Dl_info info;
  link_map* map = nullptr;
  if (!address || dladdr1(address, &info, reinterpret_cast<void**>(&map), RTLD_DL_LINKMAP) == 0 || !map) {
    SetLastError(ERROR_MOD_NOT_FOUND);
    return nullptr;
  }
  const bool executable = !map->l_name || !map->l_name[0];
  void* handle = dlopen(executable ? nullptr : map->l_name, RTLD_LAZY | RTLD_NOLOAD);
  if (!handle) {
    SetLastError(ERROR_MOD_NOT_FOUND);
    return nullptr;
  }
  dlclose(handle);
  return handle;
}

const char* ZqGetLastLoadErrorText() { return t_loadError.c_str(); }
