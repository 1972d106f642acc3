// A host's usual start: Init and Grovel with nothing changed, over 1,000
// modules in a folder and its subfolders, next to the file-system floor of
// any such design measured in the same run: list the folders, look at every
// file, read every stored mapping's values.  The goal is 1.25 times the
// floor.
//
// The modules are files that are no loadable object, so that the scan that
// fills the store before the runs takes seconds, not minutes; a start that
// changes nothing treats them as any other module.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "aplugins/zqvstwrap/discovery/zqvstcache.h"
#include "aplugins/zqvstwrap/discovery/zqvstmapper.h"
#include "kernel/com/object.h"
#include "platform/file.h"
#include "platform/registry.h"
#include "platform/text.h"

namespace fs = std::filesystem;

namespace {

constexpr int kModules = 1000;
constexpr int kSubfolders = 10;

fs::path g_root;
fs::path g_plugins;

HRESULT Start(CZqSilentProgress* progress, DWORD flags) {
  ZqComPtr<IVstFilterMapper> mapper;
  HRESULT hr = ZqVstCreateFilterMapper(nullptr, IID_IVstFilterMapper, mapper.PutVoid());
  if (SUCCEEDED(hr)) hr = mapper->Init(u"GrovelBench", u"Grovel Bench", 0x01000000, nullptr);
  if (SUCCEEDED(hr) && flags != 0) {
    ZqComPtr<IZqVstWrapPrefs> prefs;
    mapper->QueryInterface(IID_IZqVstWrapPrefs, prefs.PutVoid());
    prefs->ClearSearchPaths();
    hr = prefs->SetSearchPath(0, ZqUtf8ToUtf16(g_plugins.string()).c_str(), VSP_RECURSE | VSP_EFFECTS);
  }
  if (SUCCEEDED(hr)) hr = mapper->Grovel(nullptr, flags, progress, 0, nullptr);
  return hr;
}

bool Prepare() {
  char pattern[] = "/tmp/zqbench-grovel-XXXXXX";
  if (!mkdtemp(pattern)) return false;
  g_root = pattern;
  for (const char* leaf : {"store", "config", "state"}) fs::create_directories(g_root / leaf);
  setenv("ZQ_REGISTRY_DIR", (g_root / "store").c_str(), 1);
  setenv("XDG_CONFIG_HOME", (g_root / "config").c_str(), 1);
  setenv("XDG_STATE_HOME", (g_root / "state").c_str(), 1);
  g_plugins = g_root / "plugins";
  for (int i = 0; i < kModules; ++i) {
    const fs::path folder = g_plugins / ("group" + std::to_string(i % kSubfolders));
    fs::create_directories(folder);
    std::ofstream(folder / ("module" + std::to_string(i) + ".so")) << "not a module " << i << '\n';
  }
  CZqSilentProgress progress;
  return Start(&progress, GROVEL_RESCAN) == S_OK && ZqVstCache_MappingCount() == kModules;
}

void BM_CachedStart(benchmark::State& state) {
  CZqSilentProgress progress;
  for (auto _ : state) {
    if (Start(&progress, 0) != S_OK) state.SkipWithError("the start failed");
  }
  state.counters["modules"] = ZqVstCache_MappingCount();
}

// What any cached start must do at least.
void BM_FileSystemFloor(benchmark::State& state) {
  const std::u16string key = std::u16string(ZqVstCache_KeyName()) + u"\\Mappings";
  const std::u16string root = ZqUtf8ToUtf16(g_plugins.string()) + u"/";
  size_t seen = 0;
  for (auto _ : state) {
    seen = 0;
    for (int f = 0; f < kSubfolders; ++f) {
      const std::u16string folder = root + u"group" + ZqUtf8ToUtf16(std::to_string(f)) + u"/";
      WIN32_FIND_DATAW found;
      const HANDLE search = FindFirstFileW((folder + u"*").c_str(), &found);
      if (search == INVALID_HANDLE_VALUE) continue;
      do {
        if (!(found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY))
          seen += GetFileAttributesW((folder + found.cFileName).c_str()) != INVALID_FILE_ATTRIBUTES;
      } while (FindNextFileW(search, &found));
      FindClose(search);
    }
    HKEY mappings = nullptr;
    if (RegOpenKeyExW(HKEY_CURRENT_USER, key.c_str(), 0, KEY_READ, &mappings) != ERROR_SUCCESS) {
      state.SkipWithError("no stored mappings");
      break;
    }
    WCHAR name[64];
    for (DWORD i = 0; RegEnumKeyW(mappings, i, name, 64) == ERROR_SUCCESS; ++i) {
      HKEY one = nullptr;
      if (RegOpenKeyExW(mappings, name, 0, KEY_READ, &one) != ERROR_SUCCESS) continue;
      BYTE data[600];
      for (const char16_t* value :
           {u"Path", u"Name", u"Vendor", u"Product", u"Properties", u"FileTime", u"Flags", u"UserFlags"}) {
        DWORD bytes = sizeof data;
        RegQueryValueExW(one, value, nullptr, nullptr, data, &bytes);
      }
      RegCloseKey(one);
    }
    RegCloseKey(mappings);
    benchmark::DoNotOptimize(seen);
  }
  state.counters["files"] = static_cast<double>(seen);
}

BENCHMARK(BM_FileSystemFloor)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CachedStart)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
  if (!Prepare()) {
    std::fprintf(stderr, "the first scan of %d modules failed\n", kModules);
    return 1;
  }
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  std::error_code ignored;
  fs::remove_all(g_root, ignored);
  return 0;
}
