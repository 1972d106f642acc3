// The filter's saved state and its presets as a host drives them: the state
// stream of IPersistStream, programs and their names, preset and bank files,
// and the refresh of the cache and the pages after every load.
#include <cstring>
#include <filesystem>
#include <new>
#include <string>
#include <vector>

#include "tests/filter/filter_fixture.h"
#include "kernel/containers/streambase.h"
#include "kernel/containers/streams.h"
#include "kernel/kernel_init.h"
#include "kernel/lang.h"
#include "kernel/memory.h"
#include "tests/support/test_folder.h"

namespace {

using namespace zqtest;
namespace fs = std::filesystem;

constexpr LONG kGain = FourCC("ZqGn");
constexpr LONG kChunk = FourCC("ZqCk");

// A filter made through the library, with the interfaces these tests use.
struct StateFilter {
  IBaseFilter* filter = nullptr;
  IPersistStream* persist = nullptr;
  IVstFilterPreset* presets = nullptr;
  IZqVstWrapProp* prop = nullptr;

  explicit StateFilter(REFCLSID clsid) {
    EXPECT_EQ(MakeFilter(clsid, &filter), S_OK);
    if (!filter) return;
    persist = Query<IPersistStream>(filter);
    presets = Query<IVstFilterPreset>(filter);
    prop = Query<IZqVstWrapProp>(filter);
  }
  ~StateFilter() {
    for (IUnknown* u : {static_cast<IUnknown*>(persist), static_cast<IUnknown*>(presets),
                        static_cast<IUnknown*>(prop), static_cast<IUnknown*>(filter)})
      if (u) u->Release();
  }
  StateFilter(const StateFilter&) = delete;
  StateFilter& operator=(const StateFilter&) = delete;

  std::vector<float> Params() {
    std::vector<float> values(size_t(prop->GetParamCount()));
    EXPECT_EQ(prop->GetAllParams(values.data()), S_OK);
    return values;
  }
  LONG Program() {
    LONG index = -1;
    EXPECT_EQ(presets->GetCurrentPreset(&index), S_OK);
    return index;
  }
  std::u16string ProgramName(LONG index) {
    WCHAR name[64] = {};
    presets->GetPresetName(index, name, 64);
    return name;
  }
};

// A memory stream with room for any state these plug-ins write.
struct MemStream {
  std::vector<BYTE> room = std::vector<BYTE>(1 << 16);
  IStream* stream = nullptr;
  explicit MemStream(const std::vector<BYTE>& bytes = {}) {
    if (!bytes.empty()) std::memcpy(room.data(), bytes.data(), bytes.size());
    EXPECT_EQ(ZqCreateStreamFromMemory(room.data(), ULONG(room.size()), ULONG(bytes.size()), &stream, FALSE), S_OK);
  }
  ~MemStream() { stream->Release(); }
  MemStream(const MemStream&) = delete;
  MemStream& operator=(const MemStream&) = delete;
  ULONGLONG Position() {
    LARGE_INTEGER zero{};
    ULARGE_INTEGER at{};
    stream->Seek(zero, STREAM_SEEK_CUR, &at);
    return at.QuadPart;
  }
  // The bytes written so far.
  std::vector<BYTE> Written() { return {room.begin(), room.begin() + ptrdiff_t(Position())}; }
};

// A stream whose every read fails.
class RefusingStream final : public ZqStreamObject<RefusingStream> {
 public:
  HRESULT STDMETHODCALLTYPE Read(void*, ULONG, ULONG* read) override {
    if (read) *read = 0;
    return STG_E_READFAULT;
  }
  HRESULT STDMETHODCALLTYPE Write(const void*, ULONG, ULONG* written) override {
    if (written) *written = 0;
    return STG_E_WRITEFAULT;
  }
  HRESULT STDMETHODCALLTYPE Seek(LARGE_INTEGER, DWORD, ULARGE_INTEGER*) override { return STG_E_INVALIDFUNCTION; }

 private:
  friend ComBase;
  ~RefusingStream() = default;
};

// A folder of the test's own, and the UTF-16 paths the filter takes.
struct TempFolder : zqtest::TestFolder {
  explicit TempFolder(const char* name) : zqtest::TestFolder("zq_filterstate_", name) {}
  std::u16string File(const char* name) const { return ZqUtf8ToUtf16((path() / name).string()); }
};

class FilterState : public ::testing::Test {
 protected:
  void SetUp() override {
    ZqVstRecords_Destroy();
    gain_ = Register("zqgain", kGain);
    chunk_ = Register("zqchunk", kChunk);
  }
  void TearDown() override { ZqVstRecords_Destroy(); }
  CLSID gain_{};
  CLSID chunk_{};
};

TEST_F(FilterState, SaveThenLoadOnAFreshFilterRestoresProgramAndParameters) {
  for (const CLSID* clsid : {&gain_, &chunk_}) {
    std::vector<BYTE> saved;
    std::vector<float> before;
    {
      StateFilter a(*clsid);
      ASSERT_NE(a.presets, nullptr);
      ASSERT_EQ(a.presets->SetPreset(1), S_OK);
      ASSERT_EQ(a.prop->SetParamValue(1, 0.75f), S_OK);
      before = a.Params();
      EXPECT_EQ(a.persist->IsDirty(), S_OK);

      MemStream out;
      ASSERT_EQ(a.persist->Save(out.stream, FALSE), S_OK);
      EXPECT_EQ(a.persist->IsDirty(), S_OK);
      const ULONGLONG first = out.Position();
      ASSERT_EQ(a.persist->Save(out.stream, TRUE), S_OK);
      EXPECT_EQ(a.persist->IsDirty(), S_FALSE);
      saved = out.Written();
      // Two saves of one state are the same bytes.
      ASSERT_EQ(saved.size(), 2 * first);
      EXPECT_TRUE(std::equal(saved.begin(), saved.begin() + ptrdiff_t(first), saved.begin() + ptrdiff_t(first)));
      saved.resize(size_t(first));

      // The program index leads, little-endian; the fxp form follows.
      ASSERT_GT(saved.size(), 12u);
      EXPECT_EQ(saved[0], 1);
      EXPECT_EQ(saved[1] | saved[2] | saved[3], 0);
      EXPECT_EQ(std::memcmp(saved.data() + 4, "CcnK", 4), 0);
      ULARGE_INTEGER max{};
      EXPECT_EQ(a.persist->GetSizeMax(&max), S_OK);
      EXPECT_EQ(max.QuadPart, saved.size());
      EXPECT_EQ(a.persist->GetSizeMax(nullptr), S_OK);
    }
    StateFilter b(*clsid);
    EXPECT_NE(b.Params(), before);
    b.persist->Save(MemStream().stream, TRUE);
    EXPECT_EQ(b.persist->IsDirty(), S_FALSE);
    MemStream in(saved);
    EXPECT_EQ(b.persist->Load(in.stream), S_OK);
    EXPECT_EQ(in.Position(), saved.size());
    EXPECT_EQ(b.Program(), 1);
    EXPECT_EQ(b.Params(), before);
    // The refresh stores what the plug-in now holds: a change to save, even
    // when the same state is loaded again and no value moves.
    EXPECT_EQ(b.persist->IsDirty(), S_OK);
    b.persist->Save(MemStream().stream, TRUE);
    EXPECT_EQ(b.persist->Load(MemStream(saved).stream), S_OK);
    EXPECT_EQ(b.persist->IsDirty(), S_OK);
  }
}

TEST_F(FilterState, LoadOfShortDamagedOrForeignStreams) {
  std::vector<BYTE> saved;
  {
    StateFilter a(gain_);
    a.presets->SetPreset(1);
    MemStream out;
    ASSERT_EQ(a.persist->Save(out.stream, TRUE), S_OK);
    saved = out.Written();
  }
  StateFilter b(gain_);
  ASSERT_TRUE(SUCCEEDED(b.presets->SetPreset(0)));
  const std::vector<float> program0 = b.Params();
  ASSERT_TRUE(SUCCEEDED(b.presets->SetPreset(1)));
  const std::vector<float> program1 = b.Params();
  ASSERT_TRUE(SUCCEEDED(b.presets->SetPreset(2)));
  const std::vector<float> program2 = b.Params();

  // A failing read decides the result and nothing reaches the plug-in.
  auto* refusing = new (std::nothrow) RefusingStream;
  ASSERT_NE(refusing, nullptr);
  EXPECT_EQ(b.persist->Load(refusing), STG_E_READFAULT);
  EXPECT_EQ(b.persist->Save(refusing, TRUE), STG_E_WRITEFAULT);
  refusing->Release();
  EXPECT_EQ(b.Program(), 2);
  EXPECT_EQ(b.Params(), program2);

  // An empty stream reads 0 bytes successfully: program 0 is chosen and the
  // effect reports on the empty rest.
  {
    MemStream empty;
    const HRESULT hr = b.persist->Load(empty.stream);
    EXPECT_TRUE(FAILED(hr)) << std::hex << hr;
    EXPECT_EQ(b.Program(), 0);
  }
  // A damaged fxp part is refused: the stored program is chosen, its
  // values stay as they were, and the cache shows that program.
  {
    b.presets->SetPreset(2);
    std::vector<BYTE> damaged = saved;
    damaged[4] = 'X';
    MemStream in(damaged);
    EXPECT_TRUE(FAILED(b.persist->Load(in.stream)));
    EXPECT_EQ(b.Program(), 1);
    EXPECT_EQ(b.Params(), program1);
  }
  // A preset of another plug-in is not for this one.
  {
    std::vector<BYTE> chunkState;
    {
      StateFilter c(chunk_);
      MemStream out;
      ASSERT_EQ(c.persist->Save(out.stream, TRUE), S_OK);
      chunkState = out.Written();
    }
    b.presets->SetPreset(2);
    MemStream in(chunkState);
    EXPECT_EQ(b.persist->Load(in.stream), ZQ_E_BAD_FILE);
    EXPECT_EQ(b.Program(), 0);
    EXPECT_EQ(b.Params(), program0);
  }
  // A stored program beyond the plug-in's count: the preset goes into program 0.
  {
    std::vector<BYTE> far = saved;
    far[0] = 99;
    MemStream in(far);
    EXPECT_EQ(b.persist->Load(in.stream), S_OK);
    EXPECT_EQ(b.Program(), 0);
    EXPECT_EQ(b.Params(), program1);
  }
  EXPECT_EQ(b.persist->Load(nullptr), E_POINTER);
  EXPECT_EQ(b.persist->Save(nullptr, TRUE), E_POINTER);
}

TEST_F(FilterState, ProgramsAndTheirNames) {
  StateFilter f(gain_);
  LONG count = 0;
  EXPECT_EQ(f.presets->GetPresetCount(&count), S_OK);
  EXPECT_EQ(count, 4);
  EXPECT_EQ(f.ProgramName(1), u"Quiet");
  // The name is cut to the caller's buffer.
  WCHAR shortName[4] = {u'#', u'#', u'#', u'#'};
  f.presets->GetPresetName(1, shortName, 4);
  EXPECT_EQ(std::u16string(shortName), u"Qui");

  // Both identifiers give the same sub-object.
  IStaticFilterPreset* fixed = Query<IStaticFilterPreset>(f.filter);
  ASSERT_NE(fixed, nullptr);
  EXPECT_EQ(static_cast<void*>(fixed), static_cast<void*>(static_cast<IStaticFilterPreset*>(f.presets)));
  EXPECT_EQ(fixed->SetPreset(3), S_OK);
  fixed->Release();
  EXPECT_EQ(f.Program(), 3);
  WCHAR current[32] = {};
  EXPECT_EQ(f.presets->GetCurrentPresetName(current, 32), S_OK);
  EXPECT_EQ(std::u16string(current), u"Mono Left");
  EXPECT_EQ(f.presets->GetCurrentPreset(nullptr), S_FALSE);

  // Renaming the current program; an empty name gives the number users see.
  EXPECT_EQ(f.presets->SetCurrentPresetName(u"Mine"), S_OK);
  EXPECT_EQ(f.ProgramName(3), u"Mine");
  EXPECT_EQ(f.presets->SetCurrentPresetName(u""), S_OK);
  EXPECT_EQ(f.ProgramName(3), u"Preset 4");
  f.presets->SetPreset(0);
  EXPECT_EQ(f.presets->SetCurrentPresetName(nullptr), S_OK);
  EXPECT_EQ(f.ProgramName(0), u"Preset 1");
  // Once the kernel runs, the name is the library's text in the host's language.
  ASSERT_EQ(ZqKernel_EarlyInitialize(GetModuleHandleW(nullptr), 0), 1);
  ZqLang_UpdateKernelLCID(ZqLang_GetKernelLang(), 0x40C, 0);
  EXPECT_EQ(f.presets->SetCurrentPresetName(u""), S_OK);
  EXPECT_EQ(f.ProgramName(0), u"Préréglage 1");
  ZqKernel_LateTerminate();

  // No window layer: the dialogs are not offered.
  EXPECT_EQ(f.presets->LoadPresetDialog(0), E_NOTIMPL);
  EXPECT_EQ(f.presets->SaveBankDialog(0), E_NOTIMPL);
}

TEST_F(FilterState, PresetAndBankFilesRoundTrip) {
  TempFolder folder("files");
  for (const CLSID* clsid : {&gain_, &chunk_}) {
    const std::u16string preset = folder.File("one.fxp");
    const std::u16string bank = folder.File("all.fxb");
    StateFilter f(*clsid);
    ASSERT_EQ(f.presets->SetPreset(2), S_OK);
    f.prop->SetParamValue(0, 0.125f);
    const std::vector<float> edited = f.Params();
    ASSERT_EQ(f.presets->SavePresetFile(preset.c_str()), S_OK);
    ASSERT_EQ(f.presets->SetCurrentPresetName(u"Renamed"), S_OK);
    ASSERT_EQ(f.presets->SaveBankFile(bank.c_str()), S_OK);
    EXPECT_GT(fs::file_size(fs::path(ZqUtf16ToUtf8(bank))), fs::file_size(fs::path(ZqUtf16ToUtf8(preset))));

    // The preset goes into the current program, whatever it was saved from.
    ASSERT_EQ(f.presets->SetPreset(0), S_OK);
    ASSERT_NE(f.Params(), edited);
    EXPECT_EQ(f.presets->LoadPresetFile(preset.c_str()), S_OK);
    EXPECT_EQ(f.Program(), 0);
    EXPECT_EQ(f.Params(), edited);

    // A fresh filter takes the whole bank, names and all.
    StateFilter g(*clsid);
    EXPECT_EQ(g.presets->LoadBankFile(bank.c_str()), S_OK);
    EXPECT_EQ(g.Program(), 0);
    EXPECT_EQ(g.ProgramName(2), u"Renamed");
    ASSERT_EQ(g.presets->SetPreset(2), S_OK);
    EXPECT_EQ(g.Params(), edited);
    fs::remove_all(folder.path());
    fs::create_directories(folder.path());
  }
}

TEST_F(FilterState, FilesThatCannotBeOpenedOrWritten) {
  TempFolder folder("refused");
  StateFilter f(gain_);
  f.presets->SetPreset(1);
  const std::vector<float> quiet = f.Params();

  const std::u16string missing = folder.File("none.fxp");
  EXPECT_EQ(f.presets->LoadPresetFile(missing.c_str()), ZQ_E_OPEN_FILE);
  EXPECT_EQ(f.presets->LoadBankFile(missing.c_str()), ZQ_E_OPEN_FILE);
  EXPECT_EQ(f.Params(), quiet);

  // A folder where the file should be, and a folder that does not exist.
  const std::u16string inFolder = folder.File("gone/x.fxp");
  EXPECT_EQ(f.presets->SavePresetFile(folder.File("").c_str()), ZQ_E_CREATE_FILE);
  EXPECT_EQ(f.presets->SaveBankFile(inFolder.c_str()), ZQ_E_CREATE_FILE);
  EXPECT_FALSE(fs::exists(fs::path(ZqUtf16ToUtf8(inFolder))));

  // A bank file is no preset: refused, the plug-in keeps its state.
  const std::u16string bank = folder.File("b.fxb");
  ASSERT_EQ(f.presets->SaveBankFile(bank.c_str()), S_OK);
  EXPECT_EQ(f.presets->LoadPresetFile(bank.c_str()), ZQ_E_BAD_FILE);
  EXPECT_EQ(f.Params(), quiet);
}

TEST_F(FilterState, AFailedWriteLeavesNoFile) {
  // The plug-in's chunk is copied into memory of the kernel before it is
  // written; with no memory the file exists but cannot be filled.
  TempFolder folder("failed");
  StateFilter f(chunk_);
  const std::u16string preset = folder.File("half.fxp");
  const std::u16string bank = folder.File("half.fxb");
  {
    ZqScopedAllocFailure noMemory(1, ZQMEMFAIL_PERSISTENT | ZQMEMFAIL_CALLING_THREAD);
    EXPECT_TRUE(FAILED(f.presets->SavePresetFile(preset.c_str())));
    EXPECT_TRUE(FAILED(f.presets->SaveBankFile(bank.c_str())));
  }
  EXPECT_FALSE(fs::exists(fs::path(ZqUtf16ToUtf8(preset))));
  EXPECT_FALSE(fs::exists(fs::path(ZqUtf16ToUtf8(bank))));
  // An earlier good file of that name is gone too: it was replaced when the
  // write began.
  ASSERT_EQ(f.presets->SavePresetFile(preset.c_str()), S_OK);
  {
    ZqScopedAllocFailure noMemory(1, ZQMEMFAIL_PERSISTENT | ZQMEMFAIL_CALLING_THREAD);
    EXPECT_TRUE(FAILED(f.presets->SavePresetFile(preset.c_str())));
  }
  EXPECT_FALSE(fs::exists(fs::path(ZqUtf16ToUtf8(preset))));
}

// The program notifications posted since the last call.
int ProgramNotifications() {
  int n = 0;
  for (const auto& command : TakeCommands()) n += (command.second >> 16) == ZQVSTNOTIFY_PROGRAM;
  return n;
}

TEST_F(FilterState, LoadsRefreshThePagesSavesDoNot) {
  TempFolder folder("notify");
  HWND window = ZqCreateWindow(&QuietWindow, 0);
  ASSERT_NE(window, nullptr);
  StateFilter f(gain_);
  ASSERT_EQ(f.prop->SetNotifyWindow(window, 7), S_OK);
  ProgramNotifications();

  const std::u16string preset = folder.File("p.fxp");
  const std::u16string bank = folder.File("b.fxb");
  MemStream state;
  ASSERT_EQ(f.persist->Save(state.stream, TRUE), S_OK);
  ASSERT_EQ(f.presets->SavePresetFile(preset.c_str()), S_OK);
  ASSERT_EQ(f.presets->SaveBankFile(bank.c_str()), S_OK);
  EXPECT_EQ(ProgramNotifications(), 0);

  EXPECT_EQ(f.presets->SetPreset(1), S_OK);
  EXPECT_EQ(ProgramNotifications(), 1);
  LARGE_INTEGER start{};
  state.stream->Seek(start, STREAM_SEEK_SET, nullptr);
  EXPECT_EQ(f.persist->Load(state.stream), S_OK);
  EXPECT_EQ(ProgramNotifications(), 1);
  EXPECT_EQ(f.presets->LoadPresetFile(preset.c_str()), S_OK);
  EXPECT_EQ(ProgramNotifications(), 1);
  EXPECT_EQ(f.presets->LoadBankFile(bank.c_str()), S_OK);
  EXPECT_EQ(ProgramNotifications(), 1);
  // A failed load refreshes all the same: the plug-in may have moved.
  EXPECT_EQ(f.presets->LoadPresetFile(folder.File("none.fxp").c_str()), ZQ_E_OPEN_FILE);
  EXPECT_EQ(ProgramNotifications(), 1);

  f.prop->SetNotifyWindow(window, 0);
  DestroyWindow(window);
}

}  // namespace
