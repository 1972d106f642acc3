// Audio files through the media framework: a memory source writes a file
// through the file sink, the file source plays it back, and what arrives
// must be the bytes that went in.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <ostream>
#include <string>
#include <vector>

#include "kernel/audio/waveformat.h"
#include "base/status.h"
#include "mediafw/files/filesink.h"
#include "mediafw/files/filesource.h"
#include "mediafw/graph.h"
#include "mediafw/sink.h"
#include "tests/support/test_folder.h"

namespace {

constexpr DWORD kWait = 20000;  // a bound against hangs, not a measurement
namespace fs = std::filesystem;

class FilesTest : public ::testing::Test {
 protected:
  std::u16string Path(const std::string& name) const { return (dir_ / name).u16string(); }
  zqtest::TestFolder folder_{"zq_files_"};
  const fs::path& dir_ = folder_.path();
};

WAVEFORMATEX Format(ZQSAMPLETYPE type, int channels, DWORD rate) {
  WAVEFORMATEX w{};
  ZqAudio_InitWfx(&w, rate, type, channels);
  return w;
}

// `values` samples that the type stores exactly; integers of any byte
// pattern, reaching both signs.
std::vector<BYTE> TestSignal(ZQSAMPLETYPE type, size_t values) {
  std::vector<BYTE> out;
  for (size_t i = 0; i < values; ++i) {
    if (type == ZQSAMPLE_FLOAT32 || type == ZQSAMPLE_FLOAT64) {
      double v = double(int(i % 2048) - 1024) / 1024.0;
      float f = float(v);
      const BYTE* b = type == ZQSAMPLE_FLOAT32 ? reinterpret_cast<const BYTE*>(&f) : reinterpret_cast<const BYTE*>(&v);
      out.insert(out.end(), b, b + ZqAudio_BytesFromSampleType(type));
    } else {
      for (int b = 0; b < ZqAudio_BytesFromSampleType(type); ++b) out.push_back(BYTE(i * 37 + b * 101 + 5));
    }
  }
  return out;
}

struct Outcome {
  HRESULT connect = E_FAIL;
  HRESULT run = E_FAIL;
  LONG event = 0;
  HRESULT status = S_OK;
  CMediaType type;  // of the connection
};

// source -> sink in a graph of their own, run to the end of the stream.
template <typename Source, typename Sink>
Outcome Play(Source* source, Sink* sink) {
  Outcome r;
  CZqFilterGraph* graph = nullptr;
  CZqFilterGraph::Create(&graph);
  graph->AddFilter(source, u"source");
  graph->AddFilter(sink, u"sink");
  r.connect = graph->ConnectDirect(source->OutputPin(), sink->InputPin(), nullptr);
  if (r.connect == S_OK) {
    sink->InputPin()->ConnectionMediaType(&r.type);
    r.run = graph->Run();
    if (SUCCEEDED(r.run)) {
      EXPECT_EQ(graph->WaitForCompletion(kWait, &r.event, &r.status), S_OK);
    }
  }
  graph->Stop();
  graph->RemoveAllFilters();
  graph->Release();
  return r;
}

// Writes `data` in `format` to `path` through a file sink, which `check`
// (optional) sees before it goes.
Outcome WriteFile(const std::u16string& path, const WAVEFORMATEX& format, const std::vector<BYTE>& data,
                  std::function<void(CZqFileSink*)> setup = {}, std::function<void(CZqFileSink*)> check = {}) {
  CZqMemorySource* source = nullptr;
  CZqFileSink* sink = nullptr;
  CZqMemorySource::Create(&source);
  CZqFileSink::Create(&sink);
  source->SetFormat(&format);
  source->SetData(data.data(), data.size());
  source->SetFramesPerSample(100);
  EXPECT_EQ(sink->SetFileName(path.c_str()), S_OK);
  if (setup) setup(sink);
  Outcome r = Play(source, sink);
  if (check) check(sink);
  source->Release();
  sink->Release();
  return r;
}

// Plays the file source into a collecting sink; the bytes that arrived.
std::vector<BYTE> Collect(CZqFileSource* source, Outcome* outcome = nullptr,
                          std::vector<ZqReceivedSample>* samples = nullptr) {
  CZqCollectSink* collect = nullptr;
  CZqCollectSink::Create(&collect);
  Outcome r = Play(source, collect);
  EXPECT_EQ(r.event, EC_COMPLETE);
  EXPECT_EQ(collect->EndOfStreamCount(), 1);
  std::vector<BYTE> bytes = collect->AllBytes();
  if (samples) *samples = collect->Samples();
  if (outcome) *outcome = r;
  collect->Release();
  return bytes;
}

struct FileCase {
  ZQSAMPLETYPE type;
  const char* file;
};
void PrintTo(const FileCase& c, std::ostream* os) { *os << "type " << c.type << " as " << c.file; }

class FileRoundTrip : public FilesTest, public ::testing::WithParamInterface<FileCase> {};

// memory -> file a; file a -> file b directly; file b -> collect: the same
// bytes, in samples with the right times, in every sample format and in
// each container that holds it.
TEST_P(FileRoundTrip, BytesTimesAndFramesSurvive) {
  const ZQSAMPLETYPE type = GetParam().type;
  const WAVEFORMATEX format = Format(type, 2, 48000);
  const std::vector<BYTE> data = TestSignal(type, 2000);  // 1000 frames
  const std::string ext = fs::path(GetParam().file).extension().string();
  const std::u16string a = Path(GetParam().file), b = Path("copy" + ext);

  auto wroteAll = [](CZqFileSink* sink) { EXPECT_EQ(sink->FramesWritten(), 1000); };
  ASSERT_EQ(WriteFile(a, format, data, {}, wroteAll).event, EC_COMPLETE);

  CZqFileSource* source = nullptr;
  CZqFileSink* sink = nullptr;
  CZqFileSource::Create(&source);
  CZqFileSink::Create(&sink);
  // In its own format: what it stores, with the unsigned bytes widened.
  ASSERT_EQ(source->Open(a.c_str()), S_OK);
  EXPECT_EQ(source->SampleType(), type == ZQSAMPLE_PCM8 ? ZQSAMPLE_PCM16 : type);
  EXPECT_EQ(source->FileFrames(), 1000);
  ASSERT_EQ(sink->SetFileName(b.c_str()), S_OK);
  EXPECT_EQ(Play(source, sink).event, EC_COMPLETE);
  wroteAll(sink);
  sink->Release();

  ASSERT_EQ(source->Open(b.c_str(), type), S_OK);
  source->SetFramesPerSample(256);
  source->SetStartTime(5000);
  Outcome played;
  std::vector<ZqReceivedSample> samples;
  EXPECT_TRUE(Collect(source, &played, &samples) == data) << "sample values changed on the way";
  ASSERT_GE(played.type.cbFormat, sizeof format);
  EXPECT_EQ(std::memcmp(played.type.pbFormat, &format, sizeof format), 0) << "offered type differs";
  ASSERT_EQ(samples.size(), 4u);  // 256, 256, 256, 232 frames
  EXPECT_EQ(samples[1].start, 5000 + 256 * 10000000LL / 48000);
  EXPECT_EQ(samples[3].stop, 5000 + 1000 * 10000000LL / 48000);
  EXPECT_EQ(samples[3].mediaStart, 768);
  EXPECT_EQ(samples[3].mediaStop, 1000);
  source->Release();
}

INSTANTIATE_TEST_SUITE_P(Formats, FileRoundTrip,
                         ::testing::Values(FileCase{ZQSAMPLE_PCM16, "a.wav"}, FileCase{ZQSAMPLE_PCM24, "a.wav"},
                                           FileCase{ZQSAMPLE_PCM32, "a.wav"}, FileCase{ZQSAMPLE_FLOAT32, "a.wav"},
                                           FileCase{ZQSAMPLE_FLOAT64, "a.wav"}, FileCase{ZQSAMPLE_PCM8, "a.wav"},
                                           FileCase{ZQSAMPLE_PCM16, "a.flac"}, FileCase{ZQSAMPLE_PCM24, "a.FLAC"},
                                           FileCase{ZQSAMPLE_PCM16, "a.aiff"}, FileCase{ZQSAMPLE_PCM32, "a.aif"}));

// A file is read in the format the host chose, not the one it was stored
// in: integers widen exactly, floats come back in -1..1, and the wave
// format can be the extensible one, which the sink takes as well.
TEST_F(FilesTest, SourceConvertsToTheChosenFormat) {
  const std::vector<short> values{0, 1, -1, 32767, -32768, 0x1234};
  std::vector<BYTE> bytes(values.size() * 2);
  std::memcpy(bytes.data(), values.data(), bytes.size());
  const std::u16string path = Path("mono.wav");
  ASSERT_EQ(WriteFile(path, Format(ZQSAMPLE_PCM16, 1, 44100), bytes).event, EC_COMPLETE);

  CZqFileSource* source = nullptr;
  CZqFileSource::Create(&source);
  for (const ZQSAMPLETYPE type : {ZQSAMPLE_PCM24, ZQSAMPLE_PCM32, ZQSAMPLE_FLOAT32}) {
    SCOPED_TRACE(type);
    const bool extensible = type != ZQSAMPLE_PCM24;
    ASSERT_EQ(source->Open(path.c_str(), type, extensible), S_OK);
    Outcome played;
    const std::vector<BYTE> got = Collect(source, &played);
    const size_t width = size_t(ZqAudio_BytesFromSampleType(type));
    ASSERT_EQ(got.size(), values.size() * width);
    for (size_t i = 0; i < values.size(); ++i) {
      // Little-endian integers placed at the top of 32 bits, or a float.
      int32_t top = 0;
      float f = 0;
      std::memcpy(reinterpret_cast<BYTE*>(&top) + 4 - width, &got[i * width], width);
      if (type == ZQSAMPLE_FLOAT32) std::memcpy(&f, &got[i * width], 4);
      EXPECT_EQ(type == ZQSAMPLE_FLOAT32 ? f : top / 2147483648.0, values[i] / 32768.0) << "value " << i;
    }
    ASSERT_GE(played.type.cbFormat, extensible ? sizeof(WAVEFORMATEXTENSIBLE) : sizeof(WAVEFORMATEX));
    const auto* wfe = reinterpret_cast<const WAVEFORMATEXTENSIBLE*>(played.type.pbFormat);
    EXPECT_EQ(wfe->Format.wFormatTag, extensible ? WAVE_FORMAT_EXTENSIBLE : WAVE_FORMAT_PCM);
    if (extensible) {
      EXPECT_TRUE(IsEqualGUID(wfe->SubFormat, type == ZQSAMPLE_FLOAT32 ? KSDATAFORMAT_SUBTYPE_IEEE_FLOAT
                                                                         : KSDATAFORMAT_SUBTYPE_PCM));
    }
  }
  CZqFileSink* sink = nullptr;
  CZqFileSink::Create(&sink);
  ASSERT_EQ(sink->SetFileName(Path("ext.wav").c_str()), S_OK);
  EXPECT_EQ(Play(source, sink).event, EC_COMPLETE);
  EXPECT_EQ(sink->FramesWritten(), LONGLONG(values.size()));
  sink->Release();
  source->Release();
}

// Files that cannot be read give statuses the host can tell apart, and the
// source keeps what it had.  A file without frames is no failure.
TEST_F(FilesTest, SourceRefusesWhatItCannotReadAndTakesEmptyFiles) {
  CZqFileSource* source = nullptr;
  CZqFileSource::Create(&source);
  const std::vector<BYTE> data = TestSignal(ZQSAMPLE_PCM16, 20);
  ASSERT_EQ(WriteFile(Path("good.wav"), Format(ZQSAMPLE_PCM16, 2, 8000), data).event, EC_COMPLETE);
  ASSERT_EQ(source->Open(Path("good.wav").c_str(), ZQSAMPLE_PCM16), S_OK);

  EXPECT_EQ(source->Open(Path("missing.wav").c_str(), ZQSAMPLE_PCM16), ZQ_E_OPEN_FILE);
  EXPECT_EQ(source->Open(dir_.u16string().c_str(), ZQSAMPLE_PCM16), ZQ_E_OPEN_FILE);
  std::ofstream(dir_ / "text.wav") << "This is not audio, whatever its name says.\n";
  EXPECT_EQ(source->Open(Path("text.wav").c_str(), ZQSAMPLE_PCM16), ZQ_E_BAD_FILE);
  std::ofstream(dir_ / "empty.wav").close();
  EXPECT_EQ(source->Open(Path("empty.wav").c_str(), ZQSAMPLE_PCM16), ZQ_E_BAD_FILE);
  EXPECT_EQ(source->Open(Path("good.wav").c_str(), ZQSAMPLE_PCM24IN32), E_INVALIDARG);
  EXPECT_TRUE(Collect(source) == data);

  // A file cut short plays what it still holds.
  fs::copy_file(dir_ / "good.wav", dir_ / "cut.wav");
  fs::resize_file(dir_ / "cut.wav", fs::file_size(dir_ / "cut.wav") - 22);  // 5.5 of 10 frames gone
  ASSERT_EQ(source->Open(Path("cut.wav").c_str(), ZQSAMPLE_PCM16), S_OK);
  EXPECT_EQ(source->FileFrames(), 4);
  EXPECT_TRUE(Collect(source) == std::vector<BYTE>(data.begin(), data.begin() + 16));

  // No frames: a valid file, played back as just the end of the stream.
  auto wroteNone = [](CZqFileSink* sink) { EXPECT_EQ(sink->FramesWritten(), 0); };
  ASSERT_EQ(WriteFile(Path("none.wav"), Format(ZQSAMPLE_FLOAT32, 2, 44100), {}, {}, wroteNone).event, EC_COMPLETE);
  ASSERT_EQ(source->Open(Path("none.wav").c_str(), ZQSAMPLE_FLOAT32), S_OK);
  EXPECT_EQ(source->FileFrames(), 0);
  std::vector<ZqReceivedSample> samples;
  Collect(source, nullptr, &samples);
  EXPECT_TRUE(samples.empty());
  source->Release();
}

// The sink's failures: names without a container, encodings a container
// cannot hold, a file that cannot be created, and a write that fails (the
// partial file is removed, a file that was there before is not).
TEST_F(FilesTest, SinkFailuresAreReportedAndCleanedUp) {
  CZqFileSink* sink = nullptr;
  CZqFileSink::Create(&sink);
  EXPECT_EQ(sink->SetFileName(Path("a.mp3").c_str()), ZQ_E_BAD_FILE_NAME);
  EXPECT_EQ(sink->SetFileName(u"/tmp/x.wav/noext"), ZQ_E_BAD_FILE_NAME);
  sink->Release();

  const WAVEFORMATEX f32 = Format(ZQSAMPLE_FLOAT32, 2, 44100);
  const std::vector<BYTE> floats = TestSignal(ZQSAMPLE_FLOAT32, 2000);
  EXPECT_TRUE(FAILED(WriteFile(Path("f.flac"), f32, floats).connect)) << "FLAC holds no floats";
  EXPECT_EQ(WriteFile(Path("no/such/folder/a.wav"), f32, floats).run, ZQ_E_CREATE_FILE);

  for (bool existed : {false, true}) {
    if (existed) std::ofstream(dir_ / "cut.wav") << "old";
    auto failSecond = [](CZqFileSink* sink) { sink->FailWrite(2); };
    auto check = [](CZqFileSink* sink) {
      EXPECT_EQ(sink->StreamStatus(), ZQ_E_WRITE_FILE);
      EXPECT_EQ(sink->FramesWritten(), 100);
    };
    Outcome r = WriteFile(Path("cut.wav"), f32, floats, failSecond, check);
    EXPECT_EQ(r.event, EC_ERRORABORT);
    EXPECT_EQ(r.status, ZQ_E_WRITE_FILE);
    EXPECT_EQ(fs::exists(dir_ / "cut.wav"), existed)
        << (existed ? "a file the sink did not create was deleted" : "the partial file was left behind");
    fs::remove(dir_ / "cut.wav");
  }
}

struct StreamCase {
  ZQSAMPLETYPE type;
  int channels;
  ULONG framesPerSample;
};
void PrintTo(const StreamCase& c, std::ostream* os) {
  *os << "type " << c.type << ", " << c.channels << " channels, samples of " << c.framesPerSample;
}

class FileSourceStreams : public FilesTest, public ::testing::WithParamInterface<StreamCase> {};

// The source reads the file as the graph pulls it: a sample carries what the
// file holds when that sample is pulled -- a source that had read ahead
// would play bytes that are gone -- and each start plays the file from its
// first frame again.
TEST_P(FileSourceStreams, EachSampleIsReadWhenPulledAndEachStartBeginsAtTheFirstFrame) {
  const StreamCase c = GetParam();
  const WAVEFORMATEX format = Format(c.type, c.channels, 48000);
  const size_t frames = size_t(c.framesPerSample) * 7 / 2, skip = 7 * size_t(ZqAudio_BytesFromSampleType(c.type));
  const std::vector<BYTE> before = TestSignal(c.type, frames * c.channels);
  std::vector<BYTE> after = TestSignal(c.type, frames * c.channels + 7);  // the same values, seven places on
  after.erase(after.begin(), after.begin() + skip);
  ASSERT_EQ(WriteFile(Path("played.wav"), format, before).event, EC_COMPLETE);
  ASSERT_EQ(WriteFile(Path("later.wav"), format, after).event, EC_COMPLETE);
  std::ifstream laterFile(dir_ / "later.wav", std::ios::binary);
  const std::string later((std::istreambuf_iterator<char>(laterFile)), std::istreambuf_iterator<char>());

  CZqFileSource* source = nullptr;
  CZqCollectSink* collect = nullptr;
  CZqFilterGraph* graph = nullptr;
  CZqFileSource::Create(&source);
  CZqCollectSink::Create(&collect);
  CZqFilterGraph::Create(&graph);
  ASSERT_EQ(source->Open(Path("played.wav").c_str(), c.type), S_OK);
  source->SetFramesPerSample(c.framesPerSample);
  source->SetThreaded(false);
  graph->AddFilter(source, u"source");
  graph->AddFilter(collect, u"sink");
  ASSERT_EQ(graph->ConnectDirect(source->OutputPin(), collect->InputPin(), nullptr), S_OK);
  const size_t firstBytes = size_t(c.framesPerSample) * format.nBlockAlign;
  std::vector<BYTE> expected(before.begin(), before.begin() + firstBytes);
  expected.insert(expected.end(), after.begin() + firstBytes, after.end());
  for (const auto* wanted : {&expected, &after}) {
    collect->Clear();
    ASSERT_EQ(graph->Run(), S_OK);
    ASSERT_EQ(source->PushNext(), S_OK);
    // The same header, other frames: written over the file in place.
    std::fstream(dir_ / "played.wav", std::ios::in | std::ios::out | std::ios::binary)
        .write(later.data(), std::streamsize(later.size()));
    while (source->PushNext() == S_OK) {
    }
    graph->Stop();
    EXPECT_TRUE(collect->AllBytes() == *wanted) << (wanted == &expected ? "the file was read ahead of the stream"
                                                                         : "a new start did not begin at frame 0");
    EXPECT_EQ(source->FramesDelivered(), LONGLONG(frames));
  }
  graph->RemoveAllFilters();
  graph->Release();
  collect->Release();
  source->Release();
}

// Straight into the sample (16 bits), through the staging buffer in more
// than one pass (24 bits packed), the unsigned byte form in tiny samples,
// and an odd channel count.
INSTANTIATE_TEST_SUITE_P(Types, FileSourceStreams,
                         ::testing::Values(StreamCase{ZQSAMPLE_PCM16, 2, 256}, StreamCase{ZQSAMPLE_PCM24, 2, 9000},
                                           StreamCase{ZQSAMPLE_PCM8, 1, 5}, StreamCase{ZQSAMPLE_FLOAT64, 3, 100}));

}  // namespace
