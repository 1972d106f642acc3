// ZqChunk: a plug-in that keeps its state as an opaque chunk
// (effFlagsProgramChunks), so presets and banks travel as 'FPCh' / 'FBCh'.
//
// Parameters: 0 Level (out = in * 2 * v, 0.5 is unity), 1 Tone, 2 Width
// (kept and saved, no effect on the sound).  Three programs.
//
// Chunk layout (little-endian, 16-byte header then records):
//   offset 0  u32  magic 0x5A714353 ('ZqCS' read big-endian)
//   offset 4  u16  version, 1
//   offset 6  u16  kind: 0 bank, 1 program (the effGetChunk/effSetChunk index)
//   offset 8  u32  count of program records: numPrograms for a bank, 1 for a program
//   offset 12 u32  current program (bank) or 0 (program)
//   then count records of 36 bytes: name (24 bytes, zero-terminated), three f32
// effSetChunk answers 1 and takes the chunk when all of it checks out (size
// exactly 16 + 36 * count, magic, version, kind equal to the index, count,
// current program in range, every value a number in 0..1, names terminated);
// otherwise it answers 0 and changes nothing.  Slot 17 of the state counts
// accepted chunks, slot 18 refused ones.
#include <cmath>
#include <cstring>
#include <vector>

#include "plugins/common/zqplugin.h"

namespace {

using namespace zqplug;

constexpr uint32_t kChunkMagic = 0x5A714353;
constexpr uint16_t kChunkVersion = 1;
constexpr size_t kHeaderSize = 16;
constexpr size_t kNameSize = 24;
constexpr int32_t kParams = 3;
constexpr size_t kRecordSize = kNameSize + 4 * kParams;

Info ChunkInfo() {
  Info info;
  info.effectName = "ZqChunk";
  info.productName = "ZqVstWrap Examples";
  info.uniqueId = ZqVstFourCC("ZqCk");
  info.version = 2;
  info.vendorVersion = 1000;
  info.numInputs = 2;
  info.numOutputs = 2;
  info.flags = effFlagsCanReplacing | effFlagsProgramChunks;
  info.params = {{"Level", "", 0.5f}, {"Tone", "", 0.5f}, {"Width", "", 0.5f}};
  info.programs = {{"Init", {0.5f, 0.5f, 0.5f}},
                   {"Bright", {0.5f, 0.9f, 0.5f}},
                   {"Wide", {0.25f, 0.5f, 1.0f}}};
  return info;
}

template <typename T>
void Put(std::vector<unsigned char>& out, T value) {
  unsigned char bytes[sizeof(T)];
  std::memcpy(bytes, &value, sizeof(T));
  out.insert(out.end(), bytes, bytes + sizeof(T));
}

template <typename T>
T Get(const unsigned char* at) {
  T value;
  std::memcpy(&value, at, sizeof(T));
  return value;
}

class Chunk final : public Plugin {
 public:
  explicit Chunk(audioMasterCallback host) : Plugin(host, ChunkInfo()) {}

 protected:
  void Process(float** in, float** out, int32_t frames) override {
    const float g = 2.0f * Param(0);
    for (int c = 0; c < 2; ++c)
      for (int32_t i = 0; i < frames; ++i) out[c][i] = in[c][i] * g;
  }

  int64_t PluginState(int32_t slot) override {
    if (slot == kStatePluginSpecific) return accepted_;
    if (slot == kStatePluginSpecific + 1) return refused_;
    return -1;
  }

  intptr_t DispatchExtra(int32_t opcode, int32_t index, intptr_t value, void* ptr, float) override {
    if (opcode == effGetChunk) {
      if (ptr == nullptr) return 0;
      Save(index == 0);
      *static_cast<void**>(ptr) = chunk_.data();
      return static_cast<intptr_t>(chunk_.size());
    }
    if (opcode == effSetChunk) {
      const bool ok = ptr != nullptr && value > 0 &&
                      Load(static_cast<const unsigned char*>(ptr), static_cast<size_t>(value), index == 0);
      ++(ok ? accepted_ : refused_);
      return ok ? 1 : 0;
    }
    return 0;
  }

 private:
  void PutRecord(int32_t program) {
    char name[kNameSize] = {};
    CopyText(name, ProgramName(program).c_str(), sizeof name);
    chunk_.insert(chunk_.end(), name, name + kNameSize);
    for (float v : ProgramValues(program)) Put(chunk_, v);
  }

  void Save(bool bank) {
    chunk_.clear();
    const int32_t count = bank ? effect()->numPrograms : 1;
    Put(chunk_, kChunkMagic);
    Put(chunk_, kChunkVersion);
    Put(chunk_, static_cast<uint16_t>(bank ? 0 : 1));
    Put(chunk_, static_cast<uint32_t>(count));
    Put(chunk_, static_cast<uint32_t>(bank ? CurrentProgram() : 0));
    if (bank) {
      for (int32_t p = 0; p < count; ++p) PutRecord(p);
    } else {
      PutRecord(CurrentProgram());
    }
  }

  bool Load(const unsigned char* data, size_t size, bool bank) {
    if (size < kHeaderSize) return false;
    const uint32_t count = Get<uint32_t>(data + 8);
    const uint32_t current = Get<uint32_t>(data + 12);
    const uint32_t wanted = bank ? static_cast<uint32_t>(effect()->numPrograms) : 1u;
    if (Get<uint32_t>(data) != kChunkMagic || Get<uint16_t>(data + 4) != kChunkVersion ||
        Get<uint16_t>(data + 6) != (bank ? 0 : 1) || count != wanted ||
        size != kHeaderSize + kRecordSize * count || current >= wanted)
      return false;
    for (uint32_t r = 0; r < count; ++r) {
      const unsigned char* record = data + kHeaderSize + kRecordSize * r;
      if (std::memchr(record, 0, kNameSize) == nullptr) return false;
      for (int32_t k = 0; k < kParams; ++k) {
        const float v = Get<float>(record + kNameSize + 4 * k);
        if (!(v >= 0.0f && v <= 1.0f)) return false;
      }
    }
    for (uint32_t r = 0; r < count; ++r) {
      const unsigned char* record = data + kHeaderSize + kRecordSize * r;
      const int32_t program = bank ? static_cast<int32_t>(r) : CurrentProgram();
      SetProgramName(program, reinterpret_cast<const char*>(record));
      for (int32_t k = 0; k < kParams; ++k)
        ProgramValues(program)[static_cast<size_t>(k)] = Get<float>(record + kNameSize + 4 * k);
    }
    SelectProgram(bank ? static_cast<int32_t>(current) : CurrentProgram());
    return true;
  }

  std::vector<unsigned char> chunk_;
  int64_t accepted_ = 0;
  int64_t refused_ = 0;
};

}  // namespace

ZQ_PLUGIN_EXPORT AEffect* VSTPluginMain(audioMasterCallback host) {
  return zqplug::Create<Chunk>(host);
}
