// The module loader: how real load failures are reported, what
// GetProcAddress finds and module paths.  (Plug-in code that faults under
// the guard is the effect tests' business.)
#include "platform/module.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "base/status.h"
#include "tests/platform/guard/exe_files.h"

namespace {

std::string PluginPath(const char* name) { return std::string(ZQ_PLUGIN_DIR) + "/" + name; }
std::u16string Wide(const std::string& s) { return ZqUtf8ToUtf16(s); }

struct LoadResult { HMODULE module; DWORD error; };

LoadResult Load(const std::string& path) {
  SetLastError(0);
  HMODULE m = LoadLibraryW(Wide(path).c_str());
  return {m, GetLastError()};
}

TEST(ModuleLoader, LoadFailuresMapToThePlatformNumbers) {
  TempFile text("text.so", {'n', 'o', 't', ' ', 'a', 'n', ' ', 'o', 'b', 'j', 'e', 'c', 't', '\n'});
  TempFile elf32("elf32.so", Elf(false, false, 3, 3));
  TempFile pe("pe.so", Pe(0x80, 0x8664, 0x2022));
  TempFile empty("empty.so", {});
  struct Case { std::string path; DWORD error; } cases[] = {
      {TempPath("missing.so"), ERROR_MOD_NOT_FOUND},
      {"/no/such/folder/module.so", ERROR_MOD_NOT_FOUND},
      {text.path(), ERROR_BAD_EXE_FORMAT},
      {elf32.path(), ERROR_BAD_EXE_FORMAT},
      {pe.path(), ERROR_BAD_EXE_FORMAT},
      {empty.path(), ERROR_BAD_EXE_FORMAT},
      {PluginPath("zqbad_not_elf.so"), ERROR_BAD_EXE_FORMAT},
      {PluginPath("zqbad_missing_dep.so"), ERROR_MOD_NOT_FOUND},
      {"", ERROR_INVALID_PARAMETER},
  };
  for (const Case& c : cases) {
    const LoadResult r = Load(c.path);
    EXPECT_EQ(nullptr, r.module) << c.path;
    EXPECT_EQ(c.error, r.error) << c.path << ": " << ZqGetLastLoadErrorText();
    if (!c.path.empty()) {
      EXPECT_NE(0, ZqGetLastLoadErrorText()[0]) << c.path;
    }
  }
  SetLastError(0);
  EXPECT_EQ(nullptr, LoadLibraryW(nullptr));
  EXPECT_EQ(ERROR_INVALID_PARAMETER, GetLastError());
  EXPECT_FALSE(FreeLibrary(nullptr));
  EXPECT_EQ(ERROR_INVALID_HANDLE, GetLastError());
}

TEST(ModuleLoader, ExportsAreTheModulesOwnOnly) {
  const LoadResult r = Load(PluginPath("zqgain.so"));
  ASSERT_NE(nullptr, r.module) << ZqGetLastLoadErrorText();
  EXPECT_NE(nullptr, GetProcAddress(r.module, "VSTPluginMain"));
  // The module needs the C library, whose functions dlsym would find
  // through it; the original answers only the module's own exports.
  SetLastError(0);
  EXPECT_EQ(nullptr, GetProcAddress(r.module, "malloc"));
  EXPECT_EQ(ERROR_PROC_NOT_FOUND, GetLastError());
  EXPECT_EQ(nullptr, GetProcAddress(r.module, nullptr));
  EXPECT_TRUE(FreeLibrary(r.module));
}

TEST(ModuleLoader, PathsOfModulesAndOfTheExecutable) {
  const std::string path = PluginPath("zqgain.so");
  const std::string resolved = std::filesystem::canonical(path).string();
  const LoadResult r = Load(path);
  ASSERT_NE(nullptr, r.module);

  WCHAR buffer[MAX_PATH];
  const DWORD n = GetModuleFileNameW(r.module, buffer, MAX_PATH);
  EXPECT_EQ(Wide(resolved), std::u16string(buffer, n));

  // The module of an address inside it is the same module, without a new
  // reference; so is the module found by name.
  FARPROC entry = GetProcAddress(r.module, "VSTPluginMain");
  ASSERT_NE(nullptr, entry);
  EXPECT_EQ(r.module, ZqGetModuleOfAddress(reinterpret_cast<const void*>(entry)));
  EXPECT_EQ(r.module, GetModuleHandleW(Wide(path).c_str()));

  // Loading again counts a reference: the first FreeLibrary leaves it loaded.
  const LoadResult again = Load(path);
  EXPECT_EQ(r.module, again.module);
  EXPECT_TRUE(FreeLibrary(again.module));
  EXPECT_EQ(r.module, GetModuleHandleW(Wide(path).c_str()));
  EXPECT_TRUE(FreeLibrary(r.module));

  // The executable: by null handle, by its own handle and by an address in it.
  const std::string exe = std::filesystem::canonical("/proc/self/exe").string();
  const DWORD m = GetModuleFileNameW(nullptr, buffer, MAX_PATH);
  EXPECT_EQ(Wide(exe), std::u16string(buffer, m));
  HMODULE self = GetModuleHandleW(nullptr);
  ASSERT_NE(nullptr, self);
  EXPECT_EQ(self, ZqGetModuleOfAddress(reinterpret_cast<const void*>(&PluginPath)));
  const DWORD k = GetModuleFileNameW(self, buffer, MAX_PATH);
  EXPECT_EQ(Wide(exe), std::u16string(buffer, k));

  SetLastError(0);
  EXPECT_EQ(nullptr, ZqGetModuleOfAddress(nullptr));
  EXPECT_EQ(ERROR_MOD_NOT_FOUND, GetLastError());
}

TEST(ModuleLoader, ModuleFileNameIsCutAsTheOriginalCutsIt) {
  WCHAR full[MAX_PATH];
  const DWORD length = GetModuleFileNameW(nullptr, full, MAX_PATH);
  ASSERT_GT(length, 5u);
  WCHAR small[6];
  for (auto& c : small) c = u'#';
  SetLastError(0);
  EXPECT_EQ(5u, GetModuleFileNameW(nullptr, small, 5));
  EXPECT_EQ(ERROR_INSUFFICIENT_BUFFER, GetLastError());
  EXPECT_EQ(std::u16string(full, 4), std::u16string(small, 4));
  EXPECT_EQ(0, small[4]);
  EXPECT_EQ(u'#', small[5]);
  // Exactly the length: no room for the zero, so it is cut as well.
  std::vector<WCHAR> exact(length + 1, u'#');
  EXPECT_EQ(length, GetModuleFileNameW(nullptr, exact.data(), length));
  EXPECT_EQ(ERROR_INSUFFICIENT_BUFFER, GetLastError());
  EXPECT_EQ(0, exact[length - 1]);
  // One more fits.
  SetLastError(0);
  EXPECT_EQ(length, GetModuleFileNameW(nullptr, exact.data(), length + 1));
  EXPECT_EQ(0u, GetLastError());
  EXPECT_EQ(0u, GetModuleFileNameW(nullptr, exact.data(), 0));
  EXPECT_EQ(ERROR_INSUFFICIENT_BUFFER, GetLastError());
}

}  // namespace
