// Channel rearrangements of audio files through libsndfile.
#include "tools/zqvst/layout.h"

#include <sndfile.h>

#include <algorithm>
#include <memory>

#include "tools/zqvst/cmdline.h"

namespace {

constexpr sf_count_t kBlockFrames = 4096;

struct FileCloser {
  void operator()(SNDFILE* file) const { sf_close(file); }
};
using File = std::unique_ptr<SNDFILE, FileCloser>;

File OpenRead(const std::string& path, SF_INFO* info, ZqvstFailure* failure) {
  *info = SF_INFO{};
  File file(sf_open(path.c_str(), SFM_READ, info));
  if (!file) *failure = {"cannot read the input " + path + " (" + sf_strerror(nullptr) + ")", ZQ_E_OPEN_FILE};
  // Integer samples as their plain values: the scaling of normalised reads
  // and writes differ by one step, which would change full-scale samples.
  if (file) sf_command(file.get(), SFC_SET_NORM_DOUBLE, nullptr, SF_FALSE);
  return file;
}

File OpenWrite(const std::string& path, SF_INFO* info, ZqvstFailure* failure) {
  File file(sf_open(path.c_str(), SFM_WRITE, info));
  if (!file) *failure = {"cannot write " + path + " (" + sf_strerror(nullptr) + ")", ZQ_E_OPEN_FILE};
  if (file) sf_command(file.get(), SFC_SET_NORM_DOUBLE, nullptr, SF_FALSE);
  return file;
}

int ContainerOf(const std::string& path) {
  const size_t dot = path.rfind('.');
  const std::string extension = dot == std::string::npos ? std::string() : path.substr(dot + 1);
  if (ZqvstEqualsNoCase(extension, "aif") || ZqvstEqualsNoCase(extension, "aiff")) return SF_FORMAT_AIFF;
  if (ZqvstEqualsNoCase(extension, "flac")) return SF_FORMAT_FLAC;
  return SF_FORMAT_WAV;
}

}  // namespace

int ZqvstFileChannels(const std::string& path) {
  SF_INFO info{};
  SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
  if (!file) return 0;
  sf_close(file);
  return info.channels;
}

bool ZqvstRemapChannels(const std::string& input, const std::vector<int>& map, const std::string& output,
                        ZqvstFailure* failure) {
  SF_INFO in{};
  File source = OpenRead(input, &in, failure);
  if (!source) return false;
  SF_INFO out{};
  out.samplerate = in.samplerate;
  out.channels = int(map.size());
  out.format = SF_FORMAT_WAV | (in.format & SF_FORMAT_SUBMASK);
  File sink = OpenWrite(output, &out, failure);
  if (!sink) return false;
  std::vector<double> block(size_t(kBlockFrames) * size_t(in.channels));
  std::vector<double> picked(size_t(kBlockFrames) * map.size());
  for (;;) {
    const sf_count_t got = sf_readf_double(source.get(), block.data(), kBlockFrames);
    if (got <= 0) break;
    for (sf_count_t f = 0; f < got; ++f)
      for (size_t k = 0; k < map.size(); ++k)
        picked[size_t(f) * map.size() + k] = block[size_t(f) * size_t(in.channels) + size_t(map[k])];
    if (sf_writef_double(sink.get(), picked.data(), got) != got) {
      *failure = {"cannot write " + output, ZQ_E_OPEN_FILE};
      return false;
    }
  }
  return true;
}

bool ZqvstInterleave(const std::vector<std::string>& inputs, const std::string& output, ZqvstFailure* failure) {
  std::vector<File> sources;
  std::vector<SF_INFO> infos(inputs.size());
  for (size_t i = 0; i < inputs.size(); ++i) {
    sources.push_back(OpenRead(inputs[i], &infos[i], failure));
    if (!sources.back()) return false;
  }
  SF_INFO out{};
  out.samplerate = infos[0].samplerate;
  out.channels = int(inputs.size());
  out.format = ContainerOf(output) | (infos[0].format & SF_FORMAT_SUBMASK);
  File sink = OpenWrite(output, &out, failure);
  if (!sink) return false;
  const size_t channels = inputs.size();
  std::vector<double> mixed(size_t(kBlockFrames) * channels);
  std::vector<double> block;
  for (;;) {
    std::fill(mixed.begin(), mixed.end(), 0.0);
    sf_count_t longest = 0;
    for (size_t i = 0; i < channels; ++i) {
      const size_t width = size_t(infos[i].channels);
      block.resize(size_t(kBlockFrames) * width);
      const sf_count_t got = sf_readf_double(sources[i].get(), block.data(), kBlockFrames);
      for (sf_count_t f = 0; f < got; ++f) mixed[size_t(f) * channels + i] = block[size_t(f) * width];
      longest = std::max(longest, got);
    }
    if (longest <= 0) break;
    if (sf_writef_double(sink.get(), mixed.data(), longest) != longest) {
      *failure = {"cannot write " + output, ZQ_E_OPEN_FILE};
      return false;
    }
  }
  return true;
}

bool ZqvstFitChannels(const std::string& input, int channels, const std::string& output, ZqvstFailure* failure) {
  SF_INFO in{};
  File source = OpenRead(input, &in, failure);
  if (!source) return false;
  if (in.channels != 1 && channels != 1) {
    *failure = {"the plug-in gives " + std::to_string(in.channels) + " channels, which cannot become " +
                std::to_string(channels) + "; --channels can be " + std::to_string(in.channels) +
                " or 1 (mixed down)"};
    return false;
  }
  SF_INFO out{};
  out.samplerate = in.samplerate;
  out.channels = channels;
  out.format = ContainerOf(output) | (in.format & SF_FORMAT_SUBMASK);
  File sink = OpenWrite(output, &out, failure);
  if (!sink) return false;
  const size_t from = size_t(in.channels), to = size_t(channels);
  std::vector<double> block(size_t(kBlockFrames) * from), fitted(size_t(kBlockFrames) * to);
  for (;;) {
    const sf_count_t got = sf_readf_double(source.get(), block.data(), kBlockFrames);
    if (got <= 0) break;
    for (size_t f = 0; f < size_t(got); ++f) {
      double sum = 0;
      for (size_t c = 0; c < from; ++c) sum += block[f * from + c];
      for (size_t c = 0; c < to; ++c) fitted[f * to + c] = sum / double(from);
    }
    if (sf_writef_double(sink.get(), fitted.data(), got) != got) {
      *failure = {"cannot write " + output, ZQ_E_OPEN_FILE};
      return false;
    }
  }
  return true;
}

ZqvstLayout ZqvstPlanLayout(int inputChannels, int pluginInputs) {
  if (pluginInputs <= 0 || inputChannels <= 0 || inputChannels == pluginInputs) return ZqvstLayout::kDirect;
  if (pluginInputs == 1) return ZqvstLayout::kPerChannel;
  if (pluginInputs == 2 && inputChannels == 1) return ZqvstLayout::kDuplicate;
  return inputChannels < pluginInputs ? ZqvstLayout::kDirect : ZqvstLayout::kRefused;
}
