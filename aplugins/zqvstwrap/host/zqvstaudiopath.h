// The effect's audio path: the routines that carry the host's interleaved
// samples into the plug-in's float channels and back.
//
// The routines are chosen once per effect for a stream type, a plug-in type
// and the plug-in's channel counts, and kept in the effect; ProcessAudio
// chooses again when any of the four changed.  A block costs no lookup.
//
// Thread: the streaming thread that calls ProcessAudio; SetSampleType comes
// from the graph's thread while no block runs.  No lock.
#pragma once

#include "base/types.h"
#include "kernel/audio/convert.h"
#include "kernel/audio/waveformat.h"

struct ZqVstAudioRoutines {
  ZQSAMPLETYPE stream;  // the host's sample type
  ZQSAMPLETYPE plugin;  // always 32-bit float today
  int inputs;           // the plug-in's channel counts the choice was made for
  int outputs;
  // One channel at a time; null when the kernel has no routine for the pair,
  // and then the plug-in's channels are left as the clear left them.
  ZqAudioCopyChannelsFunction copyIn;
  ZqAudioCopyChannelsFunction copyOut;
  // A stereo stream into inputs 0 and 1, and outputs 0 and 1 into a stereo
  // stream, in one pass; null where the plug-in lacks the channels or the
  // kernel the routine.  Each gives what the copy routine gives per channel.
  ZqAudioDeInterleaveFunction split;
  ZqAudioInterleaveFunction merge;
  // 16-bit stereo through two inputs and two outputs takes the kernel's wide
  // pass (kernel/audio/stereo16.h), which also writes the dry copy.
  bool wideIn;
  bool wideOut;
};

// The routines for one format and channel layout.  Pure: asks only the
// kernel's tables and the processor's features.
ZqVstAudioRoutines ZqVstChooseAudioRoutines(ZQSAMPLETYPE stream, ZQSAMPLETYPE plugin, int inputs, int outputs);

inline bool ZqVstAudioRoutinesFit(const ZqVstAudioRoutines& r, int inputs, int outputs) {
  return r.inputs == inputs && r.outputs == outputs;
}
