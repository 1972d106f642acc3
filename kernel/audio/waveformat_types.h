// The platform's published wave format records, WAVEFORMATEX (18 bytes) and
// WAVEFORMATEXTENSIBLE (40 bytes), with the format tags and sub-format
// identifiers the system reads.  On Windows they come from the system headers.
#pragma once

#include "kernel/com/guid.h"
#include "base/types.h"

#if defined(_WIN32)
#include <mmreg.h>
#include <ks.h>
#include <ksmedia.h>
#else

constexpr WORD WAVE_FORMAT_PCM = 0x0001;
constexpr WORD WAVE_FORMAT_IEEE_FLOAT = 0x0003;
constexpr WORD WAVE_FORMAT_EXTENSIBLE = 0xFFFE;

#pragma pack(push, 1)
struct WAVEFORMATEX {
  WORD wFormatTag;
  WORD nChannels;
  DWORD nSamplesPerSec;
  DWORD nAvgBytesPerSec;
  WORD nBlockAlign;
  WORD wBitsPerSample;
  WORD cbSize;  // bytes of extra data behind these 18
};

struct WAVEFORMATEXTENSIBLE {
  WAVEFORMATEX Format;
  union {
    WORD wValidBitsPerSample;
    WORD wSamplesPerBlock;
    WORD wReserved;
  } Samples;
  DWORD dwChannelMask;
  GUID SubFormat;
};
#pragma pack(pop)

static_assert(sizeof(WAVEFORMATEX) == 18);
static_assert(offsetof(WAVEFORMATEX, nSamplesPerSec) == 4 && offsetof(WAVEFORMATEX, nAvgBytesPerSec) == 8);
static_assert(offsetof(WAVEFORMATEX, nBlockAlign) == 12 && offsetof(WAVEFORMATEX, cbSize) == 16);
static_assert(sizeof(WAVEFORMATEXTENSIBLE) == 40);
static_assert(offsetof(WAVEFORMATEXTENSIBLE, dwChannelMask) == 20 && offsetof(WAVEFORMATEXTENSIBLE, SubFormat) == 24);

typedef WAVEFORMATEX* PWAVEFORMATEX;
typedef WAVEFORMATEX* LPWAVEFORMATEX;
typedef WAVEFORMATEXTENSIBLE* PWAVEFORMATEXTENSIBLE;

inline constexpr GUID KSDATAFORMAT_SUBTYPE_PCM = ZqGuid("{00000001-0000-0010-8000-00AA00389B71}");
inline constexpr GUID KSDATAFORMAT_SUBTYPE_IEEE_FLOAT = ZqGuid("{00000003-0000-0010-8000-00AA00389B71}");

#endif  // !_WIN32

// The bytes an extensible format carries behind its first 18.
constexpr WORD ZQ_WFE_EXTRA_SIZE = sizeof(WAVEFORMATEXTENSIBLE) - sizeof(WAVEFORMATEX);
