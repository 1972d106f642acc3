// Time positions as text and back, in the kernel's 20 display modes, and
// musical positions in ticks.
//
// A position is nano time: a signed 64-bit count of 100 ns units.  A display
// mode is described by a _zqposfmt; its `origin` is the nano time that shows
// as zero (subtracted before display, added after parsing).
//
// Separators come from the locale through the print's "$" forms
// (kernel/printf.h): "$:" the time separator, "$*" the decimal sign, "$&:"
// and "$&." the music separators.  Every function may be called from any
// thread; unbounded forms need room for their text (64 characters are
// enough for the built-in formats).
#pragma once

#include <cstddef>

#include "base/types.h"
#include "kernel/smpte.h"

// Display modes.
enum ZQPOSMODE : DWORD {
  ZQPOS_SAMPLES = 0,           // samples at sampleRate
  ZQPOS_HMSMS = 1,             // hours:minutes:seconds.milliseconds
  ZQPOS_SECONDS = 2,           // seconds with 3 decimals
  ZQPOS_HMSF = 3,              // hours:minutes:seconds.frames at frameRate
  ZQPOS_FRAMES = 4,            // absolute frames at frameRate
  ZQPOS_MBT = 5,               // measure:beat.tick, measures and beats from 1
  ZQPOS_SMPTE_2997 = 6,        // timecode 29.97 non-drop
  ZQPOS_SMPTE_30 = 7,          // timecode 30
  ZQPOS_SMPTE_30_DROP = 8,     // timecode 30 drop frame
  ZQPOS_SMPTE_25 = 9,          // timecode 25 (EBU)
  ZQPOS_SMPTE_24 = 10,         // timecode 24
  ZQPOS_NANO = 11,             // the count itself
  ZQPOS_MICROSECONDS = 12,     // microseconds
  ZQPOS_MBT_ZERO = 13,         // measure:beat.tick from 0
  ZQPOS_QUARTERS = 14,         // quarter notes at tempo
  ZQPOS_FEET_16MM = 15,        // feet+frames, 40 frames a foot
  ZQPOS_FEET_35MM = 16,        // feet+frames, 16 frames a foot
  ZQPOS_CD = 17,               // minutes of a CD: hours:minutes:seconds:frames at 75
  ZQPOS_SMPTE_23976 = 18,      // timecode 23.976
  ZQPOS_HMS_SHORT = 19,        // 1:05, 12:05 or 1:02:05
};

// Description of a display mode.
struct _zqposfmt {
  DWORD mode;             // ZQPOSMODE
  DWORD sampleRate;       // samples per second
  double frameRate;       // frames per second
  double tempo;           // quarter notes per minute
  LONGLONG origin;        // nano time shown as zero
  WORD beatValue;         // the note that counts as a beat (4: quarter notes)
  WORD beatsPerMeasure;
  INT ticksPerBeat;
};
static_assert(offsetof(_zqposfmt, mode) == 0);
static_assert(offsetof(_zqposfmt, sampleRate) == 4);
static_assert(offsetof(_zqposfmt, frameRate) == 8);
static_assert(offsetof(_zqposfmt, tempo) == 16);
static_assert(offsetof(_zqposfmt, origin) == 24);
static_assert(offsetof(_zqposfmt, beatValue) == 32);
static_assert(offsetof(_zqposfmt, beatsPerMeasure) == 34);
static_assert(offsetof(_zqposfmt, ticksPerBeat) == 36);
static_assert(sizeof(_zqposfmt) == 40);

// Flags of the ...Ex and ...Format forms.
constexpr DWORD ZQPOS_ROUNDED = 1;    // the short (rounded) format of the mode
constexpr DWORD ZQPOS_NO_ORIGIN = 2;  // leave `origin` out; measures and beats count from 0

// ---------------------------------------------------------------------------
// Position to text.  A negative position shows as "-" and its magnitude.
// Answer the length written.
// ---------------------------------------------------------------------------

// The mode's own format; `round` chooses the rounded one.
ZQ_API int ZqNanoTimeToText(LPWSTR dst, const _zqposfmt* format, LONGLONG t, BOOL round);
ZQ_API int ZqNanoTimeToTextEx(LPWSTR dst, const _zqposfmt* format, LONGLONG t, DWORD flags);
// With a print format of the caller's, which receives the mode's values:
// modes 0, 11, 12 one LONGLONG; 1, 3, 6 to 10, 17, 18, 19 hours, minutes,
// seconds, frames as UINTs; 2, 4, 14 one double (a template "$.0f" prints
// the whole number instead); 5 and 13 measure, beat, tick as UINTs; 15 and
// 16 feet and frames as LONGLONGs.  Mode 19 chooses its own format.
ZQ_API int ZqNanoTimeToTextFormat(LPWSTR dst, const _zqposfmt* format, LONGLONG t, LPCWSTR templ, DWORD flags);
// The same into `size` characters: a text that does not fit is cut
// (terminated).
ZQ_API int ZqNanoTimeToTextN(LPWSTR dst, UINT size, const _zqposfmt* format, LONGLONG t, BOOL round);
ZQ_API int ZqNanoTimeToTextExN(LPWSTR dst, UINT size, const _zqposfmt* format, LONGLONG t, DWORD flags);
ZQ_API int ZqNanoTimeToTextFormatN(LPWSTR dst, UINT size, const _zqposfmt* format, LONGLONG t, LPCWSTR templ,
                                   DWORD flags);

// Splits `t` into hours (modulo 24), minutes, seconds and frames.  A
// hmsf->code of 1 to 6 uses that timecode (kernel/smpte.h); otherwise the
// frames are those of `frameRate`, to the nearest frame that does not pass
// the second.
ZQ_API void ZqNanoTimeToHMSF(LONGLONG t, _zqhmsf* hmsf, double frameRate);
// Back: a timecode for the codes 1 to 6, else at `frameRate` to the nearest
// unit.
ZQ_API LONGLONG ZqHMSFToNanoTime(const _zqhmsf* hmsf, double frameRate);
// Measures, beats and ticks of `t` (not negative) at the format's tempo and
// meter, all from 0.  A meter or tempo of 0 gives zeros.
ZQ_API void ZqNanoTimeToMeasures(LONGLONG t, const _zqposfmt* format, UINT* measures, UINT* beats, UINT* ticks);

// ---------------------------------------------------------------------------
// Text to position.
// ---------------------------------------------------------------------------

// Flags of ZqTextToNanoTimeToken2.
constexpr DWORD ZQPOS_PARSE_SHORT = 1;      // the mode's short form: sub-parts left out
constexpr DWORD ZQPOS_PARSE_NO_ORIGIN = 2;  // `origin` is not added
constexpr DWORD ZQPOS_PARSE_LIMITS = 4;     // fallback for no number, and the limits

// Reads a position in the format's mode after blanks and an optional "-"
// (which negates it).  An empty text gives the fallback.  *end (optional)
// receives where a number of modes 0, 2, 4, 11, 12, 14 stopped, and the end
// of the text for the modes read in fields (mode 19 reads as mode 1).  A
// grouped number of measures or feet ("1,024") does not read back: the
// group separator separates fields.  With ZQPOS_PARSE_LIMITS a result
// of 0 with more than blanks at *end takes the fallback, and the result is
// held to minimum..maximum.  64-bit values come as two words, low then high.
ZQ_API LONGLONG ZqTextToNanoTimeToken2(LPCWSTR text, const _zqposfmt* format, DWORD fallbackLow, LONG fallbackHigh,
                                       DWORD minimumLow, LONG minimumHigh, DWORD maximumLow, LONG maximumHigh,
                                       DWORD flags, LPCWSTR* end);
// ZqTextToNanoTimeToken2 with flags ZQPOS_PARSE_SHORT for `shortForm`, no
// fallback and no limits.
ZQ_API LONGLONG ZqTextToNanoTimeToken(LPCWSTR text, const _zqposfmt* format, BOOL shortForm, LPCWSTR* end);
// ... with ZQPOS_PARSE_LIMITS.
ZQ_API LONGLONG ZqTextToNanoTimeTokenEx(LPCWSTR text, const _zqposfmt* format, BOOL shortForm, LONGLONG fallback,
                                        LONGLONG minimum, LONGLONG maximum, LPCWSTR* end);

// The grammars read in fields: every run of digits is a field, anything
// else separates, and each further non-blank separator between two fields
// adds an empty field ("1::2" is 1, 0, 2).  *end is the end of the text.
//
// Milliseconds.  `wholeSeconds`: up to 3 fields, seconds last, then minutes
// and hours.  Otherwise up to 4 fields, the last a fraction of a second
// ("5" 500, "05" 50, "1234" 123) when the text has more than one field or a
// blank; a single bare field is whole seconds.
ZQ_API LONGLONG ZqTextToTimeToken(LPCWSTR text, const _zqposfmt* format, BOOL wholeSeconds, LPCWSTR* end);
// Nano time of hours, minutes, seconds (`shortForm`) and frames at the
// format's frameRate, counted from the right.
ZQ_API LONGLONG ZqTextToHMSFToken(LPCWSTR text, const _zqposfmt* format, BOOL shortForm, LPCWSTR* end);
// Nano time of measures, beats (and ticks without ZQPOS_PARSE_SHORT in
// `flags`) at the format's tempo and meter.  In mode 5, unless `flags` has
// ZQPOS_PARSE_NO_ORIGIN, measures and beats count from 1.
ZQ_API LONGLONG ZqTextToMusicTimeToken(LPCWSTR text, const _zqposfmt* format, DWORD flags, LPCWSTR* end);
// Nano time of feet and frames (40 frames a foot for 16 mm film, else 16).
ZQ_API LONGLONG ZqTextToFeetAndFramesToken(LPCWSTR text, const _zqposfmt* format, BOOL film16);

// ---------------------------------------------------------------------------
// Positions in ticks.  A beat has ticksPerBeat * 4 / beatValue ticks; a
// measure beatsPerMeasure beats.  `base` 1 counts measures and beats from 1;
// ticks shown are divided by `divide` (1 when not positive).
// ---------------------------------------------------------------------------

// "measure:beat.tick" ("measure:beat" with `shortForm`) of `ticks` within
// `measure`; negative ticks borrow one measure.  Answers the length.
ZQ_API int ZqMeasuresAndTicksToText(LPWSTR dst, const _zqposfmt* format, DWORD measureLow, LONG measureHigh,
                                    DWORD ticksLow, LONG ticksHigh, int base, BOOL shortForm, int divide);
// The same for an absolute tick count (measures of beatsPerMeasure *
// ticksPerBeat ticks).
ZQ_API int ZqTicksToText(LPWSTR dst, const _zqposfmt* format, DWORD ticksLow, LONG ticksHigh, int base,
                         BOOL shortForm, int divide);
// Reads "measure:beat:tick" (an optional "-" makes the measure negative),
// stores the parts asked for (after `base`, before `divide`) and answers the
// absolute ticks (beatsPerMeasure * measure + beat) * ticksPerBeat + tick *
// divide.
ZQ_API LONGLONG ZqTextToMeasuresBeatsTicks(LPCWSTR text, const _zqposfmt* format, int base, int divide,
                                           LONGLONG* measure, int* beat, int* tick);
// "beat:tick": beat * ticksPerBeat + tick * divide.
ZQ_API LONGLONG ZqTextToBeatsTicks(LPCWSTR text, const _zqposfmt* format, int base, int divide, int* beat, int* tick);
// "tick": tick * divide.
ZQ_API LONGLONG ZqTextToTicks(LPCWSTR text, const _zqposfmt* format, int divide, int* tick);
