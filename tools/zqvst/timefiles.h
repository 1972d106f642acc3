// The two text files that users of zqvst write by hand: parameter automation
// and the tempo map.
//
// Both are plain text, one entry a line, fields separated by white space; `#`
// outside a quoted name starts a comment that runs to the end of the line.
// Numbers are read in the C locale whatever the process's locale is, so a
// file means the same on every machine ("0.5", "1e-3"; never "0,5").
//
// Automation:  PARAM START END FROM TO CURVE
//   PARAM  a parameter's index or its name (in double quotes when it has
//          blanks; \" and \\ inside the quotes stand for " and \)
//   START, END  seconds from the start of the input, 0 <= START <= END
//   FROM, TO    values in the parameter's outward units
//   CURVE  jump, linear, square, invsquare or sine
//
// Tempo map:  TIME BPM          the tempo from TIME seconds on (0 < BPM <= 999)
//             TIME meter N/D    the meter from TIME on (N 1..99, D 1, 2, 4 .. 64)
//   in rising time order; one tempo and one meter may share a time.
#pragma once

#include <string>
#include <string_view>
#include <vector>

struct ZqvstAutomationEntry {
  std::string param;      // as written (quotes removed)
  bool byIndex;           // param is a plain decimal index
  long index;             // when byIndex
  double start, end;      // seconds from the start of the input
  double from, to;        // outward units
  int curve;              // MP_CURVE_JUMP/LINEAR/SQUARE/INVSQUARE/SINE (mediaparams.h)
  int line;               // 1-based line number in the file
};

struct ZqvstTempoEntry {
  double time;            // seconds
  bool isMeter;
  double bpm;             // when !isMeter
  int numerator, denominator;  // when isMeter
  int line;
};

// The tempos and meters a map takes, from a file or from the command line:
// above 0 and at most 999 beats a minute; 1 to 99 beats of 1, 2, 4, 8, 16,
// 32 or 64.
inline bool ZqvstIsTempo(double bpm) { return bpm > 0 && bpm <= 999; }
inline bool ZqvstIsMeterNumerator(long n) { return n >= 1 && n <= 99; }
inline bool ZqvstIsMeterDenominator(long d) { return d >= 1 && d <= 64 && (d & (d - 1)) == 0; }
// Reads a meter "N/D" (digits only, a numerator of 1 to 99, a power of two
// up to 64 below); false with the reason in *why.
bool ZqvstParseMeter(std::string_view text, int* numerator, int* denominator, std::string* why);

// Parse the text of a file; false with a one-line message ("line 3: unknown
// curve 'foo'") on the first error.  `*out` is replaced, and left empty on an
// error.
bool ZqvstParseAutomation(const std::string& text, std::vector<ZqvstAutomationEntry>* out, std::string* error);
bool ZqvstParseTempoMap(const std::string& text, std::vector<ZqvstTempoEntry>* out, std::string* error);

// Reads a whole file, text or not; false with a message ("PATH: reason")
// when it cannot.
bool ZqvstReadFile(const std::string& path, std::string* bytes, std::string* error);
