// libFuzzer target: any bytes as a time text (UTF-16 after 12 bytes that
// choose the display mode, the flags and the format's rates, zeros and
// negatives included), read by every text-to-time grammar and shown again.
//
// What must hold: no fault, no undefined arithmetic (with
// -fsanitize=undefined), an end within the text, and a shown text that fits
// and is terminated.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "kernel/kernel_init.h"
#include "kernel/timetext.h"
#include "platform/module.h"

namespace {

void Check(bool ok) {
  if (!ok) abort();
}

void CheckEnd(const WCHAR* text, size_t length, const WCHAR* end) { Check(end >= text && end <= text + length); }

void Show(const _zqposfmt& f, LONGLONG t, DWORD flags) {
  WCHAR small[12];
  const int n = ZqNanoTimeToTextExN(small, 12, &f, t, flags);
  Check(n >= 0 && n < 12 && small[n] == 0);
  WCHAR full[256];
  const int m = ZqNanoTimeToTextEx(full, &f, t, flags);
  Check(m >= 0 && m < 256 && full[m] == 0);
  const auto u = static_cast<ULONGLONG>(t);
  ZqTicksToText(full, &f, static_cast<DWORD>(u), static_cast<LONG>(u >> 32), flags & 1, flags & 2, 1 + (flags >> 4));
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  ZqKernel_EarlyInitialize(GetModuleHandleW(nullptr));
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  constexpr size_t kHead = 12;
  if (size < kHead) return 0;
  _zqposfmt f{};
  f.mode = data[0] % 21;  // one beyond the last mode too
  const DWORD flags = data[1];
  static constexpr double kRates[8] = {0, 23.976023976023978, 24, 25, 29.97002997002997, 30, 75, -1};
  f.sampleRate = data[2] * 1000u;
  f.frameRate = kRates[data[3] % 8];
  f.tempo = static_cast<int8_t>(data[4]) * 2.5;
  f.beatValue = data[5] % 17;
  f.beatsPerMeasure = data[6] % 13;
  f.ticksPerBeat = static_cast<int16_t>(data[7] | data[8] << 8);
  int64_t origin = 0;
  std::memcpy(&origin, data + 9, 3);
  f.origin = origin * (data[9] & 0x80 ? -1000 : 1000);

  const size_t length = (size - kHead) / 2;
  std::vector<WCHAR> text(length + 1, 0);
  std::memcpy(text.data(), data + kHead, length * sizeof(WCHAR));
  const WCHAR* t = text.data();

  const WCHAR* end = nullptr;
  const LONGLONG v = ZqTextToNanoTimeToken2(t, &f, 1, 0, 0x80000000u, -1, 0x7FFFFFFFu, 0, flags & 7, &end);
  CheckEnd(t, length, end);
  if (flags & 4) Check(v >= -0x80000000LL && v <= 0x7FFFFFFFLL);
  Show(f, v, flags);
  Show(f, ZqTextToTimeToken(t, &f, flags & 1, &end), flags);
  CheckEnd(t, length, end);
  Show(f, ZqTextToHMSFToken(t, &f, flags & 1, &end), flags);
  Show(f, ZqTextToMusicTimeToken(t, &f, flags, &end), flags);
  Show(f, ZqTextToFeetAndFramesToken(t, &f, flags & 1), flags);
  LONGLONG measure = 0;
  int beat = 0, tick = 0;
  Show(f, ZqTextToMeasuresBeatsTicks(t, &f, flags & 1, static_cast<int8_t>(data[4]), &measure, &beat, &tick), flags);
  Show(f, ZqTextToBeatsTicks(t, &f, flags & 1, 3, &beat, &tick), flags);
  return 0;
}
