#include <gtest/gtest.h>

#include "platform/time.h"

namespace {

TEST(CalendarTimes, KnownDatesConvertBothWays) {
  struct Case { WORD y, mo, d, h, mi, s, ms; WORD dow; ULONGLONG ticks; };
  const Case cases[] = {
      {1601, 1, 1, 0, 0, 0, 0, 1, 0},
      {1970, 1, 1, 0, 0, 0, 0, 4, 116444736000000000ULL},
      {2000, 2, 29, 12, 34, 56, 789, 2, 125963012967890000ULL},
  };
  for (const Case& c : cases) {
    SYSTEMTIME st{c.y, c.mo, 0, c.d, c.h, c.mi, c.s, c.ms};
    FILETIME ft;
    ASSERT_TRUE(SystemTimeToFileTime(&st, &ft));
    const ULONGLONG v = (static_cast<ULONGLONG>(ft.dwHighDateTime) << 32) | ft.dwLowDateTime;
    EXPECT_EQ(v, c.ticks) << c.y;
    SYSTEMTIME back;
    ASSERT_TRUE(FileTimeToSystemTime(&ft, &back));
    EXPECT_EQ(back.wYear, c.y);
    EXPECT_EQ(back.wMonth, c.mo);
    EXPECT_EQ(back.wDay, c.d);
    EXPECT_EQ(back.wDayOfWeek, c.dow) << c.y;
    EXPECT_EQ(back.wMilliseconds, c.ms);
  }
  SYSTEMTIME bad{2001, 2, 0, 29, 0, 0, 0, 0};
  FILETIME ft;
  EXPECT_FALSE(SystemTimeToFileTime(&bad, &ft));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
}

TEST(Clocks, CountInHundredsOfNanosecondsAndCompare) {
  LARGE_INTEGER f;
  EXPECT_TRUE(QueryPerformanceFrequency(&f));
  EXPECT_EQ(f.QuadPart, 10000000);
  FILETIME x, y, local, utc;
  GetSystemTimeAsFileTime(&x);
  y = x;
  y.dwHighDateTime++;
  EXPECT_EQ(CompareFileTime(&x, &x), 0);
  EXPECT_EQ(CompareFileTime(&x, &y), -1);
  EXPECT_EQ(CompareFileTime(&y, &x), 1);
  FileTimeToLocalFileTime(&x, &local);
  LocalFileTimeToFileTime(&local, &utc);
  EXPECT_EQ(CompareFileTime(&utc, &x), 0);
}

}  // namespace
