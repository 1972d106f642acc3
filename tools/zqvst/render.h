// The parts of zqvst render that other commands share.
#pragma once

#include <string>
#include <vector>

#include "kernel/audio/waveformat.h"
#include "tools/zqvst/host.h"

// `frames` of a generated signal in `type`, every channel alike: "sine"
// (440 Hz at -6 dBFS), "noise" (-6 dBFS, from a fixed seed), "impulse" (full
// scale at frame 0) or "silence".  False for another name.
bool ZqvstGenerateSignal(const std::string& signal, DWORD rate, int channels, LONGLONG frames, ZQSAMPLETYPE type,
                         std::vector<BYTE>* bytes);

// The name a job writes under before it is sure of its result: hidden, in
// the output's folder (so that the rename stays on one file system), with
// the output's extension (which decides the container).
std::string ZqvstTemporaryPath(const std::string& output);
// Renames the finished file over the output; removes it when that fails.
bool ZqvstCommitOutput(const std::string& temporary, const std::string& output, ZqvstFailure* failure);
