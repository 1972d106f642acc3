// Media types, buffer sizes, reconnection and the notification table of the
// plug-in filter, through the framework's graph with the plug-ins we build.
#include <cstring>

#include "filter_fixture.h"

namespace {

using namespace zqtest;

CMediaType AudioType(const WAVEFORMATEX& w, ULONG formatBytes = sizeof(WAVEFORMATEX)) {
  CMediaType mt;
  CreateAudioMediaType(&w, &mt, TRUE);
  mt.ReallocFormatBuffer(formatBytes);
  mt.cbFormat = formatBytes;
  return mt;
}

// Whether the filter's input takes `channels` of 16-bit PCM.
bool Takes(IPin* in, WORD channels) {
  CMediaType mt = AudioType(Wave(WAVE_FORMAT_PCM, channels, 44100, 16));
  return in->QueryAccept(&mt) == S_OK;
}

TEST(FilterTypes, ChannelCountsFollowThePluginsPins) {
  struct Case {
    const char* module;
    LONG id;
    std::vector<WORD> taken;
    std::vector<WORD> refused;
  };
  const Case cases[] = {
      {"zqgain", FourCC("ZqGn"), {1, 2}, {3, 4, 6}},
      {"zqtest_1in2out", FourCC("Zq12"), {1}, {2, 3}},
      {"zqtest_1in2out_mono", FourCC("Zq1M"), {1}, {2}},
      {"zqtest_6x6", FourCC("Zq66"), {1, 2, 3, 4, 6, 8}, {}},
      {"zqtest_synth", FourCC("ZqSy"), {}, {1, 2}},
  };
  for (const Case& c : cases) {
    FilterChain chain(Register(c.module, c.id));
    ASSERT_EQ(chain.made, S_OK) << c.module;
    for (WORD n : c.taken) EXPECT_TRUE(Takes(chain.in, n)) << c.module << " " << n;
    for (WORD n : c.refused) EXPECT_FALSE(Takes(chain.in, n)) << c.module << " " << n;
  }
}

TEST(FilterTypes, InputTypesAreCheckedForKindFormatAndConversions) {
  FilterChain chain(Register("zqgain", FourCC("ZqGn")));
  const WAVEFORMATEX pcm = Wave(WAVE_FORMAT_PCM, 2, 44100, 16);
  CMediaType good = AudioType(pcm);
  EXPECT_EQ(chain.in->QueryAccept(&good), S_OK);
  CMediaType shortBlock = AudioType(pcm, 14);
  EXPECT_EQ(chain.in->QueryAccept(&shortBlock), S_FALSE);
  CMediaType plain16 = AudioType(pcm, 16);
  EXPECT_EQ(chain.in->QueryAccept(&plain16), S_OK) << "16 bytes are enough";
  CMediaType compressed = AudioType(pcm);
  compressed.bTemporalCompression = TRUE;
  EXPECT_EQ(chain.in->QueryAccept(&compressed), S_FALSE);
  CMediaType video = AudioType(pcm);
  video.majortype = MEDIATYPE_Video;
  EXPECT_EQ(chain.in->QueryAccept(&video), S_FALSE);
  CMediaType mp3 = AudioType(Wave(0x0055, 2, 44100, 16));
  EXPECT_EQ(chain.in->QueryAccept(&mp3), S_FALSE) << "no conversion to and from floats";
  CMediaType twelveBits = AudioType(Wave(WAVE_FORMAT_PCM, 2, 44100, 12));
  EXPECT_EQ(chain.in->QueryAccept(&twelveBits), S_FALSE);
}

TEST(FilterTypes, MonoIntoStereoGivesTheOutputChannelsAndCanonicalFormats) {
  FilterChain chain(Register("zqgain", FourCC("ZqGn")));
  WAVEFORMATEXTENSIBLE ext{};
  ext.Format = Wave(WAVE_FORMAT_EXTENSIBLE, 1, 48000, 32);
  ext.Format.cbSize = 22;
  ext.Samples.wValidBitsPerSample = 32;
  ext.dwChannelMask = 4;
  ext.SubFormat = MEDIASUBTYPE_IEEE_FLOAT;
  chain.source->SetFormat(&ext.Format);
  std::vector<BYTE> silence(64 * 4);
  chain.source->SetData(silence.data(), silence.size());
  chain.source->SetFramesPerSample(64);
  ASSERT_EQ(chain.ConnectAll(), S_OK);

  WAVEFORMATEX in{}, out{};
  ASSERT_EQ(chain.prop->GetFormat(&in, 0), S_OK);
  ASSERT_EQ(chain.prop->GetFormat(&out, 1), S_OK);
  EXPECT_EQ(chain.prop->GetFormat(&out, 2), VFW_E_NOT_CONNECTED);
  // Canonical: 18 bytes, the tag kept, sizes recomputed, nothing extra.
  EXPECT_EQ(in.wFormatTag, WAVE_FORMAT_EXTENSIBLE);
  EXPECT_EQ(in.cbSize, 0);
  EXPECT_EQ(in.nChannels, 1);
  EXPECT_EQ(in.nBlockAlign, 4);
  EXPECT_EQ(in.nAvgBytesPerSec, 4u * 48000);
  EXPECT_EQ(out.nChannels, 2);
  EXPECT_EQ(out.nBlockAlign, 8);
  EXPECT_EQ(out.nAvgBytesPerSec, 8u * 48000);
  CMediaType sinkType = chain.sink->ConnectedType();
  const auto* sinkFormat = reinterpret_cast<const WAVEFORMATEX*>(sinkType.Format());
  EXPECT_EQ(sinkFormat->nChannels, 2);
  EXPECT_EQ(sinkFormat->cbSize, 0);
  EXPECT_EQ(sinkFormat->nSamplesPerSec, 48000u);

  // The floats arrive intact: the plug-in heard the type of the extensible
  // format, not of its tag.
  std::vector<float> ramp(64);
  for (size_t i = 0; i < ramp.size(); ++i) ramp[i] = float(i) / 128.0f;
  chain.graph->Disconnect(chain.in);
  chain.graph->Disconnect(chain.source->OutputPin());
  chain.source->SetData(ramp.data(), ramp.size() * 4);
  ASSERT_EQ(chain.ConnectInput(), S_OK);
  ASSERT_EQ(chain.Play(), S_OK);
  std::vector<BYTE> bytes = chain.sink->AllBytes();
  ASSERT_EQ(bytes.size(), 64u * 8);
  const float* got = reinterpret_cast<const float*>(bytes.data());
  EXPECT_FLOAT_EQ(got[2 * 10], ramp[10]);
}

TEST(FilterTypes, BufferSizeSetsTheLargestBlockAndHasAFloor) {
  PluginRecord gain("zqgain");
  {
    // 127 bytes: one channel of 8-bit samples, 127 to a buffer.
    FilterChain chain(Register("zqgain", FourCC("ZqGn")));
    std::vector<BYTE> data(127 * 2, 128);
    chain.Feed(Wave(WAVE_FORMAT_PCM, 1, 44100, 8), data, 127);
    ASSERT_EQ(chain.ConnectInput(), S_OK);
    EXPECT_TRUE(FAILED(chain.ConnectOutput()));
  }
  {
    FilterChain chain(Register("zqgain", FourCC("ZqGn")));
    std::vector<BYTE> data(128 * 2);
    chain.Feed(Wave(WAVE_FORMAT_PCM, 2, 44100, 16), data, 32);
    ASSERT_EQ(chain.ConnectAll(), S_OK);
    EXPECT_EQ(static_cast<CZqVstWrapTransform*>(chain.prop)->MaxBlock(), 16u);
    EXPECT_EQ(gain.State(kSlotBlockSize), 16) << "the plug-in hears it at connection";
  }
}

TEST(FilterTypes, ANewInputRateIsTakenOnlyWhenDownstreamAcceptsTheOutputAndTheGraphCanReconnectIt) {
  FilterChain chain(Register("zqgain", FourCC("ZqGn")));
  chain.Feed(Wave(WAVE_FORMAT_PCM, 2, 44100, 16), std::vector<BYTE>(256 * 4), 256);
  ASSERT_EQ(chain.ConnectAll(), S_OK);
  auto reconnectAt = [&](DWORD rate) {
    chain.graph->Disconnect(chain.in);
    chain.graph->Disconnect(chain.source->OutputPin());
    WAVEFORMATEX w = Wave(WAVE_FORMAT_PCM, 2, rate, 16);
    chain.source->SetFormat(&w);
    return chain.source->OutputPin()->Connect(chain.in, nullptr);
  };
  chain.sink->RefuseQueryAccept(true);
  EXPECT_TRUE(FAILED(reconnectAt(48000)));
  EXPECT_FALSE(static_cast<CBasePin*>(chain.in)->IsConnected());
  chain.sink->RefuseQueryAccept(false);
  ASSERT_EQ(reconnectAt(48000), S_OK);
  CMediaType sinkType = chain.sink->ConnectedType();
  ASSERT_NE(sinkType.Format(), nullptr);
  EXPECT_EQ(reinterpret_cast<const WAVEFORMATEX*>(sinkType.Format())->nSamplesPerSec, 48000u)
      << "the output was connected again for the new rate";
  // Out of a graph nobody can reconnect the output: the input is refused.
  ASSERT_EQ(chain.filter->JoinFilterGraph(nullptr, nullptr), S_OK);
  EXPECT_TRUE(FAILED(reconnectAt(44100)));
  EXPECT_FALSE(static_cast<CBasePin*>(chain.in)->IsConnected());
}

TEST(FilterNotify, FourWindowsAreToldAndDeadOnesAreDropped) {
  FilterChain chain(Register("zqgain", FourCC("ZqGn")));
  HWND windows[5];
  for (HWND& w : windows) w = ZqCreateWindow(&QuietWindow, 0);
  for (int i = 0; i < 4; ++i) ASSERT_EQ(chain.prop->SetNotifyWindow(windows[i], DWORD(0x10000 + 10 + i)), S_OK);
  EXPECT_EQ(chain.prop->SetNotifyWindow(windows[4], 50), E_OUTOFMEMORY);
  EXPECT_EQ(chain.prop->SetNotifyWindow(windows[4], 0), S_OK) << "removing one never registered";
  EXPECT_EQ(chain.prop->SetNotifyWindow(windows[0], 20), S_OK) << "a registered window changes its id";

  DestroyWindow(windows[2]);
  std::vector<BYTE> data(64 * 4);
  chain.Feed(Wave(WAVE_FORMAT_PCM, 2, 44100, 16), data, 64);
  ASSERT_EQ(chain.ConnectAll(), S_OK);  // input type (0), then output type (1)

  const std::vector<std::pair<HWND, WPARAM>> got = TakeCommands();
  // Each window took the last free place, so the first registered is told
  // last; only the low word of an id goes out.
  const std::vector<std::pair<HWND, WPARAM>> expected = {
      {windows[3], 13}, {windows[1], 11}, {windows[0], 20},
      {windows[3], 13 | 1u << 16}, {windows[1], 11 | 1u << 16}, {windows[0], 20 | 1u << 16}};
  EXPECT_EQ(got, expected);
  // The destroyed window's place was given up: a fifth window fits now.
  EXPECT_EQ(chain.prop->SetNotifyWindow(windows[4], 50), S_OK);
  for (HWND w : windows) DestroyWindow(w);
}

TEST(FilterNotify, ThePlugInsEditorSizeAndDisplayChangesAreTold) {
  FilterChain chain(Register("zqgain", FourCC("ZqGn")));
  ASSERT_EQ(chain.made, S_OK);
  HWND window = ZqCreateWindow(&QuietWindow, 0);
  ASSERT_EQ(chain.prop->SetNotifyWindow(window, 7), S_OK);
  auto* filter = static_cast<CZqVstWrapTransform*>(chain.prop);
  auto* master = new CVstMaster(filter);  // what the plug-in's calls reach

  EXPECT_EQ(master->SizeWindow(320, 240), S_OK);
  ZQVSTRECT rect{};
  ASSERT_EQ(chain.prop->GetEditorRect(&rect), S_OK);
  EXPECT_EQ(rect.right, 320);
  EXPECT_EQ(rect.bottom, 240);
  // A display update tells only when a cached value moved.
  EXPECT_EQ(master->UpdateDisplay(), S_FALSE);
  ASSERT_EQ(filter->Effect()->SetParameter(0, 0.125f), S_OK);
  EXPECT_EQ(master->UpdateDisplay(), S_OK);
  float value = 0;
  EXPECT_EQ(chain.prop->GetParamValue(0, &value), S_OK);
  EXPECT_EQ(value, 0.125f);

  const std::vector<std::pair<HWND, WPARAM>> expected = {{window, 7 | 200u << 16}, {window, 7 | 300u << 16}};
  EXPECT_EQ(TakeCommands(), expected);
  master->Release();
  DestroyWindow(window);
}

}  // namespace
