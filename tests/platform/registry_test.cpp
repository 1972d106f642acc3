#include <gtest/gtest.h>

#include <sys/stat.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "platform/environment.h"
#include "platform/process.h"
#include "platform/registry.h"
#include "platform/sync.h"
#include "platform/text.h"
#include "tests/support/test_folder.h"

namespace {

namespace fs = std::filesystem;

// Every case gets its own store folder.
class Registry : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(SetEnvironmentVariableW(u"ZQ_REGISTRY_DIR", ZqUtf8ToUtf16(dir_.path().string()).c_str()));
  }
  void TearDown() override { ZqRegistryAllowMachineWrite(FALSE); }

  HKEY Create(const char16_t* path, HKEY root = HKEY_CURRENT_USER) {
    HKEY key = nullptr;
    EXPECT_EQ(RegCreateKeyExW(root, path, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr), ERROR_SUCCESS);
    return key;
  }
  static void SetDword(HKEY key, const char16_t* name, DWORD value) {
    EXPECT_EQ(RegSetValueExW(key, name, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&value), 4), ERROR_SUCCESS);
  }
  static std::vector<std::u16string> SubKeys(HKEY key) {
    std::vector<std::u16string> names;
    WCHAR name[256];
    for (DWORD i = 0; RegEnumKeyW(key, i, name, 256) == ERROR_SUCCESS; ++i) names.emplace_back(name);
    return names;
  }
  // Makes the process let go of the store at `file` (its log is written back
  // into it) by pointing the store elsewhere for one call.
  static void LetGo(const std::string& file) {
    ASSERT_EQ(RegFlushKey(HKEY_CURRENT_USER), ERROR_SUCCESS);
    SetEnvironmentVariableW(u"ZQ_REGISTRY_DIR", u"/nonexistent");
    RegQueryValueExW(HKEY_CURRENT_USER, u"x", nullptr, nullptr, nullptr, nullptr);
    SetEnvironmentVariableW(u"ZQ_REGISTRY_DIR", ZqUtf8ToUtf16(fs::path(file).parent_path().string()).c_str());
  }
  std::string UserDb() const { return (dir_.path() / "user.db").string(); }

  zqtest::TestFolder dir_{"zqreg_"};
};

TEST_F(Registry, ValuesKeepTypeAndBytesAndNamesIgnoreCase) {
  HKEY key = Create(u"Software\\Ostrand\\App\\");
  const BYTE blob[] = {0, 1, 2, 0xFF};
  const char16_t multi[] = u"a\0bc\0";
  ASSERT_EQ(RegSetValueExW(key, u"Blob", 0, REG_BINARY, blob, 4), ERROR_SUCCESS);
  ASSERT_EQ(RegSetValueExW(key, nullptr, 0, REG_MULTI_SZ, reinterpret_cast<const BYTE*>(multi), 12), ERROR_SUCCESS);
  ASSERT_EQ(RegSetValueExW(key, u"Empty", 0, 0x1234, nullptr, 0), ERROR_SUCCESS);
  SetDword(key, u"BLOB", 7);  // replaces "Blob", type and all
  RegCloseKey(key);

  HKEY again = nullptr;
  ASSERT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, u"SOFTWARE\\ostrand\\APP", 0, KEY_READ, &again), ERROR_SUCCESS);
  DWORD type = 0, value = 0, size = 4;
  EXPECT_EQ(RegQueryValueExW(again, u"blob", nullptr, &type, reinterpret_cast<BYTE*>(&value), &size), ERROR_SUCCESS);
  EXPECT_EQ(type, REG_DWORD);
  EXPECT_EQ(value, 7u);
  char16_t got[8] = {};
  size = sizeof got;
  EXPECT_EQ(RegQueryValueExW(again, u"", nullptr, &type, reinterpret_cast<BYTE*>(got), &size), ERROR_SUCCESS);
  EXPECT_EQ(type, REG_MULTI_SZ);
  EXPECT_EQ(std::u16string(got, size / 2), std::u16string(multi, 6));
  EXPECT_EQ(RegQueryValueExW(again, u"empty", nullptr, &type, nullptr, &size), ERROR_SUCCESS);
  EXPECT_EQ(type, 0x1234u);
  EXPECT_EQ(size, 0u);
  RegCloseKey(again);
}

TEST_F(Registry, SubKeysAndValuesComeInCaseInsensitiveNameOrder) {
  HKEY key = Create(u"Order");
  for (const char16_t* name : {u"Path 2", u"b", u"path 12", u"\u00C4b", u"Path 1", u"\u00E4A", u"a"}) {
    RegCloseKey(Create((std::u16string(u"Order\\") + name).c_str()));
    SetDword(key, name, 1);
  }
  DWORD disposition = 0;
  HKEY same = nullptr;
  ASSERT_EQ(RegCreateKeyExW(key, u"PATH 2", 0, nullptr, 0, KEY_READ, nullptr, &same, &disposition), ERROR_SUCCESS);
  EXPECT_EQ(disposition, static_cast<DWORD>(REG_OPENED_EXISTING_KEY));
  RegCloseKey(same);
  const std::vector<std::u16string> expected = {u"a", u"b", u"Path 1", u"path 12", u"Path 2", u"\u00E4A", u"\u00C4b"};
  EXPECT_EQ(SubKeys(key), expected);
  std::vector<std::u16string> values;
  WCHAR name[32];
  DWORD chars = 32;
  for (DWORD i = 0; RegEnumValueW(key, i, name, &chars, nullptr, nullptr, nullptr, nullptr) == ERROR_SUCCESS; ++i, chars = 32)
    values.emplace_back(name, chars);
  EXPECT_EQ(values, expected);
  DWORD subKeys = 0, longest = 0, count = 0, longestValue = 0;
  EXPECT_EQ(RegQueryInfoKeyW(key, nullptr, nullptr, nullptr, &subKeys, &longest, nullptr, &count, nullptr, &longestValue, nullptr, nullptr), ERROR_SUCCESS);
  EXPECT_EQ(subKeys, 7u);
  EXPECT_EQ(longest, 7u);
  EXPECT_EQ(count, 7u);
  EXPECT_EQ(longestValue, 4u);
  RegCloseKey(key);
}

TEST_F(Registry, TreeDeleteTakesEverythingBelow) {
  RegCloseKey(Create(u"T\\a\\b\\c"));
  HKEY t = Create(u"T");
  SetDword(t, u"own", 1);
  EXPECT_EQ(RegDeleteKeyW(t, u"a"), static_cast<LSTATUS>(ERROR_ACCESS_DENIED)) << "a key with sub-keys";
  EXPECT_EQ(RegDeleteTreeW(t, u"A"), ERROR_SUCCESS);
  EXPECT_TRUE(SubKeys(t).empty());
  RegCloseKey(Create(u"T\\x\\y"));
  EXPECT_EQ(RegDeleteTreeW(t, nullptr), ERROR_SUCCESS) << "the key itself stays, emptied";
  DWORD subKeys = 1, values = 1;
  EXPECT_EQ(RegQueryInfoKeyW(t, nullptr, nullptr, nullptr, &subKeys, nullptr, nullptr, &values, nullptr, nullptr, nullptr, nullptr), ERROR_SUCCESS);
  EXPECT_EQ(subKeys + values, 0u);
  RegCloseKey(t);
}

// Each row arranges a key "K" with value "v" (4 bytes) and sub-key "K\s",
// then makes one call whose status is checked.
struct StatusCase {
  const char* what;
  std::function<LSTATUS(HKEY k)> call;
  LSTATUS expected;
};

TEST_F(Registry, EveryFailureHasItsStatus) {
  const auto open = [](HKEY root, const char16_t* path, REGSAM sam) {
    HKEY h = nullptr;
    const LSTATUS s = RegOpenKeyExW(root, path, 0, sam, &h);
    RegCloseKey(h);
    return s;
  };
  const StatusCase cases[] = {
      {"missing key", [&](HKEY) { return open(HKEY_CURRENT_USER, u"K\\none", KEY_READ); }, ERROR_FILE_NOT_FOUND},
      {"missing value", [](HKEY k) { return RegQueryValueExW(k, u"w", nullptr, nullptr, nullptr, nullptr); }, ERROR_FILE_NOT_FOUND},
      {"delete missing value", [](HKEY k) { return RegDeleteValueW(k, u"w"); }, ERROR_FILE_NOT_FOUND},
      {"small data buffer", [](HKEY k) { BYTE b[2]; DWORD n = 2; const LSTATUS s = RegQueryValueExW(k, u"v", nullptr, nullptr, b, &n); return n == 4 ? s : -1; }, ERROR_MORE_DATA},
      {"size asked with null data", [](HKEY k) { DWORD n = 0; const LSTATUS s = RegQueryValueExW(k, u"v", nullptr, nullptr, nullptr, &n); return n == 4 ? s : -1; }, ERROR_SUCCESS},
      {"small name buffer", [](HKEY k) { WCHAR b[1]; DWORD n = 1; const LSTATUS s = RegEnumKeyExW(k, 0, b, &n, nullptr, nullptr, nullptr, nullptr); return n == 2 ? s : -1; }, ERROR_MORE_DATA},
      {"index past the end", [](HKEY k) { WCHAR b[8]; return RegEnumKeyW(k, 1, b, 8); }, ERROR_NO_MORE_ITEMS},
      {"machine opened for write", [&](HKEY) { return open(HKEY_LOCAL_MACHINE, u"Software", KEY_WRITE); }, ERROR_ACCESS_DENIED},
      {"machine key created", [](HKEY) { HKEY h; return RegCreateKeyW(HKEY_LOCAL_MACHINE, u"x", &h); }, ERROR_ACCESS_DENIED},
      {"write through a read handle", [](HKEY) { HKEY h = nullptr; RegOpenKeyExW(HKEY_CURRENT_USER, u"K", 0, KEY_READ, &h); const LSTATUS s = RegSetValueExW(h, u"v", 0, REG_NONE, nullptr, 0); RegCloseKey(h); return s; }, ERROR_ACCESS_DENIED},
      {"hive root deleted", [](HKEY) { return RegDeleteKeyW(HKEY_CURRENT_USER, nullptr); }, ERROR_ACCESS_DENIED},
      {"query after delete", [](HKEY k) { RegDeleteTreeW(HKEY_CURRENT_USER, u"K"); return RegQueryValueExW(k, u"v", nullptr, nullptr, nullptr, nullptr); }, ERROR_KEY_DELETED},
      {"write after delete", [](HKEY k) { RegDeleteTreeW(HKEY_CURRENT_USER, u"K"); return RegSetValueExW(k, u"v", 0, REG_NONE, nullptr, 0); }, ERROR_KEY_DELETED},
      {"create below a deleted key", [](HKEY k) { RegDeleteTreeW(HKEY_CURRENT_USER, u"K"); HKEY h; return RegCreateKeyW(k, u"s", &h); }, ERROR_KEY_DELETED},
      {"store file removed meanwhile", [&](HKEY k) {
         for (const char* tail : {"", "-wal", "-shm"}) fs::remove(UserDb() + tail);
         RegCloseKey(Create(u"K"));  // a new store serves the path
         return RegQueryValueExW(k, u"v", nullptr, nullptr, nullptr, nullptr); }, ERROR_KEY_DELETED},
      {"closed handle", [](HKEY k) { RegCloseKey(k); return RegQueryValueExW(k, u"v", nullptr, nullptr, nullptr, nullptr); }, ERROR_INVALID_HANDLE},
      {"root of no store", [](HKEY) { HKEY h; return RegOpenKeyW(HKEY_CLASSES_ROOT, u"x", &h); }, ERROR_INVALID_HANDLE},
      {"data without a size", [](HKEY k) { BYTE b[4]; return RegQueryValueExW(k, u"v", nullptr, nullptr, b, nullptr); }, ERROR_INVALID_PARAMETER},
      {"empty part in a path", [&](HKEY) { return open(HKEY_CURRENT_USER, u"K\\\\s", KEY_READ); }, ERROR_BAD_PATHNAME},
  };
  for (const StatusCase& c : cases) {
    HKEY k = Create(u"K\\s");
    RegCloseKey(k);
    k = Create(u"K");
    SetDword(k, u"v", 1);
    EXPECT_EQ(c.call(k), c.expected) << c.what;
    RegCloseKey(k);
    RegDeleteTreeW(HKEY_CURRENT_USER, u"K");
  }
}

TEST_F(Registry, StoreIsMadePrivateOnFirstWriteOnly) {
  const fs::path deep = dir_.path() / "a" / "b";
  ASSERT_TRUE(SetEnvironmentVariableW(u"ZQ_REGISTRY_DIR", ZqUtf8ToUtf16(deep.string()).c_str()));
  HKEY key = nullptr;
  EXPECT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, u"x", 0, KEY_READ, &key), ERROR_FILE_NOT_FOUND);
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
  EXPECT_EQ(RegQueryValueExW(HKEY_LOCAL_MACHINE, u"v", nullptr, nullptr, nullptr, &size), ERROR_FILE_NOT_FOUND);
  EXPECT_FALSE(ZqRegistryAllowMachineWrite(TRUE));
  RegCloseKey(Create(u"Software\\VST", HKEY_LOCAL_MACHINE));
  SetDword(HKEY_LOCAL_MACHINE, u"v", 5);
  EXPECT_TRUE(ZqRegistryAllowMachineWrite(FALSE));
  EXPECT_EQ(RegQueryValueExW(HKEY_LOCAL_MACHINE, u"v", nullptr, nullptr, reinterpret_cast<BYTE*>(&value), &size), ERROR_SUCCESS);
  EXPECT_EQ(value, 5u);
  EXPECT_EQ(RegSetValueExW(HKEY_LOCAL_MACHINE, u"v", 0, REG_NONE, nullptr, 0), static_cast<LSTATUS>(ERROR_ACCESS_DENIED));
  EXPECT_EQ(RegDeleteTreeW(HKEY_LOCAL_MACHINE, u"Software"), static_cast<LSTATUS>(ERROR_ACCESS_DENIED));
}

// A store file that cannot serve answers a clear status, names its path and
// is left exactly as it was.
TEST_F(Registry, DamagedStoreIsReportedAndLeftInPlace) {
  struct Damage {
    const char* what;
    std::function<void(const std::string&)> make;
    LSTATUS expected;
  };
  const Damage damages[] = {
      {"not a database", [](const std::string& p) { std::ofstream(p) << std::string(5000, 'x'); }, ERROR_BADDB},
      {"another program's database", [this](const std::string& p) {
         SetDword(HKEY_CURRENT_USER, u"v", 1);
         LetGo(p);
         std::fstream f(p, std::ios::in | std::ios::out | std::ios::binary);
         f.seekp(68);  // the application's identifier in the header
         f << "XXXX";
       }, ERROR_BADDB},
      {"a folder in its place", [](const std::string& p) { fs::create_directory(p); }, ERROR_CANTOPEN},
      {"pages overwritten", [this](const std::string& p) {
         HKEY k = Create(u"K");
         for (int i = 0; i < 200; ++i) SetDword(k, ZqUtf8ToUtf16("value " + std::to_string(i)).c_str(), i);
         RegCloseKey(k);
         LetGo(p);
         // Every page but the first (the header and the table of tables).
         std::fstream f(p, std::ios::in | std::ios::out | std::ios::binary);
         f.seekp(4096);
         f << std::string(fs::file_size(p) - 4096, '\x5A');
       }, ERROR_BADDB},
  };
  for (const Damage& d : damages) {
    SCOPED_TRACE(d.what);
    fs::remove_all(UserDb());
    fs::remove(UserDb() + "-wal");
    fs::remove(UserDb() + "-shm");
    d.make(UserDb());
    const auto before = fs::is_directory(UserDb()) ? 0 : fs::file_size(UserDb());
    HKEY key = nullptr;
    EXPECT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, u"K", 0, KEY_READ, &key), d.expected);
    EXPECT_EQ(RegCreateKeyW(HKEY_CURRENT_USER, u"New", &key), d.expected);
    EXPECT_EQ(key, nullptr);
    WCHAR path[512];
    DWORD chars = 512;
    ASSERT_EQ(ZqRegistryGetStorePath(HKEY_CURRENT_USER, path, &chars), ERROR_SUCCESS);
    EXPECT_EQ(ZqUtf16ToUtf8(path), UserDb());
    EXPECT_EQ(fs::is_directory(UserDb()) ? 0 : fs::file_size(UserDb()), before);
  }
}

TEST_F(Registry, ThreadsShareOneHandle) {
  HKEY key = Create(u"Threads");
  std::vector<std::thread> threads;
  for (DWORD t = 0; t < 4; ++t)
    threads.emplace_back([key, t] {
      for (DWORD i = 0; i < 50; ++i) {
        const std::u16string name = ZqUtf8ToUtf16(std::to_string(t) + "/" + std::to_string(i));
        SetDword(key, name.c_str(), t * 1000 + i);
        DWORD value = 0, size = 4;
        EXPECT_EQ(RegQueryValueExW(key, name.c_str(), nullptr, nullptr, reinterpret_cast<BYTE*>(&value), &size), ERROR_SUCCESS);
        EXPECT_EQ(value, t * 1000 + i);
      }
    });
  for (std::thread& t : threads) t.join();
  DWORD values = 0;
  EXPECT_EQ(RegQueryInfoKeyW(key, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &values, nullptr, nullptr, nullptr, nullptr), ERROR_SUCCESS);
  EXPECT_EQ(values, 200u);
  RegCloseKey(key);
}

// ---- Several processes: the test binary runs again as a writer. ----

// Value `i` of a writer is 16 KiB of the byte i, so that a torn write shows.
std::string Payload(int i) { return std::string(16384, static_cast<char>('A' + i % 26)); }

// Run only as a child: writes keys "Shared\<tag> <i>" with value "data", and
// after each committed write sends i on descriptor 3 when it is open.
TEST(RegistryChild, Writer) {
  const char* role = std::getenv("ZQ_REGISTRY_WRITER");
  if (role == nullptr) GTEST_SKIP() << "runs only as a child of the tests below";
  // "<tag>:<count>"
  const std::string tag(role, 1);
  const int count = std::atoi(role + 2);
  for (int i = 0; i < count; ++i) {
    HKEY key = nullptr;
    const std::u16string path = ZqUtf8ToUtf16("Shared\\" + tag + " " + std::to_string(i));
    ASSERT_EQ(RegCreateKeyW(HKEY_CURRENT_USER, path.c_str(), &key), ERROR_SUCCESS);
    const std::string data = Payload(i);
    ASSERT_EQ(RegSetValueExW(key, u"data", 0, REG_BINARY, reinterpret_cast<const BYTE*>(data.data()), static_cast<DWORD>(data.size())), ERROR_SUCCESS);
    RegCloseKey(key);
    ZqSocketSend(3, &i, sizeof i, nullptr, 0);
  }
}

HANDLE StartWriter(const char* tag, int socket) {
  SetEnvironmentVariableW(u"ZQ_REGISTRY_WRITER", ZqUtf8ToUtf16(tag).c_str());
  const std::string exe = ZqUtf16ToUtf8(ZqGetExecutablePath());
  const char* argv[] = {exe.c_str(), "--gtest_filter=RegistryChild.Writer", nullptr};
  const ZqSpawnDescriptor fds[] = {{socket, 3}};
  HANDLE process = nullptr;
  EXPECT_TRUE(ZqSpawnProcess(exe.c_str(), argv, fds, socket >= 0 ? 1 : 0, &process, nullptr));
  SetEnvironmentVariableW(u"ZQ_REGISTRY_WRITER", nullptr);
  return process;
}

// Every key under "Shared" holds its whole value; answers the set of names.
std::set<std::u16string> CheckShared() {
  std::set<std::u16string> names;
  HKEY shared = nullptr;
  if (RegOpenKeyExW(HKEY_CURRENT_USER, u"Shared", 0, KEY_READ, &shared) != ERROR_SUCCESS) return names;
  WCHAR name[64];
  for (DWORD i = 0; RegEnumKeyW(shared, i, name, 64) == ERROR_SUCCESS; ++i) {
    HKEY key = nullptr;
    EXPECT_EQ(RegOpenKeyExW(shared, name, 0, KEY_READ, &key), ERROR_SUCCESS);
    std::string data(20000, '\0');
    DWORD size = 20000;
    if (RegQueryValueExW(key, u"data", nullptr, nullptr, reinterpret_cast<BYTE*>(data.data()), &size) == ERROR_SUCCESS) {
      data.resize(size);
      const int index = std::stoi(ZqUtf16ToUtf8(name).substr(2));
      EXPECT_EQ(data, Payload(index)) << ZqUtf16ToUtf8(name);
      names.insert(name);
    }
    RegCloseKey(key);
  }
  RegCloseKey(shared);
  return names;
}

TEST_F(Registry, TwoProcessesWriteAtOnce) {
  HANDLE a = StartWriter("a:150", -1);
  HANDLE b = StartWriter("b:150", -1);
  for (HANDLE p : {a, b}) {
    ASSERT_EQ(WaitForSingleObject(p, 60000), WAIT_OBJECT_0);
    DWORD code = 1;
    GetExitCodeProcess(p, &code);
    EXPECT_EQ(code, 0u) << "a writer failed (a busy store would)";
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
  for (int i = 0; i < 40; ++i) ASSERT_EQ(ZqSocketReceive(pair[0], &committed, sizeof committed, nullptr, nullptr, 30000), 4);
  TerminateProcess(writer, 9);
  WaitForSingleObject(writer, 30000);
  CloseHandle(writer);
  // Writes acknowledged before the kill may be followed by more.
  while (ZqSocketReceive(pair[0], &committed, sizeof committed, nullptr, nullptr, 0) == 4) {}
  ZqCloseDescriptor(pair[0]);
  const std::set<std::u16string> names = CheckShared();
  for (int i = 0; i <= committed; ++i)
    EXPECT_TRUE(names.count(ZqUtf8ToUtf16("k " + std::to_string(i)))) << "lost write " << i;
}

}  // namespace
