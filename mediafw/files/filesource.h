// A source filter over an audio file: the memory source's pin, times and
// streaming, fed from a file that the codec library reads (WAV, AIFF, FLAC
// and the other containers it knows).
//
// Open reads the whole file, converted to the chosen sample format, at the
// file's rate and channel count; the output type is a WAVEFORMATEX, or a
// WAVEFORMATEXTENSIBLE when asked.  Everything else (frames per sample,
// start time, threading, waiting for the end) is the memory source's; see
// mediafw/memsource.h.  Open while stopped.
#pragma once

#include "kernel/audio/waveformat.h"
#include "mediafw/memsource.h"

class CZqFileSource : public CZqMemorySource {
 public:
  explicit CZqFileSource(IUnknown* outer = nullptr) : CZqMemorySource(outer) {}
  // A new source with one reference.
  static HRESULT Create(CZqFileSource** source);

  // Reads `path` as samples of `type`: ZQSAMPLE_PCM8, ZQSAMPLE_PCM16, ZQSAMPLE_PCM24 (3 bytes
  // packed), ZQSAMPLE_PCM32, ZQSAMPLE_FLOAT32 or ZQSAMPLE_FLOAT64.  Integer
  // files read into an integer type of at least their width keep their exact
  // values; float files read into integers are scaled to full range.
  //   S_OK;
  //   ZQ_E_OPEN_FILE  the file cannot be opened (missing, not readable, a
  //                   folder) --
  //                   the codec library keeps the system's reason to itself,
  //                   so no platform error number can be given;
  //   ZQ_E_BAD_FILE   not an audio file the codec library reads (an empty
  //                   file too), or more channels than a wave format holds;
  //   E_INVALIDARG    another sample type;  E_OUTOFMEMORY.
  // On failure the source keeps what it had before.
  HRESULT Open(LPCWSTR path, ZQSAMPLETYPE type, bool extensible = false);
  // Frames of the file opened last.
  LONGLONG FileFrames() const { return m_fileFrames; }

 private:
  LONGLONG m_fileFrames = 0;
};
