// The parts of zqvst render that other commands and the tests share.
#pragma once

#include <cstdint>
#include <string>

#include "kernel/audio/waveformat.h"
#include "tools/zqvst/host.h"

// A generated signal in `type`, every channel alike, made piece by piece
// as a stream plays: "sine" (440 Hz at -6 dBFS), "noise" (-6 dBFS, from a
// fixed seed), "impulse" (full scale at frame 0) or "silence".  Pieces may
// be asked for in any order; each frame is the same whichever piece holds
// it.  Going on from where the last piece ended costs only the new frames.
class ZqvstSignal {
 public:
  // False for another name.
  bool Init(const std::string& signal, DWORD rate, int channels, ZQSAMPLETYPE type);
  // Bytes of one frame.
  size_t FrameBytes() const { return m_frameBytes; }
  // Writes the frames [first, first + frames) into `out`.
  void Fill(ULONGLONG first, ULONGLONG frames, BYTE* out);

 private:
  enum class Kind { Sine, Noise, Impulse, Silence };
  Kind m_kind = Kind::Silence;
  DWORD m_rate = 48000;
  int m_channels = 1;
  ZQSAMPLETYPE m_type = ZQSAMPLE_FLOAT32;
  size_t m_frameBytes = 4;
  // The noise generator's state before frame m_noiseFrame.
  ULONGLONG m_noiseFrame = 0;
  uint32_t m_noiseState = 0;
};

// The name a job writes under before it is sure of its result: hidden, in
// the output's folder (so that the rename stays on one file system), with
// the output's extension (which decides the container).
std::string ZqvstTemporaryPath(const std::string& output);
// Renames the finished file over the output; removes it when that fails.
bool ZqvstCommitOutput(const std::string& temporary, const std::string& output, ZqvstFailure* failure);
