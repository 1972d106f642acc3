// Text lookups as painting code makes them: a table entry after its first
// look, a string resource from the cache, and a ring text for the next call.
#include <benchmark/benchmark.h>

#include "kernel/lang.h"
#include "kernel/langres.h"
#include "kernel/langtable.h"
#include "platform/module.h"

namespace {

struct Lang {
  explicit Lang(UINT lcid) {
    ZqResource_RegisterModule(GetModuleHandleW(nullptr), &g_zqKernelResources);
    ZqLang_Open(&h, GetModuleHandleW(nullptr), lcid, 0);
  }
  ~Lang() { ZqLang_Close(h); }
  HZQLANG h = nullptr;
};

void BM_TableEntry(benchmark::State& state) {
  Lang lang(0x407);
  const WCHAR* entry = ZqLangEntry(ZQSTR::BTN_CANCEL);
  for (auto _ : state) benchmark::DoNotOptimize(ZqGetStringSmart(lang.h, entry));
}
BENCHMARK(BM_TableEntry);

// The cache holds `range` strings; the lookups walk all of them.
void BM_CachedResource(benchmark::State& state) {
  Lang lang(0x407);
  static const UINT kIds[] = {1, 2, 3, 200, 201, 202, 1005, 1006, 1009, 1010, 1011, 1012, 1013, 1014, 1015, 1016};
  const int n = static_cast<int>(state.range(0));
  for (int i = 0; i < n; ++i) ZqGetString(lang.h, kIds[i]);
  int i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(ZqGetString(lang.h, kIds[i]));
    i = i + 1 == n ? 0 : i + 1;
  }
}
BENCHMARK(BM_CachedResource)->Arg(1)->Arg(16);

void BM_TempRing(benchmark::State& state) {
  Lang lang(0x409);
  for (auto _ : state) benchmark::DoNotOptimize(ZqGetTempStringBuffer(lang.h, 64));
}
BENCHMARK(BM_TempRing);

}  // namespace
BENCHMARK_MAIN();
