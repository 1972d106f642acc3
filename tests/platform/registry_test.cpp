#include "platform/registry.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/environment.h"
#include "platform/process.h"
#include "platform/sync.h"
#include "platform/text.h"
#include "tests/support/test_folder.h"

namespace {

namespace fs = std::filesystem;

// Short forms of the calls the cases repeat.
LSTATUS Open(HKEY root, const char16_t* path, REGSAM sam = KEY_READ, HKEY* out = nullptr) {
  HKEY key = nullptr;
  const LSTATUS status = RegOpenKeyExW(root, path, 0, sam, &key);
  if (out)
    *out = key;
  else
    RegCloseKey(key);
  return status;
}
LSTATUS Query(HKEY key, const char16_t* name, void* data = nullptr, DWORD* size = nullptr,
              DWORD* type = nullptr) {
  return RegQueryValueExW(key, name, nullptr, type, static_cast<BYTE*>(data), size);
}
LSTATUS Set(HKEY key, const char16_t* name, DWORD type, const void* data, size_t size) {
  return RegSetValueExW(key, name, 0, type, static_cast<const BYTE*>(data),
                        static_cast<DWORD>(size));
}
void SetDword(HKEY key, const char16_t* name, DWORD value) {
  EXPECT_EQ(Set(key, name, REG_DWORD, &value, 4), ERROR_SUCCESS);
}
// Sub-keys, longest sub-key name, values, longest value data.
std::vector<DWORD> Info(HKEY key) {
  std::vector<DWORD> n(4, 99);
  EXPECT_EQ(RegQueryInfoKeyW(key, nullptr, nullptr, nullptr, &n[0], &n[1], nullptr, &n[2], nullptr,
                             &n[3], nullptr, nullptr),
            ERROR_SUCCESS);
  return n;
}
std::u16string Wide(const std::string& text) { return ZqUtf8ToUtf16(text); }

// Every case gets its own store folder.
class Registry : public ::testing::Test {
 protected:
  void SetUp() override { PointAt(dir_.path()); }
  void TearDown() override { ZqRegistryAllowMachineWrite(FALSE); }

  static void PointAt(const fs::path& folder) {
    ASSERT_TRUE(SetEnvironmentVariableW(u"ZQ_REGISTRY_DIR", Wide(folder.string()).c_str()));
  }
  static HKEY Create(const char16_t* path, HKEY root = HKEY_CURRENT_USER) {
    HKEY key = nullptr;
    EXPECT_EQ(RegCreateKeyExW(root, path, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr),
              ERROR_SUCCESS);
    return key;
  }
  static std::vector<std::u16string> SubKeys(HKEY key) {
    std::vector<std::u16string> names;
    WCHAR name[256];
    for (DWORD i = 0; RegEnumKeyW(key, i, name, 256) == ERROR_SUCCESS; ++i)
      names.emplace_back(name);
    return names;
  }
  // Makes the process let go of its store file (its log is written back into
  // it) by pointing the store elsewhere for one call.
  void LetGo() {
    ASSERT_EQ(RegFlushKey(HKEY_CURRENT_USER), ERROR_SUCCESS);
    PointAt("/nonexistent");
    Query(HKEY_CURRENT_USER, u"x");
    PointAt(dir_.path());
  }
  std::string UserDb() const { return (dir_.path() / "user.db").string(); }

  zqtest::TestFolder dir_{"zqreg_"};
};

TEST_F(Registry, ValuesKeepTypeAndBytesAndNamesIgnoreCase) {
  HKEY key = Create(u"Software\\Ostrand\\App\\");
  const char16_t multi[] = u"a\0bc\0";
  ASSERT_EQ(Set(key, u"Blob", REG_BINARY, "\0\1\xFF", 3), ERROR_SUCCESS);
  ASSERT_EQ(Set(key, nullptr, REG_MULTI_SZ, multi, 12), ERROR_SUCCESS);
  ASSERT_EQ(Set(key, u"Empty", 0x1234, nullptr, 0), ERROR_SUCCESS);
  SetDword(key, u"BLOB", 7);  // replaces "Blob", type and all
  RegCloseKey(key);

  ASSERT_EQ(Open(HKEY_CURRENT_USER, u"SOFTWARE\\ostrand\\APP", KEY_READ, &key), ERROR_SUCCESS);
  DWORD type = 0, value = 0, size = 4;
  EXPECT_EQ(Query(key, u"blob", &value, &size, &type), ERROR_SUCCESS);
  EXPECT_EQ(std::make_pair(type, value), std::make_pair(REG_DWORD, 7u));
  char16_t got[8] = {};
  size = sizeof got;
  EXPECT_EQ(Query(key, u"", got, &size, &type), ERROR_SUCCESS);
  EXPECT_EQ(type, REG_MULTI_SZ);
  EXPECT_EQ(std::u16string(got, size / 2), std::u16string(multi, 6));
  EXPECT_EQ(Query(key, u"empty", nullptr, &size, &type), ERROR_SUCCESS);
  EXPECT_EQ(std::make_pair(type, size), std::make_pair(0x1234u, 0u));
  RegCloseKey(key);
}

TEST_F(Registry, SubKeysAndValuesComeInCaseInsensitiveNameOrder) {
  HKEY key = Create(u"Order");
  for (const char16_t* name :
       {u"Path 2", u"b", u"path 12", u"\u00C4b", u"Path 1", u"\u00E4A", u"a"}) {
    RegCloseKey(Create((std::u16string(u"Order\\") + name).c_str()));
    SetDword(key, name, 1);
  }
  DWORD disposition = 0;
  HKEY same = nullptr;
  ASSERT_EQ(RegCreateKeyExW(key, u"PATH 2", 0, nullptr, 0, KEY_READ, nullptr, &same, &disposition),
            ERROR_SUCCESS);
  EXPECT_EQ(disposition, static_cast<DWORD>(REG_OPENED_EXISTING_KEY));
  RegCloseKey(same);
  const std::vector<std::u16string> expected = {u"a",      u"b",       u"Path 1", u"path 12",
                                                u"Path 2", u"\u00E4A", u"\u00C4b"};
  EXPECT_EQ(SubKeys(key), expected);
  std::vector<std::u16string> values;
  WCHAR name[32];
  for (DWORD i = 0, n = 32;
       RegEnumValueW(key, i, name, &n, nullptr, nullptr, nullptr, nullptr) == ERROR_SUCCESS;
       ++i, n = 32)
    values.emplace_back(name, n);
  EXPECT_EQ(values, expected);
  EXPECT_EQ(Info(key), (std::vector<DWORD>{7, 7, 7, 4}));
  RegCloseKey(key);
}

TEST_F(Registry, TreeDeleteTakesEverythingBelow) {
  RegCloseKey(Create(u"T\\a\\b\\c"));
  HKEY t = Create(u"T");
  SetDword(t, u"own", 1);
  EXPECT_EQ(RegDeleteKeyW(t, u"a"), static_cast<LSTATUS>(ERROR_ACCESS_DENIED)) << "has sub-keys";
  EXPECT_EQ(RegDeleteTreeW(t, u"A"), ERROR_SUCCESS);
  EXPECT_TRUE(SubKeys(t).empty());
  RegCloseKey(Create(u"T\\x\\y"));
  EXPECT_EQ(RegDeleteTreeW(t, nullptr), ERROR_SUCCESS) << "the key itself stays, emptied";
  EXPECT_EQ(Info(t), (std::vector<DWORD>{0, 0, 0, 0}));
  RegCloseKey(t);
}

// Each row finds a key "K" with the value "v" (4 bytes) and the sub-key
// "K\s", open as `k`, and makes the call whose status is checked; `size` is
// the size it must have written back, if any.
struct StatusCase {
  const char* what;
  std::function<LSTATUS(HKEY k)> call;
  LSTATUS expected;
  DWORD size = 0;
};

TEST_F(Registry, EveryFailureHasItsStatus) {
  HKEY h = nullptr;
  BYTE b[4];
  WCHAR c[8];
  DWORD n = 0;
  const auto gone = [](HKEY k) { return RegDeleteTreeW(HKEY_CURRENT_USER, u"K"), k; };
  const auto readOnly = [&] { return Open(HKEY_CURRENT_USER, u"K", KEY_READ, &h), h; };
  const auto closed = [](HKEY k) { return RegCloseKey(k), k; };
  const auto fileReplaced = [&](HKEY k) {
    for (const char* tail : {"", "-wal", "-shm"}) fs::remove(UserDb() + tail);
    RegCloseKey(Create(u"K"));  // a new file serves the path, with the same row numbers
    return k;
  };
  const HKEY lm = HKEY_LOCAL_MACHINE, cu = HKEY_CURRENT_USER;
  // clang-format off
  const StatusCase cases[] = {
      {"missing key", [&](HKEY) { return Open(cu, u"K\\none"); }, ERROR_FILE_NOT_FOUND},
      {"missing value", [&](HKEY k) { return Query(k, u"w"); }, ERROR_FILE_NOT_FOUND},
      {"missing value deleted", [&](HKEY k) { return RegDeleteValueW(k, u"w"); }, ERROR_FILE_NOT_FOUND},
      {"small data buffer", [&](HKEY k) { return Query(k, u"v", b, &(n = 2)); }, ERROR_MORE_DATA, 4},
      {"size asked", [&](HKEY k) { return Query(k, u"v", nullptr, &(n = 0)); }, ERROR_SUCCESS, 4},
      {"small name buffer", [&](HKEY k) { return RegEnumKeyExW(k, 0, c, &(n = 1), 0, 0, 0, 0); },
       ERROR_MORE_DATA, 2},
      {"index past the end", [&](HKEY k) { return RegEnumKeyW(k, 1, c, 8); }, ERROR_NO_MORE_ITEMS},
      {"machine opened to write", [&](HKEY) { return Open(lm, u"Software", KEY_WRITE); }, ERROR_ACCESS_DENIED},
      {"machine key created", [&](HKEY) { return RegCreateKeyW(lm, u"x", &h); }, ERROR_ACCESS_DENIED},
      {"write through a read handle", [&](HKEY) { return Set(readOnly(), u"v", 0, b, 0); }, ERROR_ACCESS_DENIED},
      {"hive root deleted", [&](HKEY) { return RegDeleteKeyW(cu, nullptr); }, ERROR_ACCESS_DENIED},
      {"read after delete", [&](HKEY k) { return Query(gone(k), u"v"); }, ERROR_KEY_DELETED},
      {"write after delete", [&](HKEY k) { return Set(gone(k), u"v", 0, b, 0); }, ERROR_KEY_DELETED},
      {"create below deleted", [&](HKEY k) { return RegCreateKeyW(gone(k), u"s", &h); }, ERROR_KEY_DELETED},
      {"store file replaced", [&](HKEY k) { return Query(fileReplaced(k), u"v"); }, ERROR_KEY_DELETED},
      {"closed handle", [&](HKEY k) { return Query(closed(k), u"v"); }, ERROR_INVALID_HANDLE},
      {"root of no store", [&](HKEY) { return Open(HKEY_CLASSES_ROOT, u"x"); }, ERROR_INVALID_HANDLE},
      {"data without a size", [&](HKEY k) { return Query(k, u"v", b, nullptr); }, ERROR_INVALID_PARAMETER},
      {"empty part in a path", [&](HKEY) { return Open(cu, u"K\\\\s"); }, ERROR_BAD_PATHNAME},
  };
  // clang-format on
  for (const StatusCase& row : cases) {
    RegCloseKey(Create(u"K\\s"));
    HKEY k = Create(u"K");
    SetDword(k, u"v", 1);
    EXPECT_EQ(row.call(k), row.expected) << row.what;
    EXPECT_TRUE(row.size == 0 || n == row.size) << row.what << ": wrote back " << n;
    for (HKEY open : {k, h}) RegCloseKey(open);
    h = nullptr;
    gone(k);
  }
}

TEST_F(Registry, StoreIsMadePrivateOnFirstWriteOnly) {
  const fs::path deep = dir_.path() / "a" / "b";
  PointAt(deep);
  EXPECT_EQ(Open(HKEY_CURRENT_USER, u"x"), ERROR_FILE_NOT_FOUND);
  EXPECT_FALSE(fs::exists(deep)) << "reading creates nothing";
  SetDword(HKEY_CURRENT_USER, u"v", 1);
  struct stat folder, file;
  ASSERT_EQ(stat((dir_.path() / "a").c_str(), &folder), 0);
  ASSERT_EQ(stat((deep / "user.db").c_str(), &file), 0);
  EXPECT_EQ(folder.st_mode & 0777, 0700u);
  EXPECT_EQ(file.st_mode & 0777, 0600u);
}

TEST_F(Registry, MachineHiveIsReadOnlyUnlessAllowed) {
  DWORD value = 0, size = 4;
  EXPECT_EQ(Query(HKEY_LOCAL_MACHINE, u"v"), ERROR_FILE_NOT_FOUND);
  EXPECT_FALSE(ZqRegistryAllowMachineWrite(TRUE));
  RegCloseKey(Create(u"Software\\VST", HKEY_LOCAL_MACHINE));
  SetDword(HKEY_LOCAL_MACHINE, u"v", 5);
  EXPECT_TRUE(ZqRegistryAllowMachineWrite(FALSE));
  EXPECT_EQ(Query(HKEY_LOCAL_MACHINE, u"v", &value, &size), ERROR_SUCCESS);
  EXPECT_EQ(value, 5u);
  EXPECT_EQ(Set(HKEY_LOCAL_MACHINE, u"v", 0, &value, 0), static_cast<LSTATUS>(ERROR_ACCESS_DENIED));
  EXPECT_EQ(RegDeleteTreeW(HKEY_LOCAL_MACHINE, u"Software"),
            static_cast<LSTATUS>(ERROR_ACCESS_DENIED));
}

// A store file that cannot serve answers a clear status, names its path and
// is left exactly as it was.
TEST_F(Registry, DamagedStoreIsReportedAndLeftInPlace) {
  const auto overwrite = [this](std::streamoff at, const std::string& bytes) {
    std::fstream(UserDb(), std::ios::in | std::ios::out | std::ios::binary).seekp(at) << bytes;
  };
  const struct {
    const char* what;
    std::function<void()> make;
    LSTATUS expected;
  } damages[] = {
      {"not a database", [&] { std::ofstream(UserDb()) << std::string(5000, 'x'); }, ERROR_BADDB},
      {"another program's database",
       [&] {
         SetDword(HKEY_CURRENT_USER, u"v", 1);
         LetGo();
         overwrite(68, "XXXX");  // the application's identifier in the header
       },
       ERROR_BADDB},
      {"a folder in its place", [&] { fs::create_directory(UserDb()); }, ERROR_CANTOPEN},
      {"pages overwritten",
       [&] {
         HKEY k = Create(u"K");
         for (int i = 0; i < 200; ++i) SetDword(k, Wide("value " + std::to_string(i)).c_str(), i);
         RegCloseKey(k);
         LetGo();
         // Every page but the first (the header and the table of tables).
         overwrite(4096, std::string(fs::file_size(UserDb()) - 4096, 'Z'));
       },
       ERROR_BADDB},
  };
  for (const auto& damage : damages) {
    SCOPED_TRACE(damage.what);
    for (const char* tail : {"", "-wal", "-shm"}) fs::remove_all(UserDb() + tail);
    damage.make();
    const auto size = [this] { return fs::is_directory(UserDb()) ? 0 : fs::file_size(UserDb()); };
    const auto before = size();
    HKEY key = nullptr;
    EXPECT_EQ(Open(HKEY_CURRENT_USER, u"K"), damage.expected);
    EXPECT_EQ(RegCreateKeyW(HKEY_CURRENT_USER, u"New", &key), damage.expected);
    EXPECT_EQ(key, nullptr);
    WCHAR path[512];
    DWORD chars = 512;
    ASSERT_EQ(ZqRegistryGetStorePath(HKEY_CURRENT_USER, path, &chars), ERROR_SUCCESS);
    EXPECT_EQ(ZqUtf16ToUtf8(path), UserDb());
    EXPECT_EQ(size(), before);
  }
}

TEST_F(Registry, ThreadsShareOneHandle) {
  HKEY key = Create(u"Threads");
  std::vector<std::thread> threads;
  for (DWORD t = 0; t < 4; ++t)
    threads.emplace_back([key, t] {
      for (DWORD i = 0; i < 50; ++i) {
        const std::u16string name = Wide(std::to_string(t) + "/" + std::to_string(i));
        SetDword(key, name.c_str(), t * 1000 + i);
        DWORD value = 0, size = 4;
        EXPECT_EQ(Query(key, name.c_str(), &value, &size), ERROR_SUCCESS);
        EXPECT_EQ(value, t * 1000 + i);
      }
    });
  for (std::thread& t : threads) t.join();
  EXPECT_EQ(Info(key)[2], 200u);
  RegCloseKey(key);
}

// ---- Several processes: the test binary runs again as a writer. ----

// Value `i` of a writer is 16 KiB of one letter, so that a torn write shows.
std::string Payload(int i) { return std::string(16384, static_cast<char>('A' + i % 26)); }

// Runs only as a child, with ZQ_REGISTRY_WRITER "<tag>:<count>": writes the
// keys "Shared\<tag> <i>" with the value "data", and after each committed
// write sends i on descriptor 3 (when it is open).
TEST(RegistryChild, Writer) {
  const char* role = std::getenv("ZQ_REGISTRY_WRITER");
  if (role == nullptr) GTEST_SKIP() << "runs only as a child of the tests below";
  for (int i = 0; i < std::atoi(role + 2); ++i) {
    HKEY key = nullptr;
    const std::u16string path = Wide("Shared\\" + std::string(role, 1) + " " + std::to_string(i));
    ASSERT_EQ(RegCreateKeyW(HKEY_CURRENT_USER, path.c_str(), &key), ERROR_SUCCESS);
    const std::string data = Payload(i);
    ASSERT_EQ(Set(key, u"data", REG_BINARY, data.data(), data.size()), ERROR_SUCCESS);
    RegCloseKey(key);
    ZqSocketSend(3, &i, sizeof i, nullptr, 0);
  }
}

HANDLE StartWriter(const char* role, int socket) {
  SetEnvironmentVariableW(u"ZQ_REGISTRY_WRITER", Wide(role).c_str());
  const std::string exe = ZqUtf16ToUtf8(ZqGetExecutablePath());
  const char* argv[] = {exe.c_str(), "--gtest_filter=RegistryChild.Writer", nullptr};
  const ZqSpawnDescriptor fds[] = {{socket, 3}};
  HANDLE process = nullptr;
  EXPECT_TRUE(ZqSpawnProcess(exe.c_str(), argv, fds, socket >= 0 ? 1 : 0, &process, nullptr));
  SetEnvironmentVariableW(u"ZQ_REGISTRY_WRITER", nullptr);
  return process;
}

// Checks that every key under "Shared" holds its whole value; answers their
// names.
std::set<std::u16string> CheckShared() {
  std::set<std::u16string> names;
  HKEY shared = nullptr, key = nullptr;
  if (Open(HKEY_CURRENT_USER, u"Shared", KEY_READ, &shared) != ERROR_SUCCESS) return names;
  WCHAR name[64];
  for (DWORD i = 0; RegEnumKeyW(shared, i, name, 64) == ERROR_SUCCESS; ++i) {
    EXPECT_EQ(Open(shared, name, KEY_READ, &key), ERROR_SUCCESS);
    std::string data(20000, '\0');
    DWORD size = 20000;
    if (Query(key, u"data", data.data(), &size) == ERROR_SUCCESS) {
      data.resize(size);
      EXPECT_EQ(data, Payload(std::stoi(ZqUtf16ToUtf8(name).substr(2)))) << ZqUtf16ToUtf8(name);
      names.insert(name);
    }
    RegCloseKey(key);
  }
  RegCloseKey(shared);
  return names;
}

TEST_F(Registry, TwoProcessesWriteAtOnce) {
  for (HANDLE p : {StartWriter("a:150", -1), StartWriter("b:150", -1)}) {
    ASSERT_EQ(WaitForSingleObject(p, 60000), WAIT_OBJECT_0);
    DWORD code = 1;
    GetExitCodeProcess(p, &code);
    EXPECT_EQ(code, 0u) << "a writer failed (as it would on a busy store)";
    CloseHandle(p);
  }
  EXPECT_EQ(CheckShared().size(), 300u);
}

TEST_F(Registry, KilledWriterLosesNoCommittedWrite) {
  int pair[2];
  ASSERT_TRUE(ZqCreateSocketPair(pair));
  HANDLE writer = StartWriter("k:5000", pair[1]);
  ZqCloseDescriptor(pair[1]);
  int committed = -1;
  for (int i = 0; i < 40; ++i)
    ASSERT_EQ(ZqSocketReceive(pair[0], &committed, sizeof committed, nullptr, nullptr, 30000), 4);
  TerminateProcess(writer, 9);  // in the middle of its writes
  WaitForSingleObject(writer, 30000);
  CloseHandle(writer);
  while (ZqSocketReceive(pair[0], &committed, sizeof committed, nullptr, nullptr, 0) == 4) {
  }
  ZqCloseDescriptor(pair[0]);
  const std::set<std::u16string> names = CheckShared();
  for (int i = 0; i <= committed; ++i)
    EXPECT_TRUE(names.count(Wide("k " + std::to_string(i)))) << "lost write " << i;
}

}  // namespace
