// Helpers shared by the stream tests: seeks in one line, temporary files,
// and a well-behaved stream of our own to put under a protected stream.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "kernel/com/object.h"
#include "kernel/containers/streambase.h"
#include "kernel/com/stream.h"
#include "kernel/memory.h"
#include "platform/file.h"
#include "tests/support/test_folder.h"

namespace zqtest {

constexpr ULONGLONG kGiB = 1ull << 30;

struct SeekResult { HRESULT status; ULONGLONG position; };

inline SeekResult SeekTo(IStream* s, LONGLONG offset, DWORD origin, ULONGLONG sentinel = 0xDEADBEEFull) {
  LARGE_INTEGER move;
  move.QuadPart = offset;
  ULARGE_INTEGER now;
  now.QuadPart = sentinel;
  HRESULT hr = s->Seek(move, origin, &now);
  return {hr, now.QuadPart};
}

// Where the stream stands, by Seek(0, STREAM_SEEK_CUR).
inline ULONGLONG Tell(IStream* s) { return SeekTo(s, 0, STREAM_SEEK_CUR).position; }

struct IoResult { HRESULT status; ULONG count; };

inline IoResult ReadInto(IStream* s, void* buffer, ULONG size) {
  ULONG n = 0xDEADu;
  HRESULT hr = s->Read(buffer, size, &n);
  return {hr, n};
}

inline IoResult WriteFrom(IStream* s, const void* buffer, ULONG size) {
  ULONG n = 0xDEADu;
  HRESULT hr = s->Write(buffer, size, &n);
  return {hr, n};
}

inline std::vector<BYTE> Pattern(size_t size) {
  std::vector<BYTE> v(size);
  for (size_t i = 0; i < size; ++i) v[i] = static_cast<BYTE>(i % 251 + 1);  // never 0
  return v;
}

// A file in a folder of the test's own, removed at the end with the handles
// the test left open.
class TempFile {
 public:
  explicit TempFile(const char* tag) : folder_("zq_stream_", tag) {
    for (char c : (folder_.path() / "file.bin").string()) path_.push_back(static_cast<WCHAR>(c));
  }
  ~TempFile() {
    for (HANDLE h : handles_) CloseHandle(h);
  }
  // Opens the file (created when missing); closed at the end unless the test
  // closes it itself (then pass `keep` = false).
  HANDLE Open(DWORD access, bool keep = true) {
    HANDLE h = CreateFileW(path_.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_ALWAYS,
                           FILE_ATTRIBUTE_NORMAL, nullptr);
    EXPECT_NE(h, INVALID_HANDLE_VALUE) << "error " << GetLastError();
    if (keep && h != INVALID_HANDLE_VALUE) handles_.push_back(h);
    return h;
  }
  HANDLE OpenReadWrite() { return Open(GENERIC_READ | GENERIC_WRITE); }
  void Fill(const std::vector<BYTE>& bytes) {
    HANDLE h = Open(GENERIC_WRITE, false);
    DWORD n = 0;
    ASSERT_TRUE(WriteFile(h, bytes.data(), static_cast<DWORD>(bytes.size()), &n, nullptr));
    CloseHandle(h);
  }

 private:
  TestFolder folder_;
  std::u16string path_;
  std::vector<HANDLE> handles_;
};

// A plain stream over a vector whose Clone works and whose Seek can be made
// to fail, to stand under the protected stream.  It cannot be written.
class FakeStream final : public ZqStreamObject<FakeStream> {
 public:
  explicit FakeStream(std::vector<BYTE> data) : data_(std::move(data)) {}
  static FakeStream* Make(std::vector<BYTE> data) { return new (std::nothrow) FakeStream(std::move(data)); }

  HRESULT STDMETHODCALLTYPE Read(void* buffer, ULONG size, ULONG* read) override {
    const ULONG n = static_cast<ULONG>(std::min<ULONGLONG>(size, data_.size() - std::min<ULONGLONG>(position_, data_.size())));
    if (n) std::memcpy(buffer, data_.data() + position_, n);
    position_ += n;
    if (read) *read = n;
    return n < size ? S_FALSE : S_OK;
  }
  HRESULT STDMETHODCALLTYPE Write(const void*, ULONG, ULONG*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE Seek(LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER* now) override {
    LONGLONG base = origin == STREAM_SEEK_SET ? 0 : origin == STREAM_SEEK_CUR ? position_ : data_.size();
    if (failSeek || origin > STREAM_SEEK_END || base + move.QuadPart < 0) return STG_E_INVALIDFUNCTION;
    position_ = static_cast<ULONGLONG>(base + move.QuadPart);
    if (now) now->QuadPart = position_;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE Stat(STATSTG* stat, DWORD) override {
    std::memset(stat, 0, sizeof(*stat));
    stat->type = STGTY_STREAM;
    stat->cbSize.QuadPart = data_.size();
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE Clone(IStream** clone) override {
    FakeStream* copy = Make(data_);
    copy->position_ = position_;
    *clone = copy;
    return S_OK;
  }

  bool failSeek = false;

 private:
  std::vector<BYTE> data_;
  ULONGLONG position_ = 0;
};

}  // namespace zqtest
