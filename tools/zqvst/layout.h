// Rearranging the channels of audio files around a render, for plug-ins
// whose inputs do not match the input's channels: one channel picked out
// for a plug-in with one input (run once per channel), a mono channel
// copied for a plug-in with two, and the per-channel results interleaved
// again.  Files are read and written a block at a time; samples keep their
// type and value exactly.
#pragma once

#include <string>
#include <vector>

#include "tools/zqvst/host.h"

// Channels of the audio file at `path`; 0 when it cannot be read.
int ZqvstFileChannels(const std::string& path);

// Writes `output` as a WAV file of the input's sample type whose channel k
// is channel map[k] of `input`.
bool ZqvstRemapChannels(const std::string& input, const std::vector<int>& map, const std::string& output,
                        ZqvstFailure* failure);

// Writes `output` with channel k taken from the first channel of
// inputs[k], as long as the longest input (shorter ones end in silence),
// in the container its extension names and the first input's sample type.
bool ZqvstInterleave(const std::vector<std::string>& inputs, const std::string& output, ZqvstFailure* failure);

// Writes `output` (container by extension, the input's sample type) with
// `channels` channels from `input`: a mono input copied to each, or every
// channel mixed down (averaged) to one.  False with a failure naming what
// works for any other pair of counts.
bool ZqvstFitChannels(const std::string& input, int channels, const std::string& output, ZqvstFailure* failure);

// How a plug-in with `pluginInputs` inputs is fed an input of
// `inputChannels` channels.
enum class ZqvstLayout {
  kDirect,      // as it is (missing inputs of the plug-in hear silence)
  kDuplicate,   // the mono input on both of the plug-in's inputs
  kPerChannel,  // one filter of a mono plug-in for each channel
  kRefused,     // more channels than the plug-in takes
};
ZqvstLayout ZqvstPlanLayout(int inputChannels, int pluginInputs);
