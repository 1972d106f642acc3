// The routine sets of the processor variants, internal to the audio kernel.
// Each set answers, per pair, its own routine or null when it has none; the
// dispatcher walks the sets in order and takes the first answer.
#pragma once

#include "kernel/audio/convert.h"

namespace zq::audio {

struct RoutineSet {
  const char* name;
  DWORD features;  // all of these bits must be in the processor word
  ZqAudioCopyFunction (*copy)(ZQSAMPLETYPE dst, ZQSAMPLETYPE src);
  ZqAudioCopyChannelsFunction (*copyChannels)(ZQSAMPLETYPE dst, ZQSAMPLETYPE src);
  ZqAudioDeInterleaveFunction (*deInterleave)(ZQSAMPLETYPE dst, ZQSAMPLETYPE src);
  ZqAudioInterleaveFunction (*interleave)(ZQSAMPLETYPE dst, ZQSAMPLETYPE src);
};

extern const RoutineSet kPortableRoutines;
#if defined(__x86_64__) || defined(_M_X64)
#define ZQ_AUDIO_X86_VARIANTS 1
extern const RoutineSet kSse2Routines;
extern const RoutineSet kAvx2Routines;
extern const RoutineSet kAvx512Routines;
#endif

}  // namespace zq::audio
