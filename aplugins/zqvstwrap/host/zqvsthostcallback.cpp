// ZqVstHostCallback: the host as far as a plug-in can tell.
//
// What it can answer alone it answers; what needs the filter goes to the
// effect's IZqVstMaster.  The callback has no guard of its own: it runs
// inside a plug-in call, and a fault in it unwinds to the guard around that
// call.  It takes no lock and changes only the effect's flag word and time
// record.
#include <cstring>

#include "aplugins/zqvstwrap/host/zqvsteffect.h"
#include "platform/text.h"

LONG g_zqVstCurrentId;
volatile BYTE g_zqVstNeedIdle;

namespace {

// The host's identity as plug-ins read it: 8-bit, always terminated in the
// last byte.  Written without a lock by whoever makes the effect factory.
char g_vendor[64];
char g_product[64];

constexpr VstIntPtr kHostVersion = 2300;
constexpr VstIntPtr kAutomatableParameters = 1024;

// The texts audioMasterCanDo answers 1 to, compared exactly.
constexpr const char* kCanDo[] = {"shellCategory", "sizeWindow", "supplyIdle", "sendVstTimeInfo",
                                  "startStopProcess"};

void SetIdentityPart(char (&part)[64], const WCHAR* text) {
  if (text == nullptr) return;
  memset(part, 0, sizeof part);
  int n = 0;
  while (text[n] != 0) ++n;
  if (n > 0) WideCharToMultiByte(CP_ACP, 0, text, n, part, static_cast<int>(sizeof part) - 1, nullptr, nullptr);
  part[sizeof part - 1] = 0;
}

VstIntPtr CanDo(const void* ptr) {
  if (ptr == nullptr) return 0;
  const char* text = static_cast<const char*>(ptr);
  for (const char* known : kCanDo)
    if (strcmp(text, known) == 0) return 1;
  return 0;
}

// Rebuilds the effect's VstTimeInfo from the master's time for the items the
// plug-in asks for in `filter`; 0 when there is no time to give.
VstIntPtr GetTime(CZqVstEffect* self, VstIntPtr filter) {
  IZqVstMaster* master = self ? self->Master() : nullptr;
  if (master == nullptr) return 0;
  VstMasterTime time = {};
  if (master->GetTime(&time) != S_OK) return 0;
  VstTimeInfo* info = self->TimeInfo();
  memset(info, 0, sizeof *info);
  info->samplePos = time.samplePos;
  info->sampleRate = static_cast<double>(self->SampleRate());
  if (filter & kVstNanosValid) {
    // Whole seconds of position, in 100-nanosecond units, as the field has
    // always carried them.
    const LONGLONG rate = static_cast<LONGLONG>(self->SampleRate());
    if (rate != 0) {
      const LONGLONG seconds = static_cast<LONGLONG>(time.samplePos) / rate;
      info->nanoSeconds = static_cast<double>(static_cast<LONGLONG>(static_cast<double>(seconds) * 1e7 + 0.5));
    }
    info->flags |= kVstNanosValid;
  }
  if ((filter & kVstPpqPosValid) && (time.flags & ZQVST_TIME_PPQ)) {
    info->ppqPos = time.ppqPos;
    info->flags |= kVstPpqPosValid;
  }
  if ((filter & kVstTempoValid) && (time.flags & ZQVST_TIME_TEMPO)) {
    info->tempo = time.tempo;
    info->flags |= kVstTempoValid;
  }
  if ((filter & kVstBarsValid) && (time.flags & ZQVST_TIME_BARS)) {
    info->barStartPos = time.barStartPos;
    info->flags |= kVstBarsValid;
  }
  if ((filter & kVstCyclePosValid) && (time.flags & ZQVST_TIME_CYCLE)) {
    info->cycleStartPos = time.cycleStartPos;
    info->cycleEndPos = time.cycleEndPos;
    info->flags |= kVstCyclePosValid;
  }
  if ((filter & kVstTimeSigValid) && (time.flags & ZQVST_TIME_TIMESIG)) {
    info->timeSigNumerator = time.timeSigNumerator;
    info->timeSigDenominator = time.timeSigDenominator;
    info->flags |= kVstTimeSigValid;
  }
  if (filter & kVstSmpteValid) {
    info->smpteFrameRate = time.smpteFrameRate;
    info->smpteOffset = time.smpteOffset;
    info->flags |= kVstSmpteValid;
  }
  // The transport goes along whether asked for or not.
  if (time.flags & ZQVST_TIME_TRANSPORT_CHANGED) info->flags |= kVstTransportChanged;
  if (time.flags & ZQVST_TIME_TRANSPORT_PLAYING) info->flags |= kVstTransportPlaying;
  if (time.flags & ZQVST_TIME_CYCLE_ACTIVE) info->flags |= kVstTransportCycleActive;
  if (time.flags & ZQVST_TIME_RECORDING) info->flags |= kVstTransportRecording;
  return reinterpret_cast<VstIntPtr>(info);
}

VstIntPtr CopyIdentity(const char (&part)[64], void* ptr) {
  if (ptr == nullptr || part[0] == 0) return 0;
  strcpy(static_cast<char*>(ptr), part);  // without a limit, as plug-ins expect
  return 1;
}

}  // namespace

void ZqVstSetHostIdentity(const WCHAR* vendor, const WCHAR* product) {
  SetIdentityPart(g_vendor, vendor);
  SetIdentityPart(g_product, product);
}

const char* CZqVstEffect::DirectoryText() {
  memset(m_directory, 0, sizeof m_directory);
  int n = 0;
  while (n < MAX_PATH && m_path[n] != 0) ++n;
  if (n > 0) WideCharToMultiByte(CP_ACP, 0, m_path, n, m_directory, MAX_PATH - 1, nullptr, nullptr);
  return m_directory;
}

VstIntPtr VSTCALLBACK ZqVstHostCallback(AEffect* effect, VstInt32 opcode, VstInt32 index, VstIntPtr value,
                                        void* ptr, float opt) {
  // Before the load has finished resvd1 is null: the call is answered from
  // the process-wide state and never reaches a master.
  CZqVstEffect* self = effect ? reinterpret_cast<CZqVstEffect*>(effect->resvd1) : nullptr;
  IZqVstMaster* master = self ? self->Master() : nullptr;
  VstIntPtr answer = 0;
  switch (opcode) {
    case audioMasterAutomate:
      if (master) master->Automate(index, opt);
      break;
    case audioMasterVersion:
      answer = kHostVersion;
      break;
    case audioMasterCurrentId:
      answer = self ? effect->uniqueID : g_zqVstCurrentId;
      break;
    case audioMasterIdle:
      if (self) {
        if (!self->InIdle() && master) master->Idle();
        self->Idle();
      }
      break;
    case audioMasterGetTime:
      answer = GetTime(self, value);
      break;
    case audioMasterTempoAt:
      if (master) {
        LONG tempo = 0;
        master->GetTempoAt(static_cast<LONGLONG>(value), &tempo);
        answer = tempo;
      }
      break;
    case audioMasterGetNumAutomatableParameters:
      answer = kAutomatableParameters;
      break;
    case audioMasterNeedIdle:
      if (self) {
        self->SetStateFlags(ZQVST_STATE_WANTS_IDLE);
      } else {
        g_zqVstNeedIdle = 1;
      }
      break;
    case audioMasterSizeWindow:
      if (self && (self->StateFlags() & ZQVST_STATE_EDITOR_OPEN) && master)
        master->SizeWindow(index, static_cast<LONG>(value));
      break;
    case audioMasterGetSampleRate:
      answer = self ? static_cast<VstIntPtr>(self->SampleRate()) : 0;
      break;
    case audioMasterGetBlockSize:
      answer = self ? self->BlockSize() : 0;
      break;
    case audioMasterWillReplaceOrAccumulate:
      answer = 1;  // replace
      break;
    case audioMasterGetVendorString:
      answer = CopyIdentity(g_vendor, ptr);
      break;
    case audioMasterGetProductString:
      answer = CopyIdentity(g_product, ptr);
      break;
    case audioMasterCanDo:
      answer = CanDo(ptr);
      break;
    case audioMasterGetDirectory:
      // The module's full file name (not its folder), as plug-ins built for
      // this host read it.
      if (self) answer = reinterpret_cast<VstIntPtr>(self->DirectoryText());
      break;
    case audioMasterUpdateDisplay:
      if (self) {
        if (master) master->UpdateDisplay();
        answer = 1;
      }
      break;
    case audioMasterBeginEdit:
      if (master) master->BeginEdit(index);
      break;
    case audioMasterEndEdit:
      if (master) master->EndEdit(index);
      break;
    default:
      // Everything else up to audioMasterEndEdit answers 0, and so does every
      // opcode of later versions.
      break;
  }
  ZqVstTraceCallback(self ? self->Log() : nullptr, opcode, index, value, ptr, opt, answer);
  return answer;
}
