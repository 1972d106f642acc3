// Files and folders.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>

#include "platform/file.h"
#include "platform/linux/object.h"
#include "platform/text.h"

namespace zq::platform {

namespace {

constexpr int64_t kUnixEpochSeconds = 11644473600LL;

FILETIME ToFileTime(const timespec& ts) {
  const uint64_t v = static_cast<uint64_t>(ts.tv_sec + kUnixEpochSeconds) * 10000000ULL +
                     static_cast<uint64_t>(ts.tv_nsec / 100);
  return FILETIME{static_cast<DWORD>(v), static_cast<DWORD>(v >> 32)};
}

timespec ToTimespec(const FILETIME& f) {
  const uint64_t v = (static_cast<uint64_t>(f.dwHighDateTime) << 32) | f.dwLowDateTime;
  timespec ts;
  ts.tv_sec = static_cast<time_t>(static_cast<int64_t>(v / 10000000ULL) - kUnixEpochSeconds);
  ts.tv_nsec = static_cast<long>(v % 10000000ULL) * 100;
  return ts;
}

std::string Utf8Path(LPCWSTR path) { return ZqUtf16ToUtf8(path ? path : u""); }

bool BadPath(LPCWSTR path) {
  if (path == nullptr || path[0] == 0) {
    SetLastError(path == nullptr ? ERROR_INVALID_PARAMETER : ERROR_PATH_NOT_FOUND);
    return true;
  }
  return false;
}

void SetPathError(int error, const std::string& path) { SetLastError(PathError(error, path.c_str())); }

// Sharing modes between the handles of this process, per file identity.
struct OpenEntry {
  DWORD access;
  DWORD share;
};
struct ShareTable {
  std::mutex lock;
  std::multimap<std::pair<dev_t, ino_t>, OpenEntry> open;
};
ShareTable& Shares() {
  static ShareTable* table = new ShareTable;
  return *table;
}

constexpr DWORD kDeleteAccess = 0x00010000;  // DELETE

bool Conflicts(const OpenEntry& a, const OpenEntry& b) {
  auto excluded = [](const OpenEntry& holder, const OpenEntry& other) {
    if ((other.access & GENERIC_READ) && !(holder.share & FILE_SHARE_READ)) return true;
    if ((other.access & GENERIC_WRITE) && !(holder.share & FILE_SHARE_WRITE)) return true;
    if ((other.access & kDeleteAccess) && !(holder.share & FILE_SHARE_DELETE)) return true;
    return false;
  };
  return excluded(a, b) || excluded(b, a);
}

class FileObject : public Object {
 public:
  FileObject(int descriptor, std::pair<dev_t, ino_t> identity, OpenEntry entry, std::string path,
             bool deleteOnClose)
      : Object(Kind::File), fd(descriptor), id(identity), share(entry), name(std::move(path)),
        deleteOnClose_(deleteOnClose) {}
  ~FileObject() override {
    {
      ShareTable& t = Shares();
      std::lock_guard<std::mutex> guard(t.lock);
      auto range = t.open.equal_range(id);
      for (auto it = range.first; it != range.second; ++it) {
        if (it->second.access == share.access && it->second.share == share.share) {
          t.open.erase(it);
          break;
        }
      }
    }
    if (deleteOnClose_) unlink(name.c_str());
    close(fd);
  }
  bool Waitable() const override { return false; }
  bool IsSignaledFor(const Waiter&) const override { return false; }

  const int fd;
  const std::pair<dev_t, ino_t> id;
  const OpenEntry share;
  const std::string name;

 private:
  const bool deleteOnClose_;
};

class FindObject : public Object {
 public:
  FindObject(DIR* d, std::string folder, std::u16string pattern)
      : Object(Kind::Find), dir(d), folder_(std::move(folder)), pattern_(std::move(pattern)) {}
  ~FindObject() override { closedir(dir); }
  bool Waitable() const override { return false; }
  bool IsSignaledFor(const Waiter&) const override { return false; }

  // The next matching entry, or false at the end.
  bool Next(WIN32_FIND_DATAW* data);

  DIR* const dir;

 private:
  const std::string folder_;
  const std::u16string pattern_;
};

WCHAR Fold(WCHAR c) { return ZqToLowerW(c); }

bool WildcardMatch(std::u16string_view pattern, std::u16string_view name) {
  size_t p = 0, n = 0, starP = std::u16string_view::npos, starN = 0;
  while (n < name.size()) {
    if (p < pattern.size() && (pattern[p] == u'?' || Fold(pattern[p]) == Fold(name[n]))) {
      ++p;
      ++n;
    } else if (p < pattern.size() && pattern[p] == u'*') {
      starP = p++;
      starN = n;
    } else if (starP != std::u16string_view::npos) {
      p = starP + 1;
      n = ++starN;
    } else {
      return false;
    }
  }
  while (p < pattern.size() && pattern[p] == u'*') ++p;
  return p == pattern.size();
}

DWORD AttributesOf(const struct stat& st) {
  if (S_ISDIR(st.st_mode)) return FILE_ATTRIBUTE_DIRECTORY | ((st.st_mode & 0222) ? 0 : FILE_ATTRIBUTE_READONLY);
  return (st.st_mode & 0222) ? FILE_ATTRIBUTE_NORMAL : FILE_ATTRIBUTE_READONLY;
}

bool FindObject::Next(WIN32_FIND_DATAW* data) {
  for (;;) {
    errno = 0;
    dirent* e = readdir(dir);
    if (e == nullptr) return false;
    const std::u16string name = ZqUtf8ToUtf16(e->d_name);
    if (name.size() >= MAX_PATH || !WildcardMatch(pattern_, name)) continue;
    struct stat st;
    if (fstatat(dirfd(dir), e->d_name, &st, 0) != 0 &&
        fstatat(dirfd(dir), e->d_name, &st, AT_SYMLINK_NOFOLLOW) != 0) {
      continue;  // vanished meanwhile
    }
    *data = WIN32_FIND_DATAW{};
    data->dwFileAttributes = AttributesOf(st);
    data->ftCreationTime = ToFileTime(st.st_ctim);
    data->ftLastAccessTime = ToFileTime(st.st_atim);
    data->ftLastWriteTime = ToFileTime(st.st_mtim);
    const uint64_t size = S_ISDIR(st.st_mode) ? 0 : static_cast<uint64_t>(st.st_size);
    data->nFileSizeHigh = static_cast<DWORD>(size >> 32);
    data->nFileSizeLow = static_cast<DWORD>(size);
    std::char_traits<char16_t>::copy(data->cFileName, name.data(), name.size());
    data->cFileName[name.size()] = 0;
    return true;
  }
}

Ref<FileObject> LookupFile(HANDLE h) { return LookupHandleAs<FileObject>(h, Object::Kind::File); }

bool FullWrite(int fd, const void* buffer, size_t size, size_t* written) {
  const char* p = static_cast<const char*>(buffer);
  *written = 0;
  while (*written < size) {
    const ssize_t n = write(fd, p + *written, size - *written);
    if (n < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    if (n == 0) {
      errno = ENOSPC;
      return false;
    }
    *written += static_cast<size_t>(n);
  }
  return true;
}

// Reads until `size` bytes came or the file ended.
bool FullRead(int fd, void* buffer, size_t size, size_t* done) {
  char* p = static_cast<char*>(buffer);
  *done = 0;
  while (*done < size) {
    const ssize_t n = read(fd, p + *done, size - *done);
    if (n < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    if (n == 0) break;
    *done += static_cast<size_t>(n);
  }
  return true;
}

// Copies a file's contents, permissions and time of last write.
bool CopyContents(const std::string& from, const std::string& to, bool failIfExists) {
  const int in = open(from.c_str(), O_RDONLY | O_CLOEXEC);
  if (in < 0) {
    SetPathError(errno, from);
    return false;
  }
  struct stat st;
  fstat(in, &st);
  if (S_ISDIR(st.st_mode)) {
    close(in);
    SetLastError(ERROR_ACCESS_DENIED);
    return false;
  }
  const int out = open(to.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | (failIfExists ? O_EXCL : 0),
                       st.st_mode & 07777);
  if (out < 0) {
    const int error = errno;
    close(in);
    SetPathError(error, to);
    return false;
  }
  char buffer[65536];
  bool ok = true;
  int error = 0;
  for (;;) {
    const ssize_t n = read(in, buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      if (n < 0) {
        ok = false;
        error = errno;
      }
      break;
    }
    size_t written;
    if (!FullWrite(out, buffer, static_cast<size_t>(n), &written)) {
      ok = false;
      error = errno;
      break;
    }
  }
  if (ok) {
    fchmod(out, st.st_mode & 07777);
    const timespec times[2] = {st.st_atim, st.st_mtim};
    futimens(out, times);
  }
  close(in);
  if (close(out) != 0 && ok) {
    ok = false;
    error = errno;
  }
  if (!ok) {
    unlink(to.c_str());
    ZqSetLastErrorFromErrno(error);
  }
  return ok;
}

DWORD FinishPathResult(const std::u16string& text, DWORD size, LPWSTR buffer) {
  if (buffer == nullptr || size <= text.size()) return static_cast<DWORD>(text.size() + 1);
  std::char_traits<char16_t>::copy(buffer, text.data(), text.size());
  buffer[text.size()] = 0;
  return static_cast<DWORD>(text.size());
}

}  // namespace

}  // namespace zq::platform

using namespace zq::platform;

HANDLE CreateFileW(LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES,
                   DWORD disposition, DWORD flagsAndAttributes, HANDLE) {
  if (BadPath(path)) return INVALID_HANDLE_VALUE;
  const std::string name = Utf8Path(path);
  int flags = O_CLOEXEC;
  const bool read = (access & GENERIC_READ) != 0, write = (access & GENERIC_WRITE) != 0;
  flags |= read && write ? O_RDWR : (write ? O_WRONLY : O_RDONLY);
  switch (disposition) {
    case CREATE_NEW: flags |= O_CREAT | O_EXCL; break;
    case CREATE_ALWAYS: flags |= O_CREAT; break;
    case OPEN_EXISTING: break;
    case OPEN_ALWAYS: flags |= O_CREAT; break;
    case TRUNCATE_EXISTING:
      if (!write) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return INVALID_HANDLE_VALUE;
      }
      break;
    default:
      SetLastError(ERROR_INVALID_PARAMETER);
      return INVALID_HANDLE_VALUE;
  }
  const bool reportExisting = disposition == CREATE_ALWAYS || disposition == OPEN_ALWAYS;
  const bool existed = reportExisting && ::access(name.c_str(), F_OK) == 0;
  const mode_t mode = (flagsAndAttributes & FILE_ATTRIBUTE_READONLY) ? 0444 : 0666;
  int fd = open(name.c_str(), flags, mode);
  if (fd < 0 && errno == EISDIR && !write) fd = open(name.c_str(), flags | O_DIRECTORY, mode);
  if (fd < 0) {
    if (errno == EEXIST) {
      SetLastError(ERROR_FILE_EXISTS);
    } else {
      SetPathError(errno, name);
    }
    return INVALID_HANDLE_VALUE;
  }
  struct stat st;
  fstat(fd, &st);
  if (S_ISDIR(st.st_mode) && !(flagsAndAttributes & FILE_FLAG_BACKUP_SEMANTICS)) {
    close(fd);
    SetLastError(ERROR_ACCESS_DENIED);
    return INVALID_HANDLE_VALUE;
  }
  const std::pair<dev_t, ino_t> id{st.st_dev, st.st_ino};
  OpenEntry entry{access | ((flagsAndAttributes & FILE_FLAG_DELETE_ON_CLOSE) ? kDeleteAccess : 0),
                  share};
  {
    ShareTable& t = Shares();
    std::lock_guard<std::mutex> guard(t.lock);
    auto range = t.open.equal_range(id);
    for (auto it = range.first; it != range.second; ++it) {
      if (Conflicts(it->second, entry)) {
        close(fd);
        SetLastError(ERROR_SHARING_VIOLATION);
        return INVALID_HANDLE_VALUE;
      }
    }
    t.open.emplace(id, entry);
  }
  const bool truncate = disposition == CREATE_ALWAYS || disposition == TRUNCATE_EXISTING;
  if (truncate && S_ISREG(st.st_mode) && ftruncate(fd, 0) != 0) {
    const int error = errno;
    Ref<FileObject> undo = MakeRef<FileObject>(fd, id, entry, name, false);
    ZqSetLastErrorFromErrno(error);
    return INVALID_HANDLE_VALUE;
  }
  Ref<FileObject> file = MakeRef<FileObject>(fd, id, entry, name,
                                             (flagsAndAttributes & FILE_FLAG_DELETE_ON_CLOSE) != 0);
  SetLastError(existed ? ERROR_ALREADY_EXISTS : ERROR_SUCCESS);
  return NewHandle(std::move(file));
}

// A read or write with an OVERLAPPED record starts at the offset it names;
// without one, at the file pointer.  False (with the last error set) when the
// offset cannot be reached.
static bool SeekToOverlappedOffset(int fd, const OVERLAPPED* overlapped) {
  if (overlapped == nullptr) return true;
  const off_t at = static_cast<off_t>((static_cast<uint64_t>(overlapped->OffsetHigh) << 32) | overlapped->Offset);
  if (lseek(fd, at, SEEK_SET) >= 0) return true;
  ZqSetLastErrorFromErrno(errno);
  return false;
}

// ReadFile and WriteFile: `transfer` moves the bytes at the file's
// descriptor and tells how many moved, also when it fails.
template <class Transfer>
static BOOL TransferFile(HANDLE handle, const OVERLAPPED* overlapped, DWORD* count, Transfer transfer) {
  if (count) *count = 0;
  Ref<FileObject> f = LookupFile(handle);
  if (!f) return FALSE;
  if (!SeekToOverlappedOffset(f->fd, overlapped)) return FALSE;
  size_t done = 0;
  const bool ok = transfer(f->fd, &done);
  if (count) *count = static_cast<DWORD>(done);
  if (!ok) {
    // A file not opened for this direction answers EBADF.
    SetLastError(errno == EBADF ? ERROR_ACCESS_DENIED : ZqErrorFromErrno(errno));
    return FALSE;
  }
  return TRUE;
}

BOOL ReadFile(HANDLE handle, LPVOID buffer, DWORD size, DWORD* bytesRead, OVERLAPPED* overlapped) {
  return TransferFile(handle, overlapped, bytesRead,
                      [&](int fd, size_t* done) { return FullRead(fd, buffer, size, done); });
}

BOOL WriteFile(HANDLE handle, LPCVOID buffer, DWORD size, DWORD* bytesWritten, OVERLAPPED* overlapped) {
  return TransferFile(handle, overlapped, bytesWritten,
                      [&](int fd, size_t* done) { return FullWrite(fd, buffer, size, done); });
}

BOOL SetFilePointerEx(HANDLE handle, LARGE_INTEGER distance, LARGE_INTEGER* newPosition, DWORD method) {
  Ref<FileObject> f = LookupFile(handle);
  if (!f) return FALSE;
  int whence;
  switch (method) {
    case FILE_BEGIN: whence = SEEK_SET; break;
    case FILE_CURRENT: whence = SEEK_CUR; break;
    case FILE_END: whence = SEEK_END; break;
    default: SetLastError(ERROR_INVALID_PARAMETER); return FALSE;
  }
  const off_t now = lseek(f->fd, 0, SEEK_CUR);
  off_t base = 0;
  if (whence == SEEK_CUR) base = now;
  if (whence == SEEK_END) {
    struct stat st;
    fstat(f->fd, &st);
    base = st.st_size;
  }
  if (base + distance.QuadPart < 0) {
    SetLastError(ERROR_NEGATIVE_SEEK);
    return FALSE;
  }
  const off_t r = lseek(f->fd, base + distance.QuadPart, SEEK_SET);
  if (r < 0) {
    ZqSetLastErrorFromErrno(errno);
    return FALSE;
  }
  if (newPosition) newPosition->QuadPart = r;
  return TRUE;
}

DWORD SetFilePointer(HANDLE handle, LONG distance, LONG* distanceHigh, DWORD method) {
  LARGE_INTEGER d, result;
  d.QuadPart = distanceHigh ? static_cast<LONGLONG>((static_cast<uint64_t>(static_cast<uint32_t>(*distanceHigh)) << 32) |
                                                     static_cast<uint32_t>(distance))
                            : distance;
  if (!SetFilePointerEx(handle, d, &result, method)) return INVALID_SET_FILE_POINTER;
  if (distanceHigh) {
    *distanceHigh = result.u.HighPart;
  } else if (result.QuadPart > 0xFFFFFFFFLL) {
    // The position does not fit the answer: the original refuses the move.
    SetLastError(ERROR_INVALID_PARAMETER);
    return INVALID_SET_FILE_POINTER;
  }
  SetLastError(ERROR_SUCCESS);
  return result.u.LowPart;
}

BOOL GetFileSizeEx(HANDLE handle, LARGE_INTEGER* size) {
  Ref<FileObject> f = LookupFile(handle);
  if (!f) return FALSE;
  struct stat st;
  if (fstat(f->fd, &st) != 0) {
    ZqSetLastErrorFromErrno(errno);
    return FALSE;
  }
  size->QuadPart = st.st_size;
  return TRUE;
}

DWORD GetFileSize(HANDLE handle, DWORD* sizeHigh) {
  LARGE_INTEGER size;
  if (!GetFileSizeEx(handle, &size)) return INVALID_FILE_SIZE;
  if (sizeHigh) *sizeHigh = static_cast<DWORD>(size.u.HighPart);
  SetLastError(ERROR_SUCCESS);
  return size.u.LowPart;
}

BOOL SetEndOfFile(HANDLE handle) {
  Ref<FileObject> f = LookupFile(handle);
  if (!f) return FALSE;
  const off_t at = lseek(f->fd, 0, SEEK_CUR);
  if (at < 0 || ftruncate(f->fd, at) != 0) {
    SetLastError(errno == EBADF || errno == EINVAL ? ERROR_ACCESS_DENIED : ZqErrorFromErrno(errno));
    return FALSE;
  }
  return TRUE;
}

BOOL FlushFileBuffers(HANDLE handle) {
  Ref<FileObject> f = LookupFile(handle);
  if (!f) return FALSE;
  if (fsync(f->fd) != 0 && errno != EINVAL) {
    ZqSetLastErrorFromErrno(errno);
    return FALSE;
  }
  return TRUE;
}

BOOL GetFileTime(HANDLE handle, FILETIME* creation, FILETIME* lastAccess, FILETIME* lastWrite) {
  Ref<FileObject> f = LookupFile(handle);
  if (!f) return FALSE;
  struct statx sx;
  if (statx(f->fd, "", AT_EMPTY_PATH, STATX_BASIC_STATS | STATX_BTIME, &sx) != 0) {
    ZqSetLastErrorFromErrno(errno);
    return FALSE;
  }
  auto conv = [](const statx_timestamp& t) { return ToFileTime(timespec{t.tv_sec, t.tv_nsec}); };
  if (creation) *creation = conv((sx.stx_mask & STATX_BTIME) ? sx.stx_btime : sx.stx_ctime);
  if (lastAccess) *lastAccess = conv(sx.stx_atime);
  if (lastWrite) *lastWrite = conv(sx.stx_mtime);
  return TRUE;
}

BOOL SetFileTime(HANDLE handle, const FILETIME*, const FILETIME* lastAccess, const FILETIME* lastWrite) {
  Ref<FileObject> f = LookupFile(handle);
  if (!f) return FALSE;
  timespec times[2];
  times[0] = lastAccess ? ToTimespec(*lastAccess) : timespec{0, UTIME_OMIT};
  times[1] = lastWrite ? ToTimespec(*lastWrite) : timespec{0, UTIME_OMIT};
  if (futimens(f->fd, times) != 0) {
    ZqSetLastErrorFromErrno(errno);
    return FALSE;
  }
  return TRUE;
}

BOOL DeleteFileW(LPCWSTR path) {
  if (BadPath(path)) return FALSE;
  const std::string name = Utf8Path(path);
  if (unlink(name.c_str()) != 0) {
    SetPathError(errno, name);
    return FALSE;
  }
  return TRUE;
}

BOOL MoveFileExW(LPCWSTR from, LPCWSTR to, DWORD flags) {
  if (BadPath(from) || BadPath(to)) return FALSE;
  const std::string a = Utf8Path(from), b = Utf8Path(to);
  struct stat st;
  if (stat(a.c_str(), &st) != 0) {
    SetPathError(errno, a);
    return FALSE;
  }
  if (!(flags & MOVEFILE_REPLACE_EXISTING)) {
    if (renameat2(AT_FDCWD, a.c_str(), AT_FDCWD, b.c_str(), RENAME_NOREPLACE) == 0) return TRUE;
    if (errno == EEXIST) {
      SetLastError(ERROR_ALREADY_EXISTS);
      return FALSE;
    }
    if (errno != EINVAL && errno != EXDEV) {
      SetPathError(errno, b);
      return FALSE;
    }
    // The file system cannot refuse to replace: look first.
    struct stat target;
    if (errno != EXDEV && lstat(b.c_str(), &target) == 0) {
      SetLastError(ERROR_ALREADY_EXISTS);
      return FALSE;
    }
  }
  if (errno != EXDEV && rename(a.c_str(), b.c_str()) == 0) return TRUE;
  if (errno != EXDEV) {
    SetPathError(errno, b);
    return FALSE;
  }
  if (!(flags & MOVEFILE_COPY_ALLOWED) || S_ISDIR(st.st_mode)) {
    SetLastError(ERROR_NOT_SAME_DEVICE);
    return FALSE;
  }
  if (!CopyContents(a, b, !(flags & MOVEFILE_REPLACE_EXISTING))) return FALSE;
  unlink(a.c_str());
  return TRUE;
}

BOOL MoveFileW(LPCWSTR from, LPCWSTR to) { return MoveFileExW(from, to, 0); }

BOOL CopyFileW(LPCWSTR from, LPCWSTR to, BOOL failIfExists) {
  if (BadPath(from) || BadPath(to)) return FALSE;
  const std::string a = Utf8Path(from), b = Utf8Path(to);
  return CopyContents(a, b, failIfExists != FALSE) ? TRUE : FALSE;
}

DWORD GetFileAttributesW(LPCWSTR path) {
  if (BadPath(path)) return INVALID_FILE_ATTRIBUTES;
  const std::string name = Utf8Path(path);
  struct stat st;
  if (stat(name.c_str(), &st) != 0) {
    SetPathError(errno, name);
    return INVALID_FILE_ATTRIBUTES;
  }
  return AttributesOf(st);
}

BOOL SetFileAttributesW(LPCWSTR path, DWORD attributes) {
  if (BadPath(path)) return FALSE;
  const std::string name = Utf8Path(path);
  struct stat st;
  if (stat(name.c_str(), &st) != 0) {
    SetPathError(errno, name);
    return FALSE;
  }
  mode_t mode = st.st_mode & 07777;
  if (attributes & FILE_ATTRIBUTE_READONLY) {
    mode &= ~static_cast<mode_t>(0222);
  } else if (!(mode & 0222)) {
    // Give write permission back to whoever may read.
    mode |= (mode & 0444) >> 1;
  }
  if (mode != (st.st_mode & 07777) && chmod(name.c_str(), mode) != 0) {
    SetPathError(errno, name);
    return FALSE;
  }
  return TRUE;
}

BOOL CreateDirectoryW(LPCWSTR path, LPSECURITY_ATTRIBUTES) {
  if (BadPath(path)) return FALSE;
  const std::string name = Utf8Path(path);
  if (mkdir(name.c_str(), 0777) != 0) {
    if (errno == EEXIST) {
      SetLastError(ERROR_ALREADY_EXISTS);
    } else {
      SetLastError(errno == ENOENT ? ERROR_PATH_NOT_FOUND : PathError(errno, name.c_str()));
    }
    return FALSE;
  }
  return TRUE;
}

BOOL RemoveDirectoryW(LPCWSTR path) {
  if (BadPath(path)) return FALSE;
  const std::string name = Utf8Path(path);
  if (rmdir(name.c_str()) != 0) {
    SetLastError(errno == ENOTDIR ? ERROR_DIRECTORY : PathError(errno, name.c_str()));
    return FALSE;
  }
  return TRUE;
}

HANDLE FindFirstFileW(LPCWSTR pattern, WIN32_FIND_DATAW* data) {
  if (BadPath(pattern) || data == nullptr) return INVALID_HANDLE_VALUE;
  std::u16string text(pattern);
  const size_t slash = text.rfind(u'/');
  std::u16string folder = slash == std::u16string::npos ? u"." : text.substr(0, slash == 0 ? 1 : slash);
  std::u16string mask = slash == std::u16string::npos ? text : text.substr(slash + 1);
  if (mask.empty()) {
    SetLastError(ERROR_FILE_NOT_FOUND);
    return INVALID_HANDLE_VALUE;
  }
  if (mask == u"*.*") mask = u"*";
  const std::string dirName = ZqUtf16ToUtf8(folder);
  DIR* dir = opendir(dirName.c_str());
  if (dir == nullptr) {
    SetLastError(errno == ENOENT || errno == ENOTDIR ? ERROR_PATH_NOT_FOUND : ZqErrorFromErrno(errno));
    return INVALID_HANDLE_VALUE;
  }
  Ref<FindObject> search = MakeRef<FindObject>(dir, dirName, mask);
  if (!search->Next(data)) {
    SetLastError(ERROR_FILE_NOT_FOUND);
    return INVALID_HANDLE_VALUE;
  }
  return NewHandle(std::move(search));
}

BOOL FindNextFileW(HANDLE handle, WIN32_FIND_DATAW* data) {
  Ref<FindObject> search = LookupHandleAs<FindObject>(handle, Object::Kind::Find);
  if (!search) return FALSE;
  if (!search->Next(data)) {
    SetLastError(ERROR_NO_MORE_FILES);
    return FALSE;
  }
  return TRUE;
}

BOOL FindClose(HANDLE handle) {
  if (!LookupHandleAs<FindObject>(handle, Object::Kind::Find)) return FALSE;
  return CloseHandle(handle);
}

DWORD GetFullPathNameW(LPCWSTR path, DWORD size, LPWSTR buffer, LPWSTR* filePart) {
  if (path == nullptr || path[0] == 0) {
    SetLastError(path == nullptr ? ERROR_INVALID_PARAMETER : ERROR_INVALID_NAME);
    return 0;
  }
  std::u16string input(path);
  if (input[0] != u'/') {
    WCHAR cwd[4096];
    const DWORD n = GetCurrentDirectoryW(4096, cwd);
    if (n == 0 || n >= 4096) return 0;
    input = std::u16string(cwd, n) + u"/" + input;
  }
  const bool trailing = input.back() == u'/';
  std::vector<std::u16string> parts;
  size_t i = 0;
  while (i < input.size()) {
    size_t j = input.find(u'/', i);
    if (j == std::u16string::npos) j = input.size();
    std::u16string part = input.substr(i, j - i);
    if (part == u"..") {
      if (!parts.empty()) parts.pop_back();
    } else if (!part.empty() && part != u".") {
      parts.push_back(std::move(part));
    }
    i = j + 1;
  }
  std::u16string result;
  for (const std::u16string& p : parts) result += u"/" + p;
  if (result.empty() || trailing) result += u"/";
  const DWORD r = FinishPathResult(result, size, buffer);
  if (filePart && r == result.size()) {
    *filePart = result.back() == u'/' ? nullptr : buffer + result.rfind(u'/') + 1;
  }
  return r;
}

DWORD GetTempPathW(DWORD size, LPWSTR buffer) {
  const char* env = getenv("TMPDIR");
  std::u16string folder = ZqUtf8ToUtf16(env && env[0] == '/' ? env : "/tmp");
  if (folder.back() != u'/') folder += u'/';
  return FinishPathResult(folder, size, buffer);
}

DWORD GetCurrentDirectoryW(DWORD size, LPWSTR buffer) {
  char* cwd = getcwd(nullptr, 0);
  if (cwd == nullptr) {
    ZqSetLastErrorFromErrno(errno);
    return 0;
  }
  const std::u16string text = ZqUtf8ToUtf16(cwd);
  free(cwd);
  return FinishPathResult(text, size, buffer);
}

BOOL SetCurrentDirectoryW(LPCWSTR path) {
  if (BadPath(path)) return FALSE;
  const std::string name = Utf8Path(path);
  if (chdir(name.c_str()) != 0) {
    SetLastError(errno == ENOENT ? PathError(errno, name.c_str()) : ZqErrorFromErrno(errno));
    return FALSE;
  }
  return TRUE;
}

int ZqGetFileDescriptor(HANDLE handle) {
  Ref<FileObject> f = LookupFile(handle);
  return f ? f->fd : -1;
}
