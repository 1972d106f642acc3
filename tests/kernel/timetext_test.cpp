// Time positions: every display mode, round trips through text at the
// boundaries, SMPTE timecode against published values, the text grammars
// and positions in ticks.
#include "kernel/timetext.h"

#include <gtest/gtest.h>

#include <array>
#include <string>

#include "tests/kernel/text_locale.h"

namespace {

class TimeText : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { locale_ = new ScopedTextLocale(u"en_US.UTF-8"); }
  static void TearDownTestSuite() { delete locale_; }
  static ScopedTextLocale* locale_;

  // 44.1 kHz, 25 frames, 120 quarter notes a minute in 4/4, 960 ticks a beat.
  static _zqposfmt Format(DWORD mode) { return {mode, 44100, 25.0, 120.0, 0, 4, 4, 960}; }
  static std::string Text(DWORD mode, LONGLONG t, DWORD flags = 0) {
    const _zqposfmt f = Format(mode);
    WCHAR buffer[64];
    const int n = ZqNanoTimeToTextEx(buffer, &f, t, flags);
    EXPECT_EQ(n, lstrlenW(buffer));
    return U8(buffer);
  }
};
ScopedTextLocale* TimeText::locale_ = nullptr;

TEST_F(TimeText, EveryModeShowsItsFormat) {
  const struct { DWORD mode; LONGLONG t; DWORD flags; const char* expected; } cases[] = {
      {ZQPOS_SAMPLES, 10'000'000, 0, "44,100"}, {ZQPOS_HMSMS, 37'235'000'000, 0, "01:02:03.500"},
      {ZQPOS_HMSMS, 37'235'000'000, ZQPOS_ROUNDED, "01:02:03"}, {ZQPOS_HMSMS, -10'000'000, 0, "-00:00:01.000"},
      {ZQPOS_SECONDS, 15'000'000, 0, "1.500"},
      {ZQPOS_SECONDS, 19'999'999, ZQPOS_ROUNDED, "1"},  // truncated
      {ZQPOS_HMSF, 12'400'000, 0, "00:00:01.06"}, {ZQPOS_FRAMES, 12'400'000, 0, "31.000"},
      {ZQPOS_FRAMES, 14'200'000, ZQPOS_ROUNDED, "36"},  // rounded
      {ZQPOS_MBT, 25'000'000, 0, "2.2.000"}, {ZQPOS_MBT, 25'000'000, ZQPOS_ROUNDED, "2.2"},
      {ZQPOS_MBT, 25'000'000, ZQPOS_NO_ORIGIN, "1.1.000"}, {ZQPOS_MBT_ZERO, 25'000'000, 0, "1.1.000"},
      {ZQPOS_SMPTE_2997, 600'600'000, 0, "00:01:00:00"}, {ZQPOS_SMPTE_30, 10'000'000, 0, "00:00:01:00"},
      {ZQPOS_SMPTE_30_DROP, 600'600'000, 0, "00:01:00;02"}, {ZQPOS_SMPTE_25, 36'610'000'000, 0, "01:01:01:00"},
      {ZQPOS_SMPTE_24, 10'416'667, 0, "00:00:01:01"}, {ZQPOS_NANO, 123456, 0, "123,456"}, {ZQPOS_NANO, -5, 0, "-5"},
      {ZQPOS_MICROSECONDS, 15, 0, "2"}, {ZQPOS_QUARTERS, 10'000'000, 0, "2.000"},
      {ZQPOS_FEET_16MM, 20'000'000, 0, "1+10"}, {ZQPOS_FEET_35MM, 20'000'000, 0, "3+2"},
      {ZQPOS_CD, 12'000'000, 0, "00:00:01:15"}, {ZQPOS_SMPTE_23976, 10'010'000, 0, "00:00:01:00"},
      {ZQPOS_HMS_SHORT, 650'000'000, 0, "1:05"}, {ZQPOS_HMS_SHORT, 6'050'000'000, 0, "10:05"},
      {ZQPOS_HMS_SHORT, 37'250'000'000, 0, "1:02:05"},
  };
  for (const auto& c : cases) EXPECT_EQ(Text(c.mode, c.t, c.flags), c.expected) << c.mode << " " << c.t;

  _zqposfmt f = Format(ZQPOS_NANO);
  f.origin = 100;
  WCHAR t[64];
  ZqNanoTimeToText(t, &f, 50, FALSE);
  EXPECT_EQ(U8(t), "-50");
  ZqNanoTimeToTextEx(t, &f, 50, ZQPOS_NO_ORIGIN);
  EXPECT_EQ(U8(t), "50");
  ZqNanoTimeToTextFormat(t, &f, 1'000'100, u"[$I64d]", 0);
  EXPECT_EQ(U8(t), "[1,000,000]");
  // A bounded form cuts and terminates.
  EXPECT_EQ(ZqNanoTimeToTextN(t, 4, &f, -1'000'100, FALSE), 1);
  EXPECT_EQ(U8(t), "-");
}

// Text of every mode reads back to a position that shows the same text,
// around the drop-frame minutes, negative, and at an hour.
TEST_F(TimeText, EveryModeReadsBackWhatItShows) {
  const LONGLONG times[] = {0,           1,           10'000'000,     600'600'000, 5'999'994'000,
                            -10'000'000, -600'600'000, 36'000'000'123};
  for (DWORD mode = 0; mode < 20; ++mode) {
    const _zqposfmt f = Format(mode);
    for (const LONGLONG t : times) {
      // Four-digit measures and feet are grouped, which the fields cannot read.
      const bool grouped = mode == ZQPOS_MBT || mode == ZQPOS_MBT_ZERO || mode == ZQPOS_FEET_16MM || mode == ZQPOS_FEET_35MM;
      if (grouped && t > 10'000'000'000) continue;
      const std::string shown = Text(mode, t);
      const DWORD flags = mode == ZQPOS_HMS_SHORT ? ZQPOS_PARSE_SHORT : 0;
      const std::u16string text = ZqUtf8ToUtf16(shown);
      const LONGLONG back = ZqTextToNanoTimeToken2(text.c_str(), &f, 0, 0, 0, 0, 0, 0, flags, nullptr);
      EXPECT_EQ(Text(mode, back), shown) << "mode " << mode << " t " << t << " read " << back;
    }
  }
}

TEST_F(TimeText, TextReadsByTheGrammarOfItsMode) {
  const struct { DWORD mode; const WCHAR* text; DWORD flags; LONGLONG expected; } cases[] = {
      {ZQPOS_HMSMS, u"1:02:03.5", 0, 37'235'000'000},
      {ZQPOS_HMSMS, u"5", 0, 50'000'000},          // one bare field: whole seconds
      {ZQPOS_HMSMS, u"5 ", 0, 5'000'000},          // with a blank it is a fraction
      {ZQPOS_HMSMS, u"01.05", 0, 10'500'000},      // two digits count tens of milliseconds
      {ZQPOS_HMSMS, u"1.2345", 0, 12'340'000},     // more than three are cut
      {ZQPOS_HMSMS, u"1::2", ZQPOS_PARSE_SHORT, 36'020'000'000},  // an empty middle field
      {ZQPOS_HMSMS, u"-1:00", ZQPOS_PARSE_SHORT, -600'000'000}, {ZQPOS_SAMPLES, u"44,100", 0, 10'000'000},
      {ZQPOS_SECONDS, u"1.5x", 0, 15'000'000}, {ZQPOS_HMSF, u"00:00:01:06", 0, 12'400'000},
      {ZQPOS_HMSF, u"1:02:03", ZQPOS_PARSE_SHORT, 37'230'000'000}, {ZQPOS_FRAMES, u"31", 0, 12'400'000},
      {ZQPOS_MBT, u"2.2.000", 0, 25'000'000}, {ZQPOS_MBT, u"2:2", ZQPOS_PARSE_SHORT, 25'000'000},
      {ZQPOS_MBT, u"1.1.0", ZQPOS_PARSE_NO_ORIGIN, 25'000'000},
      {ZQPOS_MBT_ZERO, u"1.1.480", 0, 27'499'999},  // 5.5 quarters, truncated
      {ZQPOS_SMPTE_30_DROP, u"00:01:00;02", 0, 600'600'000}, {ZQPOS_NANO, u" -7", 0, -7},
      {ZQPOS_MICROSECONDS, u"2", 0, 20}, {ZQPOS_FEET_16MM, u"1+10", 0, 20'000'000},
      {ZQPOS_FEET_35MM, u"3+2", 0, 20'000'000}, {ZQPOS_CD, u"00:00:01:15", 0, 12'000'000},
  };
  for (const auto& c : cases) {
    const _zqposfmt f = Format(c.mode);
    EXPECT_EQ(ZqTextToNanoTimeToken2(c.text, &f, 0, 0, 0, 0, 0, 0, c.flags, nullptr), c.expected)
        << c.mode << " " << U8(c.text);
  }
  _zqposfmt f = Format(ZQPOS_SECONDS);
  LPCWSTR end = nullptr;
  ZqTextToNanoTimeToken(u"1.5x", &f, FALSE, &end);
  EXPECT_EQ(*end, u'x');
}

TEST_F(TimeText, FallbackLimitsAndOrigin) {
  _zqposfmt f = Format(ZQPOS_NANO);
  const struct { DWORD mode; const WCHAR* text; LONGLONG expected; } cases[] = {
      {ZQPOS_NANO, u"abc", 42},   // no number
      {ZQPOS_NANO, u"", 42},      // empty
      {ZQPOS_NANO, u"500", 100},  // clipped
      {ZQPOS_NANO, u"-5", 0},
      {ZQPOS_HMSMS, u"abc", 0},   // field grammars read the whole text: 0 is their value
  };
  for (const auto& c : cases) {
    f.mode = c.mode;
    EXPECT_EQ(ZqTextToNanoTimeTokenEx(c.text, &f, FALSE, 42, 0, 100, nullptr), c.expected) << U8(c.text);
  }
  f.mode = ZQPOS_NANO;
  f.origin = 100;
  EXPECT_EQ(ZqTextToNanoTimeToken(u"50", &f, FALSE, nullptr), 150);
  EXPECT_EQ(ZqTextToNanoTimeToken2(u"50", &f, 0, 0, 0, 0, 0, 0, ZQPOS_PARSE_NO_ORIGIN, nullptr), 50);
  // 64-bit values in two words, low then high.
  EXPECT_EQ(ZqTextToNanoTimeToken2(u"", &f, 1, 1, 0, 0, 0, 0, 0, nullptr), 0x100000001LL);
}

TEST(Smpte, FramesMatchPublishedTimecode) {
  const struct { DWORD code; LONGLONG frame; DWORD h, m, s, f; } cases[] = {
      {ZQSMPTE_30_DROP, 1799, 0, 0, 59, 29},   {ZQSMPTE_30_DROP, 1800, 0, 1, 0, 2},
      {ZQSMPTE_30_DROP, 3598, 0, 2, 0, 2},     {ZQSMPTE_30_DROP, 17981, 0, 9, 59, 29},
      {ZQSMPTE_30_DROP, 17982, 0, 10, 0, 0},   {ZQSMPTE_30_DROP, 19782, 0, 11, 0, 2},
      {ZQSMPTE_30_DROP, 107892, 1, 0, 0, 0},   {ZQSMPTE_2997, 1800, 0, 1, 0, 0},
      {ZQSMPTE_30, 108000, 1, 0, 0, 0},        {ZQSMPTE_25, 90000, 1, 0, 0, 0},
      {ZQSMPTE_24, 86399, 0, 59, 59, 23},      {ZQSMPTE_23976, 86400, 1, 0, 0, 0},
  };
  for (const auto& c : cases) {
    _zqhmsf label{c.code, 9, 9, 9, 9};
    ASSERT_EQ(ZQSMPTE_FramesToSMPTE(c.frame, &label), 0);
    EXPECT_EQ((std::array<DWORD, 4>{label.hours, label.minutes, label.seconds, label.frames}),
              (std::array<DWORD, 4>{c.h, c.m, c.s, c.f}))
        << c.code << " " << c.frame;
    EXPECT_EQ(ZQSMPTE_SMPTEToFrames(&label), c.frame);
  }
  // 29.97 frames start 1.001 s apart; labels wrap after a day; a label that
  // drop frame skips reads as if nothing were skipped.
  EXPECT_EQ(ZQSMPTE_FramesToNano(30, ZQSMPTE_30_DROP), 10'010'000);
  EXPECT_EQ(ZQSMPTE_FramesToNano(24, ZQSMPTE_23976), 10'010'000);
  _zqhmsf day{ZQSMPTE_25, 0, 0, 0, 0};
  ZQSMPTE_FramesToSMPTE(25LL * 86400 + 3, &day);
  EXPECT_EQ(day.hours * 100 + day.frames, 3u);
  const _zqhmsf skipped{ZQSMPTE_30_DROP, 0, 1, 0, 0};
  EXPECT_EQ(ZQSMPTE_SMPTEToFrames(&skipped), 1798);
  _zqhmsf bad{7, 0, 0, 0, 0};
  EXPECT_NE(ZQSMPTE_FramesToSMPTE(1, &bad), 0);
}

TEST(Smpte, EveryFrameSurvivesLabelsAndNanoTime) {
  for (DWORD code = 1; code <= 6; ++code) {
    for (LONGLONG frame = 0; frame < 20000; ++frame) {
      _zqhmsf label{code, 0, 0, 0, 0};
      ZQSMPTE_FramesToSMPTE(frame, &label);
      ASSERT_EQ(ZQSMPTE_SMPTEToFrames(&label), frame) << code;
      const LONGLONG t = ZQSMPTE_FramesToNano(frame, code);
      ASSERT_EQ(ZQSMPTE_NanoToFrames(t, code), frame) << code;
      if (frame) {
        ASSERT_EQ(ZQSMPTE_NanoToFrames(t - 1, code), frame - 1) << code;
      }
    }
  }
}

TEST_F(TimeText, HmsfAndMeasures) {
  _zqhmsf hmsf{};
  ZqNanoTimeToHMSF(37'235'000'000 + 25 * 36'000'000'000LL, &hmsf, 1000);
  EXPECT_EQ((std::array<DWORD, 4>{hmsf.hours, hmsf.minutes, hmsf.seconds, hmsf.frames}),
            (std::array<DWORD, 4>{2, 2, 3, 500}));  // hours wrap at 24
  EXPECT_EQ(ZqHMSFToNanoTime(&hmsf, 1000), 73'235'000'000);
  hmsf = {ZQSMPTE_30_DROP, 0, 0, 0, 0};
  ZqNanoTimeToHMSF(600'600'000, &hmsf, 1000);  // a code goes to the timecode
  EXPECT_EQ(hmsf.frames, 2u);

  const _zqposfmt f = Format(ZQPOS_MBT);
  UINT m, b, k;
  ZqNanoTimeToMeasures(27'500'000, &f, &m, &b, &k);
  EXPECT_EQ((std::array<UINT, 3>{m, b, k}), (std::array<UINT, 3>{1, 1, 480}));
}

TEST_F(TimeText, TicksBothWays) {
  _zqposfmt f = Format(ZQPOS_MBT);
  const struct { LONGLONG ticks; int base; BOOL shortForm; int divide; const char* expected; } cases[] = {
      {4805, 1, FALSE, 1, "2.2.005"}, {4805, 0, FALSE, 1, "1.1.005"}, {4805, 1, TRUE, 1, "2.2"},
      {4805, 1, FALSE, 5, "2.2.001"}, {-960, 1, FALSE, 1, "-1.4.000"}, {-960, 0, FALSE, 1, "-1.3.000"},
  };
  for (const auto& c : cases) {
    WCHAR t[64];
    const auto u = static_cast<ULONGLONG>(c.ticks);
    ZqTicksToText(t, &f, static_cast<DWORD>(u), static_cast<LONG>(u >> 32), c.base, c.shortForm, c.divide);
    EXPECT_EQ(U8(t), c.expected) << c.ticks;
    if (c.shortForm || c.divide != 1) continue;
    LONGLONG measure = 0;
    int beat = 0, tick = 0;
    EXPECT_EQ(ZqTextToMeasuresBeatsTicks(ZqUtf8ToUtf16(c.expected).c_str(), &f, c.base, 1, &measure, &beat, &tick),
              c.ticks)
        << c.expected;
  }
  // In 6/8 a beat is an eighth: 480 ticks.
  f.beatValue = 8;
  f.beatsPerMeasure = 6;
  WCHAR t[64];
  ZqMeasuresAndTicksToText(t, &f, 0, 0, 1000, 0, 1, FALSE, 1);
  EXPECT_EQ(U8(t), "1.3.040");
  f = Format(ZQPOS_MBT);
  EXPECT_EQ(ZqTextToBeatsTicks(u"3:10", &f, 0, 2, nullptr, nullptr), 2900);
  EXPECT_EQ(ZqTextToBeatsTicks(u"3:10", &f, 1, 2, nullptr, nullptr), 1940);
  int tick = 0;
  EXPECT_EQ(ZqTextToTicks(u"7", &f, 3, &tick), 21);
  EXPECT_EQ(tick, 7);
}

}  // namespace
