// The module loader: how real load failures are reported, what
// GetProcAddress finds, module paths, and plug-in entry points run under the
// fault guard.
#include "platform/module.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "aplugins/zqvstwrap/vst2abi.h"
#include "base/status.h"
#include "platform/guard.h"
#include "platform/text.h"

namespace {

std::string PluginPath(const char* name) { return std::string(ZQ_PLUGIN_DIR) + "/" + name; }
std::u16string Wide(const std::string& s) { return ZqUtf8ToUtf16(s); }

std::string TempPath(const char* name) {
  std::string dir = testing::TempDir();
  if (dir.empty() || dir.back() != '/') dir += '/';
  // Each test case runs in a process of its own, maybe beside others: the
  // test's name keeps the files apart.
  return dir + "zqguard_" + testing::UnitTest::GetInstance()->current_test_info()->name() + "_" + name;
}

void WriteFile(const std::string& path, const std::vector<unsigned char>& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

// A file with a 32-bit ELF shared-object header for i386 and nothing else.
std::vector<unsigned char> Elf32Header() {
  std::vector<unsigned char> b(52, 0);
  b[0] = 0x7F, b[1] = 'E', b[2] = 'L', b[3] = 'F';
  b[4] = 1;   // class 32
  b[5] = 1;   // little-endian
  b[6] = 1;   // version
  b[16] = 3;  // ET_DYN
  b[18] = 3;  // EM_386
  b[20] = 1;
  b[40] = 52;  // e_ehsize
  return b;
}

// A portable executable: "MZ", e_lfanew, "PE\0\0", machine, characteristics.
std::vector<unsigned char> PeFile(uint32_t lfanew, uint16_t machine, uint16_t characteristics) {
  std::vector<unsigned char> b(lfanew + 256, 0);
  b[0] = 'M', b[1] = 'Z';
  for (int i = 0; i < 4; ++i) b[60 + i] = static_cast<unsigned char>(lfanew >> (8 * i));
  b[lfanew] = 'P', b[lfanew + 1] = 'E';
  b[lfanew + 4] = static_cast<unsigned char>(machine), b[lfanew + 5] = static_cast<unsigned char>(machine >> 8);
  b[lfanew + 22] = static_cast<unsigned char>(characteristics);
  b[lfanew + 23] = static_cast<unsigned char>(characteristics >> 8);
  return b;
}

struct LoadResult {
  HMODULE module;
  DWORD error;
};

LoadResult Load(const std::string& path) {
  SetLastError(0);
  HMODULE m = LoadLibraryW(Wide(path).c_str());
  return {m, GetLastError()};
}

TEST(ModuleLoader, LoadFailuresMapToThePlatformNumbers) {
  const std::string text = TempPath("text.so");
  WriteFile(text, {'n', 'o', 't', ' ', 'a', 'n', ' ', 'o', 'b', 'j', 'e', 'c', 't', '\n'});
  const std::string elf32 = TempPath("elf32.so");
  WriteFile(elf32, Elf32Header());
  const std::string pe = TempPath("pe.so");
  WriteFile(pe, PeFile(0x80, 0x8664, 0x2022));
  const std::string empty = TempPath("empty.so");
  WriteFile(empty, {});

  struct Case {
    std::string path;
    DWORD error;
  } cases[] = {
      {TempPath("missing.so"), ERROR_MOD_NOT_FOUND},
      {"/no/such/folder/module.so", ERROR_MOD_NOT_FOUND},
      {text, ERROR_BAD_EXE_FORMAT},
      {elf32, ERROR_BAD_EXE_FORMAT},
      {pe, ERROR_BAD_EXE_FORMAT},
      {empty, ERROR_BAD_EXE_FORMAT},
      {PluginPath("zqbad_not_elf.so"), ERROR_BAD_EXE_FORMAT},
      {PluginPath("zqbad_missing_dep.so"), ERROR_MOD_NOT_FOUND},
  };
  for (const Case& c : cases) {
    const LoadResult r = Load(c.path);
    EXPECT_EQ(nullptr, r.module) << c.path;
    EXPECT_EQ(c.error, r.error) << c.path << ": " << ZqGetLastLoadErrorText();
    EXPECT_NE('\0', ZqGetLastLoadErrorText()[0]) << c.path;
  }
  EXPECT_EQ(static_cast<HRESULT>(0x800700C1), HRESULT_FROM_WIN32(ERROR_BAD_EXE_FORMAT));
  for (const auto& p : {text, elf32, pe, empty}) std::remove(p.c_str());
}

TEST(ModuleLoader, NullOrEmptyPathIsAnInvalidParameter) {
  SetLastError(0);
  EXPECT_EQ(nullptr, LoadLibraryW(nullptr));
  EXPECT_EQ(ERROR_INVALID_PARAMETER, GetLastError());
  EXPECT_EQ(nullptr, LoadLibraryW(u""));
  EXPECT_EQ(ERROR_INVALID_PARAMETER, GetLastError());
}

TEST(ModuleLoader, ModuleWithoutEntryLoadsButHasNoEntryPoint) {
  const LoadResult r = Load(PluginPath("zqbad_no_entry.so"));
  ASSERT_NE(nullptr, r.module) << ZqGetLastLoadErrorText();
  for (const char* name : {"VSTPluginMain", "main"}) {
    SetLastError(0);
    EXPECT_EQ(nullptr, GetProcAddress(r.module, name)) << name;
    EXPECT_EQ(ERROR_PROC_NOT_FOUND, GetLastError()) << name;
  }
  EXPECT_TRUE(FreeLibrary(r.module));
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

TEST(ModuleLoader, FreeLibraryOfNothingFails) {
  SetLastError(0);
  EXPECT_FALSE(FreeLibrary(nullptr));
  EXPECT_EQ(ERROR_INVALID_HANDLE, GetLastError());
}

// Plug-in code under the guard.

VstIntPtr HostCallback(AEffect*, VstInt32 opcode, VstInt32, VstIntPtr, void*, float) {
  return opcode == audioMasterVersion ? 2400 : 0;
}

class GuardedPlugin {
 public:
  explicit GuardedPlugin(const char* name) : module_(LoadLibraryW(Wide(PluginPath(name)).c_str())) {}
  ~GuardedPlugin() {
    if (module_) FreeLibrary(module_);
  }
  HMODULE module() const { return module_; }
  VstPluginMainProc entry() const {
    if (!module_) return nullptr;
    return reinterpret_cast<VstPluginMainProc>(reinterpret_cast<void*>(GetProcAddress(module_, "VSTPluginMain")));
  }

 private:
  HMODULE module_;
};

TEST(GuardedPlugins, FaultInTheEntryPointIsAnAccessViolation) {
  GuardedPlugin plugin("zqbad_entry_fault.so");
  ASSERT_NE(nullptr, plugin.module()) << ZqGetLastLoadErrorText();
  VstPluginMainProc entry = plugin.entry();
  ASSERT_NE(nullptr, entry);
  AEffect* effect = nullptr;
  EXCEPTION_RECORD rec{};
  EXPECT_EQ(EXCEPTION_ACCESS_VIOLATION, ZqGuardedAll([&] { effect = entry(HostCallback); }, &rec));
  EXPECT_EQ(nullptr, effect);
  EXPECT_EQ(1u, rec.ExceptionInformation[0]);  // a write
  EXPECT_EQ(0u, rec.ExceptionInformation[1]);  // through a null pointer
  // The module stays loaded and is called again: the same answer.
  EXPECT_EQ(EXCEPTION_ACCESS_VIOLATION, ZqGuardedAll([&] { effect = entry(HostCallback); }));
}

TEST(GuardedPlugins, ThrowFromTheDispatcherAndDivideInProcessAreCaught) {
  {
    GuardedPlugin plugin("zqbad_throw.so");
    ASSERT_NE(nullptr, plugin.entry()) << ZqGetLastLoadErrorText();
    AEffect* effect = nullptr;
    ASSERT_EQ(0u, ZqGuardedAll([&] { effect = plugin.entry()(HostCallback); }));
    ASSERT_NE(nullptr, effect);
    EXPECT_EQ(kEffectMagic, effect->magic);
    EXCEPTION_RECORD rec{};
    EXPECT_EQ(EXCEPTION_CPP, ZqGuardedAll([&] { effect->dispatcher(effect, effOpen, 0, 0, nullptr, 0.0f); }, &rec));
    EXPECT_EQ(ZQ_CPP_EXCEPTION_MAGIC, rec.ExceptionInformation[0]);
    EXPECT_EQ(0u, ZqGuardedAll([&] { effect->dispatcher(effect, effClose, 0, 0, nullptr, 0.0f); }));
  }
  {
    GuardedPlugin plugin("zqbad_divide.so");
    ASSERT_NE(nullptr, plugin.entry()) << ZqGetLastLoadErrorText();
    AEffect* effect = nullptr;
    ASSERT_EQ(0u, ZqGuardedAll([&] {
                effect = plugin.entry()(HostCallback);
                effect->dispatcher(effect, effOpen, 0, 0, nullptr, 0.0f);
              }));
    float left[16] = {}, right[16] = {};
    float* in[2] = {left, right};
    float* out[2] = {left, right};
    for (int block = 0; block < 3; ++block) {
      EXPECT_EQ(EXCEPTION_INT_DIVIDE_BY_ZERO, ZqGuardedAll([&] { effect->processReplacing(effect, in, out, 16); }))
          << "block " << block;
    }
    EXPECT_EQ(0u, ZqGuardedAll([&] { effect->dispatcher(effect, effClose, 0, 0, nullptr, 0.0f); }));
  }
}

}  // namespace
