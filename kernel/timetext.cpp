// Time positions as text and back.
#include "kernel/timetext.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdarg>
#include <cstdint>

#include "kernel/numtext.h"
#include "kernel/printf.h"
#include "platform/text.h"

namespace {

bool IsSpace(WCHAR c) { return c == u' ' || (c >= 9 && c <= 13); }
bool IsDigit(WCHAR c) { return c >= u'0' && c <= u'9'; }

LONGLONG Words(DWORD low, LONG high) {
  return static_cast<LONGLONG>((static_cast<ULONGLONG>(static_cast<DWORD>(high)) << 32) | low);
}

// A double held to what nano time can hold, truncated.
LONGLONG ToNano(double v) {
  if (!(v == v)) return 0;
  if (v >= 9.2233720368547748e18) return INT64_MAX;
  if (v <= -9.2233720368547748e18) return -INT64_MAX;
  return static_cast<LONGLONG>(v);
}

// Prints into `dst`: `size` 0 means unbounded.  Answers the length.
int Print(LPWSTR dst, UINT size, LPCWSTR format, ...) {
  va_list args;
  va_start(args, format);
  UINT n = 0;
  if (size == 0) {
    n = static_cast<UINT>(ZqVPrintF(dst, format, args));
  } else {
    (void)ZqNVPrintF(dst, size, &n, format, args);
  }
  va_end(args);
  return static_cast<int>(n);
}

struct ModeFormats {
  const WCHAR* full;
  const WCHAR* rounded;
};

constexpr WCHAR kHMS[] = u"%02u$:%02u$:%02u";
constexpr WCHAR kSmpte[] = u"%02u:%02u:%02u:%02u";
constexpr WCHAR kMbt[] = u"$u$&:%u$&.%03u";

constexpr ModeFormats kFormats[20] = {
    {u"$I64d", u"$I64d"},                     // 0 samples
    {u"%02u$:%02u$:%02u$*%03u", kHMS},        // 1 h:m:s.ms
    {u"$.3f", u"$.0f"},                       // 2 seconds
    {u"%02u$:%02u$:%02u$*%02u", kHMS},        // 3 h:m:s.f
    {u"$.3f", u"$.0f"},                       // 4 frames
    {kMbt, u"$u$&:%u"},                       // 5 m:b.t
    {kSmpte, kSmpte},                         // 6 29.97
    {kSmpte, kSmpte},                         // 7 30
    {u"%02u:%02u:%02u;%02u", u"%02u:%02u:%02u;%02u"},  // 8 30 drop
    {kSmpte, kSmpte},                         // 9 25
    {kSmpte, kSmpte},                         // 10 24
    {u"$I64d", u"$I64d"},                     // 11 nano time
    {u"$I64d", u"$I64d"},                     // 12 microseconds
    {kMbt, u"$u$&:%u"},                       // 13 m:b.t from 0
    {u"$.3f", u"$.0f"},                       // 14 quarter notes
    {u"$I64d+$I64d", u"$I64d+$I64d"},         // 15 feet 16 mm
    {u"$I64d+$I64d", u"$I64d+$I64d"},         // 16 feet 35 mm
    {kSmpte, kHMS},                           // 17 CD
    {kSmpte, kSmpte},                         // 18 23.976
    {kHMS, kHMS},                             // 19 short h:m:s
};

// The timecode code of the SMPTE modes, 0 for the others.
DWORD SmpteCode(DWORD mode) {
  switch (mode) {
    case ZQPOS_SMPTE_2997: return ZQSMPTE_2997;
    case ZQPOS_SMPTE_30: return ZQSMPTE_30;
    case ZQPOS_SMPTE_30_DROP: return ZQSMPTE_30_DROP;
    case ZQPOS_SMPTE_25: return ZQSMPTE_25;
    case ZQPOS_SMPTE_24: return ZQSMPTE_24;
    case ZQPOS_SMPTE_23976: return ZQSMPTE_23976;
    default: return 0;
  }
}

bool IsWholeTemplate(LPCWSTR templ) { return lstrcmpW(templ, u"$.0f") == 0; }

// One mode's value printed with `templ`, `t` not negative.
int ModeText(LPWSTR dst, UINT size, const _zqposfmt* f, LONGLONG t, LPCWSTR templ, DWORD flags) {
  const double seconds = static_cast<double>(t) * 1e-7;
  _zqhmsf hmsf{};
  auto hmsfText = [&](double frameRate) {
    ZqNanoTimeToHMSF(t, &hmsf, frameRate);
    return Print(dst, size, templ, hmsf.hours, hmsf.minutes, hmsf.seconds, hmsf.frames);
  };
  auto floatText = [&](double value, bool round) {
    if (IsWholeTemplate(templ)) {
      const LONGLONG whole = round ? ToNano(std::floor(value + 0.5)) : ToNano(value);
      return Print(dst, size, u"$I64d", whole);
    }
    return Print(dst, size, templ, value);
  };
  switch (f->mode) {
    case ZQPOS_SAMPLES:
      return Print(dst, size, templ, ToNano(seconds * f->sampleRate + 0.5));
    case ZQPOS_HMSMS:
      return hmsfText(1000);
    case ZQPOS_SECONDS:
      return floatText(seconds, false);
    case ZQPOS_HMSF:
      return hmsfText(f->frameRate);
    case ZQPOS_FRAMES:
      return floatText(seconds * f->frameRate + 1e-5, true);
    case ZQPOS_MBT:
    case ZQPOS_MBT_ZERO: {
      UINT m, b, k;
      ZqNanoTimeToMeasures(t, f, &m, &b, &k);
      if (f->mode == ZQPOS_MBT && !(flags & ZQPOS_NO_ORIGIN)) {
        ++m;
        ++b;
      }
      return Print(dst, size, templ, m, b, k);
    }
    case ZQPOS_NANO:
      return Print(dst, size, templ, t);
    case ZQPOS_MICROSECONDS:
      return Print(dst, size, templ, t / 10 + (t % 10 >= 5 ? 1 : 0));
    case ZQPOS_QUARTERS:
      return floatText(static_cast<double>(t) * f->tempo / 60 * 1e-7, false);
    case ZQPOS_FEET_16MM:
    case ZQPOS_FEET_35MM: {
      const LONGLONG perFoot = f->mode == ZQPOS_FEET_16MM ? 40 : 16;
      const LONGLONG frames = ToNano(seconds * f->frameRate + 1e-5);
      return Print(dst, size, templ, frames / perFoot, frames % perFoot);
    }
    case ZQPOS_CD:
      return hmsfText(75);
    case ZQPOS_HMS_SHORT:
      ZqNanoTimeToHMSF(t, &hmsf, 1000);
      if (hmsf.hours) return Print(dst, size, u"%u$:%02u$:%02u", hmsf.hours, hmsf.minutes, hmsf.seconds);
      return Print(dst, size, hmsf.minutes >= 10 ? u"%02u$:%02u" : u"%u$:%02u", hmsf.minutes, hmsf.seconds);
    default:
      if (const DWORD code = SmpteCode(f->mode)) {
        hmsf.code = code;
        (void)ZQSMPTE_NanoToSMPTE(t, &hmsf);
        return Print(dst, size, templ, hmsf.hours, hmsf.minutes, hmsf.seconds, hmsf.frames);
      }
      dst[0] = 0;
      return 0;
  }
}

int TimeText(LPWSTR dst, UINT size, const _zqposfmt* f, LONGLONG t, LPCWSTR templ, DWORD flags) {
  if (!dst || !f) return 0;
  if (!templ) templ = u"";
  if (!(flags & ZQPOS_NO_ORIGIN)) t = static_cast<LONGLONG>(static_cast<ULONGLONG>(t) - static_cast<ULONGLONG>(f->origin));
  int n = 0;
  if (t < 0) {
    if (size == 1) {
      dst[0] = 0;
      return 0;
    }
    dst[n++] = u'-';
    t = t == INT64_MIN ? INT64_MAX : -t;
  }
  return n + ModeText(dst + n, size ? size - static_cast<UINT>(n) : 0, f, t, templ, flags);
}

LPCWSTR DefaultTemplate(const _zqposfmt* f, DWORD flags) {
  if (!f || f->mode >= 20) return u"";
  return (flags & ZQPOS_ROUNDED) ? kFormats[f->mode].rounded : kFormats[f->mode].full;
}

}  // namespace

// --- Position to text --------------------------------------------------------------

ZQ_API int ZqNanoTimeToTextFormatN(LPWSTR dst, UINT size, const _zqposfmt* format, LONGLONG t, LPCWSTR templ,
                                   DWORD flags) {
  if (size == 0) return 0;
  return TimeText(dst, size, format, t, templ, flags);
}
ZQ_API int ZqNanoTimeToTextFormat(LPWSTR dst, const _zqposfmt* format, LONGLONG t, LPCWSTR templ, DWORD flags) {
  return TimeText(dst, 0, format, t, templ, flags);
}
ZQ_API int ZqNanoTimeToTextExN(LPWSTR dst, UINT size, const _zqposfmt* format, LONGLONG t, DWORD flags) {
  return ZqNanoTimeToTextFormatN(dst, size, format, t, DefaultTemplate(format, flags), flags);
}
ZQ_API int ZqNanoTimeToTextEx(LPWSTR dst, const _zqposfmt* format, LONGLONG t, DWORD flags) {
  return TimeText(dst, 0, format, t, DefaultTemplate(format, flags), flags);
}
ZQ_API int ZqNanoTimeToTextN(LPWSTR dst, UINT size, const _zqposfmt* format, LONGLONG t, BOOL round) {
  return ZqNanoTimeToTextExN(dst, size, format, t, round ? ZQPOS_ROUNDED : 0);
}
ZQ_API int ZqNanoTimeToText(LPWSTR dst, const _zqposfmt* format, LONGLONG t, BOOL round) {
  return ZqNanoTimeToTextEx(dst, format, t, round ? ZQPOS_ROUNDED : 0);
}

ZQ_API void ZqNanoTimeToHMSF(LONGLONG t, _zqhmsf* hmsf, double frameRate) {
  if (!hmsf) return;
  if (ZQSMPTE_IsValidCode(hmsf->code)) {
    (void)ZQSMPTE_NanoToSMPTE(t, hmsf);
    return;
  }
  double seconds = static_cast<double>(t) * 1e-7;
  // Half a frame ahead, so that the truncated frame is the nearest one and
  // never the frame count of a whole second.
  if (frameRate > 0.01) seconds += 0.5 / frameRate;
  const double whole = std::floor(seconds);
  const ULONGLONG s = whole <= 0 ? 0 : whole >= 1.8e19 ? ULLONG_MAX : static_cast<ULONGLONG>(whole);
  hmsf->hours = static_cast<DWORD>(s / 3600 % 24);
  hmsf->minutes = static_cast<DWORD>(s / 60 % 60);
  hmsf->seconds = static_cast<DWORD>(s % 60);
  const double frames = frameRate > 0.01 ? (seconds - whole) * frameRate : 0;
  hmsf->frames = frames > 0 ? static_cast<DWORD>(frames) : 0;
}

ZQ_API LONGLONG ZqHMSFToNanoTime(const _zqhmsf* hmsf, double frameRate) {
  if (!hmsf) return 0;
  if (ZQSMPTE_IsValidCode(hmsf->code)) return ZQSMPTE_SMPTEToNano(hmsf);
  double seconds = hmsf->hours * 3600.0 + hmsf->minutes * 60.0 + hmsf->seconds;
  if (frameRate > 0) seconds += hmsf->frames / frameRate;
  return ToNano(seconds * 1e7 + 0.5);
}

ZQ_API void ZqNanoTimeToMeasures(LONGLONG t, const _zqposfmt* format, UINT* measures, UINT* beats, UINT* ticks) {
  UINT m = 0, b = 0, k = 0;
  if (format && format->beatsPerMeasure && format->tempo > 0 && t > 0) {
    const double perMeasure = format->beatsPerMeasure;
    double x = static_cast<double>(t) * format->tempo / perMeasure * 1.6666666666666665e-9 + 5e-5;
    const double whole = std::floor(x);
    m = whole >= 4294967295.0 ? UINT32_MAX : static_cast<UINT>(whole);
    x = (x - whole) * perMeasure;
    b = static_cast<UINT>(x);
    x = (x - b) * (format->ticksPerBeat > 0 ? format->ticksPerBeat : 0);
    k = static_cast<UINT>(x);
  }
  if (measures) *measures = m;
  if (beats) *beats = b;
  if (ticks) *ticks = k;
}

// --- Text to position ---------------------------------------------------------------

namespace {

// The fields of a text: runs of digits, and empty ones made by repeated
// separators.
struct Fields {
  static constexpr int kMost = 8;
  LONGLONG value[kMost] = {};
  int digits[kMost] = {};
  int lead3[kMost] = {};  // value of the first three digits
  int count = 0;
  bool blank = false;
};

Fields Split(LPCWSTR text, int most) {
  Fields f;
  if (!text) return f;
  int separators = 0;
  bool seen = false;
  for (LPCWSTR p = text; *p;) {
    if (IsDigit(*p)) {
      // A further separator between two fields stands for an empty field.
      for (int i = 1; seen && i < separators && f.count < most; ++i) f.digits[f.count++] = 0;
      separators = 0;
      seen = true;
      LONGLONG v = 0;
      int digits = 0, lead = 0;
      for (; IsDigit(*p); ++p, ++digits) {
        if (v < INT32_MAX) v = std::min<LONGLONG>(v * 10 + (*p - u'0'), INT32_MAX);
        if (digits < 3) lead = lead * 10 + (*p - u'0');
      }
      if (f.count < most) {
        f.value[f.count] = v;
        f.digits[f.count] = digits;
        f.lead3[f.count] = lead;
        ++f.count;
      }
    } else {
      if (IsSpace(*p)) f.blank = true;
      else ++separators;
      ++p;
    }
  }
  return f;
}

LPCWSTR TextEnd(LPCWSTR text) { return text ? text + lstrlenW(text) : text; }

// Field i counted from the right, 0 when there are fewer.
LONGLONG FromRight(const Fields& f, int i, int count) { return i < count ? f.value[count - 1 - i] : 0; }

LONGLONG HmsfFields(LPCWSTR text, DWORD code, double frameRate, bool shortForm) {
  const Fields f = Split(text, shortForm ? 3 : 4);
  _zqhmsf hmsf{};
  hmsf.code = code;
  const int skip = shortForm ? 0 : 1;
  if (!shortForm) hmsf.frames = static_cast<DWORD>(FromRight(f, 0, f.count));
  hmsf.seconds = static_cast<DWORD>(FromRight(f, skip, f.count));
  hmsf.minutes = static_cast<DWORD>(FromRight(f, skip + 1, f.count));
  hmsf.hours = static_cast<DWORD>(FromRight(f, skip + 2, f.count));
  return ZqHMSFToNanoTime(&hmsf, frameRate);
}

LONGLONG ClipValue(LONGLONG v, LONGLONG lo, LONGLONG hi) { return v < lo ? lo : v > hi ? hi : v; }

}  // namespace

ZQ_API LONGLONG ZqTextToTimeToken(LPCWSTR text, const _zqposfmt*, BOOL wholeSeconds, LPCWSTR* end) {
  if (end) *end = TextEnd(text);
  if (wholeSeconds) {
    const Fields f = Split(text, 3);
    return ((FromRight(f, 2, f.count) * 60 + FromRight(f, 1, f.count)) * 60 + FromRight(f, 0, f.count)) * 1000;
  }
  const Fields f = Split(text, 4);
  if (f.count == 0) return 0;
  if (f.count == 1 && !f.blank) return f.value[0] * 1000;
  const int last = f.count - 1;
  static constexpr int kScale[4] = {0, 100, 10, 1};
  const LONGLONG fraction = f.lead3[last] * kScale[std::min(f.digits[last], 3)];
  const LONGLONG whole = (FromRight(f, 3, f.count) * 60 + FromRight(f, 2, f.count)) * 60 + FromRight(f, 1, f.count);
  return whole * 1000 + fraction;
}

ZQ_API LONGLONG ZqTextToHMSFToken(LPCWSTR text, const _zqposfmt* format, BOOL shortForm, LPCWSTR* end) {
  if (end) *end = TextEnd(text);
  return HmsfFields(text, 0, format ? format->frameRate : 0, shortForm);
}

ZQ_API LONGLONG ZqTextToMusicTimeToken(LPCWSTR text, const _zqposfmt* format, DWORD flags, LPCWSTR* end) {
  if (end) *end = TextEnd(text);
  if (!format || !(format->tempo > 0)) return 0;
  const Fields f = Split(text, (flags & ZQPOS_PARSE_SHORT) ? 2 : 3);
  LONGLONG measures = f.count > 0 ? f.value[0] : 0;
  LONGLONG beats = f.count > 1 ? f.value[1] : 0;
  const LONGLONG ticks = f.count > 2 ? f.value[2] : 0;
  if (format->mode == ZQPOS_MBT && !(flags & ZQPOS_PARSE_NO_ORIGIN)) {
    if (measures) --measures;
    if (beats) --beats;
  }
  const double quarters = (format->ticksPerBeat > 0 ? static_cast<double>(ticks) / format->ticksPerBeat : 0) +
                          static_cast<double>(format->beatsPerMeasure) * measures + beats;
  return ToNano(quarters / format->tempo * 6e8);
}

ZQ_API LONGLONG ZqTextToFeetAndFramesToken(LPCWSTR text, const _zqposfmt* format, BOOL film16) {
  if (!format || !(format->frameRate > 0)) return 0;
  const Fields f = Split(text, 2);
  const LONGLONG frames = (f.count > 0 ? f.value[0] : 0) * (film16 ? 40 : 16) + (f.count > 1 ? f.value[1] : 0);
  return ToNano(std::floor(static_cast<double>(frames) * 1e7 / format->frameRate + 1e-5 + 0.5));
}

ZQ_API LONGLONG ZqTextToNanoTimeToken2(LPCWSTR text, const _zqposfmt* f, DWORD fallbackLow, LONG fallbackHigh,
                                       DWORD minimumLow, LONG minimumHigh, DWORD maximumLow, LONG maximumHigh,
                                       DWORD flags, LPCWSTR* end) {
  const LONGLONG fallback = Words(fallbackLow, fallbackHigh);
  LPCWSTR p = text ? text : u"";
  while (IsSpace(*p)) ++p;
  const bool negative = *p == u'-';
  if (negative) ++p;
  LPCWSTR stop = TextEnd(p);
  if (end) *end = stop;
  if (!*p || !f) return fallback;
  const bool shortForm = flags & ZQPOS_PARSE_SHORT;
  LONGLONG v = 0;
  switch (f->mode) {
    case ZQPOS_SAMPLES: {
      const ULONGLONG samples = ZqTextToDWordLongToken(p, &stop);
      if (f->sampleRate)
        v = ToNano(std::floor(static_cast<double>(samples) * 1e7 / f->sampleRate + 0.5));
      break;
    }
    case ZQPOS_HMSMS:
    case ZQPOS_HMS_SHORT:
      v = ZqTextToTimeToken(p, f, shortForm, nullptr);
      v = v > INT64_MAX / 10000 ? INT64_MAX : v * 10000;
      break;
    case ZQPOS_SECONDS:
      v = ToNano(ZqTextToDoubleToken(p, &stop, TRUE) * 1e7);
      break;
    case ZQPOS_HMSF:
      v = HmsfFields(p, 0, f->frameRate, shortForm);
      break;
    case ZQPOS_FRAMES: {
      const double frames = ZqTextToDoubleToken(p, &stop, TRUE);
      if (f->frameRate > 0) v = ToNano(frames / f->frameRate * 1e7 + 0.5);
      break;
    }
    case ZQPOS_MBT:
    case ZQPOS_MBT_ZERO:
      v = ZqTextToMusicTimeToken(p, f, flags, nullptr);
      break;
    case ZQPOS_QUARTERS: {
      const double quarters = ZqTextToDoubleToken(p, &stop, TRUE);
      if (f->tempo > 0) v = ToNano(quarters / f->tempo * 6e8);
      break;
    }
    case ZQPOS_NANO:
      v = ZqTextToLongLongToken(p, &stop);
      break;
    case ZQPOS_MICROSECONDS: {
      const LONGLONG us = ZqTextToLongLongToken(p, &stop);
      v = us > INT64_MAX / 10 ? INT64_MAX : us < INT64_MIN / 10 ? -INT64_MAX : us * 10;
      break;
    }
    case ZQPOS_FEET_16MM:
    case ZQPOS_FEET_35MM:
      v = ZqTextToFeetAndFramesToken(p, f, f->mode == ZQPOS_FEET_16MM);
      break;
    case ZQPOS_CD:
      v = HmsfFields(p, 0, 75, shortForm);
      break;
    default:
      if (const DWORD code = SmpteCode(f->mode)) v = HmsfFields(p, code, 0, shortForm);
      else return fallback;
      break;
  }
  if (end) *end = stop;
  if (negative) v = static_cast<LONGLONG>(0 - static_cast<ULONGLONG>(v));
  if (!(flags & ZQPOS_PARSE_NO_ORIGIN))
    v = static_cast<LONGLONG>(static_cast<ULONGLONG>(v) + static_cast<ULONGLONG>(f->origin));
  if (flags & ZQPOS_PARSE_LIMITS) {
    if (v == 0 && *stop && !IsSpace(*stop)) v = fallback;
    v = ClipValue(v, Words(minimumLow, minimumHigh), Words(maximumLow, maximumHigh));
  }
  return v;
}

ZQ_API LONGLONG ZqTextToNanoTimeToken(LPCWSTR text, const _zqposfmt* format, BOOL shortForm, LPCWSTR* end) {
  return ZqTextToNanoTimeToken2(text, format, 0, 0, 0, 0, 0, 0, shortForm ? ZQPOS_PARSE_SHORT : 0, end);
}

ZQ_API LONGLONG ZqTextToNanoTimeTokenEx(LPCWSTR text, const _zqposfmt* format, BOOL shortForm, LONGLONG fallback,
                                        LONGLONG minimum, LONGLONG maximum, LPCWSTR* end) {
  auto low = [](LONGLONG v) { return static_cast<DWORD>(static_cast<ULONGLONG>(v)); };
  auto high = [](LONGLONG v) { return static_cast<LONG>(static_cast<ULONGLONG>(v) >> 32); };
  return ZqTextToNanoTimeToken2(text, format, low(fallback), high(fallback), low(minimum), high(minimum),
                                low(maximum), high(maximum), ZQPOS_PARSE_LIMITS | (shortForm ? ZQPOS_PARSE_SHORT : 0),
                                end);
}

// --- Ticks -------------------------------------------------------------------------------

namespace {

LONGLONG BeatTicks(const _zqposfmt* f) {
  return f->beatValue ? static_cast<LONGLONG>(f->ticksPerBeat) * 4 / f->beatValue : 0;
}

}  // namespace

ZQ_API int ZqMeasuresAndTicksToText(LPWSTR dst, const _zqposfmt* f, DWORD measureLow, LONG measureHigh,
                                    DWORD ticksLow, LONG ticksHigh, int base, BOOL shortForm, int divide) {
  if (!dst || !f) return 0;
  LONGLONG measure = Words(measureLow, measureHigh);
  LONGLONG ticks = Words(ticksLow, ticksHigh);
  const LONGLONG beatTicks = BeatTicks(f);
  if (ticks < 0 && beatTicks > 0) {
    ticks += beatTicks * f->beatsPerMeasure;
    if (measure > INT64_MIN) --measure;
  }
  if (divide < 1) divide = 1;
  LONGLONG beat = 0, tick = 0;
  if (beatTicks > 0) {
    beat = ticks / beatTicks;
    if (f->beatsPerMeasure) beat %= f->beatsPerMeasure;
    tick = ticks % beatTicks / divide;
  }
  if (base == 1) {
    if (measure >= 0 && measure < INT64_MAX) ++measure;
    ++beat;
  }
  if (shortForm)
    return ZqPrintF(dst, u"%I64d$&:%1u", measure, static_cast<UINT>(beat));
  return ZqPrintF(dst, u"%I64d$&:%u$&.%03u", measure, static_cast<UINT>(beat), static_cast<UINT>(tick));
}

ZQ_API int ZqTicksToText(LPWSTR dst, const _zqposfmt* f, DWORD ticksLow, LONG ticksHigh, int base, BOOL shortForm,
                         int divide) {
  if (!dst || !f) return 0;
  const LONGLONG ticks = Words(ticksLow, ticksHigh);
  const LONGLONG perMeasure = static_cast<LONGLONG>(f->beatsPerMeasure) * f->ticksPerBeat;
  LONGLONG measure = 0, rest = ticks;
  if (perMeasure > 0) {
    measure = ticks / perMeasure;
    rest = ticks % perMeasure;
    if (rest < 0) {
      rest += perMeasure;
      --measure;
    }
  }
  const auto m = static_cast<ULONGLONG>(measure);
  const auto r = static_cast<ULONGLONG>(rest);
  return ZqMeasuresAndTicksToText(dst, f, static_cast<DWORD>(m), static_cast<LONG>(m >> 32), static_cast<DWORD>(r),
                                  static_cast<LONG>(r >> 32), base, shortForm, divide);
}

namespace {

// Up to `most` fields after an optional "-", the parts after `base` and
// with ticks times `divide`.
LONGLONG TicksOf(LPCWSTR text, const _zqposfmt* f, int most, int base, int divide, LONGLONG* measureOut, int* beatOut,
                 int* tickOut) {
  if (!text) text = u"";
  while (IsSpace(*text)) ++text;
  const bool negative = *text == u'-';
  if (negative) ++text;
  const Fields fields = Split(text, most);
  LONGLONG parts[3] = {};
  for (int i = 0; i < fields.count; ++i) parts[3 - most + i] = fields.value[i];
  LONGLONG measure = parts[0], beat = parts[1];
  const LONGLONG tick = parts[2];
  // A negative measure is shown without the added 1, so only positive
  // ones give it back.
  if (base == 1) {
    if (measure > 0 && !negative) --measure;
    if (beat > 0) --beat;
  }
  if (negative) measure = -measure;
  if (divide < 1) divide = 1;
  if (measureOut) *measureOut = measure;
  if (beatOut) *beatOut = static_cast<int>(beat);
  if (tickOut) *tickOut = static_cast<int>(tick);
  // Fields are at most 2^31 - 1: the sums wrap rather than overflow.
  const ULONGLONG ticks = static_cast<ULONGLONG>(tick) * static_cast<ULONGLONG>(divide);
  if (!f) return static_cast<LONGLONG>(ticks);
  const ULONGLONG beats = static_cast<ULONGLONG>(f->beatsPerMeasure) * static_cast<ULONGLONG>(measure) +
                          static_cast<ULONGLONG>(beat);
  return static_cast<LONGLONG>(beats * static_cast<ULONGLONG>(static_cast<LONGLONG>(f->ticksPerBeat)) + ticks);
}

}  // namespace

ZQ_API LONGLONG ZqTextToMeasuresBeatsTicks(LPCWSTR text, const _zqposfmt* format, int base, int divide,
                                           LONGLONG* measure, int* beat, int* tick) {
  return TicksOf(text, format, 3, base, divide, measure, beat, tick);
}

ZQ_API LONGLONG ZqTextToBeatsTicks(LPCWSTR text, const _zqposfmt* format, int base, int divide, int* beat,
                                   int* tick) {
  return TicksOf(text, format, 2, base, divide, nullptr, beat, tick);
}

ZQ_API LONGLONG ZqTextToTicks(LPCWSTR text, const _zqposfmt* format, int divide, int* tick) {
  return TicksOf(text, format, 1, 0, divide, nullptr, nullptr, tick);
}
