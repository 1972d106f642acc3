// The one translation of operating-system error numbers.
#include <cerrno>
#include <string>
#include <sys/stat.h>

#include "platform/linux/object.h"

DWORD ZqErrorFromErrno(int error) {
  switch (error) {
    case 0: return ERROR_SUCCESS;
    case ENOENT: return ERROR_FILE_NOT_FOUND;
    case ENOTDIR: return ERROR_PATH_NOT_FOUND;
    case EMFILE:
    case ENFILE: return ERROR_TOO_MANY_OPEN_FILES;
    case EACCES:
    case EPERM:
    case EISDIR: return ERROR_ACCESS_DENIED;
    case EBADF: return ERROR_INVALID_HANDLE;
    case ENOMEM: return ERROR_NOT_ENOUGH_MEMORY;
    case EROFS: return ERROR_WRITE_PROTECT;
    case EEXIST: return ERROR_FILE_EXISTS;
    case EINVAL: return ERROR_INVALID_PARAMETER;
    case EPIPE:
    case ECONNRESET: return ERROR_BROKEN_PIPE;
    case ENOSPC:
    case EDQUOT: return ERROR_DISK_FULL;
    case ENOTEMPTY: return ERROR_DIR_NOT_EMPTY;
    case EBUSY:
    case ETXTBSY: return ERROR_BUSY;
    case ENAMETOOLONG: return ERROR_FILENAME_EXCED_RANGE;
    case ENOSYS:
    case EOPNOTSUPP: return ERROR_NOT_SUPPORTED;
    case EXDEV: return ERROR_NOT_SAME_DEVICE;
    case EIO: return ERROR_IO_DEVICE;
    case ETIMEDOUT: return ERROR_TIMEOUT;
    case ENOEXEC: return ERROR_BAD_EXE_FORMAT;
    case ELOOP: return ERROR_CANT_RESOLVE_FILENAME;
    default: return ERROR_GEN_FAILURE;
  }
}

void ZqSetLastErrorFromErrno(int error) { SetLastError(ZqErrorFromErrno(error)); }

namespace zq::platform {

DWORD PathError(int error, const char* path) {
  if (error != ENOENT || path == nullptr) return ZqErrorFromErrno(error);
  std::string folder(path);
  while (folder.size() > 1 && folder.back() == '/') folder.pop_back();
  const size_t slash = folder.rfind('/');
  if (slash == std::string::npos) return ERROR_FILE_NOT_FOUND;  // in the current folder
  folder.resize(slash == 0 ? 1 : slash);
  struct stat st;
  if (stat(folder.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) return ERROR_PATH_NOT_FOUND;
  return ERROR_FILE_NOT_FOUND;
}

}  // namespace zq::platform
