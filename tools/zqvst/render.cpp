// zqvst render: an audio file (or a generated signal) through one plug-in's
// filter into another audio file, in a graph of the media framework:
//
//   file or memory source -> the plug-in's filter -> file sink
//
// The filter removes the plug-in's latency at the head and draws the tail at
// the end of the stream, so the output has the input's frames plus the tail.
// The output is written under a temporary name beside it and renamed only
// once everything went well: a failed job leaves no file behind.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "aplugins/zqvstwrap/filter/zqvsttimemap.h"
#include "kernel/audio/waveformat.h"
#include "mediafw/codes.h"
#include "mediafw/files/filesink.h"
#include "mediafw/files/filesource.h"
#include "mediafw/graph.h"
#include "mediafw/mediatype.h"
#include "mediafw/memsource.h"
#include "platform/console.h"
#include "platform/file.h"
#include "platform/process.h"
#include "platform/time.h"
#include "tools/zqvst/cmdline.h"
#include "tools/zqvst/commands.h"
#include "tools/zqvst/host.h"
#include "tools/zqvst/layout.h"
#include "tools/zqvst/render.h"
#include "tools/zqvst/tempo.h"
#include "tools/zqvst/timefiles.h"

const char* const kZqvstRenderHelp =
    "Usage: zqvst render [--plugin MODULE] [--input FILE] --output FILE [options]\n"
    "\n"
    "Streams the input through the plug-in and writes the output: the\n"
    "plug-in's latency is removed and its tail is drawn at the end, so the\n"
    "output has the input's frames plus the tail.  The container follows the\n"
    "output's extension (.wav, .aif, .aiff, .flac).\n"
    "\n"
    "  --plugin MODULE      the plug-in's module (default: the bundled zqdelay.so)\n"
    "                       or a catalogued plug-in's name, unique id or class id,\n"
    "                       or SHELL.so:ID for one plug-in of a shell module\n"
    "  --input FILE         the audio file to process (default: a generated signal)\n"
    "  --output FILE        the file to write\n"
    "  --program N          select program N first\n"
    "  --preset FILE.fxp    load a program file\n"
    "  --bank FILE.fxb      load a bank file\n"
    "  --set PARAM=VALUE    set a parameter (name or index) in its outward units,\n"
    "                       as 'zqvst info' shows its range; repeatable\n"
    "  --automation FILE    parameter envelopes: PARAM START END FROM TO CURVE a line\n"
    "  --tempo BPM          tempo from the start\n"
    "  --meter N/D          meter from the start\n"
    "  --tempo-map FILE     tempo and meter changes: TIME BPM, or TIME meter N/D\n"
    "  --block FRAMES       frames of each media sample (default 512)\n"
    "  --format F           s16, s24, s32, f32 or f64: the samples handed to the\n"
    "                       plug-in and written (default: the input's, f32 for a\n"
    "                       generated signal)\n"
    "  --isolated           run the plug-in in the companion server process (the\n"
    "                       output is the same, bit for bit)\n"
    "\n"
    "Generated input:\n"
    "  --signal S           sine (440 Hz, -6 dBFS; the default), noise (-6 dBFS,\n"
    "                       the same every time), impulse or silence\n"
    "  --seconds S          length (default 2)\n"
    "  --rate HZ            sample rate (default 48000)\n"
    "  --channels N         channels (default 2); with --input, the output's: the\n"
    "                       plug-in's own count, or 1 (mixed down), or any count\n"
    "                       from a plug-in with one output\n"
    "\n"
    "  --help               print this help\n";

namespace {

constexpr ULONG kMaxBlock = 1u << 20;
// Below this the wrapper's filter refuses its buffers.
constexpr ULONG kSmallestSampleBytes = 128;

const struct {
  const char* name;
  ZQSAMPLETYPE type;
} kFormats[] = {
    {"s16", ZQSAMPLE_PCM16}, {"s24", ZQSAMPLE_PCM24}, {"s32", ZQSAMPLE_PCM32},
    {"f32", ZQSAMPLE_FLOAT32}, {"f64", ZQSAMPLE_FLOAT64},
};

const char* FormatName(ZQSAMPLETYPE type) {
  for (const auto& f : kFormats)
    if (f.type == type) return f.name;
  return "?";
}

std::string FormatSeconds(double seconds) {
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, "%.3f", seconds);
  return buffer;
}

// --- Generated signals ----------------------------------------------------------

void PutSample(double v, ZQSAMPLETYPE type, BYTE* out) {
  v = std::clamp(v, -1.0, 1.0);
  switch (type) {
    case ZQSAMPLE_PCM16: {
      const int16_t s = int16_t(std::lround(v * 32767.0));
      std::memcpy(out, &s, 2);
      break;
    }
    case ZQSAMPLE_PCM24: {
      const int32_t s = int32_t(std::lround(v * 8388607.0));
      out[0] = BYTE(s & 0xFF);
      out[1] = BYTE((s >> 8) & 0xFF);
      out[2] = BYTE((s >> 16) & 0xFF);
      break;
    }
    case ZQSAMPLE_PCM32: {
      const int32_t s = int32_t(std::llround(v * 2147483647.0));
      std::memcpy(out, &s, 4);
      break;
    }
    case ZQSAMPLE_FLOAT64:
      std::memcpy(out, &v, 8);
      break;
    default: {
      const float f = float(v);
      std::memcpy(out, &f, 4);
      break;
    }
  }
}

constexpr uint32_t kNoiseSeed = 0x5A715EEDu;

uint32_t NextNoise(uint32_t state) {
  state ^= state << 13;
  state ^= state >> 17;
  state ^= state << 5;
  return state;
}

}  // namespace

bool ZqvstSignal::Init(const std::string& signal, DWORD rate, int channels, ZQSAMPLETYPE type) {
  static const struct {
    const char* name;
    Kind kind;
  } kKinds[] = {{"sine", Kind::Sine}, {"noise", Kind::Noise}, {"impulse", Kind::Impulse}, {"silence", Kind::Silence}};
  const auto* found = std::find_if(std::begin(kKinds), std::end(kKinds), [&](const auto& k) { return signal == k.name; });
  if (found == std::end(kKinds)) return false;
  m_kind = found->kind;
  m_rate = rate;
  m_channels = channels;
  m_type = type;
  m_frameBytes = size_t(channels) * size_t(ZqAudio_BytesFromSampleType(type));
  m_noiseFrame = 0;
  m_noiseState = kNoiseSeed;
  return true;
}

void ZqvstSignal::Fill(ULONGLONG first, ULONGLONG frames, BYTE* out) {
  const double amplitude = std::pow(10.0, -6.0 / 20.0);
  const size_t size = size_t(ZqAudio_BytesFromSampleType(m_type));
  if (m_kind == Kind::Noise && first != m_noiseFrame) {
    // The noise is one sequence from its seed: find its state at `first`.
    if (first < m_noiseFrame) {
      m_noiseFrame = 0;
      m_noiseState = kNoiseSeed;
    }
    for (; m_noiseFrame < first; ++m_noiseFrame) m_noiseState = NextNoise(m_noiseState);
  }
  for (ULONGLONG i = 0; i < frames; ++i) {
    const ULONGLONG n = first + i;
    double v = 0.0;
    switch (m_kind) {
      case Kind::Sine:
        v = amplitude * std::sin(2.0 * M_PI * 440.0 * double(n) / double(m_rate));
        break;
      case Kind::Impulse:
        v = n == 0 ? 1.0 : 0.0;
        break;
      case Kind::Noise:
        m_noiseState = NextNoise(m_noiseState);
        ++m_noiseFrame;
        v = amplitude * (double(m_noiseState) / 2147483648.0 - 1.0);
        break;
      case Kind::Silence:
        break;
    }
    BYTE* frame = out + i * m_frameBytes;
    for (int c = 0; c < m_channels; ++c) PutSample(v, m_type, frame + size_t(c) * size);
  }
}

// --- The render job --------------------------------------------------------------

namespace {

struct RenderJob {
  std::string module;
  std::string input;
  std::string output;
  bool hasProgram = false;
  long program = 0;
  std::string presetFile, bankFile;
  std::vector<std::pair<std::string, double>> sets;
  std::string automationFile, tempoMapFile;
  bool hasTempo = false;
  double tempo = 120.0;
  bool hasMeter = false;
  int meterNumerator = 4, meterDenominator = 4;
  ULONG block = 512;
  ZQSAMPLETYPE format = ZQSAMPLE_NONE;
  std::string signal = "sine";
  double seconds = 2.0;
  DWORD rate = 48000;
  int channels = 2;
  int outputChannels = 0;  // 0: as the plug-in gives them
};

// Reads the options into `job`; false with a message for a misuse.
bool ReadOptions(const ZqvstArgs& args, RenderJob* job, std::string* error) {
  if (!args.Positional().empty()) {
    *error = "unexpected argument '" + args.Positional()[0] + "'";
    return false;
  }
  if (!args.Has("output")) {
    *error = "render needs --output FILE";
    return false;
  }
  job->output = args.Get("output");
  job->module = args.Has("plugin") ? args.Get("plugin") : ZqvstDefaultPlugin();
  job->input = args.Get("input");
  long number = 0;
  double real = 0;
  auto bad = [&](const char* option, const std::string& value) {
    *error = "invalid value '" + value + "' for --" + option;
    return false;
  };
  if (args.Has("program")) {
    if (!ZqvstParseLong(args.Get("program"), &number) || number < 0) return bad("program", args.Get("program"));
    job->hasProgram = true;
    job->program = number;
  }
  job->presetFile = args.Get("preset");
  job->bankFile = args.Get("bank");
  if (!ZqvstReadSets(args, &job->sets, error)) return false;
  job->automationFile = args.Get("automation");
  job->tempoMapFile = args.Get("tempo-map");
  if (args.Has("tempo")) {
    if (!ZqvstParseDouble(args.Get("tempo"), &real) || !ZqvstIsTempo(real)) return bad("tempo", args.Get("tempo"));
    job->hasTempo = true;
    job->tempo = real;
  }
  if (args.Has("meter")) {
    std::string why;
    if (!ZqvstParseMeter(args.Get("meter"), &job->meterNumerator, &job->meterDenominator, &why))
      return bad("meter", args.Get("meter"));
    job->hasMeter = true;
  }
  if (args.Has("block")) {
    if (!ZqvstParseLong(args.Get("block"), &number) || number < 1 || number > long(kMaxBlock))
      return bad("block", args.Get("block"));
    job->block = ULONG(number);
  }
  if (args.Has("format")) {
    for (const auto& f : kFormats)
      if (args.Get("format") == f.name) job->format = f.type;
    if (job->format == ZQSAMPLE_NONE) return bad("format", args.Get("format"));
  }
  if (args.Has("signal")) {
    job->signal = args.Get("signal");
    if (job->signal != "sine" && job->signal != "noise" && job->signal != "impulse" && job->signal != "silence")
      return bad("signal", job->signal);
  }
  if (args.Has("seconds")) {
    if (!ZqvstParseDouble(args.Get("seconds"), &real) || real <= 0 || real > 24 * 3600.0)
      return bad("seconds", args.Get("seconds"));
    job->seconds = real;
  }
  if (args.Has("rate")) {
    if (!ZqvstParseLong(args.Get("rate"), &number) || number < 1000 || number > 768000)
      return bad("rate", args.Get("rate"));
    job->rate = DWORD(number);
  }
  if (args.Has("channels")) {
    if (!ZqvstParseLong(args.Get("channels"), &number) || number < 1 || number > 32)
      return bad("channels", args.Get("channels"));
    job->channels = int(number);
  }
  if (!job->input.empty()) {
    // With an input file, --channels is the output's layout.
    job->outputChannels = args.Has("channels") ? job->channels : 0;
    for (const char* generated : {"signal", "seconds", "rate"}) {
      if (args.Has(generated)) {
        *error = std::string("--") + generated + " is for a generated input and cannot go with --input";
        return false;
      }
    }
  }
  return true;
}

bool ReadTextFile(const std::string& path, std::string* text, ZqvstFailure* failure) {
  std::string error;
  if (ZqvstReadFile(path, text, &error)) return true;
  *failure = {error, ZQ_E_OPEN_FILE};
  return false;
}

// Program, bank, preset and parameter values, in that order, so that a
// value given on the command line wins over the file's.
bool ApplySettings(const RenderJob& job, ZqvstPlugin* plugin, ZqvstFailure* failure) {
  if (job.hasProgram && !plugin->SetProgram(job.program, failure)) return false;
  if ((!job.bankFile.empty() || !job.presetFile.empty()) &&
      FAILED(plugin->Need(plugin->Presets(), "IVstFilterPreset", failure)))
    return false;
  if (!job.bankFile.empty()) {
    const HRESULT hr = plugin->Presets()->LoadBankFile(ZqvstWiden(job.bankFile).c_str());
    if (FAILED(hr)) {
      *failure = {"cannot load the bank " + job.bankFile, hr};
      return false;
    }
  }
  if (!job.presetFile.empty()) {
    const HRESULT hr = plugin->Presets()->LoadPresetFile(ZqvstWiden(job.presetFile).c_str());
    if (FAILED(hr)) {
      *failure = {"cannot load the preset " + job.presetFile, hr};
      return false;
    }
  }
  for (const auto& [param, value] : job.sets)
    if (!plugin->SetParam(param, value, failure)) return false;
  return true;
}

bool ApplyAutomation(const std::string& path, ZqvstPlugin* plugin, ZqvstFailure* failure) {
  std::string text, error;
  if (!ReadTextFile(path, &text, failure)) return false;
  std::vector<ZqvstAutomationEntry> entries;
  if (!ZqvstParseAutomation(text, &entries, &error)) {
    *failure = {path + ": " + error, ZQ_E_BAD_FILE};
    return false;
  }
  if (!entries.empty() && (FAILED(plugin->Need(plugin->Params(), "IMediaParams", failure)) ||
                           FAILED(plugin->Need(plugin->ParamInfo(), "IMediaParamInfo", failure))))
    return false;
  for (const auto& e : entries) {
    const std::string where = path + ": line " + std::to_string(e.line);
    DWORD index = 0;
    ZqvstFailure notFound;
    if (!plugin->FindParam(e.byIndex ? std::to_string(e.index) : e.param, &index, &notFound, !e.byIndex)) {
      *failure = {where + ": " + notFound.what, notFound.status};
      return false;
    }
    MP_PARAMINFO info{};
    plugin->ParamInfo()->GetParamInfo(index, &info);
    for (double v : {e.from, e.to}) {
      if (!(v >= info.mpdMinValue && v <= info.mpdMaxValue)) {
        char range[64];
        std::snprintf(range, sizeof range, "%g is outside %g..%g", v, double(info.mpdMinValue),
                      double(info.mpdMaxValue));
        *failure = {where + ": value " + range, E_INVALIDARG};
        return false;
      }
    }
    MP_ENVELOPE_SEGMENT segment{};
    segment.rtStart = REFERENCE_TIME(std::llround(e.start * 1e7));
    segment.rtEnd = REFERENCE_TIME(std::llround(e.end * 1e7));
    segment.valStart = MP_DATA(e.from);
    segment.valEnd = MP_DATA(e.to);
    segment.iCurve = e.curve;
    segment.flags = MPF_ENVLP_STANDARD;
    const HRESULT hr = plugin->Params()->AddEnvelope(index, 1, &segment);
    if (FAILED(hr)) {
      *failure = {where + ": the envelope was not accepted", hr};
      return false;
    }
  }
  return true;
}

bool ConnectTempo(const RenderJob& job, DWORD rate, ZqvstPlugin* plugin, ZqvstFailure* failure) {
  if (!job.hasTempo && !job.hasMeter && job.tempoMapFile.empty()) return true;
  std::vector<ZqvstTempoEntry> entries;
  if (job.hasTempo) entries.push_back({0.0, false, job.tempo, 0, 0, 0});
  if (job.hasMeter) entries.push_back({0.0, true, 0.0, job.meterNumerator, job.meterDenominator, 0});
  if (!job.tempoMapFile.empty()) {
    std::string text, error;
    if (!ReadTextFile(job.tempoMapFile, &text, failure)) return false;
    std::vector<ZqvstTempoEntry> fromFile;
    if (!ZqvstParseTempoMap(text, &fromFile, &error)) {
      *failure = {job.tempoMapFile + ": " + error, ZQ_E_BAD_FILE};
      return false;
    }
    entries.insert(entries.end(), fromFile.begin(), fromFile.end());
  }
  if (FAILED(plugin->Need(plugin->Synth(), "IMfxSoftSynth", failure))) return false;
  CZqVstTimeMap* map = nullptr;
  if (!ZqvstBuildTimeMap(entries, rate, &map, failure)) return false;
  // Connect takes over our reference.
  HRESULT hr = plugin->Synth()->Connect(static_cast<IZqTempoMap*>(map));
  if (SUCCEEDED(hr)) hr = plugin->Synth()->OnStart(0);
  if (FAILED(hr)) {
    *failure = {"the plug-in's filter did not take the tempo map", hr};
    return false;
  }
  return true;
}

// Draws the progress on standard error while a terminal shows it.
class Progress {
 public:
  explicit Progress(LONGLONG total) : m_total(total), m_enabled(ZqIsConsole(STD_ERROR_HANDLE) != FALSE) {}
  void Show(LONGLONG done) {
    if (!m_enabled || m_total <= 0) return;
    const int columns = ZqGetConsoleWidth(STD_ERROR_HANDLE);
    m_width = columns > 0 ? std::clamp(columns - 16, 10, 50) : 40;
    const int width = m_width;
    const double fraction = std::clamp(double(done) / double(m_total), 0.0, 1.0);
    const int filled = int(fraction * width);
    std::string bar(size_t(filled), '#');
    bar.append(size_t(width - filled), '.');
    std::fprintf(stderr, "\r[%s] %3d%%", bar.c_str(), int(fraction * 100.0));
    std::fflush(stderr);
    m_shown = true;
  }
  void Clear() {
    if (!m_shown) return;
    std::fprintf(stderr, "\r%*s\r", m_width + 8, "");
    std::fflush(stderr);
    m_shown = false;
  }

 private:
  LONGLONG m_total;
  bool m_enabled;
  bool m_shown = false;
  int m_width = 40;
};

double Now() {
  LARGE_INTEGER count{}, frequency{};
  QueryPerformanceCounter(&count);
  QueryPerformanceFrequency(&frequency);
  return frequency.QuadPart ? double(count.QuadPart) / double(frequency.QuadPart) : 0.0;
}

// A generated signal, made one sample at a time as the graph pulls it.
class SignalSource final : public CZqMemorySource {
 public:
  SignalSource(const ZqvstSignal& signal, LONGLONG frames) : m_signal(signal), m_frames(frames) {}
  ~SignalSource() override { StopStreaming(); }

 protected:
  HRESULT ReadFrames(ULONGLONG first, ULONG frames, BYTE* out, ULONG* got) override {
    const ULONGLONG total = ULONGLONG(m_frames);
    *got = first >= total ? 0 : ULONG(std::min<ULONGLONG>(frames, total - first));
    m_signal.Fill(first, *got, out);
    return S_OK;
  }
  LONGLONG StreamFrames(bool* exact) override {
    *exact = true;
    return m_frames;
  }

 private:
  ZqvstSignal m_signal;
  const LONGLONG m_frames;
};

// The graph of one render, torn down in the order its parts need.
struct Graph {
  CZqFilterGraph* graph = nullptr;
  CZqMemorySource* source = nullptr;  // or the file source, which is one
  CZqFileSink* sink = nullptr;
  ~Graph() {
    if (graph) {
      graph->Stop();
      graph->RemoveAllFilters();
      graph->Release();
    }
    if (source) source->Release();
    if (sink) sink->Release();
  }
};

struct Outcome {
  LONGLONG framesIn = 0;
  LONGLONG framesOut = 0;
  DWORD rate = 0;
  ZQSAMPLETYPE type = ZQSAMPLE_NONE;
  double wallSeconds = 0;
};

bool Run(const RenderJob& job, ZqvstPlugin* plugin, const std::string& temporary, Outcome* outcome,
         ZqvstFailure* failure) {
  Graph g;
  HRESULT hr = CZqFilterGraph::Create(&g.graph);
  if (SUCCEEDED(hr)) hr = CZqFileSink::Create(&g.sink);
  if (FAILED(hr)) {
    *failure = {"cannot make the graph", hr};
    return false;
  }

  ZQSAMPLETYPE type = job.format;
  if (!job.input.empty()) {
    CZqFileSource* source = nullptr;
    hr = CZqFileSource::Create(&source);
    if (FAILED(hr)) {
      *failure = {"cannot make the file source", hr};
      return false;
    }
    g.source = source;
    hr = source->Open(ZqvstWiden(job.input).c_str(), type == ZQSAMPLE_NONE ? CZqFileSource::kFileFormat : type);
    if (FAILED(hr)) {
      *failure = {"cannot read the input " + job.input, hr};
      return false;
    }
    type = source->SampleType();
    outcome->framesIn = source->FileFrames();
  } else {
    if (type == ZQSAMPLE_NONE) type = ZQSAMPLE_FLOAT32;
    ZqvstSignal signal;
    signal.Init(job.signal, job.rate, job.channels, type);
    const LONGLONG frames = std::max<LONGLONG>(1, std::llround(job.seconds * job.rate));
    auto* source = new (std::nothrow) SignalSource(signal, frames);
    if (source == nullptr) {
      *failure = {"cannot make the signal source", E_OUTOFMEMORY};
      return false;
    }
    source->NonDelegatingAddRef();
    g.source = source;
    WAVEFORMATEX format{};
    ZqAudio_InitWfx(&format, job.rate, type, job.channels);
    hr = g.source->SetFormat(&format);
    if (FAILED(hr)) {
      *failure = {"cannot set up the " + job.signal + " signal", hr};
      return false;
    }
    outcome->framesIn = frames;
  }
  g.source->SetFramesPerSample(job.block);
  outcome->type = type;

  hr = g.sink->SetFileName(ZqvstWiden(temporary).c_str());
  if (FAILED(hr)) {
    *failure = {"cannot write " + job.output, hr};
    return false;
  }

  IBaseFilter* filter = plugin->Filter();
  g.graph->AddFilter(g.source, u"source");
  g.graph->AddFilter(filter, u"plug-in");
  g.graph->AddFilter(g.sink, u"sink");
  ZqComPtr<IPin> in, out;
  filter->FindPin(u"In", in.Put());
  filter->FindPin(u"Out", out.Put());
  if (!in || !out) {
    *failure = {"the plug-in's filter has no audio pins", VFW_E_NOT_CONNECTED};
    return false;
  }
  hr = g.graph->ConnectDirect(g.source->OutputPin(), in.Get(), nullptr);
  if (FAILED(hr)) {
    char what[160];
    std::snprintf(what, sizeof what, "the plug-in (%ld inputs) does not take the input",
                  long(plugin->Mapping().Properties.numInputs));
    *failure = {what, hr};
    return false;
  }
  // The format as the source offers it (the file's rate when reading one).
  WAVEFORMATEX inputFormat{};
  AM_MEDIA_TYPE connected{};
  if (SUCCEEDED(in->ConnectionMediaType(&connected))) {
    // The 16 bytes before cbSize are all a plain or extensible format shares.
    if (connected.pbFormat && connected.cbFormat >= 16) std::memcpy(&inputFormat, connected.pbFormat, 16);
    FreeMediaType(connected);
  }
  outcome->rate = inputFormat.nSamplesPerSec;
  hr = g.graph->ConnectDirect(out.Get(), g.sink->InputPin(), nullptr);
  if (FAILED(hr)) {
    std::string what = "cannot connect the plug-in to the output " + job.output;
    // The filter sizes its buffers from the input's and refuses very small ones.
    const ULONG sampleBytes = job.block * inputFormat.nBlockAlign;
    if (sampleBytes < kSmallestSampleBytes)
      what += " (media samples of " + std::to_string(sampleBytes) +
              " bytes may be too small for the filter; try a larger --block)";
    *failure = {what, hr};
    return false;
  }
  if (outcome->rate == 0) outcome->rate = job.rate;

  if (!ConnectTempo(job, outcome->rate, plugin, failure)) return false;

  Progress progress(outcome->framesIn + std::max<LONG>(0, plugin->Tail()));
  const double started = Now();
  hr = g.graph->Run();
  if (FAILED(hr)) {
    // The sink creates its file as the stream starts.
    if (FAILED(g.sink->StreamStatus()))
      *failure = {"cannot write " + job.output, g.sink->StreamStatus()};
    else
      *failure = {"cannot start the stream", hr};
    return false;
  }
  LONG event = 0;
  HRESULT status = S_OK;
  while (g.graph->WaitForCompletion(100, &event, &status) == E_ABORT) progress.Show(g.sink->FramesWritten());
  progress.Show(g.sink->FramesWritten());
  progress.Clear();
  outcome->wallSeconds = Now() - started;
  outcome->framesIn = g.source->FramesDelivered();
  outcome->framesOut = g.sink->FramesWritten();
  g.graph->Stop();
  if (plugin->Synth()) plugin->Synth()->Disconnect();

  if (event == EC_ERRORABORT || FAILED(status)) {
    *failure = {"processing failed", FAILED(status) ? status : E_FAIL};
    return false;
  }
  if (FAILED(g.sink->StreamStatus())) {
    *failure = {"cannot write " + job.output, g.sink->StreamStatus()};
    return false;
  }
  if (FAILED(g.source->StreamStatus())) {
    *failure = {"processing failed", g.source->StreamStatus()};
    return false;
  }
  return true;
}

// Settings, automation and the stream, for one filter.
bool Render(const RenderJob& job, ZqvstPlugin* plugin, const std::string& path, Outcome* outcome,
            ZqvstFailure* failure) {
  return ApplySettings(job, plugin, failure) &&
         (job.automationFile.empty() || ApplyAutomation(job.automationFile, plugin, failure)) &&
         Run(job, plugin, path, outcome, failure);
}

// A render whose input is first fitted to the plug-in's inputs: a mono
// input copied to both inputs of a stereo plug-in, or a plug-in with one
// input run once per channel, a filter of its own for each, whose outputs
// (the first channel of each) are interleaved again.  Files made on the way
// are named in `scratch` for the caller to remove.
bool RenderArranged(RenderJob job, ZqvstLibrary* library, ZqvstPlugin* plugin, const std::string& temporary,
                    Outcome* outcome, ZqvstFailure* failure, std::vector<std::string>* scratch) {
  const int channels = job.input.empty() ? job.channels : ZqvstFileChannels(job.input);
  const int takes = int(plugin->Mapping().Properties.numInputs);
  auto part = [&](const std::string& what) {
    scratch->push_back(ZqvstTemporaryPath(ZqvstFolderOf(job.output) + what + ".wav"));
    return scratch->back();
  };
  switch (ZqvstPlanLayout(channels, takes)) {
    case ZqvstLayout::kDirect:
      return Render(job, plugin, temporary, outcome, failure);
    case ZqvstLayout::kRefused:
      *failure = {"the plug-in takes " + std::to_string(takes) + " inputs and the input has " +
                  std::to_string(channels) + " channels; give it " + std::to_string(takes) +
                  " channels or fewer, or use a plug-in with one input (run once per channel)"};
      return false;
    case ZqvstLayout::kDuplicate:
      if (job.input.empty()) {
        job.channels = 2;  // every channel of a generated signal is alike
      } else {
        const std::string stereo = part("stereo");
        if (!ZqvstRemapChannels(job.input, {0, 0}, stereo, failure)) return false;
        job.input = stereo;
      }
      return Render(job, plugin, temporary, outcome, failure);
    case ZqvstLayout::kPerChannel:
      break;
  }
  const std::string original = job.input;
  std::vector<std::string> outputs;
  for (int c = 0; c < channels; ++c) {
    if (original.empty()) {
      job.channels = 1;
    } else {
      job.input = part("in" + std::to_string(c));
      if (!ZqvstRemapChannels(original, {c}, job.input, failure)) return false;
    }
    ZqvstPlugin another;
    if (c > 0 && !another.Open(library, job.module, failure)) return false;
    outputs.push_back(part("out" + std::to_string(c)));
    if (!Render(job, c > 0 ? &another : plugin, outputs.back(), outcome, failure)) return false;
  }
  return ZqvstInterleave(outputs, temporary, failure);
}

// The render, then the output brought to the layout --channels asked for.
bool RenderToLayout(const RenderJob& job, ZqvstLibrary* library, ZqvstPlugin* plugin, const std::string& temporary,
                    Outcome* outcome, ZqvstFailure* failure, std::vector<std::string>* scratch) {
  if (job.outputChannels == 0) return RenderArranged(job, library, plugin, temporary, outcome, failure, scratch);
  const std::string extension = temporary.substr(temporary.rfind('.'));
  scratch->push_back(ZqvstTemporaryPath(ZqvstFolderOf(job.output) + "rendered" + extension));
  const std::string rendered = scratch->back();
  if (!RenderArranged(job, library, plugin, rendered, outcome, failure, scratch)) return false;
  if (ZqvstFileChannels(rendered) == job.outputChannels)
    return MoveFileExW(ZqvstWiden(rendered).c_str(), ZqvstWiden(temporary).c_str(), MOVEFILE_REPLACE_EXISTING) ||
           (*failure = {"cannot write " + job.output, HRESULT_FROM_WIN32(GetLastError())}, false);
  return ZqvstFitChannels(rendered, job.outputChannels, temporary, failure);
}

}  // namespace

std::string ZqvstTemporaryPath(const std::string& output) {
  const std::string folder = ZqvstFolderOf(output);
  std::string name = output.substr(folder.size());
  const size_t dot = name.rfind('.');
  const std::string extension = dot == std::string::npos || dot == 0 ? std::string() : name.substr(dot);
  name.resize(name.size() - extension.size());
  return folder + "." + name + ".zqvst-" + std::to_string(GetCurrentProcessId()) + extension;
}

bool ZqvstCommitOutput(const std::string& temporary, const std::string& output, ZqvstFailure* failure) {
  if (MoveFileExW(ZqvstWiden(temporary).c_str(), ZqvstWiden(output).c_str(), MOVEFILE_REPLACE_EXISTING))
    return true;
  *failure = {"cannot write " + output, HRESULT_FROM_WIN32(GetLastError())};
  DeleteFileW(ZqvstWiden(temporary).c_str());
  return false;
}

int ZqvstRenderCommand(int argc, char** argv, int first) {
  static const std::vector<ZqvstOption> known = {
      {"plugin", true, false},    {"input", true, false},     {"output", true, false},
      {"program", true, false},   {"preset", true, false},    {"bank", true, false},
      {"set", true, true},        {"automation", true, false}, {"tempo", true, false},
      {"meter", true, false},     {"tempo-map", true, false}, {"block", true, false},
      {"format", true, false},    {"signal", true, false},    {"seconds", true, false},
      {"rate", true, false},      {"channels", true, false},  {"help", false, false},
      {"isolated", false, false},
  };
  ZqvstArgs args;
  std::string error;
  if (!args.Parse(argc, argv, first, known, &error)) {
    ZqvstReportUsage("render", error);
    return kZqvstExitUsage;
  }
  if (args.Has("help")) {
    std::fputs(kZqvstRenderHelp, stdout);
    return kZqvstExitOk;
  }
  RenderJob job;
  if (!ReadOptions(args, &job, &error)) {
    ZqvstReportUsage("render", error);
    return kZqvstExitUsage;
  }

  ZqvstLibrary library;
  ZqvstFailure failure;
  const std::string temporary = ZqvstTemporaryPath(job.output);
  Outcome outcome;
  bool ok;
  std::vector<std::string> scratch;
  {
    ZqvstPlugin plugin;
    ok = library.Load(&failure) && (!args.Has("isolated") || library.Isolate(&failure)) &&
         plugin.Open(&library, job.module, &failure) &&
         RenderToLayout(job, &library, &plugin, temporary, &outcome, &failure, &scratch);
    for (const auto& file : scratch) DeleteFileW(ZqvstWiden(file).c_str());
    if (ok) {
      const LONGLONG tail = outcome.framesOut - outcome.framesIn;
      const double seconds = outcome.rate ? double(outcome.framesIn) / outcome.rate : 0.0;
      const double factor = outcome.wallSeconds > 0 ? seconds / outcome.wallSeconds : 0.0;
      char numbers[256];
      std::snprintf(numbers, sizeof numbers,
                    ": %lld frames in, %lld frames out, latency %ld removed, tail %lld frames, %s s at %lu Hz (%s), "
                    "%.1fx real time\n",
                    static_cast<long long>(outcome.framesIn), static_cast<long long>(outcome.framesOut),
                    long(plugin.Latency()), static_cast<long long>(tail), FormatSeconds(seconds).c_str(),
                    static_cast<unsigned long>(outcome.rate), FormatName(outcome.type), factor);
      const std::string summary = job.output + numbers;
      ok = ZqvstCommitOutput(temporary, job.output, &failure);
      if (ok) std::fputs(summary.c_str(), stdout);
    }
  }
  if (!ok) {
    DeleteFileW(ZqvstWiden(temporary).c_str());
    ZqvstReport(&library, failure);
    return failure.exitStatus;
  }
  std::fflush(stdout);
  return kZqvstExitOk;
}
