// The portable routines: one per pair, built for the baseline processor.
#include <array>
#include <utility>

#include "kernel/audio/convert_routines.h"
#include "kernel/audio/sample_traits.h"

namespace zq::audio {
namespace {

template <size_t... I>
constexpr auto MakeCopyTable(std::index_sequence<I...>) {
  return std::array<ZqAudioCopyFunction, sizeof...(I)>{&CopyPortable<kCopyTypes[I / 11], kCopyTypes[I % 11]>...};
}
template <size_t... I>
constexpr auto MakeCopyChannelsTable(std::index_sequence<I...>) {
  return std::array<ZqAudioCopyChannelsFunction, sizeof...(I)>{
      &CopyChannelsPortable<kCopyTypes[I / 11], kCopyTypes[I % 11]>...};
}
template <size_t... I>
constexpr auto MakeDeInterleaveTable(std::index_sequence<I...>) {
  return std::array<ZqAudioDeInterleaveFunction, sizeof...(I)>{
      &DeInterleavePortable<kCopyTypes[I / 11], kCopyTypes[I % 11]>...};
}
template <size_t... I>
constexpr auto MakeInterleaveTable(std::index_sequence<I...>) {
  return std::array<ZqAudioInterleaveFunction, sizeof...(I)>{
      &InterleavePortable<kCopyTypes[I / 11], kCopyTypes[I % 11]>...};
}

constexpr auto kCopy = MakeCopyTable(std::make_index_sequence<121>());
constexpr auto kCopyChannels = MakeCopyChannelsTable(std::make_index_sequence<121>());
constexpr auto kDeInterleave = MakeDeInterleaveTable(std::make_index_sequence<121>());
constexpr auto kInterleave = MakeInterleaveTable(std::make_index_sequence<121>());

// The rows of the low-word source types 128 and 129.
template <class F, template <int, int> class Pick>
F LowWordSource(ZQSAMPLETYPE dst, ZQSAMPLETYPE src) {
  if (src == 128) {
    switch (dst) {
      case 17: return Pick<17, 128>::f;
      case 18: return Pick<18, 128>::f;
      case 19: return Pick<19, 128>::f;
      case 32: return Pick<32, 128>::f;
      case 33: return Pick<33, 128>::f;
      case 48: return Pick<48, 128>::f;
    }
  } else if (src == 129) {
    switch (dst) {
      case 17: return Pick<17, 129>::f;
      case 18: return Pick<18, 129>::f;
      case 32: return Pick<32, 129>::f;
      case 33: return Pick<33, 129>::f;
    }
  }
  return nullptr;
}
template <int D, int S>
struct PickCopyChannels {
  static constexpr ZqAudioCopyChannelsFunction f = &CopyChannelsPortable<D, S>;
};
template <int D, int S>
struct PickDeInterleave {
  static constexpr ZqAudioDeInterleaveFunction f = &DeInterleavePortable<D, S>;
};
template <int D, int S>
struct PickInterleave {
  static constexpr ZqAudioInterleaveFunction f = &InterleavePortable<D, S>;
};

int PairIndex(ZQSAMPLETYPE dst, ZQSAMPLETYPE src) {
  const int d = CopyTypeIndex(dst), s = CopyTypeIndex(src);
  return (d < 0 || s < 0) ? -1 : d * 11 + s;
}

ZqAudioCopyFunction Copy(ZQSAMPLETYPE dst, ZQSAMPLETYPE src) {
  // Destinations 64 and 65 have no routine from 48 and 66.
  if ((dst == 64 || dst == 65) && (src == 48 || src == 66)) return nullptr;
  const int i = PairIndex(dst, src);
  return i < 0 ? nullptr : kCopy[size_t(i)];
}
ZqAudioCopyChannelsFunction CopyChannels(ZQSAMPLETYPE dst, ZQSAMPLETYPE src) {
  const int i = PairIndex(dst, src);
  return i < 0 ? LowWordSource<ZqAudioCopyChannelsFunction, PickCopyChannels>(dst, src) : kCopyChannels[size_t(i)];
}
ZqAudioDeInterleaveFunction DeInterleave(ZQSAMPLETYPE dst, ZQSAMPLETYPE src) {
  const int i = PairIndex(dst, src);
  return i < 0 ? LowWordSource<ZqAudioDeInterleaveFunction, PickDeInterleave>(dst, src) : kDeInterleave[size_t(i)];
}
ZqAudioInterleaveFunction Interleave(ZQSAMPLETYPE dst, ZQSAMPLETYPE src) {
  const int i = PairIndex(dst, src);
  return i < 0 ? LowWordSource<ZqAudioInterleaveFunction, PickInterleave>(dst, src) : kInterleave[size_t(i)];
}

}  // namespace

const RoutineSet kPortableRoutines = {"portable", 0, &Copy, &CopyChannels, &DeInterleave, &Interleave};

}  // namespace zq::audio
