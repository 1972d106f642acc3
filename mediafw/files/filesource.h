// A source filter over an audio file: the memory source's pin, times and
// streaming, fed from a file that the codec library reads (WAV, AIFF, FLAC
// and the other containers it knows).
//
// Open opens the file and learns its format; the frames are read as the
// graph pulls them, one sample's worth at a time on the delivering thread,
// so the source holds a few samples' worth of audio whatever the file's
// length.  They come converted to the chosen sample format, at the file's
// rate and channel count; the output type is a WAVEFORMATEX, or a
// WAVEFORMATEXTENSIBLE when asked.  Every start of the stream plays the file
// from its first frame.  Everything else (frames per sample, start time,
// threading, waiting for the end) is the memory source's; see
// mediafw/memsource.h.  Open while stopped; the file stays open until the
// next Open or the source goes.
#pragma once

#include "kernel/audio/waveformat.h"
#include "mediafw/memsource.h"

class CZqFileSource : public CZqMemorySource {
 public:
  // Open's choice of the sample format the file is stored in.
  static constexpr ZQSAMPLETYPE kFileFormat = ZQSAMPLE_NONE;

  explicit CZqFileSource(IUnknown* outer = nullptr) : CZqMemorySource(outer) {}
  ~CZqFileSource() override;
  // A new source with one reference.
  static HRESULT Create(CZqFileSource** source);

  // Opens `path` to be read as samples of `type`: ZQSAMPLE_PCM8,
  // ZQSAMPLE_PCM16, ZQSAMPLE_PCM24 (3 bytes packed), ZQSAMPLE_PCM32,
  // ZQSAMPLE_FLOAT32 or ZQSAMPLE_FLOAT64, or kFileFormat: the one of these
  // that holds the file's samples as they are (8 and 16-bit integers as
  // PCM16, 24 as PCM24, 32 as PCM32, doubles as FLOAT64, anything else as
  // FLOAT32).  Integer files read into an integer type of at least their
  // width keep their exact values; float files read into integers are
  // scaled to full range.
  //   S_OK;
  //   ZQ_E_OPEN_FILE  the file cannot be opened (missing, not readable, a
  //                   folder) --
  //                   the codec library keeps the system's reason to itself,
  //                   so no platform error number can be given;
  //   ZQ_E_BAD_FILE   not an audio file the codec library reads (an empty
  //                   file too), or more channels than a wave format holds;
  //   E_INVALIDARG    another sample type;  E_OUTOFMEMORY.
  // On failure the source keeps what it had before.
  //
  // A file that holds fewer frames than its header says plays what it
  // holds; a read that fails midway ends the stream there, like the end of
  // the file.
  HRESULT Open(LPCWSTR path, ZQSAMPLETYPE type = kFileFormat, bool extensible = false);
  // Frames of the file opened last, as its header tells them; the frames a
  // stream played are FramesDelivered.
  LONGLONG FileFrames() const { return m_fileFrames; }
  // The sample format the file is read as (kFileFormat resolved).
  ZQSAMPLETYPE SampleType() const { return m_type; }

 protected:
  HRESULT ReadFrames(ULONGLONG first, ULONG frames, BYTE* out, ULONG* got) override;
  LONGLONG StreamFrames(bool* exact) override;

 private:
  struct Reader;
  Reader* m_reader = nullptr;  // the open file; used by the delivering thread
  LONGLONG m_fileFrames = 0;
  ZQSAMPLETYPE m_type = ZQSAMPLE_NONE;
};
