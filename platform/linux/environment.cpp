// The process environment: getenv, setenv and unsetenv behind one lock.
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>

#include "platform/environment.h"
#include "platform/text.h"

namespace {

// Serialises our own readers and writers: setenv may move the array that
// getenv walks.
std::mutex& EnvironmentLock() {
  static std::mutex lock;
  return lock;
}

size_t WideLength(LPCWSTR text) {
  size_t n = 0;
  while (text[n] != 0) ++n;
  return n;
}

}  // namespace

DWORD GetEnvironmentVariableW(LPCWSTR name, LPWSTR buffer, DWORD size) {
  if (name == nullptr || name[0] == 0 || (buffer == nullptr && size != 0)) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return 0;
  }
  const std::string narrowName = ZqUtf16ToUtf8(std::u16string_view(name, WideLength(name)));
  std::u16string value;
  {
    std::lock_guard<std::mutex> guard(EnvironmentLock());
    const char* text = std::getenv(narrowName.c_str());
    if (text == nullptr) {
      SetLastError(ERROR_ENVVAR_NOT_FOUND);
      return 0;
    }
    value = ZqUtf8ToUtf16(text);
  }
  if (value.empty()) {
    if (size > 0) buffer[0] = 0;
    SetLastError(ERROR_SUCCESS);
    return 0;
  }
  if (value.size() >= size) return static_cast<DWORD>(value.size() + 1);
  std::memcpy(buffer, value.data(), value.size() * sizeof(WCHAR));
  buffer[value.size()] = 0;
  return static_cast<DWORD>(value.size());
}

BOOL SetEnvironmentVariableW(LPCWSTR name, LPCWSTR value) {
  if (name == nullptr || name[0] == 0) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return FALSE;
  }
  const size_t nameLength = WideLength(name);
  // The original also takes names that begin with "=" (its per-drive
  // folders); the system's environment cannot hold them.
  for (size_t i = 0; i < nameLength; ++i) {
    if (name[i] == u'=') {
      SetLastError(ERROR_INVALID_PARAMETER);
      return FALSE;
    }
  }
  const std::string narrowName = ZqUtf16ToUtf8(std::u16string_view(name, nameLength));
  std::lock_guard<std::mutex> guard(EnvironmentLock());
  int r;
  if (value == nullptr) {
    r = unsetenv(narrowName.c_str());
  } else {
    const std::string narrowValue = ZqUtf16ToUtf8(std::u16string_view(value, WideLength(value)));
    r = setenv(narrowName.c_str(), narrowValue.c_str(), 1);
  }
  if (r != 0) {
    SetLastError(errno == ENOMEM ? ERROR_NOT_ENOUGH_MEMORY : ERROR_INVALID_PARAMETER);
    return FALSE;
  }
  return TRUE;
}
