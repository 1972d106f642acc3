// The locale values that formatted text reads, shared by the print, number
// and time families of the kernel (not exported).
//
// The values are a snapshot of the locale record (kernel/lang.h) taken when
// the kernel reads its locale values, so that a print copies a few
// separators instead of the whole record.  The snapshot follows
// ZqLang_GetInternationals(null, 0) and nothing else: a later change of the
// system's settings is not seen before that call.
//
// Threads: any thread may read; a refresh replaces the values under a lock.
#pragma once

#include "base/types.h"

struct tZQINTERNATIONALS;

// The separators and number settings of the user's locale.  Texts are
// terminated within their arrays.
struct tZQPRINTLOCALE {
  WCHAR decimal[8];       // decimal sign: "." or ","
  WCHAR thousand[8];      // group separator: "," "." or U+00A0; may be empty
  WCHAR negative[8];      // the locale's minus sign
  WCHAR list[8];          // list separator
  WCHAR time[8];          // time separator
  WCHAR smpteWhole[8];    // between hours, minutes and seconds of a timecode
  WCHAR smpteNonDrop[8];  // before the frames of a non-drop timecode
  WCHAR smpteDrop[8];     // before the frames of a drop-frame timecode
  WCHAR musicMeasure[8];  // between measure and beat
  WCHAR musicBeat[8];     // between beat and tick
  UINT grouping;          // digits in a group, 0 for none
  UINT leadingZero;       // 1 when 0.5 is not written ".5"
};

// Copies the present values into *locale.  Before any refresh the kernel's
// locale record is read (and built when it was never built).
void ZqPrintF_GetLocale(tZQPRINTLOCALE* locale);

// Takes the values of `record` as the present ones and registers the print
// tokens that name them ("SMPTE.Whole", "MusicTime.Label", ...) when the
// token list exists.  Called by the language layer whenever it has read the
// locale values again; must not be called with the record's lock held.
void ZqPrintF_LocaleChanged(const tZQINTERNATIONALS& record);

// How ZqFmt_FormatDigits lays out a number (see ZqFormatNumber and its
// siblings in kernel/numtext.h).
enum class ZqDigitsForm {
  Grouped,       // grouping, no decimals
  Decimal,       // decimal sign, the text's decimals, no grouping
  GroupDecimal,  // both
};

// The shared engine of ZqFormatNumber, ZqFormatDecimalNumber and
// ZqFormatGroupDecimalNumber under the given locale values.  `decimals`
// counts for GroupDecimal only (-1: as many as the text has).  Answers the
// length written, or 0 with an empty `dst` when the text does not fit in
// `size` characters.
int ZqFmt_FormatDigits(const tZQPRINTLOCALE& locale, ZqDigitsForm form, LPCWSTR digits, int decimals,
                       LPWSTR dst, int size);
