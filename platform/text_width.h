// Measuring text as it will be drawn: the width in pixels of a run of text
// in a font, for the routines that shorten texts to fit a width.
//
// A text device is a font (a font description such as "Sans 9") at 96 dots
// per inch; the null device is the user-interface font, "Sans 8".  Widths
// come from the system's text layout library, which is loaded at the first
// measurement, so that programs that never measure never load it.  When it
// cannot be loaded every character measures 7 pixels (the average width of
// the user-interface font), so callers always get a width that grows with
// the text.
//
// Threads: every function may be called from any thread; measurements are
// serialised inside.
#pragma once

#include "base/types.h"

struct tZQTEXTDEVICE;
typedef tZQTEXTDEVICE* HZQTEXTDEVICE;

// A device for the font `description` (UTF-8; null: the user-interface
// font).  Null when memory runs out.  Close it with ZqTextDevice_Close.
ZQ_API HZQTEXTDEVICE ZqTextDevice_Open(const char* description);
// Null is fine.
ZQ_API void ZqTextDevice_Close(HZQTEXTDEVICE device);

// The width in pixels of the first `length` characters of `text` (-1: up
// to the terminator) drawn on one line with `device`'s font.  0 for an
// empty or null text.
ZQ_API int ZqTextDevice_Width(HZQTEXTDEVICE device, const WCHAR* text, int length);
