#include <gtest/gtest.h>

#include <set>
#include <string>

#include "platform/file.h"
#include "platform/sync.h"
#include "platform/text.h"
#include "platform/thread.h"
#include "tests/support/test_folder.h"

namespace {

// A fresh folder per test, removed with everything in it at the end.
class Files : public ::testing::Test {
 protected:
  std::u16string Path(const char16_t* name) const { return dir_ + u"/" + name; }
  HANDLE Create(const char16_t* name, DWORD disposition, DWORD access = GENERIC_READ | GENERIC_WRITE,
                DWORD share = 0) {
    return CreateFileW(Path(name).c_str(), access, share, nullptr, disposition, FILE_ATTRIBUTE_NORMAL, nullptr);
  }
  zqtest::TestFolder folder_{"zqplat_"};
  const std::u16string dir_ = ZqUtf8ToUtf16(folder_.path().string());
};

TEST_F(Files, CreateWriteSeekRead) {
  HANDLE f = Create(u"a.bin", CREATE_NEW);
  ASSERT_NE(f, INVALID_HANDLE_VALUE);
  DWORD n = 0;
  EXPECT_TRUE(WriteFile(f, "hello world", 11, &n, nullptr));
  EXPECT_EQ(n, 11u);
  EXPECT_EQ(GetFileSize(f, nullptr), 11u);
  EXPECT_EQ(SetFilePointer(f, 6, nullptr, FILE_BEGIN), 6u);
  char buf[16] = {};
  EXPECT_TRUE(ReadFile(f, buf, sizeof buf, &n, nullptr));
  EXPECT_EQ(std::string(buf, n), "world");
  EXPECT_TRUE(ReadFile(f, buf, sizeof buf, &n, nullptr));
  EXPECT_EQ(n, 0u) << "end of file reads nothing and succeeds";
  EXPECT_EQ(SetFilePointer(f, -5, nullptr, FILE_END), 6u);
  EXPECT_EQ(SetFilePointer(f, -1, nullptr, FILE_CURRENT), 5u);
  EXPECT_EQ(SetFilePointer(f, -10, nullptr, FILE_CURRENT), INVALID_SET_FILE_POINTER);
  EXPECT_EQ(GetLastError(), ERROR_NEGATIVE_SEEK);
  EXPECT_TRUE(SetEndOfFile(f));
  LARGE_INTEGER size;
  EXPECT_TRUE(GetFileSizeEx(f, &size));
  EXPECT_EQ(size.QuadPart, 5);
  LONG high = 1;
  EXPECT_EQ(SetFilePointer(f, 0, &high, FILE_BEGIN), 0u);
  EXPECT_EQ(GetLastError(), ERROR_SUCCESS);
  EXPECT_EQ(GetFileSize(f, nullptr), 5u);
  EXPECT_TRUE(FlushFileBuffers(f));
  FILETIME c, a, w;
  EXPECT_TRUE(GetFileTime(f, &c, &a, &w));
  EXPECT_NE(w.dwHighDateTime, 0u);
  EXPECT_TRUE(CloseHandle(f));
}

TEST_F(Files, DispositionsAndErrors) {
  const std::u16string longName(300, u'n');
  struct Case { const char16_t* name; DWORD disposition, access; bool opens; DWORD error; } cases[] = {
      {u"x", CREATE_NEW, GENERIC_WRITE, true, ERROR_SUCCESS},
      {u"x", CREATE_NEW, GENERIC_WRITE, false, ERROR_FILE_EXISTS},
      {u"x", CREATE_ALWAYS, GENERIC_WRITE, true, ERROR_ALREADY_EXISTS},
      {u"y", OPEN_ALWAYS, GENERIC_WRITE, true, ERROR_SUCCESS},
      {u"missing", OPEN_EXISTING, GENERIC_READ, false, ERROR_FILE_NOT_FOUND},
      {u"nofolder/file", CREATE_ALWAYS, GENERIC_WRITE, false, ERROR_PATH_NOT_FOUND},
      {u".", OPEN_EXISTING, GENERIC_READ, false, ERROR_ACCESS_DENIED},  // a folder
      {longName.c_str(), CREATE_ALWAYS, GENERIC_WRITE, false, ERROR_FILENAME_EXCED_RANGE},
  };
  for (const Case& c : cases) {
    HANDLE f = Create(c.name, c.disposition, c.access);
    EXPECT_EQ(f != INVALID_HANDLE_VALUE, c.opens) << std::u16string(c.name).size() << " " << c.disposition;
    EXPECT_EQ(GetLastError(), c.error) << std::u16string(c.name).size() << " " << c.disposition;
    if (f != INVALID_HANDLE_VALUE) CloseHandle(f);
  }
  // Reading through a handle opened for writing only.
  HANDLE f = Create(u"x", OPEN_EXISTING, GENERIC_WRITE);
  char b;
  DWORD n;
  EXPECT_FALSE(ReadFile(f, &b, 1, &n, nullptr));
  EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
  CloseHandle(f);
}

TEST_F(Files, SharingModesWithinTheProcess) {
  HANDLE a = Create(u"s", CREATE_NEW, GENERIC_READ, FILE_SHARE_READ);
  ASSERT_NE(a, INVALID_HANDLE_VALUE);
  HANDLE b = Create(u"s", OPEN_EXISTING, GENERIC_READ, FILE_SHARE_READ);
  EXPECT_NE(b, INVALID_HANDLE_VALUE);
  EXPECT_EQ(Create(u"s", OPEN_EXISTING, GENERIC_WRITE, FILE_SHARE_READ), INVALID_HANDLE_VALUE);
  EXPECT_EQ(GetLastError(), ERROR_SHARING_VIOLATION);
  CloseHandle(a);
  CloseHandle(b);
  HANDLE c = Create(u"s", OPEN_EXISTING, GENERIC_WRITE, 0);
  EXPECT_NE(c, INVALID_HANDLE_VALUE);
  CloseHandle(c);
}

TEST_F(Files, AttributesFoldersMoveCopyDelete) {
  EXPECT_EQ(GetFileAttributesW(dir_.c_str()), FILE_ATTRIBUTE_DIRECTORY);
  EXPECT_EQ(GetFileAttributesW(Path(u"none").c_str()), INVALID_FILE_ATTRIBUTES);
  EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
  EXPECT_FALSE(CreateDirectoryW(dir_.c_str(), nullptr));
  EXPECT_EQ(GetLastError(), ERROR_ALREADY_EXISTS);
  EXPECT_FALSE(CreateDirectoryW(Path(u"a/b").c_str(), nullptr));
  EXPECT_EQ(GetLastError(), ERROR_PATH_NOT_FOUND);
  ASSERT_TRUE(CreateDirectoryW(Path(u"sub").c_str(), nullptr));

  HANDLE f = Create(u"sub/file.txt", CREATE_NEW);
  DWORD n;
  WriteFile(f, "data", 4, &n, nullptr);
  CloseHandle(f);
  EXPECT_FALSE(RemoveDirectoryW(Path(u"sub").c_str()));
  EXPECT_EQ(GetLastError(), ERROR_DIR_NOT_EMPTY);
  EXPECT_EQ(GetFileAttributesW(Path(u"sub/file.txt").c_str()), FILE_ATTRIBUTE_NORMAL);

  EXPECT_TRUE(CopyFileW(Path(u"sub/file.txt").c_str(), Path(u"copy.txt").c_str(), TRUE));
  EXPECT_FALSE(CopyFileW(Path(u"sub/file.txt").c_str(), Path(u"copy.txt").c_str(), TRUE));
  EXPECT_EQ(GetLastError(), ERROR_FILE_EXISTS);
  EXPECT_FALSE(MoveFileExW(Path(u"sub/file.txt").c_str(), Path(u"copy.txt").c_str(), 0));
  EXPECT_EQ(GetLastError(), ERROR_ALREADY_EXISTS);
  EXPECT_TRUE(MoveFileExW(Path(u"sub/file.txt").c_str(), Path(u"copy.txt").c_str(),
                          MOVEFILE_REPLACE_EXISTING));
  EXPECT_EQ(GetFileAttributesW(Path(u"sub/file.txt").c_str()), INVALID_FILE_ATTRIBUTES);
  f = Create(u"copy.txt", OPEN_EXISTING, GENERIC_READ);
  EXPECT_EQ(GetFileSize(f, nullptr), 4u);
  CloseHandle(f);

  EXPECT_TRUE(SetFileAttributesW(Path(u"copy.txt").c_str(), FILE_ATTRIBUTE_READONLY));
  EXPECT_EQ(GetFileAttributesW(Path(u"copy.txt").c_str()), FILE_ATTRIBUTE_READONLY);
  EXPECT_TRUE(SetFileAttributesW(Path(u"copy.txt").c_str(), FILE_ATTRIBUTE_NORMAL));
  EXPECT_TRUE(DeleteFileW(Path(u"copy.txt").c_str()));
  EXPECT_FALSE(DeleteFileW(Path(u"copy.txt").c_str()));
  EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
  EXPECT_TRUE(RemoveDirectoryW(Path(u"sub").c_str()));
}

TEST_F(Files, FindWithWildcardsIgnoresCase) {
  for (const char16_t* name : {u"One.so", u"two.SO", u"three.txt", u"noext"}) {
    CloseHandle(Create(name, CREATE_NEW));
  }
  auto find = [&](const char16_t* pattern) {
    std::set<std::u16string> names;
    WIN32_FIND_DATAW d;
    HANDLE f = FindFirstFileW((dir_ + u"/" + pattern).c_str(), &d);
    if (f == INVALID_HANDLE_VALUE) return names;
    do names.insert(d.cFileName);
    while (FindNextFileW(f, &d));
    EXPECT_EQ(GetLastError(), ERROR_NO_MORE_FILES);
    FindClose(f);
    return names;
  };
  EXPECT_EQ(find(u"*.so"), (std::set<std::u16string>{u"One.so", u"two.SO"}));
  EXPECT_EQ(find(u"t??.*"), (std::set<std::u16string>{u"two.SO"}));
  EXPECT_EQ(find(u"*.*").size(), 6u) << "every name, '.' and '..' included";
  EXPECT_EQ(find(u"NOEXT"), (std::set<std::u16string>{u"noext"}));
  WIN32_FIND_DATAW d;
  EXPECT_EQ(FindFirstFileW((dir_ + u"/*.dll").c_str(), &d), INVALID_HANDLE_VALUE);
  EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(FindFirstFileW((dir_ + u"/gone/*").c_str(), &d), INVALID_HANDLE_VALUE);
  EXPECT_EQ(GetLastError(), ERROR_PATH_NOT_FOUND);
  HANDLE f = FindFirstFileW((dir_ + u"/three*").c_str(), &d);
  ASSERT_NE(f, INVALID_HANDLE_VALUE);
  EXPECT_EQ(d.nFileSizeLow, 0u);
  EXPECT_EQ(d.dwFileAttributes, FILE_ATTRIBUTE_NORMAL);
  EXPECT_EQ(WaitForSingleObject(f, 0), WAIT_FAILED) << "a search is not waitable";
  FindClose(f);
}

TEST(Paths, FullPathTempAndCurrentFolder) {
  WCHAR buf[MAX_PATH];
  WCHAR* part = nullptr;
  EXPECT_EQ(GetFullPathNameW(u"/a/./b//../c.txt", MAX_PATH, buf, &part), 8u);
  EXPECT_EQ(std::u16string(buf), u"/a/c.txt");
  EXPECT_EQ(std::u16string(part), u"c.txt");
  EXPECT_EQ(GetFullPathNameW(u"/a/b/", MAX_PATH, buf, &part), 5u);
  EXPECT_EQ(part, nullptr);
  EXPECT_EQ(GetFullPathNameW(u"/abc", 4, buf, nullptr), 5u) << "too small: the size needed";
  WCHAR cwd[MAX_PATH];
  const DWORD n = GetCurrentDirectoryW(MAX_PATH, cwd);
  ASSERT_GT(n, 0u);
  EXPECT_EQ(GetCurrentDirectoryW(0, nullptr), n + 1);
  GetFullPathNameW(u"rel", MAX_PATH, buf, nullptr);
  EXPECT_EQ(std::u16string(buf), (n == 1 ? std::u16string(u"") : std::u16string(cwd)) + u"/rel");
  const DWORD t = GetTempPathW(MAX_PATH, buf);
  ASSERT_GT(t, 0u);
  EXPECT_EQ(buf[t - 1], u'/');
}

}  // namespace
