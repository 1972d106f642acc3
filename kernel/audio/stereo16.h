// The 16-bit stereo fast path of a plug-in's block.
//
// The filter's ordinary case is a 16-bit stereo stream through a plug-in with
// two inputs and two outputs.  On a processor with 512-bit vectors these
// routines do its copy-in and copy-out for less than the general routines,
// with exactly their values (in: v / 32768; out: the scaled value clipped at
// the top, rounded in the current mode, saturated at the bottom, NaN as 0):
// - the input planes and their dry copies in the outputs are written in one
//   pass from the same registers;
// - the input planes are written with aligned 64-byte stores (so are the dry
//   copies when their block lies alike), since a store that straddles two
//   cache lines costs two and the blocks lie wherever the allocator put
//   them;
// - bytes that stand to be cleared are read during that pass, which leaves
//   the loads idle, so that they are written only when one of them is not
//   zero.  Nothing but a plug-in that writes behind its frames, or a larger
//   block before, leaves anything there.
// Everything else takes the general routines of convert.h.
#pragma once

#include <cstddef>

// Whether the routines below may run: the processor has AVX-512F and BW, and
// the kernel is not held to narrower routines (ZqSetCPUSupportAllowed).
bool ZqAudio_WideStereo16Available();

// Interleaved 16-bit stereo (`frames` frames) into the two input planes and
// their dry copies.  Meanwhile reads the `pad` bytes at `inPad` and at
// `outPad` (null with `pad` 0) and answers whether they are all zero.
bool ZqAudio_SplitStereo16Dry(float* inLeft, float* inRight, float* dryLeft, float* dryRight, const void* source,
                              size_t frames, const unsigned char* inPad, const unsigned char* outPad, size_t pad);

// Zeroes `n` bytes from `p`, writing them only when one is not zero yet.
void ZqAudio_ClearIfNotZero(unsigned char* p, size_t n);

// Two planes into interleaved 16-bit stereo.
void ZqAudio_MergeStereo16(void* destination, const float* left, const float* right, size_t frames);

#if !(defined(__x86_64__) || defined(_M_X64))
// Other processors have no wide path; the routines are never reached.
inline bool ZqAudio_WideStereo16Available() { return false; }
inline bool ZqAudio_SplitStereo16Dry(float*, float*, float*, float*, const void*, size_t, const unsigned char*,
                                     const unsigned char*, size_t) {
  return true;
}
inline void ZqAudio_ClearIfNotZero(unsigned char*, size_t) {}
inline void ZqAudio_MergeStereo16(void*, const float*, const float*, size_t) {}
#endif
