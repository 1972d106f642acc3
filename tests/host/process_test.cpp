// ProcessAudio: the copy-in and copy-out rules, the channel buffers, faults in
// processReplacing, and no allocation per block once the buffers stand.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <random>
#include <vector>

#include "kernel/audio/convert.h"
#include "kernel/audio/cpu_support.h"
#include "kernel/audio/stereo16.h"
#include "kernel/memory.h"
#include "vsthost_fixture.h"

using namespace zqtest;

namespace {

constexpr int kFrames = 64;

std::vector<float> Ramp(int frames, int channels, float step) {
  std::vector<float> v(static_cast<size_t>(frames * channels));
  for (size_t i = 0; i < v.size(); ++i) v[i] = step * static_cast<float>(i + 1);
  return v;
}

TEST(ProcessAudio, WrongSampleSizeLeavesThePluginUncalled) {
  PluginRecord record("zqtest_2in2out");
  Loaded effect("zqtest_2in2out");
  ASSERT_EQ(effect.hr, S_OK);
  std::vector<float> in(kFrames * 2), out(kFrames * 2);
  const long long before = record.State(kStateProcessCount);
  EXPECT_EQ(effect->ProcessAudio(in.data(), 2, out.data(), 2, kFrames, 2), E_INVALIDARG);
  EXPECT_EQ(record.State(kStateProcessCount), before);
  EXPECT_EQ(effect->ChannelCapacity(), 0);
}

// Float streams through each layout: which input gets which source channel,
// which destination channel gets which output.  (A null source is the tail's
// test.)
TEST(ProcessAudio, CopyRulesOfEachLayout) {
  using Expect = float (*)(const std::vector<float>& in, int f, int c);
  const struct { const char* plugin; int source, destination; Expect expect; } rows[] = {
      // out k = 2 * in k, through the stereo fast path
      {"zqtest_2in2out", 2, 2, [](const std::vector<float>& in, int f, int c) { return 2.0f * in[2 * f + c]; }},
      // input 1 stays zero without effFlagsCanMono, holds the signal with it
      {"zqtest_2in2out", 1, 2, [](const std::vector<float>& in, int f, int c) { return c == 0 ? 2.0f * in[f] : 0.0f; }},
      {"zqtest_2in2out_mono", 1, 2, [](const std::vector<float>& in, int f, int) { return 2.0f * in[f]; }},
      // a third destination channel from two outputs is muted
      {"zqtest_2in2out", 2, 3, [](const std::vector<float>& in, int f, int c) { return c < 2 ? 2.0f * in[2 * f + c] : 0.0f; }},
      // one input, two outputs (out0 = in0, out1 = -in0): the per-channel
      // way, and a stereo source gives only its left channel
      {"zqtest_1in2out", 2, 2, [](const std::vector<float>& in, int f, int c) { return c == 0 ? in[2 * f] : -in[2 * f]; }},
      // out k = in k * (k + 1)
      {"zqtest_6x6", 6, 6, [](const std::vector<float>& in, int f, int c) { return in[6 * f + c] * static_cast<float>(c + 1); }},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(std::string(row.plugin) + " from " + std::to_string(row.source));
    Loaded effect(row.plugin);
    ASSERT_EQ(effect.hr, S_OK);
    auto in = Ramp(kFrames, row.source, 0.001f);
    std::vector<float> out(static_cast<size_t>(kFrames * row.destination), 9.0f);
    ASSERT_EQ(effect->ProcessAudio(in.data(), row.source, out.data(), row.destination, kFrames, 4), S_OK);
    for (int f = 0; f < kFrames; ++f)
      for (int c = 0; c < row.destination; ++c) ASSERT_EQ(out[row.destination * f + c], row.expect(in, f, c)) << f << " " << c;
  }
}

// Every stream type through a plug-in with two inputs and two outputs gives,
// byte for byte, what the copy routines give one channel at a time: convert
// each channel in, double it (exact in float), convert it back.  Random
// bytes reach clipping, rounding ties and the type's extremes; the frame
// counts reach the routines' tails.
TEST(ProcessAudio, StereoStreamsOfEveryTypeMatchTheChannelByChannelRoutines) {
  const ZQSAMPLETYPE types[] = {ZQSAMPLE_PCM8,      ZQSAMPLE_PCM16,   ZQSAMPLE_PCM24,  ZQSAMPLE_PCM32,
                                ZQSAMPLE_FLOAT32,    ZQSAMPLE_FLOAT64, ZQSAMPLE_PCM8S,  ZQSAMPLE_PCM24IN32,
                                ZQSAMPLE_PCM16BE,    ZQSAMPLE_PCM24BE, ZQSAMPLE_PCM32BE};
  std::mt19937 random(7);
  Loaded effect("zqtest_2in2out");
  ASSERT_EQ(effect.hr, S_OK);
  for (ZQSAMPLETYPE type : types) {
    const int width = ZqAudio_BytesFromSampleType(type);
    auto in = ZqAudio_GetCopyChannelsFunction2(ZQSAMPLE_FLOAT32, type);
    auto out = ZqAudio_GetCopyChannelsFunction2(type, ZQSAMPLE_FLOAT32);
    ASSERT_NE(in, nullptr) << type;
    ASSERT_EQ(effect->SetSampleType(type), S_OK);
    for (int frames : {253, 1, 3, 512, 64}) {
      std::vector<unsigned char> source(static_cast<size_t>(frames * 2 * width));
      for (auto& b : source) b = static_cast<unsigned char>(random());
      std::vector<unsigned char> result(source.size(), 0xA5), expected(source.size(), 0xA5);
      ASSERT_EQ(effect->ProcessAudio(source.data(), 2, result.data(), 2, frames, width), S_OK);
      for (int c = 0; c < 2; ++c) {
        std::vector<float> plane(static_cast<size_t>(frames));
        in(plane.data(), 1, 0, source.data(), 2, c, static_cast<DWORD>(frames));
        for (float& v : plane) v *= 2.0f;
        // A type the stream cannot be written in leaves the destination alone.
        if (out) out(expected.data(), 2, c, plane.data(), 1, 0, static_cast<DWORD>(frames));
      }
      ASSERT_EQ(0, memcmp(result.data(), expected.data(), result.size())) << "type " << type << ", " << frames << " frames";
    }
  }
}

// The clear of the channel buffers covers capacity times the channel count
// from the first channel, which with the double stride is a partial clear:
// behind its frames a smaller block finds zeros, and in the channels the
// clear does not reach it finds the previous block.
TEST(ProcessAudio, SmallerBlocksFindThePartialClearOfTheChannelBuffers) {
  {
    // Two inputs, one output: the interleave way reads the right channel
    // from behind output 0, which the clear has zeroed, however much a
    // larger block wrote there before.
    Loaded effect("zqtest_2in1out");  // out0 = in0 + in1
    ASSERT_EQ(effect.hr, S_OK);
    auto big = Ramp(256, 2, 0.001f);
    std::vector<float> out(256 * 2);
    ASSERT_EQ(effect->ProcessAudio(big.data(), 2, out.data(), 2, 256, 4), S_OK);
    auto small = Ramp(100, 2, 0.002f);
    ASSERT_EQ(effect->ProcessAudio(small.data(), 2, out.data(), 2, 100, 4), S_OK);
    for (int f = 0; f < 100; ++f) {
      ASSERT_EQ(out[2 * f], small[2 * f] + small[2 * f + 1]) << f;
      ASSERT_EQ(out[2 * f + 1], 0.0f) << f;
    }
  }
  {
    // Six channels, then a mono source: inputs 1 and 2 lie inside the clear
    // (six capacities from input 0) and are silent; inputs 3 to 5 lie beyond
    // it and still hold the previous block.
    Loaded effect("zqtest_6x6");  // out k = in k * (k + 1)
    ASSERT_EQ(effect.hr, S_OK);
    auto six = Ramp(kFrames, 6, 0.0001f);
    std::vector<float> first(six.size()), second(six.size(), 9.0f);
    ASSERT_EQ(effect->ProcessAudio(six.data(), 6, first.data(), 6, kFrames, 4), S_OK);
    auto mono = Ramp(kFrames, 1, 0.01f);
    ASSERT_EQ(effect->ProcessAudio(mono.data(), 1, second.data(), 6, kFrames, 4), S_OK);
    for (int f = 0; f < kFrames; ++f) {
      ASSERT_EQ(second[6 * f], mono[f]) << f;
      for (int k : {1, 2}) ASSERT_EQ(second[6 * f + k], 0.0f) << f << " channel " << k;
      for (int k : {3, 4, 5}) ASSERT_EQ(second[6 * f + k], first[6 * f + k]) << f << " channel " << k;
    }
  }
}

// A 16-bit stereo stream through two inputs and two outputs has a path of its
// own on processors with wide vectors.  Whatever the processor, the output
// and every byte of the channel buffers must be what the general routines
// leave: the clear after a larger block, values a plug-in wrote behind its
// frames, the dry copy a faulting plug-in leaves standing, odd frame counts
// and misaligned host buffers.
TEST(ProcessAudio, SixteenBitStereoLeavesTheSameBuffersOnEveryProcessorPath) {
  // Per block: the output, and of each channel (inputs 0 and 1, outputs 0
  // and 1) what is defined: the block's frames, and for the first channel of
  // each side also what the clear covers (a quarter of its stride).
  struct Run { std::vector<std::vector<unsigned char>> outputs; std::vector<std::vector<float>> channels; };
  auto run = [](const char* plugin, bool narrow, Run* result) {
    const DWORD allowed = ZqSetCPUSupportAllowed(narrow ? ~ZQCPU_AVX2 : ~DWORD{0});
    Loaded effect(plugin);
    ASSERT_EQ(effect.hr, S_OK);
    ASSERT_EQ(effect->SetSampleType(ZQSAMPLE_PCM16), S_OK);
    std::mt19937 random(11);
    for (int frames : {512, 100, 1, 333, 17, 512, 64, 1000, 16, 15}) {
      for (size_t offset : {size_t{0}, size_t{2}, size_t{6}}) {
        std::vector<unsigned char> source(offset + static_cast<size_t>(frames) * 4);
        for (auto& b : source) b = static_cast<unsigned char>(random());
        source[offset] = 0x00, source[offset + 1] = 0x80;  // -32768
        std::vector<unsigned char> out(offset + static_cast<size_t>(frames) * 4 + 8, 0xA5);
        ASSERT_EQ(effect->ProcessAudio(source.data() + offset, 2, out.data() + offset, 2, frames, 2), S_OK);
        result->outputs.push_back(out);
        const size_t capacity = static_cast<size_t>(effect->ChannelCapacity());
        for (float* const* table : {effect->InputChannels(), effect->OutputChannels()}) {
          for (int k = 0; k < 2; ++k) {
            const size_t defined = k == 0 ? std::max<size_t>(static_cast<size_t>(frames), capacity / 2)
                                          : static_cast<size_t>(frames);
            result->channels.emplace_back(table[k], table[k] + defined);
          }
          // What a plug-in might leave behind its frames, for the next
          // block's clear to meet.
          if (static_cast<size_t>(frames) + 3 < capacity / 2) table[0][frames + 3] = 0.5f;
        }
      }
    }
    if (narrow) {
      EXPECT_FALSE(ZqAudio_WideStereo16Available());
    }
    ZqSetCPUSupportAllowed(allowed);
  };
  for (const char* plugin : {"zqtest_2in2out", "zqbad_process_fault"}) {
    SCOPED_TRACE(plugin);
    Run wide, general;
    run(plugin, false, &wide);
    run(plugin, true, &general);
    ASSERT_EQ(wide.outputs.size(), general.outputs.size());
    for (size_t i = 0; i < wide.outputs.size(); ++i) ASSERT_EQ(wide.outputs[i], general.outputs[i]) << "block " << i;
    ASSERT_EQ(wide.channels.size(), general.channels.size());
    for (size_t i = 0; i < wide.channels.size(); ++i) {
      ASSERT_EQ(wide.channels[i].size(), general.channels[i].size());
      ASSERT_EQ(0, memcmp(wide.channels[i].data(), general.channels[i].data(), wide.channels[i].size() * 4))
          << "block " << i / 4 << ", " << (i % 4 < 2 ? "input " : "output ") << i % 2;
    }
  }
}

TEST(ProcessAudio, ChannelBuffersHaveADoubleStrideAndGrowOnlyForLargerBlocks) {
  Loaded effect("zqtest_2in2out");
  ASSERT_EQ(effect.hr, S_OK);
  std::vector<float> in(1024 * 2), out(1024 * 2);
  ASSERT_EQ(effect->ProcessAudio(in.data(), 2, out.data(), 2, 256, 4), S_OK);
  EXPECT_EQ(effect->ChannelCapacity(), 256 * 4);
  EXPECT_EQ(effect->InputChannels()[1] - effect->InputChannels()[0], 512);
  EXPECT_EQ(effect->OutputChannels()[1] - effect->OutputChannels()[0], 512);
  float* const* tables = effect->InputChannels();

  const ULONGLONG calls = ZqMemory_GetAllocCalls();
  for (int frames : {256, 100, 1, 255, 256}) ASSERT_EQ(effect->ProcessAudio(in.data(), 2, out.data(), 2, frames, 4), S_OK);
  EXPECT_EQ(ZqMemory_GetAllocCalls(), calls);  // no allocation per block
  EXPECT_EQ(effect->InputChannels(), tables);

  // Nor for a 16-bit stream, whose routines are found at its first block.
  ASSERT_EQ(effect->SetSampleType(ZQSAMPLE_PCM16), S_OK);
  std::vector<int16_t> pcm(256 * 2, 1000), pcmOut(256 * 2);
  for (int channels : {2, 1, 2})
    ASSERT_EQ(effect->ProcessAudio(pcm.data(), channels, pcmOut.data(), 2, 256, 2), S_OK);
  const ULONGLONG pcmCalls = ZqMemory_GetAllocCalls();
  for (int frames : {256, 100, 1, 256}) ASSERT_EQ(effect->ProcessAudio(pcm.data(), 2, pcmOut.data(), 2, frames, 2), S_OK);
  EXPECT_EQ(ZqMemory_GetAllocCalls(), pcmCalls);
  EXPECT_EQ(pcmOut[0], 2000);
  ASSERT_EQ(effect->SetSampleType(ZQSAMPLE_FLOAT32), S_OK);

  ASSERT_EQ(effect->ProcessAudio(in.data(), 2, out.data(), 2, 1024, 4), S_OK);
  EXPECT_EQ(effect->ChannelCapacity(), 1024 * 4);
  EXPECT_GT(ZqMemory_GetAllocCalls(), calls);
}

TEST(ProcessAudio, OutOfMemoryWhileGrowingThenRecovers) {
  Loaded effect("zqtest_2in2out");
  ASSERT_EQ(effect.hr, S_OK);
  std::vector<float> in(kFrames * 2, 0.5f), out(kFrames * 2);
  for (LONG n : {1, 2}) {
    ZqScopedAllocFailure failure(n, ZQMEMFAIL_CALLING_THREAD);
    EXPECT_EQ(effect->ProcessAudio(in.data(), 2, out.data(), 2, kFrames, 4), E_OUTOFMEMORY) << n;
    EXPECT_EQ(effect->ChannelCapacity(), 0);
  }
  EXPECT_EQ(effect->ProcessAudio(in.data(), 2, out.data(), 2, kFrames, 4), S_OK);
  EXPECT_EQ(out[0], 1.0f);
}

TEST(ProcessAudio, FaultsInProcessReplacingKeepTheStreamRunning) {
  setenv("ZQBAD_THROW_PROCESS", "1", 1);
  setenv("ZQBAD_THROW_OPCODE", "none", 1);
  for (const char* name : {"zqbad_process_fault", "zqbad_divide", "zqbad_throw"}) {
    PluginRecord record(name);
    Loaded effect(name);
    ASSERT_EQ(effect.hr, S_OK) << name;
    auto in = Ramp(kFrames, 2, 0.001f);
    std::vector<float> out(in.size());
    const long long before = record.State(kStateProcessCount);
    for (int block = 0; block < 3; ++block) {
      ASSERT_EQ(effect->ProcessAudio(in.data(), 2, out.data(), 2, kFrames, 4), S_OK) << name;
      // The dry copy stands in the output.
      ASSERT_EQ(out[5], in[5]) << name;
    }
    EXPECT_EQ(record.State(kStateProcessCount) - before, 3) << name;
    WCHAR text[64];
    EXPECT_EQ(effect->GetEffectName(text, 64), S_OK) << name;
  }
  unsetenv("ZQBAD_THROW_PROCESS");
  unsetenv("ZQBAD_THROW_OPCODE");
}

// End of stream: blocks with a source, then the tail with none, in chunks
// of the block size as the filter draws it.  Through a pure delay of L frames
// the tail gives the last L input frames and then exact silence in every
// channel: nothing of the last block may stay in an input.
TEST(ProcessAudio, TheTailOfAPureDelayIsSilentInEveryChannel) {
  constexpr int kLatency = 50, kTail = 400, kInput = 1000;
  setenv("ZQTEST_LATENCY", "50", 1);
  setenv("ZQTEST_TAIL", "400", 1);
  for (int block : {64, 100, 333, 1000}) {
    Loaded effect("zqtest_latency");
    ASSERT_EQ(effect.hr, S_OK);
    effect->Resume(FALSE);
    auto in = Ramp(kInput, 2, 0.001f);
    std::vector<float> out(static_cast<size_t>(kInput + kTail) * 2, 9.0f);
    for (int at = 0, n; at < kInput; at += n) {
      n = std::min(block, kInput - at);
      ASSERT_EQ(effect->ProcessAudio(in.data() + 2 * at, 2, out.data() + 2 * at, 2, n, 4), S_OK);
    }
    for (int at = kInput, n; at < kInput + kTail; at += n) {
      n = std::min(block, kInput + kTail - at);
      ASSERT_EQ(effect->ProcessAudio(nullptr, 2, out.data() + 2 * at, 2, n, 4), S_OK);
    }
    for (int f = kInput; f < kInput + kTail; ++f)
      for (int c = 0; c < 2; ++c)
        ASSERT_EQ(out[2 * f + c], f < kInput + kLatency ? in[2 * (f - kLatency) + c] : 0.0f)
            << "block " << block << ", frame " << f << ", channel " << c;
  }
  unsetenv("ZQTEST_LATENCY");
  unsetenv("ZQTEST_TAIL");
}

}  // namespace
