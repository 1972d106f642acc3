// The media parameter interfaces through which a host reads, sets and
// automates a filter's parameters: IMediaParamInfo, IMediaParams,
// IMediaParamsSetUICallback and the host's IMediaParamsUICallback, with their
// records and constants.
//
// These are published interfaces: identifiers, slot orders, argument orders
// and record layouts are the published ones, so that a host built against its
// own declarations calls a filter of ours through the vtable unchanged.
//
// Times are REFERENCE_TIME, 100 ns units.  Values (MP_DATA) are in the
// parameter's outward form: 0..100 for a continuous parameter, 0 or 1 for a
// switch, the integer range for a stepped one.
#pragma once

#include <cstddef>

#include "kernel/com/unknown.h"
#include "base/types.h"

typedef LONGLONG REFERENCE_TIME;
typedef float MP_DATA;
typedef DWORD MP_CAPS;
typedef DWORD MP_FLAGS;
typedef DWORD MP_TIMEDATA;

// Kind of a parameter.
typedef int MP_TYPE;
constexpr MP_TYPE MPT_INT = 0;
constexpr MP_TYPE MPT_FLOAT = 1;
constexpr MP_TYPE MPT_BOOL = 2;
constexpr MP_TYPE MPT_ENUM = 3;
constexpr MP_TYPE MPT_MAX = 4;

// Shape of an envelope segment between its two values.
typedef int MP_CURVE_TYPE;
constexpr MP_CURVE_TYPE MP_CURVE_JUMP = 0x1;
constexpr MP_CURVE_TYPE MP_CURVE_LINEAR = 0x2;
constexpr MP_CURVE_TYPE MP_CURVE_SQUARE = 0x4;
constexpr MP_CURVE_TYPE MP_CURVE_INVSQUARE = 0x8;
constexpr MP_CURVE_TYPE MP_CURVE_SINE = 0x10;

// Curves a parameter supports (MP_PARAMINFO::mopCaps).
constexpr MP_CAPS MP_CAPS_CURVE_JUMP = MP_CURVE_JUMP;
constexpr MP_CAPS MP_CAPS_CURVE_LINEAR = MP_CURVE_LINEAR;
constexpr MP_CAPS MP_CAPS_CURVE_SQUARE = MP_CURVE_SQUARE;
constexpr MP_CAPS MP_CAPS_CURVE_INVSQUARE = MP_CURVE_INVSQUARE;
constexpr MP_CAPS MP_CAPS_CURVE_SINE = MP_CURVE_SINE;

// Segment flags (MP_ENVELOPE_SEGMENT::flags).
constexpr MP_FLAGS MPF_ENVLP_STANDARD = 0x0;
constexpr MP_FLAGS MPF_ENVLP_BEGIN_CURRENTVAL = 0x2;
constexpr MP_FLAGS MPF_ENVLP_BEGIN_NEUTRALVAL = 0x4;
// Punch-in flags of the published API.
constexpr MP_FLAGS MPF_PUNCHIN_REFTIME = 0x0;
constexpr MP_FLAGS MPF_PUNCHIN_NOW = 0x1;
constexpr MP_FLAGS MPF_PUNCHIN_STOPPED = 0x2;

// Time formats.  Envelope times here are always GUID_TIME_REFERENCE units.
inline constexpr GUID GUID_TIME_REFERENCE = ZqGuid("{93AD712B-DAA0-4FFE-BC81-B0CE500FCDD9}");
inline constexpr GUID GUID_TIME_MUSIC = ZqGuid("{0574C49D-5B04-4B15-A542-AE282030117B}");
inline constexpr GUID GUID_TIME_SAMPLES = ZqGuid("{A8593D05-0C43-4984-9A63-97AF9E02C4C0}");

// Description of one parameter: 148 bytes.
struct MP_PARAMINFO {
  MP_TYPE mpType;
  MP_CAPS mopCaps;
  MP_DATA mpdMinValue;
  MP_DATA mpdMaxValue;
  MP_DATA mpdNeutralValue;
  WCHAR szUnitText[32];
  WCHAR szLabel[32];
};
static_assert(offsetof(MP_PARAMINFO, mpdMinValue) == 8);
static_assert(offsetof(MP_PARAMINFO, mpdNeutralValue) == 16);
static_assert(offsetof(MP_PARAMINFO, szUnitText) == 20);
static_assert(offsetof(MP_PARAMINFO, szLabel) == 84);
static_assert(sizeof(MP_PARAMINFO) == 148);

// One envelope segment: 32 bytes.  The segment covers [rtStart, rtEnd).
struct MP_ENVELOPE_SEGMENT {
  REFERENCE_TIME rtStart;
  REFERENCE_TIME rtEnd;
  MP_DATA valStart;
  MP_DATA valEnd;
  MP_CURVE_TYPE iCurve;
  MP_FLAGS flags;
};
static_assert(offsetof(MP_ENVELOPE_SEGMENT, rtEnd) == 8);
static_assert(offsetof(MP_ENVELOPE_SEGMENT, valStart) == 16);
static_assert(offsetof(MP_ENVELOPE_SEGMENT, valEnd) == 20);
static_assert(offsetof(MP_ENVELOPE_SEGMENT, iCurve) == 24);
static_assert(offsetof(MP_ENVELOPE_SEGMENT, flags) == 28);
static_assert(sizeof(MP_ENVELOPE_SEGMENT) == 32);

// What a filter tells about its parameters.
class IMediaParamInfo : public IUnknown {
 public:
  using Base = IUnknown;
  static constexpr GUID kIid = ZqGuid("{6D6CBB60-A223-44AA-842F-A2F06750BE6D}");

  virtual HRESULT STDMETHODCALLTYPE GetParamCount(DWORD* count) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetParamInfo(DWORD index, MP_PARAMINFO* info) = 0;
  // One CoTaskMemAlloc block that the caller frees: label, NUL, unit, NUL,
  // the enumeration names each followed by NUL, and a final NUL.
  virtual HRESULT STDMETHODCALLTYPE GetParamText(DWORD index, WCHAR** text) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetNumTimeFormats(DWORD* count) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetSupportedTimeFormat(DWORD index, GUID* format) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetCurrentTimeFormat(GUID* format, MP_TIMEDATA* data) = 0;
};

// Values and envelopes of a filter's parameters.
class IMediaParams : public IUnknown {
 public:
  using Base = IUnknown;
  static constexpr GUID kIid = ZqGuid("{6D6CBB61-A223-44AA-842F-A2F06750BE6E}");

  virtual HRESULT STDMETHODCALLTYPE GetParam(DWORD index, MP_DATA* value) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetParam(DWORD index, MP_DATA value) = 0;
  virtual HRESULT STDMETHODCALLTYPE AddEnvelope(DWORD index, DWORD count, MP_ENVELOPE_SEGMENT* segments) = 0;
  // index 0xFFFFFFFF: every parameter.
  virtual HRESULT STDMETHODCALLTYPE FlushEnvelope(DWORD index, REFERENCE_TIME start, REFERENCE_TIME end) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetTimeFormat(GUID format, MP_TIMEDATA data) = 0;
};

// The host's user-interface callback: told when a parameter is taken hold of,
// moved and let go, with outward values.
class IMediaParamsUICallback : public IUnknown {
 public:
  using Base = IUnknown;
  static constexpr GUID kIid = ZqGuid("{B8E0480A-E08D-4A5D-9228-248017032368}");

  virtual HRESULT STDMETHODCALLTYPE ParamsBeginCapture(DWORD* indexes, DWORD count) = 0;
  virtual HRESULT STDMETHODCALLTYPE ParamsChanged(DWORD* indexes, DWORD count, MP_DATA* values) = 0;
  virtual HRESULT STDMETHODCALLTYPE ParamsEndCapture(DWORD* indexes, DWORD count) = 0;
};

// How the host hands a filter its callback.
class IMediaParamsSetUICallback : public IUnknown {
 public:
  using Base = IUnknown;
  static constexpr GUID kIid = ZqGuid("{F5011136-C416-48B9-8C35-E7C5F9AA6FDF}");

  // Takes a reference on the new callback (null: none), releases the old.
  virtual HRESULT STDMETHODCALLTYPE SetUICallback(IMediaParamsUICallback* callback) = 0;
};

inline constexpr GUID IID_IMediaParamInfo = IMediaParamInfo::kIid;
inline constexpr GUID IID_IMediaParams = IMediaParams::kIid;
inline constexpr GUID IID_IMediaParamsUICallback = IMediaParamsUICallback::kIid;
inline constexpr GUID IID_IMediaParamsSetUICallback = IMediaParamsSetUICallback::kIid;
