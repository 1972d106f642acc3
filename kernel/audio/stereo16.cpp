// Whether the wide 16-bit stereo routines may run.  Built without the wide
// instructions: this is what decides, on any processor, that they are not
// to be used.
#include "kernel/audio/cpu_support.h"
#include "kernel/audio/stereo16.h"

bool ZqAudio_WideStereo16Available() {
  // Narrower routines asked for (as when variants are tried against each
  // other) hold for these too.
  constexpr DWORD kNeeded = ZQCPU_AVX2 | ZQCPU_AVX512;
  return ZqGetCPUSupport(kNeeded) == kNeeded;
}
