// CZqPlugInParams and the parameter tables.  See zqvstparams.h.
#include "aplugins/zqvstwrap/filter/zqvstparams.h"

#include <cmath>
#include <cstring>

#include "base/status.h"
#include "kernel/com/taskmem.h"
#include "kernel/memory.h"

namespace {

// Envelope lists: array items standing in their slots, the header in the
// state itself, callable from any thread (the parameter lock guards them).
constexpr DWORD kEnvelopeListOptions = ZQLIST_ANYTHREAD | ZQLIST_INPLACE | ZQLIST_ARRAY;
// Most parameters never get an envelope: keep their lists small.
constexpr INT kEnvelopeInitialSlots = 4;

constexpr double kUnitsPerSecond = 10000000.0;

bool IsBlank(WCHAR c) { return c == u' ' || c == u'\t' || c == u'\r' || c == u'\n' || c == u'\v' || c == u'\f'; }

// Strips white space at both ends, in place.
void StripWhiteSpace(WCHAR* text) {
  size_t length = 0;
  while (text[length] != 0) ++length;
  size_t end = length;
  while (end > 0 && IsBlank(text[end - 1])) --end;
  size_t start = 0;
  while (start < end && IsBlank(text[start])) ++start;
  if (start > 0) std::memmove(text, text + start, (end - start) * sizeof(WCHAR));
  text[end - start] = 0;
}

// Copies at most `size` - 1 characters and terminates.
void CopyCut(WCHAR* destination, size_t size, const WCHAR* source) {
  size_t i = 0;
  if (source != nullptr) {
    for (; i + 1 < size && source[i] != 0; ++i) destination[i] = source[i];
  }
  destination[i] = 0;
}

bool EqualsNoCase(const WCHAR* text, const char* ascii) {
  for (; *ascii != 0; ++text, ++ascii) {
    WCHAR c = *text;
    if (c >= u'A' && c <= u'Z') c = static_cast<WCHAR>(c - u'A' + u'a');
    if (c != static_cast<WCHAR>(*ascii)) return false;
  }
  return *text == 0;
}

size_t BoundedLength(const WCHAR* text, size_t limit) {
  size_t n = 0;
  if (text != nullptr) {
    while (n < limit && text[n] != 0) ++n;
  }
  return n;
}

ZqVstEnvelopeItem* Item(const tZQLIST* list, int i) { return static_cast<ZqVstEnvelopeItem*>(ZqList_ArrayItem(list, i)); }

float ToOutward(const MP_PARAMINFO& mpi, float normalized) {
  return static_cast<float>((static_cast<double>(mpi.mpdMaxValue) - mpi.mpdMinValue) * normalized + mpi.mpdMinValue);
}

float ToNormalized(const MP_PARAMINFO& mpi, float value) {
  double span = static_cast<double>(mpi.mpdMaxValue) - mpi.mpdMinValue;
  // A parameter without a range (an integer range of one value) sits at 0.
  if (span == 0) return 0.0f;
  return static_cast<float>((static_cast<double>(value) - mpi.mpdMinValue) / span);
}

// The value inside a segment at T, with its rate and curvature.  Answers
// whether the step must report a change.
bool ComputeSegmentValue(ZqVstEnvelopeItem* item, REFERENCE_TIME t, double rateScale, ZqVstParamState* state) {
  const MP_ENVELOPE_SEGMENT& seg = item->segment;
  double s = seg.valStart;
  double d = static_cast<double>(seg.valEnd) - seg.valStart;
  double duration = static_cast<double>(seg.rtEnd - seg.rtStart) / kUnitsPerSecond;
  double f = (static_cast<double>(t - seg.rtStart) / kUnitsPerSecond) / duration;
  double l = duration * rateScale;
  double value;
  double rate = 0;
  double curvature = 0;
  switch (seg.iCurve) {
    case MP_CURVE_LINEAR:
      value = d * f + s;
      rate = d / l;
      break;
    case MP_CURVE_INVSQUARE:
      // The square mirrored: it starts steep and flattens towards the end.
      s = seg.valEnd;
      d = -d;
      f = f - 1;
      [[fallthrough]];
    case MP_CURVE_SQUARE:
      value = f * (d * f) + s;
      rate = (2 * f + 1 / l) * (d / l);
      curvature = 2 * d / (l * l);
      break;
    default:  // jump, sine and anything unknown hold the start value
      value = s;
      break;
  }
  state->value = static_cast<float>(value);
  state->rate = rate;
  state->curvature = curvature;
  bool changed = t == seg.rtStart || item->started == 0 || rate != 0 || curvature != 0;
  item->started = 1;
  return changed;
}

}  // namespace

// --- Tables ------------------------------------------------------------------------

void ZqVstMakeParamInfo(const VstParamProperties* properties, const WCHAR* unitLabel, DWORD offset,
                        ZqVstParamInfo* info) {
  std::memset(info, 0, sizeof *info);
  MP_PARAMINFO& mpi = info->mpi;
  const WCHAR* label = properties->shortLabel[0] != 0 ? properties->shortLabel : properties->label;
  size_t labelLimit = properties->shortLabel[0] != 0 ? 8 : 64;
  WCHAR labelCopy[65];
  size_t n = BoundedLength(label, labelLimit);
  std::memcpy(labelCopy, label, n * sizeof(WCHAR));
  labelCopy[n] = 0;
  CopyCut(mpi.szLabel, 32, labelCopy);
  info->automatable = 1;
  info->changeMask = 1;

  const LONG flags = properties->flags;
  if (flags & 0x1) {  // a switch
    mpi.mpType = MPT_BOOL;
    mpi.mopCaps = MP_CAPS_CURVE_JUMP;
    mpi.mpdMinValue = 0;
    mpi.mpdMaxValue = 1;
    mpi.mpdNeutralValue = 0;
    info->scaleHigh = 1;
    info->scaleLow = 0;
    info->storageType = ZQVSTPARAM_STORE_INT;
  } else if (flags & 0x2) {  // an integer range
    const LONG low = properties->minInteger;
    const LONG high = properties->maxInteger;
    if (low == 0 && high == 1) {
      mpi.mpType = MPT_BOOL;
      mpi.mopCaps = MP_CAPS_CURVE_JUMP;
    } else {
      mpi.mpType = MPT_INT;
      mpi.mopCaps = MP_CAPS_CURVE_JUMP | MP_CAPS_CURVE_LINEAR | MP_CAPS_CURVE_SQUARE | MP_CAPS_CURVE_INVSQUARE;
    }
    mpi.mpdMinValue = static_cast<float>(low);
    mpi.mpdMaxValue = static_cast<float>(high);
    LONG half = static_cast<LONG>((static_cast<LONGLONG>(high) - low) / 2);
    if (flags & 0x8) {  // integer steps: the neutral value sits on one
      LONG step = properties->stepInteger < 1 ? 1 : properties->stepInteger;
      half = (half / step) * step;
    }
    mpi.mpdNeutralValue = static_cast<float>(static_cast<LONGLONG>(low) + half);
    info->scaleHigh = low;
    info->scaleLow = high;
    info->storageType = ZQVSTPARAM_STORE_INT;
    // Plug-ins often label a plain number "amount" or "value": no unit.
    WCHAR unit[65];
    size_t un = BoundedLength(unitLabel, 64);
    if (un > 0) std::memcpy(unit, unitLabel, un * sizeof(WCHAR));
    unit[un] = 0;
    StripWhiteSpace(unit);
    if (!EqualsNoCase(unit, "amount") && !EqualsNoCase(unit, "value")) CopyCut(mpi.szUnitText, 32, unit);
  } else {  // continuous, shown as a percentage
    mpi.mpType = MPT_FLOAT;
    mpi.mopCaps = MP_CAPS_CURVE_JUMP | MP_CAPS_CURVE_LINEAR | MP_CAPS_CURVE_SQUARE | MP_CAPS_CURVE_INVSQUARE;
    mpi.mpdMinValue = 0;
    mpi.mpdMaxValue = 100;
    mpi.mpdNeutralValue = 50;
    info->scaleHigh = 100;
    info->scaleLow = 0;
    info->storageType = ZQVSTPARAM_STORE_FLOAT;
    CopyCut(mpi.szUnitText, 32, u"%");
    const float small = properties->smallStepFloat;
    if ((flags & 0x4) && small > 0) {
      // The middle of the range, rounded down onto the plug-in's fine step.
      mpi.mpdNeutralValue = small * static_cast<float>(static_cast<LONGLONG>(0.5f / small)) * 100.0f;
    }
  }
  info->storageOffset = offset;
}

HRESULT ZqVstBuildParamTables(IZqVstEffect* effect, LONG count, VstParamProperties** properties,
                              ZqVstParamInfo** infos) {
  if (properties == nullptr || infos == nullptr) return E_POINTER;
  *properties = nullptr;
  *infos = nullptr;
  if (count <= 0) return S_OK;
  if (effect == nullptr) return E_POINTER;
  auto* props = static_cast<VstParamProperties*>(ZqMemory_AllocZ(sizeof(VstParamProperties) * count));
  auto* table = static_cast<ZqVstParamInfo*>(ZqMemory_AllocZ(sizeof(ZqVstParamInfo) * count));
  if (props == nullptr || table == nullptr) {
    ZqMemory_Free(props);
    ZqMemory_Free(table);
    return E_OUTOFMEMORY;
  }
  DWORD offset = 0;
  for (LONG i = 0; i < count; ++i) {
    VstParamProperties record;
    std::memset(&record, 0, sizeof record);
    // Without the opcode the record stays zero: a plain continuous parameter.
    if (FAILED(effect->GetParameterProperties(i, &record))) std::memset(&record, 0, sizeof record);
    effect->GetParameterName(i, record.label, 64);
    record.label[63] = 0;
    StripWhiteSpace(record.label);
    if (record.label[0] == 0) CopyCut(record.label, 64, u"Unknown");
    props[i] = record;
    WCHAR unit[64] = {};
    if (!(record.flags & 0x1) && (record.flags & 0x2)) {
      effect->GetParameterLabel(i, unit, 64);
      unit[63] = 0;
    }
    ZqVstMakeParamInfo(&record, unit, offset, &table[i]);
    offset += 4;
  }
  *properties = props;
  *infos = table;
  return S_OK;
}

void ZqVstFreeParamTables(VstParamProperties* properties, ZqVstParamInfo* infos) {
  ZqMemory_Free(properties);
  ZqMemory_Free(infos);
}

// --- Life and set-up ---------------------------------------------------------------

CZqPlugInParams::CZqPlugInParams() : m_timeFormat(GUID_TIME_REFERENCE) { InitializeCriticalSection(&m_paramLock); }

CZqPlugInParams::~CZqPlugInParams() {
  FreeParams();
  if (m_callback != nullptr) m_callback->Release();
  m_callback = nullptr;
  DeleteCriticalSection(&m_paramLock);
}

void CZqPlugInParams::FreeParams() {
  ZqCriticalSectionLock lock(&m_paramLock);
  if (m_states != nullptr) {
    for (DWORD i = 0; i < m_paramCount; ++i) ZqList_Destroy(&m_states[i].envelope);
    ZqMemory_Free(m_states);
  }
  ZqMemory_Free(m_envelopeIndexes);
  m_envelopeIndexes = nullptr;
  m_states = nullptr;
  m_infos = nullptr;
  m_paramCount = 0;
  m_ready = FALSE;
  m_envelopeParams = 0;
  m_sweepPending = FALSE;
}

HRESULT CZqPlugInParams::InitParams(const ZqVstParamInfo* infos, DWORD count) {
  ZqCriticalSectionLock lock(&m_paramLock);
  FreeParams();
  m_timeFormat = GUID_TIME_REFERENCE;
  m_timeData = 0;
  m_sampleStart = 0;
  m_sampleStop = 0;
  m_clock = 0;
  m_samplesPerUnit = 0;
  m_unitsPerSample = 0;
  m_maxStep = ZQVSTPARAM_MAX_STEP;
  HRESULT hr = S_OK;
  if (count > 0) {
    if (infos == nullptr) {
      hr = E_POINTER;
    } else {
      m_states = static_cast<ZqVstParamState*>(ZqMemory_AllocZ(sizeof(ZqVstParamState) * count));
      m_envelopeIndexes = static_cast<DWORD*>(ZqMemory_AllocZ(sizeof(DWORD) * count));
      if (m_states == nullptr || m_envelopeIndexes == nullptr) hr = E_OUTOFMEMORY;
    }
    DWORD made = 0;
    for (; SUCCEEDED(hr) && made < count; ++made) {
      ZqVstParamState& state = m_states[made];
      state.value = infos[made].mpi.mpdNeutralValue;
      tZQLIST* list = &state.envelope;
      hr = ZqList_CreateExZ(&list, sizeof(ZqVstEnvelopeItem), kEnvelopeInitialSlots, 0, kEnvelopeListOptions, 0, 0, 0);
      if (FAILED(hr)) break;
    }
    if (FAILED(hr)) {
      if (m_states != nullptr) {
        for (DWORD i = 0; i < made; ++i) ZqList_Destroy(&m_states[i].envelope);
        ZqMemory_Free(m_states);
      }
      ZqMemory_Free(m_envelopeIndexes);
      m_envelopeIndexes = nullptr;
      m_states = nullptr;
      return hr;
    }
  }
  m_infos = infos;
  m_paramCount = count;
  m_ready = TRUE;
  return S_OK;
}

// --- IMediaParamInfo -----------------------------------------------------------------

HRESULT CZqPlugInParams::GetParamCount(DWORD* count) {
  if (count == nullptr) return E_POINTER;
  *count = m_paramCount;
  return S_OK;
}

HRESULT CZqPlugInParams::GetParamInfo(DWORD index, MP_PARAMINFO* info) {
  if (info == nullptr) return E_POINTER;
  ZqCriticalSectionLock lock(&m_paramLock);
  if (StateAt(index) == nullptr) return E_INVALIDARG;
  const ZqVstParamInfo& source = m_infos[index];
  *info = source.mpi;
  if (source.localised) {
    // No string table serves these parameters: a negative identifier reads
    // as an empty text, any other keeps the stored one.
    if (source.labelStringId < 0) info->szLabel[0] = 0;
    if (source.unitStringId < 0) info->szUnitText[0] = 0;
  }
  return S_OK;
}

HRESULT CZqPlugInParams::GetParamText(DWORD index, WCHAR** text) {
  if (text == nullptr) return E_POINTER;
  *text = nullptr;
  MP_PARAMINFO info;
  HRESULT hr = GetParamInfo(index, &info);
  if (FAILED(hr)) return hr;
  ZqCriticalSectionLock lock(&m_paramLock);
  // The count may have changed since GetParamInfo let go of the lock.
  const WCHAR* names = StateAt(index) != nullptr ? m_infos[index].enumText : nullptr;
  size_t label = BoundedLength(info.szLabel, 31);
  size_t unit = BoundedLength(info.szUnitText, 31);
  size_t enumLength = BoundedLength(names, 0x10000);
  size_t total = label + 1 + unit + 1 + (enumLength > 0 ? enumLength + 1 : 0) + 1;
  auto* block = static_cast<WCHAR*>(CoTaskMemAlloc(total * sizeof(WCHAR)));
  if (block == nullptr) return E_OUTOFMEMORY;
  WCHAR* p = block;
  std::memcpy(p, info.szLabel, label * sizeof(WCHAR));
  p += label;
  *p++ = 0;
  std::memcpy(p, info.szUnitText, unit * sizeof(WCHAR));
  p += unit;
  *p++ = 0;
  if (enumLength > 0) {
    for (size_t i = 0; i < enumLength; ++i) *p++ = names[i] == u',' ? WCHAR(0) : names[i];
    *p++ = 0;
  }
  *p = 0;
  lock.Unlock();
  *text = block;
  return S_OK;
}

HRESULT CZqPlugInParams::GetNumTimeFormats(DWORD* count) {
  if (count == nullptr) return E_POINTER;
  *count = 1;
  return S_OK;
}

HRESULT CZqPlugInParams::GetSupportedTimeFormat(DWORD index, GUID* format) {
  if (format == nullptr) return E_POINTER;
  if (index > 1) return E_INVALIDARG;
  *format = GUID_TIME_REFERENCE;
  return S_OK;
}

HRESULT CZqPlugInParams::GetCurrentTimeFormat(GUID* format, MP_TIMEDATA* data) {
  if (format == nullptr || data == nullptr) return E_POINTER;
  ZqCriticalSectionLock lock(&m_paramLock);
  *format = m_timeFormat;
  *data = m_timeData;
  return S_OK;
}

// --- IMediaParams ---------------------------------------------------------------------

HRESULT CZqPlugInParams::GetParam(DWORD index, MP_DATA* value) {
  if (value == nullptr) return E_POINTER;
  ZqCriticalSectionLock lock(&m_paramLock);
  const ZqVstParamState* state = StateAt(index);
  if (state == nullptr) return E_INVALIDARG;
  *value = state->value;
  return S_OK;
}

HRESULT CZqPlugInParams::SetParam(DWORD index, MP_DATA value) {
  ZqCriticalSectionLock lock(&m_paramLock);
  ZqVstParamState* state = StateAt(index);
  if (state == nullptr) return E_INVALIDARG;
  const MP_PARAMINFO& mpi = m_infos[index].mpi;
  // A host can't set a parameter against its running envelope.
  if (m_streaming && state->envelopeActive) return S_FALSE;
  if (!(value >= mpi.mpdMinValue && value <= mpi.mpdMaxValue)) return E_INVALIDARG;  // NaN too
  if (value == state->value) return S_FALSE;
  state->value = value;
  const float normalized = ToNormalized(mpi, value);
  IZqVstEffect* effect = m_paramEffect;
  lock.Unlock();

  HRESULT effectResult = effect != nullptr ? effect->SetParameter(static_cast<int>(index), normalized) : S_FALSE;
  OnParamSetByHost(index, effectResult);
  return S_OK;
}

HRESULT CZqPlugInParams::FlushOne(DWORD index, REFERENCE_TIME start, REFERENCE_TIME end) {
  tZQLIST* list = &m_states[index].envelope;
  const bool had = list->count > 0;
  HRESULT hr = S_OK;
  int i = 0;
  while (i < list->count) {
    const MP_ENVELOPE_SEGMENT& seg = Item(list, i)->segment;
    if (seg.rtEnd <= start) {  // wholly before the range
      ++i;
      continue;
    }
    if (seg.rtStart >= end) break;  // sorted: nothing further overlaps
    // Whole segments go: a trimmed one would change the shape the host drew.
    hr = ZqList_DeleteList(list, i, 1, 0);
    if (FAILED(hr)) break;
  }
  if (had && list->count == 0) {
    // The envelope is gone, and with it its claim on the parameter: a step
    // skips a parameter the user holds, so no later step would clear it.
    m_states[index].envelopeActive = 0;
    NoteListEmptied(index);
  }
  return hr;
}

void CZqPlugInParams::NoteListFilled(DWORD index) { m_envelopeIndexes[m_envelopeParams++] = index; }

void CZqPlugInParams::NoteListEmptied(DWORD index) {
  for (DWORD k = 0; k < m_envelopeParams; ++k) {
    if (m_envelopeIndexes[k] == index) {
      m_envelopeIndexes[k] = m_envelopeIndexes[--m_envelopeParams];
      break;
    }
  }
  // Its last step may have left it active or moving.
  m_sweepPending = TRUE;
}

HRESULT CZqPlugInParams::AddEnvelope(DWORD index, DWORD count, MP_ENVELOPE_SEGMENT* segments) {
  if (segments == nullptr) return E_POINTER;
  ZqCriticalSectionLock lock(&m_paramLock);
  ZqVstParamState* state = StateAt(index);
  if (state == nullptr || count == 0) return E_INVALIDARG;
  HRESULT hr = S_OK;
  for (DWORD k = 0; k < count && SUCCEEDED(hr); ++k) hr = FlushOne(index, segments[k].rtStart, segments[k].rtEnd);
  tZQLIST* list = &state->envelope;
  const bool had = list->count > 0;
  if (SUCCEEDED(hr)) {
    // The walk's limit is the list's length before the merge, as hosts have
    // always seen it merged.  A host sends segments in time order after what
    // it sent before (or over a flushed range), and then the limit never
    // cuts the walk short; an old segment lying between two new ones of one
    // call would end up after both.
    const int n = list->count;
    int p = 0;
    for (DWORD k = 0; k < count; ++k) {
      while (p < n && Item(list, p)->segment.rtStart < segments[k].rtStart) ++p;
      ZqVstEnvelopeItem item;
      std::memset(&item, 0, sizeof item);
      item.segment = segments[k];
      hr = ZqList_InsertList(list, p, &item, 1);
      if (FAILED(hr)) break;
      ++p;
    }
  }
  if (!had && list->count > 0) NoteListFilled(index);
  return hr;
}

HRESULT CZqPlugInParams::FlushEnvelope(DWORD index, REFERENCE_TIME start, REFERENCE_TIME end) {
  ZqCriticalSectionLock lock(&m_paramLock);
  if (index != 0xFFFFFFFF) return StateAt(index) != nullptr ? FlushOne(index, start, end) : E_INVALIDARG;
  HRESULT hr = S_OK;
  for (DWORD i = 0; i < m_paramCount && SUCCEEDED(hr); ++i) hr = FlushOne(i, start, end);
  return hr;
}

HRESULT CZqPlugInParams::SetTimeFormat(GUID format, MP_TIMEDATA /*data*/) {
  // Hosts that ask for reference time get a failure and the stored format
  // stays; any other format is taken, though envelopes stay in 100 ns units.
  if (IsEqualGUID(format, GUID_TIME_REFERENCE)) return E_FAIL;
  ZqCriticalSectionLock lock(&m_paramLock);
  m_timeFormat = format;
  m_timeData = 0;
  return S_OK;
}

HRESULT CZqPlugInParams::SetUICallback(IMediaParamsUICallback* callback) {
  if (callback != nullptr) callback->AddRef();
  ZqCriticalSectionLock lock(&m_paramLock);
  IMediaParamsUICallback* old = m_callback;
  m_callback = callback;
  lock.Unlock();
  if (old != nullptr) old->Release();
  return S_OK;
}

IMediaParamsUICallback* CZqPlugInParams::TakeCallback(DWORD index) {
  if (m_callback == nullptr || m_states[index].mute) return nullptr;
  m_callback->AddRef();
  return m_callback;
}

// --- Streaming ----------------------------------------------------------------------------

void CZqPlugInParams::StartParamStreaming(DWORD samplesPerSecond) {
  ZqCriticalSectionLock lock(&m_paramLock);
  m_streaming = TRUE;
  m_unitsPerSample = samplesPerSecond ? kUnitsPerSecond / samplesPerSecond : 0;
  m_samplesPerUnit = samplesPerSecond / kUnitsPerSecond;
}

void CZqPlugInParams::StopParamStreaming() {
  ZqCriticalSectionLock lock(&m_paramLock);
  m_streaming = FALSE;
  ClearEnvelopeState();
}

void CZqPlugInParams::ClearEnvelopeState() {
  ZqCriticalSectionLock lock(&m_paramLock);
  for (DWORD i = 0; i < m_paramCount; ++i) m_states[i].envelopeActive = 0;
}

void CZqPlugInParams::SetSampleTimes(REFERENCE_TIME start, REFERENCE_TIME stop) {
  ZqCriticalSectionLock lock(&m_paramLock);
  m_sampleStart = start;
  m_sampleStop = stop;
  m_clock = start;
}

DWORD CZqPlugInParams::StepParam(DWORD index, REFERENCE_TIME t, LONGLONG* left, double rateScale) {
  ZqVstParamState& state = m_states[index];
  // The envelope does not touch a parameter the user holds.
  if (state.captureOpen) return 0;
  state.envelopeActive = 0;
  tZQLIST* list = &state.envelope;
  const int count = list->count;
  if (count == 0) {
    if (state.rate != 0 || state.curvature != 0) {
      state.rate = 0;
      state.curvature = 0;
      return 2;
    }
    return 0;
  }
  if (state.segmentIndex >= static_cast<DWORD>(count)) state.segmentIndex = 0;

  DWORD result = 0;
  DWORD active = 0;
  int i = static_cast<int>(state.segmentIndex);
  int direction = 1;
  while (i < count) {
    ZqVstEnvelopeItem* item = Item(list, i);
    const MP_ENVELOPE_SEGMENT& seg = item->segment;
    if (t >= seg.rtStart && t < seg.rtEnd) {
      state.segmentIndex = static_cast<DWORD>(i);
      *left = seg.rtEnd - t;
      active = 1;
      result = 1;
      if (ComputeSegmentValue(item, t, rateScale, &state)) result |= 2;
      break;
    }
    if (t < seg.rtStart) {
      direction = -1;
    } else if (t > seg.rtEnd && direction < 0) {
      break;  // between two segments
    }
    i += direction;
    if (i < 0) break;
  }
  if (i >= count) {
    // Past the last segment: the value rests.  Landing exactly on its end
    // is the moment the curve finished.
    state.rate = 0;
    state.curvature = 0;
    if (Item(list, count - 1)->segment.rtEnd == t) result |= 2;
  }
  state.envelopeActive = active;
  if (state.captureEnded) {
    state.captureEnded = 0;
    result |= 2;
  }
  return result;
}

DWORD CZqPlugInParams::UpdateEnvelopes(DWORD frames, DWORD* changed, double rate) {
  DWORD flags = 0;
  DWORD answer;
  ZqCriticalSectionLock lock(&m_paramLock);
  if (m_envelopeParams == 0) {
    // No envelope anywhere.  Only after a list emptied can a parameter still
    // be marked active or moving, so the sweep over the parameters happens
    // once then and not at every chunk.
    if (m_sweepPending) {
      for (DWORD i = 0; i < m_paramCount; ++i) {
        ZqVstParamState& state = m_states[i];
        state.envelopeActive = 0;
        if (state.rate != 0 || state.curvature != 0) {
          state.rate = 0;
          state.curvature = 0;
          flags |= m_infos[i].changeMask;
        }
      }
      m_sweepPending = FALSE;
    }
    m_clock += static_cast<LONGLONG>(frames * m_unitsPerSample + 0.5);
    answer = frames;
  } else {
    LONGLONG limit = static_cast<LONGLONG>(frames * m_unitsPerSample + 0.5);
    const REFERENCE_TIME t = m_clock;
    // A parameter with an empty list at rest steps to no effect: unless a
    // sweep is pending, only those with envelopes are visited.
    const bool all = m_sweepPending != FALSE;
    const DWORD visits = all ? m_paramCount : m_envelopeParams;
    for (DWORD k = 0; k < visits; ++k) {
      const DWORD i = all ? k : m_envelopeIndexes[k];
      LONGLONG left = 0;
      DWORD step = StepParam(i, t, &left, rate);
      if ((step & 1) && left < limit) limit = left;
      if (step & 2) flags |= m_infos[i].changeMask;
    }
    m_sweepPending = FALSE;
    if (limit > m_maxStep) limit = m_maxStep;
    const LONGLONG oneSample = static_cast<LONGLONG>(m_unitsPerSample + 0.5);
    if (limit <= oneSample) limit = oneSample;  // a chunk is at least one sample
    m_clock += limit;
    answer = static_cast<DWORD>(limit * m_samplesPerUnit + 0.5);
  }
  lock.Unlock();
  if (changed != nullptr) *changed |= flags;
  return answer;
}

// --- Values in the plug-in's form -------------------------------------------------------------

HRESULT CZqPlugInParams::GetNormalizedParam(DWORD index, float* value) {
  if (value == nullptr) return E_POINTER;
  ZqCriticalSectionLock lock(&m_paramLock);
  const ZqVstParamState* state = StateAt(index);
  if (state == nullptr) return E_INVALIDARG;
  *value = ToNormalized(m_infos[index].mpi, state->value);
  return S_OK;
}

HRESULT CZqPlugInParams::SetNormalizedParam(DWORD index, float normalized) {
  ZqCriticalSectionLock lock(&m_paramLock);
  ZqVstParamState* state = StateAt(index);
  if (state == nullptr) return E_INVALIDARG;
  float value = ToOutward(m_infos[index].mpi, normalized);
  const bool moved = value != state->value;
  state->value = value;
  IMediaParamsUICallback* callback = moved ? TakeCallback(index) : nullptr;
  lock.Unlock();
  if (callback != nullptr) {
    DWORD indexes[1] = {index};
    MP_DATA values[1] = {value};
    callback->ParamsChanged(indexes, 1, values);  // a failure changes nothing here
    callback->Release();
  }
  return moved ? S_OK : S_FALSE;
}

HRESULT CZqPlugInParams::GetAllNormalizedParams(float* values) {
  const DWORD count = m_paramCount;
  if (count > 0 && values == nullptr) return E_POINTER;
  for (DWORD i = 0; i < count; ++i) {
    HRESULT hr = GetNormalizedParam(i, &values[i]);
    if (FAILED(hr)) return hr;
  }
  return S_OK;
}

HRESULT CZqPlugInParams::BeginParamCapture(DWORD index) { return ChangeCapture(index, true); }

HRESULT CZqPlugInParams::EndParamCapture(DWORD index) { return ChangeCapture(index, false); }

HRESULT CZqPlugInParams::ChangeCapture(DWORD index, bool open) {
  ZqCriticalSectionLock lock(&m_paramLock);
  ZqVstParamState* state = StateAt(index);
  if (state == nullptr) return E_INVALIDARG;
  const bool changed = (state->captureOpen != 0) != open;
  if (changed) {
    state->captureOpen = open ? 1 : 0;
    // The envelope takes the parameter back at the next step.
    if (!open) state->captureEnded = 1;
  }
  IMediaParamsUICallback* callback = changed ? TakeCallback(index) : nullptr;
  lock.Unlock();
  if (callback != nullptr) {
    DWORD indexes[1] = {index};
    if (open) {
      callback->ParamsBeginCapture(indexes, 1);
    } else {
      callback->ParamsEndCapture(indexes, 1);
    }
    callback->Release();
  }
  return changed ? S_OK : S_FALSE;
}

BOOL CZqPlugInParams::IsParamDrivenByEnvelope(DWORD index) {
  ZqCriticalSectionLock lock(&m_paramLock);
  const ZqVstParamState* state = StateAt(index);
  return state != nullptr && m_streaming && state->envelopeActive;
}

// --- The effect ------------------------------------------------------------------------------------

HRESULT CZqPlugInParams::PullParamsFromEffect() {
  const DWORD count = m_paramCount;
  if (count == 0) return S_FALSE;
  IZqVstEffect* effect = m_paramEffect;
  if (effect == nullptr) return E_UNEXPECTED;
  bool moved = false;
  for (DWORD i = 0; i < count; ++i) {
    float value = 0;
    HRESULT hr = effect->GetParameter(static_cast<int>(i), &value);
    if (FAILED(hr)) return hr;
    hr = StoreParamFromEffect(i, value);
    if (FAILED(hr)) return hr;
    if (hr == S_OK) moved = true;
  }
  return moved ? S_OK : S_FALSE;
}

HRESULT CZqPlugInParams::PushChangedParamsToEffect(const float* values) {
  IZqVstEffect* effect = m_paramEffect;
  if (effect == nullptr || values == nullptr) return S_OK;
  const DWORD count = m_paramCount;
  for (DWORD i = 0; i < count; ++i) {
    // Only what an envelope drives goes out here; asking about that first
    // spares a call into the plug-in (a round trip when it runs in the
    // server) for every parameter no envelope drives.
    if (!IsParamDrivenByEnvelope(i)) continue;
    float present = 0;
    effect->GetParameter(static_cast<int>(i), &present);
    if (present != values[i]) effect->SetParameter(static_cast<int>(i), values[i]);
  }
  return S_OK;
}

HRESULT CZqPlugInParams::Automate(DWORD index, float value) { return StoreParamFromEffect(index, value); }

HRESULT CZqPlugInParams::StoreParamFromEffect(DWORD index, float normalized) {
  return SetNormalizedParam(index, normalized);
}

void CZqPlugInParams::OnParamSetByHost(DWORD, HRESULT) {}
