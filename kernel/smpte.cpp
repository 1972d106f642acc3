// SMPTE timecode at the kernel's six rates.
#include "kernel/smpte.h"

#include "base/status.h"

namespace {

// Rate as a fraction, frames a second = num / den, and frames per label
// second.
struct Rate {
  LONGLONG num, den;
  LONGLONG nominal;
  bool drop;
};

constexpr Rate kRates[7] = {
    {0, 1, 0, false},       {30, 1, 30, false},       {30000, 1001, 30, true}, {25, 1, 25, false},
    {24, 1, 24, false},     {30000, 1001, 30, false}, {24000, 1001, 24, false},
};

const Rate* RateOf(DWORD code) { return code >= 1 && code <= 6 ? &kRates[code] : nullptr; }

constexpr LONGLONG kUnits = 10'000'000;
// Drop frame at 30: 17982 frames in ten minutes, 1798 in each minute that
// drops.
constexpr LONGLONG kDropTenMinutes = 17982;
constexpr LONGLONG kDropMinute = 1798;

ULONGLONG Magnitude(LONGLONG v) { return v < 0 ? 0 - static_cast<ULONGLONG>(v) : static_cast<ULONGLONG>(v); }

LONGLONG Saturate(__int128 v) {
  if (v > static_cast<__int128>(INT64_MAX)) return INT64_MAX;
  if (v < -static_cast<__int128>(INT64_MAX)) return -INT64_MAX;
  return static_cast<LONGLONG>(v);
}

}  // namespace

ZQ_API BOOL ZQSMPTE_IsValidCode(DWORD code) { return RateOf(code) != nullptr; }

ZQ_API double ZQSMPTE_GetFrameRate(DWORD code) {
  const Rate* r = RateOf(code);
  return r ? static_cast<double>(r->num) / static_cast<double>(r->den) : 0.0;
}

ZQ_API DWORD ZQSMPTE_GetNominalFrames(DWORD code) {
  const Rate* r = RateOf(code);
  return r ? static_cast<DWORD>(r->nominal) : 0;
}

ZQ_API HRESULT ZQSMPTE_FramesToSMPTE(LONGLONG frame, _zqhmsf* hmsf) {
  if (!hmsf) return E_POINTER;
  const Rate* r = RateOf(hmsf->code);
  hmsf->hours = hmsf->minutes = hmsf->seconds = hmsf->frames = 0;
  if (!r) return E_INVALIDARG;
  ULONGLONG f = Magnitude(frame);
  if (r->drop) {
    // Put back the labels that were skipped before this frame.
    const ULONGLONG tens = f / kDropTenMinutes;
    const ULONGLONG rest = f % kDropTenMinutes;
    f += 18 * tens + (rest > 1 ? 2 * ((rest - 2) / kDropMinute) : 0);
  }
  const ULONGLONG n = static_cast<ULONGLONG>(r->nominal);
  hmsf->frames = static_cast<DWORD>(f % n);
  const ULONGLONG seconds = f / n;
  hmsf->seconds = static_cast<DWORD>(seconds % 60);
  hmsf->minutes = static_cast<DWORD>(seconds / 60 % 60);
  hmsf->hours = static_cast<DWORD>(seconds / 3600 % 24);
  return S_OK;
}

ZQ_API LONGLONG ZQSMPTE_SMPTEToFrames(const _zqhmsf* hmsf) {
  const Rate* r = hmsf ? RateOf(hmsf->code) : nullptr;
  if (!r) return -1;
  const LONGLONG minutes = static_cast<LONGLONG>(hmsf->hours) * 60 + hmsf->minutes;
  LONGLONG f = (minutes * 60 + hmsf->seconds) * r->nominal + hmsf->frames;
  if (r->drop) f -= 2 * (minutes - minutes / 10);
  return f < 0 ? 0 : f;
}

ZQ_API LONGLONG ZQSMPTE_NanoToFrames(LONGLONG t, DWORD code) {
  const Rate* r = RateOf(code);
  if (!r) return 0;
  return Saturate(static_cast<__int128>(Magnitude(t)) * r->num / (static_cast<__int128>(r->den) * kUnits));
}

ZQ_API LONGLONG ZQSMPTE_FramesToNano(LONGLONG frame, DWORD code) {
  const Rate* r = RateOf(code);
  if (!r) return 0;
  // The first unit at or after the frame's exact start.
  const __int128 scaled = static_cast<__int128>(Magnitude(frame)) * r->den * kUnits;
  return Saturate((scaled + r->num - 1) / r->num);
}

ZQ_API HRESULT ZQSMPTE_NanoToSMPTE(LONGLONG t, _zqhmsf* hmsf) {
  if (!hmsf) return E_POINTER;
  return ZQSMPTE_FramesToSMPTE(ZQSMPTE_NanoToFrames(t, hmsf->code), hmsf);
}

ZQ_API LONGLONG ZQSMPTE_SMPTEToNano(const _zqhmsf* hmsf) {
  const LONGLONG frame = ZQSMPTE_SMPTEToFrames(hmsf);
  return frame < 0 ? 0 : ZQSMPTE_FramesToNano(frame, hmsf->code);
}
