// Clocks and calendar conversions.
#include <ctime>

#include "platform/linux/object.h"
#include "platform/time.h"

namespace {

constexpr int64_t kTicksPerSecond = 10000000;            // FILETIME units
constexpr int64_t kUnixEpochSeconds = 11644473600LL;     // 1601-01-01 to 1970-01-01
constexpr int64_t kTicksPerDay = 86400 * kTicksPerSecond;

int64_t MonotonicNs() {
  timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<int64_t>(ts.tv_sec) * 1000000000 + ts.tv_nsec;
}

uint64_t ToU64(const FILETIME& f) {
  return (static_cast<uint64_t>(f.dwHighDateTime) << 32) | f.dwLowDateTime;
}

FILETIME FromU64(uint64_t v) {
  return FILETIME{static_cast<DWORD>(v), static_cast<DWORD>(v >> 32)};
}

// Days since 1970-01-01 of a civil date (proleptic Gregorian).
int64_t DaysFromCivil(int64_t y, unsigned m, unsigned d) {
  y -= m <= 2;
  const int64_t era = (y >= 0 ? y : y - 399) / 400;
  const unsigned yoe = static_cast<unsigned>(y - era * 400);
  const unsigned doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
  const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + static_cast<int64_t>(doe) - 719468;
}

void CivilFromDays(int64_t z, int64_t& y, unsigned& m, unsigned& d) {
  z += 719468;
  const int64_t era = (z >= 0 ? z : z - 146096) / 146097;
  const unsigned doe = static_cast<unsigned>(z - era * 146097);
  const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  y = static_cast<int64_t>(yoe) + era * 400;
  const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  const unsigned mp = (5 * doy + 2) / 153;
  d = doy - (153 * mp + 2) / 5 + 1;
  m = mp < 10 ? mp + 3 : mp - 9;
  y += m <= 2;
}

bool IsLeap(int64_t y) { return (y % 4 == 0 && y % 100 != 0) || y % 400 == 0; }

uint64_t NowTicks() {
  timespec ts;
  clock_gettime(CLOCK_REALTIME, &ts);
  return static_cast<uint64_t>(ts.tv_sec + kUnixEpochSeconds) * kTicksPerSecond +
         static_cast<uint64_t>(ts.tv_nsec / 100);
}

// The offset of local time from UTC, in seconds, at a moment given in UTC
// seconds since 1970.
long LocalOffset(time_t utc) {
  tm local;
  if (localtime_r(&utc, &local) == nullptr) return 0;
  return local.tm_gmtoff;
}

}  // namespace

DWORD GetTickCount() { return static_cast<DWORD>(MonotonicNs() / 1000000); }

ULONGLONG GetTickCount64() { return static_cast<ULONGLONG>(MonotonicNs() / 1000000); }

BOOL QueryPerformanceCounter(LARGE_INTEGER* count) {
  count->QuadPart = MonotonicNs() / 100;
  return TRUE;
}

BOOL QueryPerformanceFrequency(LARGE_INTEGER* frequency) {
  frequency->QuadPart = kTicksPerSecond;
  return TRUE;
}

void GetSystemTimeAsFileTime(FILETIME* time) { *time = FromU64(NowTicks()); }

void GetSystemTime(SYSTEMTIME* time) {
  const FILETIME now = FromU64(NowTicks());
  FileTimeToSystemTime(&now, time);
}

void GetLocalTime(SYSTEMTIME* time) {
  FILETIME now = FromU64(NowTicks()), local;
  FileTimeToLocalFileTime(&now, &local);
  FileTimeToSystemTime(&local, time);
}

BOOL FileTimeToSystemTime(const FILETIME* fileTime, SYSTEMTIME* systemTime) {
  const uint64_t v = ToU64(*fileTime);
  if (v > 0x7FFFFFFFFFFFFFFFULL) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return FALSE;
  }
  const int64_t days1601 = static_cast<int64_t>(v / kTicksPerDay);
  const uint64_t rest = v % kTicksPerDay;
  const int64_t days = days1601 - kUnixEpochSeconds / 86400;
  int64_t y;
  unsigned m, d;
  CivilFromDays(days, y, m, d);
  systemTime->wYear = static_cast<WORD>(y);
  systemTime->wMonth = static_cast<WORD>(m);
  systemTime->wDay = static_cast<WORD>(d);
  // 1601-01-01 was a Monday.
  systemTime->wDayOfWeek = static_cast<WORD>((days1601 + 1) % 7);
  const uint64_t ms = rest / 10000;
  systemTime->wHour = static_cast<WORD>(ms / 3600000);
  systemTime->wMinute = static_cast<WORD>(ms / 60000 % 60);
  systemTime->wSecond = static_cast<WORD>(ms / 1000 % 60);
  systemTime->wMilliseconds = static_cast<WORD>(ms % 1000);
  return TRUE;
}

BOOL SystemTimeToFileTime(const SYSTEMTIME* s, FILETIME* fileTime) {
  static constexpr unsigned kDays[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  if (s->wYear < 1601 || s->wYear > 30827 || s->wMonth < 1 || s->wMonth > 12 || s->wDay < 1 ||
      s->wDay > kDays[s->wMonth - 1] + (s->wMonth == 2 && IsLeap(s->wYear) ? 1 : 0) ||
      s->wHour > 23 || s->wMinute > 59 || s->wSecond > 59 || s->wMilliseconds > 999) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return FALSE;
  }
  const int64_t days = DaysFromCivil(s->wYear, s->wMonth, s->wDay) + kUnixEpochSeconds / 86400;
  const uint64_t ticks = static_cast<uint64_t>(days) * kTicksPerDay +
                         (static_cast<uint64_t>(s->wHour) * 3600 + s->wMinute * 60 + s->wSecond) *
                             kTicksPerSecond +
                         static_cast<uint64_t>(s->wMilliseconds) * 10000;
  *fileTime = FromU64(ticks);
  return TRUE;
}

BOOL FileTimeToLocalFileTime(const FILETIME* utc, FILETIME* local) {
  const uint64_t v = ToU64(*utc);
  const time_t seconds = static_cast<time_t>(static_cast<int64_t>(v / kTicksPerSecond) - kUnixEpochSeconds);
  *local = FromU64(v + static_cast<uint64_t>(static_cast<int64_t>(LocalOffset(seconds)) * kTicksPerSecond));
  return TRUE;
}

BOOL LocalFileTimeToFileTime(const FILETIME* local, FILETIME* utc) {
  const uint64_t v = ToU64(*local);
  const time_t seconds = static_cast<time_t>(static_cast<int64_t>(v / kTicksPerSecond) - kUnixEpochSeconds);
  // The offset at the local moment read as UTC, corrected once for a change
  // of offset between the two readings.
  long offset = LocalOffset(seconds);
  offset = LocalOffset(seconds - offset);
  *utc = FromU64(v - static_cast<uint64_t>(static_cast<int64_t>(offset) * kTicksPerSecond));
  return TRUE;
}

LONG CompareFileTime(const FILETIME* a, const FILETIME* b) {
  const uint64_t x = ToU64(*a), y = ToU64(*b);
  return x < y ? -1 : (x > y ? 1 : 0);
}
