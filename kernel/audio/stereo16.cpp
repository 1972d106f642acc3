// Whether the wide 16-bit stereo routines may run.  Built without the wide
// instructions: this is what decides, on any processor, that they are not
// to be used.
#include "kernel/audio/cpu_support.h"
#include "kernel/audio/stereo16.h"

bool ZqAudio_WideStereo16Available() {
  static const bool present = [] {
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw");
  }();
  // Narrower routines asked for (as when variants are tried against each
  // other) hold for these too.
  return present && ZqGetCPUSupport(ZQCPU_AVX2) != 0;
}
