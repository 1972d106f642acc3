// SMPTE timecode: frame counts, timecode labels and nano time (signed 100 ns
// units) at the six rates of the kernel.
//
//   code 1  30 frames a second
//   code 2  30 drop frame: labels of 30, running at 30000/1001; frames 0 and
//           1 of every minute are skipped except in every tenth minute, so
//           that the label keeps up with the clock (00:01:00;02 follows
//           00:00:59;29)
//   code 3  25 (EBU)
//   code 4  24 (film)
//   code 5  29.97 non-drop: labels of 30, running at 30000/1001
//   code 6  23.976: labels of 24, running at 24000/1001
//
// A frame starts at the nano time that is the first at or after its exact
// start, so that nano time -> frame -> nano time -> frame gives the same
// frame.  Labels wrap after 24 hours; frame counts and nano times do not.
// Negative times and frames count as their magnitude (the sign is the
// caller's to show).  Plain functions of their arguments: any thread.
#pragma once

#include "base/types.h"

// Hours, minutes, seconds and frames, and the code that they are read in
// (0: none, 1 to 6 as above).
struct _zqhmsf {
  DWORD code;
  DWORD hours;
  DWORD minutes;
  DWORD seconds;
  DWORD frames;
};
static_assert(sizeof(_zqhmsf) == 20);

constexpr DWORD ZQSMPTE_30 = 1;
constexpr DWORD ZQSMPTE_30_DROP = 2;
constexpr DWORD ZQSMPTE_25 = 3;
constexpr DWORD ZQSMPTE_24 = 4;
constexpr DWORD ZQSMPTE_2997 = 5;
constexpr DWORD ZQSMPTE_23976 = 6;

// 1 for the codes 1 to 6.
ZQ_API BOOL ZQSMPTE_IsValidCode(DWORD code);
// Frames a second as the clock runs (29.97002997... for codes 2 and 5);
// 0 for another code.
ZQ_API double ZQSMPTE_GetFrameRate(DWORD code);
// Frames a second as labels count them (30, 30, 25, 24, 30, 24); 0 for
// another code.
ZQ_API DWORD ZQSMPTE_GetNominalFrames(DWORD code);

// The label of frame `frame` (counted from 0) under hmsf->code.  Answers 0,
// or E_INVALIDARG for another code (the label is then zero).
ZQ_API HRESULT ZQSMPTE_FramesToSMPTE(LONGLONG frame, _zqhmsf* hmsf);
// The frame of a label.  Fields out of their range count as they stand; a
// drop-frame label that does not exist (00:01:00;00) reads as the frame
// before it.  -1 for another code.
ZQ_API LONGLONG ZQSMPTE_SMPTEToFrames(const _zqhmsf* hmsf);
// The frame that nano time `t` lies in, and the nano time that a frame
// starts at.  0 for another code.
ZQ_API LONGLONG ZQSMPTE_NanoToFrames(LONGLONG t, DWORD code);
ZQ_API LONGLONG ZQSMPTE_FramesToNano(LONGLONG frame, DWORD code);
// Both steps together.
ZQ_API HRESULT ZQSMPTE_NanoToSMPTE(LONGLONG t, _zqhmsf* hmsf);
ZQ_API LONGLONG ZQSMPTE_SMPTEToNano(const _zqhmsf* hmsf);
