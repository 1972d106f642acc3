// Remote calls: the connection, the one description of each method, the
// proxies and stubs made from them, and the shared audio block.
#include "aplugins/zqvstwrap/host/zqvstremote.h"

#include <atomic>
#include <cstring>
#include <mutex>
#include <thread>
#include <tuple>
#include <type_traits>
#include <unordered_map>
#include <vector>

#include "kernel/com/object.h"
#include "platform/ipc.h"
#include "platform/process.h"
#include "platform/sync.h"
#include "platform/text.h"

namespace {

// Text buffers cross cut to this many characters (a plug-in's name has 64).
constexpr uint32_t kMaxText = 4096;
// Stream data crosses in pieces of at most this many bytes.
constexpr ULONG kMaxBytes = 32768;

// --- Message bodies ------------------------------------------------------------

class Writer {
 public:
  void Put(const void* data, size_t size) {
    const auto* p = static_cast<const uint8_t*>(data);
    bytes.insert(bytes.end(), p, p + size);
  }
  template <class T>
  void Put(const T& value) {
    static_assert(std::is_trivially_copyable_v<T>);
    Put(&value, sizeof value);
  }
  std::vector<uint8_t> bytes;
};

// Reads what a Writer wrote; reading past the end marks the body broken and
// yields zeros, so a truncated message is noticed once, at the end.
class Reader {
 public:
  Reader(const uint8_t* data, size_t size) : m_data(data), m_left(size) {}
  void Get(void* out, size_t size) {
    if (!ok || size > m_left) {
      ok = false;
      std::memset(out, 0, size);
      return;
    }
    std::memcpy(out, m_data, size);
    m_data += size;
    m_left -= size;
  }
  template <class T>
  T Get() {
    T value{};
    Get(&value, sizeof value);
    return value;
  }
  void Fail() { ok = false; }
  bool ok = true;

 private:
  const uint8_t* m_data;
  size_t m_left;
};

// What a stub allocates for the out-arguments of one call.
class Arena {
 public:
  void* Bytes(size_t size) {
    m_blocks.emplace_back(new uint8_t[size ? size : 1]());
    return m_blocks.back().get();
  }
  template <class T>
  T* New() {
    return static_cast<T*>(Bytes(sizeof(T)));
  }
  void Keep(IUnknown* object) { m_objects.push_back(ZqComPtr<IUnknown>::Adopt(object)); }

 private:
  std::vector<std::unique_ptr<uint8_t[]>> m_blocks;
  std::vector<ZqComPtr<IUnknown>> m_objects;
};

// --- The shared audio block ------------------------------------------------------

constexpr uint32_t kAudioMagic = 0x6141715A;  // 'ZqAa'
constexpr size_t kCallbackRoom = 4096;

enum AudioState : uint32_t {
  kAudioIdle = 0,
  kAudioRequest = 1,       // host -> server: a block to process (also: processing goes on)
  kAudioDone = 2,          // server -> host: processed, status set
  kAudioCallback = 3,      // server -> host: a call in the callback area
  kAudioCallbackDone = 4,  // host -> server: its answer in the callback area
  kAudioClose = 5,         // the server's thread ends
};

struct AudioBlockHeader {
  uint32_t magic;
  uint16_t version;
  uint16_t reserved;
  uint32_t state;  // the futex word, an AudioState
  int32_t status;
  int32_t sourceChannels;
  int32_t destinationChannels;
  int32_t frames;
  int32_t bytesPerSample;
  uint32_t hasSource;
  uint32_t capacity;      // bytes of each of the two data areas
  uint32_t callbackSize;  // bytes in the callback area: a ZqRemoteHeader and its payload
  uint32_t reserved2;
  uint8_t callback[kCallbackRoom];
};
constexpr size_t kAudioDataOffset = (sizeof(AudioBlockHeader) + 63) & ~size_t(63);
static_assert(offsetof(AudioBlockHeader, state) == 8, "the audio block is shared between processes");
static_assert(offsetof(AudioBlockHeader, callback) == 48, "the audio block is shared between processes");

std::atomic_ref<uint32_t> StateOf(AudioBlockHeader* h) { return std::atomic_ref<uint32_t>(h->state); }

void SetState(AudioBlockHeader* h, uint32_t state) {
  StateOf(h).store(state, std::memory_order_release);
  ZqFutexWake(&h->state, 1);
}

// Waits while the state is `current`: a short spin (the answer usually comes
// within microseconds), then sleeps `sliceMs` at a time.  Answers the new
// state, or `current` when `stillThere` says the peer is gone.
template <class Check>
uint32_t WaitWhile(AudioBlockHeader* h, uint32_t current, DWORD sliceMs, Check stillThere) {
  for (int spin = 0; spin < 2000; ++spin) {
    const uint32_t s = StateOf(h).load(std::memory_order_acquire);
    if (s != current) return s;
    __builtin_ia32_pause();
  }
  for (;;) {
    const uint32_t s = StateOf(h).load(std::memory_order_acquire);
    if (s != current) return s;
    if (!ZqFutexWait(&h->state, current, sliceMs) && !stillThere()) return current;
  }
}

bool BlockSizes(int channels, int frames, int bytesPerSample, uint64_t* bytes) {
  if (channels < 0 || frames < 0 || bytesPerSample < 0) return false;
  *bytes = uint64_t(channels) * uint64_t(frames) * uint64_t(bytesPerSample);
  return true;
}

}  // namespace

// --- The connection --------------------------------------------------------------

class AudioServer;
thread_local AudioServer* t_audioServer = nullptr;

class ZqRemoteConnection : public std::enable_shared_from_this<ZqRemoteConnection> {
 public:
  ZqRemoteConnection(int socket, HANDLE process, int sideSocket)
      : m_main{socket}, m_side{sideSocket}, m_process(process) {}
  ~ZqRemoteConnection();

  bool HostSide() const { return m_process != nullptr; }
  bool Ended() const { return m_ended.load(std::memory_order_acquire); }
  // Ends the connection.  On the host, the server's references to objects
  // of this process go with it (the server cannot give them back any more).
  void End() {
    if (m_ended.exchange(true, std::memory_order_acq_rel) || !HostSide()) return;
    std::unordered_map<uint32_t, Exported> exports;
    {
      std::lock_guard<std::mutex> guard(m_exportLock);
      exports.swap(m_exports);
    }
    for (auto& [id, e] : exports)
      if (e.object) e.object->Release();
  }
  // Host side: whether the server is still running (ends the connection when not).
  bool PeerAlive() {
    if (Ended()) return false;
    if (m_process != nullptr && WaitForSingleObject(m_process, 0) == WAIT_OBJECT_0) End();
    return !Ended();
  }
  void Terminate() {
    if (m_process != nullptr) TerminateProcess(m_process, 1);
    End();
  }
  bool WaitForEnd(DWORD ms) { return m_process != nullptr && WaitForSingleObject(m_process, ms) == WAIT_OBJECT_0; }
  DWORD ProcessId() const { return m_process ? GetProcessId(m_process) : 0; }
  void SetCallLimit(DWORD ms) { m_callLimit = ms; }

  // One call: false when it did not get through (status then
  // ZQ_E_RPC_CALL_FAILED, ZQ_E_CANCELLED at the limit, or E_FAIL from a
  // thread that cannot reach the host).
  bool Call(uint32_t object, uint16_t iface, uint16_t method, const Writer& body, HRESULT* status,
            std::vector<uint8_t>* reply, int fd = -1, DWORD limitMs = 0);
  // Serves one call from the peer into `out`; false when the call breaks the
  // format (the connection then ends).
  bool Serve(const ZqRemoteHeader& header, Reader& in, Writer& out, HRESULT* status, const int* fds, size_t fdCount);
  // An id for `object` (the peer's reference; 0 for null or an object of no
  // interface that crosses).  `iface` 0: found out by QueryInterface.
  uint32_t Export(IUnknown* object, uint16_t iface, uint16_t* kind = nullptr);
  int Run(IUnknown* classObject, HRESULT status, bool (*shouldQuit)());
  // Host side: serves, on a thread of its own, the calls that come from the
  // server's other threads (a plug-in's own threads), until the server goes.
  void ServeSideCalls();

 private:
  // One socket with its receive buffer.
  struct Channel {
    int socket = -1;
    std::vector<uint8_t> buffer = std::vector<uint8_t>(kZqRemoteMaxMessage);
  };
  struct Exported {
    IUnknown* object = nullptr;  // the interface of `iface`, one reference
    uint16_t iface = 0;
    std::unique_ptr<AudioServer> audio;
  };
  bool SendMessage(Channel& channel, uint16_t kind, uint32_t object, uint16_t iface, uint16_t method,
                   HRESULT status, const std::vector<uint8_t>& body, int fd);
  // Receives one message into the channel's buffer; false when the peer
  // went or the format broke.  `limitMs` INFINITE or a time limit.
  bool Receive(Channel& channel, ZqRemoteHeader* header, int* fd, DWORD limitMs, bool* timedOut);
  bool ServeAndAnswer(Channel& channel, const ZqRemoteHeader& header, const uint8_t* body, int fd);
  // The call itself on `channel`, serving the peer's calls while it waits.
  bool CallOn(Channel& channel, uint32_t object, uint16_t iface, uint16_t method, const Writer& body,
              HRESULT* status, std::vector<uint8_t>* reply, int fd, DWORD limitMs);
  void Unexport(uint32_t id);

  Channel m_main;  // calls of the host, and the server's calls while it serves one
  Channel m_side;  // server side: calls from the server's other threads, one at a time
  std::mutex m_sideLock;
  HANDLE m_process;
  std::atomic<bool> m_ended{false};
  std::recursive_mutex m_callLock;
  std::mutex m_exportLock;
  std::unordered_map<uint32_t, Exported> m_exports;
  uint32_t m_nextId = kZqRemoteClassObject + 1;
  DWORD m_callLimit = INFINITE;
  bool m_brokenFormat = false;
  std::thread::id m_servingThread;
  friend class AudioServer;
};

// --- Server side of an effect's audio block ------------------------------------------

class AudioServer {
 public:
  AudioServer(ZqRemoteConnection* connection, IZqVstEffect* effect, int fd, AudioBlockHeader* block, size_t size,
              uint32_t capacity)
      : m_connection(connection), m_effect(effect), m_fd(fd), m_block(block), m_size(size), m_capacity(capacity) {
    m_thread = std::thread([this] { Loop(); });
  }
  ~AudioServer() {
    SetState(m_block, kAudioClose);
    m_thread.join();
    ZqSharedMemoryUnmap(m_block, m_size);
    ZqCloseDescriptor(m_fd);
  }
  AudioServer(const AudioServer&) = delete;
  AudioServer& operator=(const AudioServer&) = delete;

  ZqRemoteConnection* Connection() const { return m_connection; }

  // A call to the host from inside processing, through the callback area;
  // the host's thread that waits for the block answers it.
  bool CallHost(uint32_t object, uint16_t iface, uint16_t method, const Writer& body, HRESULT* status,
                std::vector<uint8_t>* reply) {
    ZqRemoteHeader h{kZqRemoteMagic, kZqRemoteVersion, kZqRemoteCall, object, iface, method, 0,
                     uint32_t(body.bytes.size())};
    if (sizeof h + body.bytes.size() > kCallbackRoom) {
      *status = E_FAIL;
      return false;
    }
    std::memcpy(m_block->callback, &h, sizeof h);
    if (!body.bytes.empty()) std::memcpy(m_block->callback + sizeof h, body.bytes.data(), body.bytes.size());
    m_block->callbackSize = uint32_t(sizeof h + body.bytes.size());
    SetState(m_block, kAudioCallback);
    const uint32_t s = WaitWhile(m_block, kAudioCallback, INFINITE, [] { return true; });
    ZqRemoteHeader r;
    const uint32_t size = m_block->callbackSize;
    SetState(m_block, kAudioRequest);
    if (s != kAudioCallbackDone || size < sizeof r || size > kCallbackRoom) {
      *status = ZQ_E_RPC_CALL_FAILED;
      return false;
    }
    std::memcpy(&r, m_block->callback, sizeof r);
    if (r.magic != kZqRemoteMagic || r.kind != kZqRemoteReply || r.size != size - sizeof r) {
      *status = ZQ_E_RPC_CALL_FAILED;
      return false;
    }
    *status = r.status;
    reply->assign(m_block->callback + sizeof r, m_block->callback + size);
    return true;
  }

 private:
  void Loop() {
    for (;;) {
      const uint32_t s = StateOf(m_block).load(std::memory_order_acquire);
      if (s == kAudioClose) return;
      if (s == kAudioRequest) {
        Process();
        SetState(m_block, kAudioDone);
        continue;
      }
      WaitWhile(m_block, s, INFINITE, [] { return true; });
    }
  }

  void Process() {
    AudioBlockHeader* h = m_block;
    const int sourceChannels = h->sourceChannels, destinationChannels = h->destinationChannels;
    const int frames = h->frames, bytesPerSample = h->bytesPerSample;
    const bool hasSource = h->hasSource != 0;
    uint64_t in = 0, out = 0;
    if (!BlockSizes(sourceChannels, frames, bytesPerSample, &in) ||
        !BlockSizes(destinationChannels, frames, bytesPerSample, &out) || in > m_capacity || out > m_capacity) {
      h->status = E_INVALIDARG;
      return;
    }
    uint8_t* data = reinterpret_cast<uint8_t*>(h) + kAudioDataOffset;
    t_audioServer = this;
    h->status = m_effect->ProcessAudio(hasSource ? data : nullptr, sourceChannels, data + m_capacity,
                                       destinationChannels, frames, bytesPerSample);
    t_audioServer = nullptr;
  }

  ZqRemoteConnection* m_connection;
  IZqVstEffect* m_effect;
  int m_fd;
  AudioBlockHeader* m_block;
  size_t m_size;
  const uint32_t m_capacity;  // checked against the block's size when it came
  std::thread m_thread;
};

// --- Proxies ------------------------------------------------------------------------

namespace {

IUnknown* MakeProxy(ZqRemoteConnection* connection, uint32_t id, uint16_t iface);

// Walks the arguments of a call on the proxy's side, before it is sent.
struct ProxyWrite {
  Writer& w;
  ZqRemoteConnection& c;
  template <class T>
  void Value(T& v) { w.Put(v); }
  template <class T>
  void Out(T*& p) { w.Put<uint8_t>(p != nullptr); }
  void TextOut(WCHAR*& b, int&) { w.Put<uint8_t>(b != nullptr); }
  void TextIn(const WCHAR*& t) {
    const uint32_t n = t ? uint32_t(lstrlenW(t)) + 1 : 0;
    w.Put(n);
    w.Put(t, n * sizeof(WCHAR));
  }
  template <class P>
  void Object(P*& p, uint16_t kind) {
    w.Put<uint32_t>(c.Export(p, kind));
  }
  void BytesOut(void*& b, ULONG) { w.Put<uint8_t>(b != nullptr); }
  void BytesIn(const void*& b, ULONG n) {
    w.Put<uint8_t>(b != nullptr);
    if (b) w.Put(b, n);
  }
  void NoOuter(IUnknown*&) {}
  void NewObject(GUID& iid, void**& out) {
    w.Put(iid);
    w.Put<uint8_t>(out != nullptr);
  }
};

// ... and after its answer came.
struct ProxyRead {
  Reader& r;
  ZqRemoteConnection& c;
  template <class T>
  void Value(T&) {}
  template <class T>
  void Out(T*& p) {
    if (p) *p = r.Get<T>();
  }
  void TextOut(WCHAR*& b, int& n) {
    if (b && n > 0) r.Get(b, size_t(std::min(n, int(kMaxText))) * sizeof(WCHAR));
  }
  void TextIn(const WCHAR*&) {}
  template <class P>
  void Object(P*&, uint16_t) {}
  void BytesOut(void*& b, ULONG n) {
    if (b) r.Get(b, n);
  }
  void BytesIn(const void*&, ULONG) {}
  void NoOuter(IUnknown*&) {}
  void NewObject(GUID& iid, void**& out) {
    const uint32_t id = r.Get<uint32_t>();
    const uint16_t kind = r.Get<uint16_t>();
    if (!r.ok || id == 0) return;
    IUnknown* proxy = MakeProxy(&c, id, kind);
    if (proxy == nullptr) return;
    if (out) proxy->QueryInterface(iid, out);
    proxy->Release();
  }
};

// Walks them on the stub's side, from the call as it came ...
struct StubRead {
  Reader& r;
  Arena& a;
  ZqRemoteConnection& c;
  template <class T>
  void Value(T& v) { v = r.Get<T>(); }
  template <class T>
  void Out(T*& p) { p = r.Get<uint8_t>() ? a.New<T>() : nullptr; }
  // A longer buffer than a text can be is cut to kMaxText; both sides cut
  // the same way.
  void TextOut(WCHAR*& b, int& n) {
    if (!r.Get<uint8_t>()) return;
    n = std::min(n, int(kMaxText));
    b = static_cast<WCHAR*>(a.Bytes(size_t(n > 0 ? n : 1) * sizeof(WCHAR)));
  }
  void TextIn(const WCHAR*& t) {
    const uint32_t n = r.Get<uint32_t>();
    if (n == 0) return;
    if (n > kMaxText) return r.Fail();
    WCHAR* text = static_cast<WCHAR*>(a.Bytes(n * sizeof(WCHAR)));
    r.Get(text, n * sizeof(WCHAR));
    text[n - 1] = 0;
    t = text;
  }
  template <class P>
  void Object(P*& p, uint16_t kind) {
    const uint32_t id = r.Get<uint32_t>();
    if (id == 0 || !r.ok) return;
    IUnknown* proxy = MakeProxy(&c, id, kind);
    if (proxy == nullptr) return;
    void* typed = nullptr;
    if (SUCCEEDED(proxy->QueryInterface(ZqIidOf<P>, &typed))) {
      p = static_cast<P*>(typed);
      a.Keep(p);
    }
    proxy->Release();
  }
  void BytesOut(void*& b, ULONG n) {
    if (!r.Get<uint8_t>()) return;
    if (n > kMaxBytes) return r.Fail();
    b = a.Bytes(n);
  }
  void BytesIn(const void*& b, ULONG n) {
    if (!r.Get<uint8_t>()) return;
    if (n > kMaxBytes) return r.Fail();
    void* copy = a.Bytes(n);
    r.Get(copy, n);
    b = copy;
  }
  void NoOuter(IUnknown*&) {}
  void NewObject(GUID& iid, void**& out) {
    iid = r.Get<GUID>();
    if (r.Get<uint8_t>()) out = a.New<void*>();
  }
};

// ... and into its answer.
struct StubWrite {
  Writer& w;
  ZqRemoteConnection& c;
  template <class T>
  void Value(T&) {}
  template <class T>
  void Out(T*& p) {
    if (p) w.Put(*p);
  }
  void TextOut(WCHAR*& b, int& n) {
    if (b && n > 0) w.Put(b, size_t(n) * sizeof(WCHAR));
  }
  void TextIn(const WCHAR*&) {}
  template <class P>
  void Object(P*&, uint16_t) {}
  void BytesOut(void*& b, ULONG n) {
    if (b) w.Put(b, n);
  }
  void BytesIn(const void*&, ULONG) {}
  void NoOuter(IUnknown*&) {}
  void NewObject(GUID&, void**& out) {
    IUnknown* object = out ? static_cast<IUnknown*>(*out) : nullptr;
    uint16_t kind = 0;
    w.Put<uint32_t>(c.Export(object, 0, &kind));
    w.Put<uint16_t>(kind);
    if (object) object->Release();
  }
};

// One description of one method: its slot, the member it calls, and the walk
// over its arguments that all four sides above share.
template <int Slot, auto Member, class Walk>
struct Method {
  static constexpr uint16_t kSlot = Slot;
  static constexpr auto kMember = Member;
  Walk walk;
};
template <int Slot, auto Member, class Walk>
constexpr Method<Slot, Member, Walk> Describe(Walk walk) {
  return {walk};
}

namespace effect {
using I = IZqVstEffect;
constexpr auto kText = [](auto& io, auto& buffer, auto& length) {
  io.Value(length);
  io.TextOut(buffer, length);
};
constexpr auto kIndexText = [](auto& io, auto& index, auto& buffer, auto& length) {
  io.Value(index);
  io.Value(length);
  io.TextOut(buffer, length);
};
constexpr auto kOne = [](auto& io, auto& a) {
  if constexpr (std::is_pointer_v<std::remove_reference_t<decltype(a)>>)
    io.Out(a);
  else
    io.Value(a);
};
constexpr auto kNone = [](auto&) {};
constexpr auto kIndexOut = [](auto& io, auto& index, auto& out) {
  io.Value(index);
  io.Out(out);
};
constexpr auto kTwo = [](auto& io, auto& a, auto& b) {
  io.Value(a);
  io.Value(b);
};

constexpr auto kStreamOut = [](auto& io, auto& stream, auto& size) {
  io.Object(stream, kZqRemoteStream);
  io.Out(size);
};

constexpr auto kMethods = std::tuple{
    Describe<3, &I::GetEffectName>(kText),
    Describe<4, &I::GetVendorString>(kText),
    Describe<5, &I::GetProductString>(kText),
    Describe<6, &I::GetEffectInfo>(kOne),
    Describe<7, &I::GetNextShellPlugin>([](auto& io, auto& id, auto& buffer, auto& length) {
      io.Out(id);
      io.Value(length);
      io.TextOut(buffer, length);
    }),
    Describe<8, &I::SetMaster>([](auto& io, auto& master) { io.Object(master, kZqRemoteMaster); }),
    Describe<9, &I::Idle>(kNone),
    Describe<10, &I::Suspend>(kOne),
    Describe<11, &I::Resume>(kOne),
    Describe<12, &I::SetSampleRate>(kOne),
    Describe<13, &I::SetSampleType>(kOne),
    Describe<14, &I::SetChannelCount>(kOne),
    Describe<15, &I::SetBlockSize>(kOne),
    Describe<16, &I::GetParameterProperties>(kIndexOut),
    Describe<17, &I::GetParameterName>(kIndexText),
    Describe<18, &I::GetParameterDisplay>(kIndexText),
    Describe<19, &I::GetParameterLabel>(kIndexText),
    Describe<20, &I::GetParameter>(kIndexOut),
    Describe<21, &I::SetParameter>(kTwo),
    Describe<22, &I::GetLatency>(kOne),
    Describe<23, &I::GetTailSize>(kOne),
    // 24 ProcessAudio crosses in the shared block; 25 is reserved.
    Describe<26, &I::GetProgram>(kOne),
    Describe<27, &I::SetProgram>(kOne),
    Describe<28, &I::GetProgramName>(kIndexText),
    Describe<29, &I::SetProgramName>([](auto& io, auto& name) { io.TextIn(name); }),
    Describe<30, &I::SavePreset>(kStreamOut),
    Describe<31, &I::LoadPreset>([](auto& io, auto& stream) { io.Object(stream, kZqRemoteStream); }),
    Describe<32, &I::SaveBank>(kStreamOut),
    Describe<33, &I::LoadBank>([](auto& io, auto& stream, auto& program) {
      io.Object(stream, kZqRemoteStream);
      io.Value(program);
    }),
    Describe<34, &I::EditOpen>([](auto& io, auto& window, auto& rect) {
      io.Value(window);
      io.Out(rect);
    }),
    Describe<35, &I::EditIdle>(kNone),
    Describe<36, &I::EditClose>(kNone),
};
}  // namespace effect

namespace master {
using I = IZqVstMaster;
constexpr auto kMethods = std::tuple{
    Describe<3, &I::Automate>(effect::kTwo),
    Describe<4, &I::Idle>(effect::kNone),
    Describe<5, &I::UpdateDisplay>(effect::kNone),
    Describe<6, &I::GetTime>(effect::kOne),
    Describe<7, &I::GetTempoAt>(effect::kIndexOut),
    Describe<8, &I::SizeWindow>(effect::kTwo),
    Describe<9, &I::BeginEdit>(effect::kOne),
    Describe<10, &I::EndEdit>(effect::kOne),
};
}  // namespace master

namespace stream {
using I = IStream;
constexpr auto kMethods = std::tuple{
    Describe<3, &I::Read>([](auto& io, auto& buffer, auto& size, auto& read) {
      io.Value(size);
      io.BytesOut(buffer, size);
      io.Out(read);
    }),
    Describe<4, &I::Write>([](auto& io, auto& buffer, auto& size, auto& written) {
      io.Value(size);
      io.BytesIn(buffer, size);
      io.Out(written);
    }),
    Describe<5, &I::Seek>([](auto& io, auto& move, auto& origin, auto& position) {
      io.Value(move);
      io.Value(origin);
      io.Out(position);
    }),
    Describe<6, &I::SetSize>(effect::kOne),
    Describe<8, &I::Commit>(effect::kOne),
};
}  // namespace stream

namespace factory {
using I = IZqVstEffectFactory;
constexpr auto kNewObject = [](auto& io, auto& path, auto& id, auto& iid, auto& out) {
  io.TextIn(path);
  io.Value(id);
  io.NewObject(iid, out);
};
constexpr auto kMethods = std::tuple{
    Describe<3, &I::CreateInstance>([](auto& io, auto& outer, auto& iid, auto& out) {
      io.NoOuter(outer);
      io.NewObject(iid, out);
    }),
    Describe<4, &I::LockServer>(effect::kOne),
    Describe<5, &I::ProbeEffect>([](auto& io, auto& path, auto& id, auto& name, auto& vendor, auto& product,
                                    auto& info, auto& limit) {
      int length = 64;
      io.TextIn(path);
      io.Value(id);
      io.TextOut(name, length);
      io.TextOut(vendor, length);
      io.TextOut(product, length);
      io.Out(info);
      io.Value(limit);
    }),
    Describe<6, &I::CreateEffect>(kNewObject),
};
}  // namespace factory

template <class D, class Object, class I, class... P>
HRESULT StubCall(const D& d, HRESULT (STDMETHODCALLTYPE I::*member)(P...), Object* object, Reader& in,
                 Writer& out, ZqRemoteConnection& c, bool* broken) {
  std::tuple<std::remove_cvref_t<P>...> args{};
  Arena arena;
  StubRead read{in, arena, c};
  std::apply([&](auto&... a) { d.walk(read, a...); }, args);
  if (!in.ok) {
    *broken = true;
    return E_INVALIDARG;
  }
  const HRESULT hr = std::apply([&](auto&... a) { return (object->*member)(a...); }, args);
  StubWrite write{out, c};
  std::apply([&](auto&... a) { d.walk(write, a...); }, args);
  return hr;
}

template <class Object, class Methods>
HRESULT StubDispatch(const Methods& methods, uint16_t slot, Object* object, Reader& in, Writer& out,
                     ZqRemoteConnection& c, bool* broken) {
  HRESULT hr = E_NOTIMPL;  // a method this side does not know
  std::apply(
      [&](const auto&... d) {
        (void)((d.kSlot == slot ? (hr = StubCall(d, d.kMember, object, in, out, c, broken), true) : false) || ...);
      },
      methods);
  return hr;
}

// What every proxy shares: its connection and the id of its object there.
class ProxyBase {
 public:
  ProxyBase(ZqRemoteConnection* connection, uint32_t id, uint16_t iface)
      : m_connection(connection->shared_from_this()), m_id(id), m_iface(iface) {}
  ~ProxyBase() {
    HRESULT status;
    std::vector<uint8_t> reply;
    m_connection->Call(m_id, m_iface, kZqRemoteRelease, Writer(), &status, &reply);
  }

 protected:
  template <class D, class... A>
  HRESULT Invoke(const D& d, DWORD limitMs, A... a) {
    Writer body;
    ProxyWrite write{body, *m_connection};
    d.walk(write, a...);
    HRESULT status;
    std::vector<uint8_t> reply;
    if (!m_connection->Call(m_id, m_iface, D::kSlot, body, &status, &reply, -1, limitMs)) return status;
    Reader in(reply.data(), reply.size());
    ProxyRead read{in, *m_connection};
    d.walk(read, a...);
    if (!in.ok) {
      m_connection->End();
      return ZQ_E_RPC_CALL_FAILED;
    }
    return status;
  }
  std::shared_ptr<ZqRemoteConnection> m_connection;
  const uint32_t m_id;
  const uint16_t m_iface;
};

// The description of the method in `slot`.
template <int Slot, size_t N = 0, class Methods>
constexpr const auto& At(const Methods& methods) {
  if constexpr (std::tuple_element_t<N, Methods>::kSlot == Slot)
    return std::get<N>(methods);
  else
    return At<Slot, N + 1>(methods);
}

class EffectProxy final : public ZqComObject<EffectProxy, IZqVstEffect>, public ProxyBase {
 public:
  EffectProxy(ZqRemoteConnection* c, uint32_t id) : ProxyBase(c, id, kZqRemoteEffect) {}

  HRESULT STDMETHODCALLTYPE GetEffectName(WCHAR* b, int n) override { return Call<3>(b, n); }
  HRESULT STDMETHODCALLTYPE GetVendorString(WCHAR* b, int n) override { return Call<4>(b, n); }
  HRESULT STDMETHODCALLTYPE GetProductString(WCHAR* b, int n) override { return Call<5>(b, n); }
  HRESULT STDMETHODCALLTYPE GetEffectInfo(VstEffectInfo* info) override { return Call<6>(info); }
  HRESULT STDMETHODCALLTYPE GetNextShellPlugin(LONG* id, WCHAR* b, int n) override { return Call<7>(id, b, n); }
  HRESULT STDMETHODCALLTYPE SetMaster(IUnknown* master) override { return Call<8>(master); }
  HRESULT STDMETHODCALLTYPE Idle() override { return Call<9>(); }
  HRESULT STDMETHODCALLTYPE Suspend(BOOL mainsOff) override { return Call<10>(mainsOff); }
  HRESULT STDMETHODCALLTYPE Resume(BOOL force) override { return Call<11>(force); }
  HRESULT STDMETHODCALLTYPE SetSampleRate(double rate) override { return Call<12>(rate); }
  HRESULT STDMETHODCALLTYPE SetSampleType(ZQSAMPLETYPE type) override { return Call<13>(type); }
  HRESULT STDMETHODCALLTYPE SetChannelCount(int channels) override { return Call<14>(channels); }
  HRESULT STDMETHODCALLTYPE SetBlockSize(int frames) override { return Call<15>(frames); }
  HRESULT STDMETHODCALLTYPE GetParameterProperties(int i, VstParamProperties* p) override { return Call<16>(i, p); }
  HRESULT STDMETHODCALLTYPE GetParameterName(int i, WCHAR* b, int n) override { return Call<17>(i, b, n); }
  HRESULT STDMETHODCALLTYPE GetParameterDisplay(int i, WCHAR* b, int n) override { return Call<18>(i, b, n); }
  HRESULT STDMETHODCALLTYPE GetParameterLabel(int i, WCHAR* b, int n) override { return Call<19>(i, b, n); }
  HRESULT STDMETHODCALLTYPE GetParameter(int i, float* v) override { return Call<20>(i, v); }
  HRESULT STDMETHODCALLTYPE SetParameter(int i, float v) override { return Call<21>(i, v); }
  HRESULT STDMETHODCALLTYPE GetLatency(LONG* frames) override { return Call<22>(frames); }
  HRESULT STDMETHODCALLTYPE GetTailSize(LONG* frames) override { return Call<23>(frames); }
  HRESULT STDMETHODCALLTYPE ProcessAudio(const void* source, int sourceChannels, void* destination,
                                         int destinationChannels, int frames, int bytesPerSample) override;
  HRESULT STDMETHODCALLTYPE ProcessReserved(UINT_PTR, UINT_PTR, UINT_PTR, UINT_PTR, UINT_PTR, UINT_PTR, UINT_PTR,
                                            UINT_PTR, UINT_PTR, UINT_PTR, UINT_PTR, UINT_PTR, UINT_PTR, UINT_PTR,
                                            UINT_PTR, UINT_PTR, UINT_PTR, UINT_PTR, UINT_PTR, UINT_PTR,
                                            UINT_PTR) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE GetProgram(LONG* index) override { return Call<26>(index); }
  HRESULT STDMETHODCALLTYPE SetProgram(LONG index) override { return Call<27>(index); }
  HRESULT STDMETHODCALLTYPE GetProgramName(LONG i, WCHAR* b, int n) override { return Call<28>(i, b, n); }
  HRESULT STDMETHODCALLTYPE SetProgramName(const WCHAR* name) override { return Call<29>(name); }
  HRESULT STDMETHODCALLTYPE SavePreset(IStream* stream, ULONG* size) override { return Call<30>(stream, size); }
  HRESULT STDMETHODCALLTYPE LoadPreset(IStream* stream) override { return Call<31>(stream); }
  HRESULT STDMETHODCALLTYPE SaveBank(IStream* stream, ULONG* size) override { return Call<32>(stream, size); }
  HRESULT STDMETHODCALLTYPE LoadBank(IStream* stream, LONG program) override { return Call<33>(stream, program); }
  HRESULT STDMETHODCALLTYPE EditOpen(ZQVSTWINDOW window, ZQVSTRECT* rect) override { return Call<34>(window, rect); }
  HRESULT STDMETHODCALLTYPE EditIdle() override { return Call<35>(); }
  HRESULT STDMETHODCALLTYPE EditClose() override { return Call<36>(); }

 private:
  friend class ZqComObject<EffectProxy, IZqVstEffect>;
  ~EffectProxy() {
    ZqSharedMemoryUnmap(m_block, m_blockSize);
  }
  template <int Slot, class... A>
  HRESULT Call(A... a) {
    return Invoke(At<Slot>(effect::kMethods), 0, a...);
  }
  // A block whose data areas hold `bytes` each, handed to the stub.
  HRESULT Attach(uint64_t bytes);
  // Answers the call the plug-in made from inside processing.
  bool ServeCallback();

  AudioBlockHeader* m_block = nullptr;
  size_t m_blockSize = 0;
  uint64_t m_capacity = 0;  // kept here: the server may write anything into the block
};

class FactoryProxy final : public ZqComObject<FactoryProxy, IZqVstEffectFactory>, public ProxyBase {
 public:
  FactoryProxy(ZqRemoteConnection* c, uint32_t id) : ProxyBase(c, id, kZqRemoteFactory) {}

  HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID riid, void** object) override {
    if (outer != nullptr) return CLASS_E_NOAGGREGATION;
    if (object == nullptr) return E_POINTER;
    *object = nullptr;
    return Invoke(At<3>(factory::kMethods), 0, outer, GUID(riid), object);
  }
  HRESULT STDMETHODCALLTYPE LockServer(BOOL lock) override { return Invoke(At<4>(factory::kMethods), 0, lock); }
  // The time limit is kept here: the call gives up at the limit and ends
  // the server, whose plug-in may hang where nothing can stop it.
  HRESULT STDMETHODCALLTYPE ProbeEffect(const WCHAR* path, LONG id, WCHAR* name, WCHAR* vendor, WCHAR* product,
                                        VstEffectInfo* info, DWORD timeLimitMs) override {
    const DWORD limit = (timeLimitMs == 0 || timeLimitMs == INFINITE) ? 0 : timeLimitMs;
    return Invoke(At<5>(factory::kMethods), limit, path, id, name, vendor, product, info, DWORD(0));
  }
  HRESULT STDMETHODCALLTYPE CreateEffect(const WCHAR* path, LONG id, REFIID riid, void** object) override {
    return Invoke(At<6>(factory::kMethods), 0, path, id, GUID(riid), object);
  }

 private:
  friend class ZqComObject<FactoryProxy, IZqVstEffectFactory>;
  ~FactoryProxy() = default;
};

class MasterProxy final : public ZqComObject<MasterProxy, IZqVstMaster>, public ProxyBase {
 public:
  MasterProxy(ZqRemoteConnection* c, uint32_t id) : ProxyBase(c, id, kZqRemoteMaster) {}

  HRESULT STDMETHODCALLTYPE Automate(LONG index, float value) override { return Call<3>(index, value); }
  HRESULT STDMETHODCALLTYPE Idle() override { return Call<4>(); }
  HRESULT STDMETHODCALLTYPE UpdateDisplay() override { return Call<5>(); }
  HRESULT STDMETHODCALLTYPE GetTime(VstMasterTime* time) override { return Call<6>(time); }
  HRESULT STDMETHODCALLTYPE GetTempoAt(LONGLONG position, LONG* tempo) override { return Call<7>(position, tempo); }
  HRESULT STDMETHODCALLTYPE SizeWindow(LONG width, LONG height) override { return Call<8>(width, height); }
  HRESULT STDMETHODCALLTYPE BeginEdit(LONG index) override { return Call<9>(index); }
  HRESULT STDMETHODCALLTYPE EndEdit(LONG index) override { return Call<10>(index); }

 private:
  friend class ZqComObject<MasterProxy, IZqVstMaster>;
  ~MasterProxy() = default;
  template <int Slot, class... A>
  HRESULT Call(A... a) {
    return Invoke(At<Slot>(master::kMethods), 0, a...);
  }
};

// The host's stream as the server's plug-in code reads and writes it.  Data
// crosses in pieces; a piece that comes back short ends a read.
class StreamProxy final : public ZqComObject<StreamProxy, IStream>, public ProxyBase {
 public:
  StreamProxy(ZqRemoteConnection* c, uint32_t id) : ProxyBase(c, id, kZqRemoteStream) {}

  HRESULT STDMETHODCALLTYPE Read(void* buffer, ULONG size, ULONG* read) override {
    if (read) *read = 0;
    if (buffer == nullptr) return STG_E_INVALIDPOINTER;
    HRESULT hr = S_OK;
    for (ULONG done = 0; done < size;) {
      void* piece = static_cast<uint8_t*>(buffer) + done;
      const ULONG want = std::min(size - done, kMaxBytes);
      ULONG got = 0;
      hr = Invoke(At<3>(stream::kMethods), 0, piece, want, &got);
      done += std::min(got, want);
      if (read) *read = done;
      if (FAILED(hr) || got < want) break;
    }
    return hr;
  }
  HRESULT STDMETHODCALLTYPE Write(const void* buffer, ULONG size, ULONG* written) override {
    if (written) *written = 0;
    if (buffer == nullptr) return STG_E_INVALIDPOINTER;
    HRESULT hr = S_OK;
    for (ULONG done = 0; done < size;) {
      const void* piece = static_cast<const uint8_t*>(buffer) + done;
      const ULONG want = std::min(size - done, kMaxBytes);
      ULONG put = 0;
      hr = Invoke(At<4>(stream::kMethods), 0, piece, want, &put);
      done += std::min(put, want);
      if (written) *written = done;
      if (FAILED(hr) || put < want) break;
    }
    return hr;
  }
  HRESULT STDMETHODCALLTYPE Seek(LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER* position) override {
    return Invoke(At<5>(stream::kMethods), 0, move, origin, position);
  }
  HRESULT STDMETHODCALLTYPE SetSize(ULARGE_INTEGER size) override { return Invoke(At<6>(stream::kMethods), 0, size); }
  HRESULT STDMETHODCALLTYPE CopyTo(IStream*, ULARGE_INTEGER, ULARGE_INTEGER*, ULARGE_INTEGER*) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE Commit(DWORD flags) override { return Invoke(At<8>(stream::kMethods), 0, flags); }
  HRESULT STDMETHODCALLTYPE Revert() override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE LockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE UnlockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE Stat(STATSTG*, DWORD) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE Clone(IStream**) override { return E_NOTIMPL; }

 private:
  friend class ZqComObject<StreamProxy, IStream>;
  ~StreamProxy() = default;
};

IUnknown* MakeProxy(ZqRemoteConnection* connection, uint32_t id, uint16_t iface) {
  switch (iface) {
    case kZqRemoteStream:
      return static_cast<IStream*>(new (std::nothrow) StreamProxy(connection, id));
    case kZqRemoteEffect:
      return static_cast<IZqVstEffect*>(new (std::nothrow) EffectProxy(connection, id));
    case kZqRemoteFactory:
      return static_cast<IZqVstEffectFactory*>(new (std::nothrow) FactoryProxy(connection, id));
    case kZqRemoteMaster:
      return static_cast<IZqVstMaster*>(new (std::nothrow) MasterProxy(connection, id));
    default:
      return nullptr;
  }
}

HRESULT EffectProxy::Attach(uint64_t bytes) {
  const uint64_t capacity = std::max<uint64_t>((bytes + 4095) & ~uint64_t(4095), 16384);
  if (capacity > (uint64_t(1) << 30)) return E_OUTOFMEMORY;
  const size_t size = kAudioDataOffset + 2 * size_t(capacity);
  const int fd = ZqSharedMemoryCreate(size);
  if (fd < 0) return E_OUTOFMEMORY;
  auto* block = static_cast<AudioBlockHeader*>(ZqSharedMemoryMap(fd, size, TRUE));
  if (block == nullptr) {
    ZqCloseDescriptor(fd);
    return E_OUTOFMEMORY;
  }
  block->magic = kAudioMagic;
  block->version = kZqRemoteVersion;
  block->capacity = uint32_t(capacity);
  Writer body;
  body.Put<uint32_t>(uint32_t(capacity));
  HRESULT status;
  std::vector<uint8_t> reply;
  const bool sent = m_connection->Call(m_id, m_iface, kZqRemoteAttachAudio, body, &status, &reply, fd);
  ZqCloseDescriptor(fd);  // the mapping stays; the stub has its own descriptor
  if (!sent || FAILED(status)) {
    ZqSharedMemoryUnmap(block, size);
    return status;
  }
  ZqSharedMemoryUnmap(m_block, m_blockSize);
  m_block = block;
  m_blockSize = size;
  m_capacity = capacity;
  return S_OK;
}

bool EffectProxy::ServeCallback() {
  AudioBlockHeader* h = m_block;
  const uint32_t size = h->callbackSize;
  ZqRemoteHeader request;
  if (size < sizeof request || size > kCallbackRoom) return false;
  std::memcpy(&request, h->callback, sizeof request);
  if (request.magic != kZqRemoteMagic || request.version != kZqRemoteVersion || request.kind != kZqRemoteCall ||
      request.size != size - sizeof request)
    return false;
  std::vector<uint8_t> body(h->callback + sizeof request, h->callback + size);
  Reader in(body.data(), body.size());
  Writer out;
  HRESULT status;
  if (!m_connection->Serve(request, in, out, &status, nullptr, 0)) return false;
  if (sizeof(ZqRemoteHeader) + out.bytes.size() > kCallbackRoom) {
    status = E_FAIL;
    out.bytes.clear();
  }
  const ZqRemoteHeader reply{kZqRemoteMagic, kZqRemoteVersion, kZqRemoteReply, request.object, request.iface,
                             request.method, status, uint32_t(out.bytes.size())};
  std::memcpy(h->callback, &reply, sizeof reply);
  if (!out.bytes.empty()) std::memcpy(h->callback + sizeof reply, out.bytes.data(), out.bytes.size());
  h->callbackSize = uint32_t(sizeof reply + out.bytes.size());
  SetState(h, kAudioCallbackDone);
  return true;
}

HRESULT EffectProxy::ProcessAudio(const void* source, int sourceChannels, void* destination,
                                  int destinationChannels, int frames, int bytesPerSample) {
  if (m_connection->Ended()) return ZQ_E_RPC_CALL_FAILED;
  uint64_t in = 0, out = 0;
  if (!BlockSizes(sourceChannels, frames, bytesPerSample, &in) ||
      !BlockSizes(destinationChannels, frames, bytesPerSample, &out))
    return E_INVALIDARG;
  if (source == nullptr) in = 0;
  const uint64_t need = std::max(in, out);
  if (m_block == nullptr || need > m_capacity) {
    const HRESULT hr = Attach(need);
    if (FAILED(hr)) return hr;
  }
  AudioBlockHeader* h = m_block;
  uint8_t* data = reinterpret_cast<uint8_t*>(h) + kAudioDataOffset;
  h->sourceChannels = sourceChannels;
  h->destinationChannels = destinationChannels;
  h->frames = frames;
  h->bytesPerSample = bytesPerSample;
  h->hasSource = source != nullptr;
  if (in) std::memcpy(data, source, size_t(in));
  SetState(h, kAudioRequest);
  // Waits for the end of processing, answering the plug-in's calls to its
  // host meanwhile.  WaitWhile gives back the state it waited on only when
  // the server has gone.
  for (uint32_t s = kAudioRequest;;) {
    const uint32_t next = WaitWhile(h, s, 20, [this] { return m_connection->PeerAlive(); });
    if (next == kAudioDone) break;
    if (next == kAudioCallback && ServeCallback()) {
      s = kAudioCallbackDone;
      continue;
    }
    if (next != s && (next == kAudioRequest || next == kAudioCallbackDone)) {
      s = next;
      continue;
    }
    m_connection->End();  // the server went, or broke the block
    return ZQ_E_RPC_CALL_FAILED;
  }
  const HRESULT status = h->status;
  if (SUCCEEDED(status) && destination != nullptr && out) std::memcpy(destination, data + m_capacity, size_t(out));
  return status;
}

}  // namespace

// --- The connection's work ------------------------------------------------------------

ZqRemoteConnection::~ZqRemoteConnection() {
  std::unordered_map<uint32_t, Exported> exports;
  {
    std::lock_guard<std::mutex> guard(m_exportLock);
    exports.swap(m_exports);
  }
  for (auto& [id, e] : exports) {
    e.audio.reset();
    if (e.object) e.object->Release();
  }
  ZqCloseDescriptor(m_main.socket);
  ZqCloseDescriptor(m_side.socket);
  if (m_process) CloseHandle(m_process);
}

bool ZqRemoteConnection::SendMessage(Channel& channel, uint16_t kind, uint32_t object, uint16_t iface,
                                     uint16_t method, HRESULT status, const std::vector<uint8_t>& body, int fd) {
  if (sizeof(ZqRemoteHeader) + body.size() > kZqRemoteMaxMessage) return false;
  const ZqRemoteHeader h{kZqRemoteMagic, kZqRemoteVersion, kind, object, iface, method, status, uint32_t(body.size())};
  std::vector<uint8_t> message(sizeof h + body.size());
  std::memcpy(message.data(), &h, sizeof h);
  if (!body.empty()) std::memcpy(message.data() + sizeof h, body.data(), body.size());
  const long long sent =
      ZqSocketSend(channel.socket, message.data(), message.size(), fd >= 0 ? &fd : nullptr, fd >= 0);
  return sent == static_cast<long long>(message.size());
}

bool ZqRemoteConnection::Receive(Channel& channel, ZqRemoteHeader* header, int* fd, DWORD limitMs, bool* timedOut) {
  int fds[2] = {-1, -1};
  size_t count = 2;
  const long long n = ZqSocketReceive(channel.socket, channel.buffer.data(), channel.buffer.size(), fds, &count, limitMs);
  for (size_t i = 1; i < count; ++i) ZqCloseDescriptor(fds[i]);
  *fd = count > 0 ? fds[0] : -1;
  if (n < 0 && GetLastError() == ERROR_TIMEOUT) {
    *timedOut = true;
    return false;
  }
  bool ok = n >= static_cast<long long>(sizeof *header);
  if (ok) {
    std::memcpy(header, channel.buffer.data(), sizeof *header);
    ok = header->magic == kZqRemoteMagic && header->version == kZqRemoteVersion &&
         header->size == uint64_t(n) - sizeof *header;
  }
  if (!ok) {
    m_brokenFormat = n > 0 || (n < 0 && GetLastError() == ERROR_MORE_DATA);
    ZqCloseDescriptor(*fd);
    *fd = -1;
    End();
  }
  return ok;
}

bool ZqRemoteConnection::Call(uint32_t object, uint16_t iface, uint16_t method, const Writer& body, HRESULT* status,
                              std::vector<uint8_t>* reply, int fd, DWORD limitMs) {
  *status = ZQ_E_RPC_CALL_FAILED;
  if (!HostSide()) {
    if (t_audioServer != nullptr && t_audioServer->Connection() == this)
      return t_audioServer->CallHost(object, iface, method, body, status, reply);
    if (std::this_thread::get_id() != m_servingThread) {
      // A plug-in's own thread: its calls take turns on the side channel.
      if (m_side.socket < 0 || Ended()) return false;
      std::lock_guard<std::mutex> guard(m_sideLock);
      return CallOn(m_side, object, iface, method, body, status, reply, fd, INFINITE);
    }
  }
  if (Ended()) return false;
  std::lock_guard<std::recursive_mutex> guard(m_callLock);
  return CallOn(m_main, object, iface, method, body, status, reply, fd, limitMs ? limitMs : m_callLimit);
}

bool ZqRemoteConnection::CallOn(Channel& channel, uint32_t object, uint16_t iface, uint16_t method,
                                const Writer& body, HRESULT* status, std::vector<uint8_t>* reply, int fd,
                                DWORD limit) {
  if (!SendMessage(channel, kZqRemoteCall, object, iface, method, 0, body.bytes, fd)) {
    End();
    return false;
  }
  for (;;) {
    ZqRemoteHeader h;
    int received = -1;
    bool timedOut = false;
    if (!Receive(channel, &h, &received, limit, &timedOut)) {
      if (timedOut) {
        Terminate();
        *status = ZQ_E_CANCELLED;
      }
      End();
      return false;
    }
    if (h.kind == kZqRemoteReply) {
      ZqCloseDescriptor(received);
      reply->assign(channel.buffer.data() + sizeof h, channel.buffer.data() + sizeof h + h.size);
      *status = h.status;
      return true;
    }
    if (h.kind != kZqRemoteCall || !ServeAndAnswer(channel, h, channel.buffer.data() + sizeof h, received)) {
      End();
      return false;
    }
  }
}

bool ZqRemoteConnection::ServeAndAnswer(Channel& channel, const ZqRemoteHeader& header, const uint8_t* data,
                                        int fd) {
  // The body is copied: a call made while serving this one reuses the buffer.
  const std::vector<uint8_t> body(data, data + header.size);
  Reader in(body.data(), body.size());
  Writer out;
  HRESULT status = S_OK;
  const bool ok = Serve(header, in, out, &status, fd >= 0 ? &fd : nullptr, fd >= 0 ? 1 : 0);
  if (!ok) return false;
  if (!SendMessage(channel, kZqRemoteReply, header.object, header.iface, header.method, status, out.bytes, -1)) {
    End();
    return false;
  }
  return true;
}

uint32_t ZqRemoteConnection::Export(IUnknown* object, uint16_t iface, uint16_t* kind) {
  if (kind) *kind = 0;
  if (object == nullptr) return 0;
  static constexpr std::pair<uint16_t, GUID> kKinds[] = {
      {kZqRemoteEffect, IZqVstEffect::kIid},
      {kZqRemoteFactory, IZqVstEffectFactory::kIid},
      {kZqRemoteMaster, IZqVstMaster::kIid},
      {kZqRemoteStream, IStream::kIid},
  };
  void* found = nullptr;
  uint16_t k = 0;
  for (const auto& [candidate, iid] : kKinds) {
    if ((iface == 0 || iface == candidate) && SUCCEEDED(object->QueryInterface(iid, &found)) && found) {
      k = candidate;
      break;
    }
  }
  if (found == nullptr) return 0;
  IUnknown* held = static_cast<IUnknown*>(found);
  if (k == kZqRemoteFactory && !HostSide()) static_cast<IZqVstEffectFactory*>(held)->LockServer(TRUE);
  std::lock_guard<std::mutex> guard(m_exportLock);
  const uint32_t id = m_nextId++;
  m_exports[id].object = held;
  m_exports[id].iface = k;
  if (kind) *kind = k;
  return id;
}

void ZqRemoteConnection::Unexport(uint32_t id) {
  Exported e;
  {
    std::lock_guard<std::mutex> guard(m_exportLock);
    auto it = m_exports.find(id);
    if (it == m_exports.end() || id == kZqRemoteClassObject) return;
    e = std::move(it->second);
    m_exports.erase(it);
  }
  e.audio.reset();
  if (e.iface == kZqRemoteFactory && !HostSide()) static_cast<IZqVstEffectFactory*>(e.object)->LockServer(FALSE);
  e.object->Release();
}

bool ZqRemoteConnection::Serve(const ZqRemoteHeader& h, Reader& in, Writer& out, HRESULT* status, const int* fds,
                               size_t fdCount) {
  const int fd = fdCount > 0 ? fds[0] : -1;
  if (h.method == kZqRemoteRelease) {
    ZqCloseDescriptor(fd);
    Unexport(h.object);
    *status = S_OK;
    return true;
  }
  ZqComPtr<IUnknown> object;
  uint16_t iface = 0;
  {
    std::lock_guard<std::mutex> guard(m_exportLock);
    auto it = m_exports.find(h.object);
    if (it != m_exports.end()) {
      object = ZqComPtr<IUnknown>(it->second.object);
      iface = it->second.iface;
    }
  }
  if (!object) {
    ZqCloseDescriptor(fd);
    *status = RPC_E_DISCONNECTED;  // an object the peer has already let go
    return true;
  }
  if (iface != h.iface) {
    ZqCloseDescriptor(fd);
    return false;
  }
  if (h.method == kZqRemoteGetClassObject) {
    const uint32_t id = h.object == kZqRemoteClassObject ? Export(object.Get(), kZqRemoteFactory) : 0;
    out.Put<uint32_t>(id);
    *status = id ? S_OK : E_NOINTERFACE;
    return true;
  }
  if (h.method == kZqRemoteAttachAudio) {
    const uint32_t capacity = in.Get<uint32_t>();
    if (!in.ok || iface != kZqRemoteEffect || fd < 0 || HostSide()) {
      ZqCloseDescriptor(fd);
      return false;
    }
    // Only a block whose size can no longer change is mapped: one that
    // could shrink would fault this process when touched.
    const size_t size = ZqSharedMemorySealedSize(fd);
    void* view = size >= kAudioDataOffset + 2 * size_t(capacity) ? ZqSharedMemoryMap(fd, size, TRUE) : nullptr;
    if (view == nullptr) {
      ZqCloseDescriptor(fd);
      *status = E_ACCESSDENIED;
      return true;
    }
    auto* block = static_cast<AudioBlockHeader*>(view);
    std::unique_ptr<AudioServer> old;
    auto audio =
        std::make_unique<AudioServer>(this, static_cast<IZqVstEffect*>(object.Get()), fd, block, size, capacity);
    {
      std::lock_guard<std::mutex> guard(m_exportLock);
      auto it = m_exports.find(h.object);
      if (it != m_exports.end()) {
        old = std::move(it->second.audio);
        it->second.audio = std::move(audio);
      }
    }
    *status = S_OK;
    return true;
  }
  ZqCloseDescriptor(fd);
  bool broken = false;
  switch (iface) {
    case kZqRemoteEffect:
      *status = StubDispatch(effect::kMethods, h.method, static_cast<IZqVstEffect*>(object.Get()), in, out, *this,
                             &broken);
      break;
    case kZqRemoteFactory:
      *status = StubDispatch(factory::kMethods, h.method, static_cast<IZqVstEffectFactory*>(object.Get()), in, out,
                             *this, &broken);
      break;
    case kZqRemoteMaster:
      *status = StubDispatch(master::kMethods, h.method, static_cast<IZqVstMaster*>(object.Get()), in, out, *this,
                             &broken);
      break;
    case kZqRemoteStream:
      *status = StubDispatch(stream::kMethods, h.method, static_cast<IStream*>(object.Get()), in, out, *this,
                             &broken);
      break;
    default:
      return false;
  }
  return !broken;
}

int ZqRemoteConnection::Run(IUnknown* classObject, HRESULT status, bool (*shouldQuit)()) {
  m_servingThread = std::this_thread::get_id();
  void* factory = nullptr;
  if (classObject && SUCCEEDED(classObject->QueryInterface(IID_IZqVstEffectFactory, &factory)) && factory) {
    std::lock_guard<std::mutex> guard(m_exportLock);
    m_exports[kZqRemoteClassObject].object = static_cast<IUnknown*>(factory);
    m_exports[kZqRemoteClassObject].iface = kZqRemoteFactory;
  }
  // The start message hands the host the other end of the side channel.
  int side[2] = {-1, -1};
  if (SUCCEEDED(status) && ZqCreateSocketPair(side)) m_side.socket = side[0];
  const bool started =
      SendMessage(m_main, kZqRemoteStart, kZqRemoteClassObject, kZqRemoteFactory, 0, status, {}, side[1]);
  ZqCloseDescriptor(side[1]);
  if (!started || FAILED(status)) return 0;
  for (;;) {
    ZqRemoteHeader h;
    int fd = -1;
    bool timedOut = false;
    if (!Receive(m_main, &h, &fd, INFINITE, &timedOut)) return m_brokenFormat ? 1 : 0;
    if (h.kind != kZqRemoteCall || !ServeAndAnswer(m_main, h, m_main.buffer.data() + sizeof h, fd)) {
      End();
      return 1;
    }
    if (shouldQuit && shouldQuit()) return 0;
  }
}

// --- The public face ------------------------------------------------------------------

void ZqRemoteConnection::ServeSideCalls() {
  for (;;) {
    ZqRemoteHeader h;
    int fd = -1;
    bool timedOut = false;
    if (!Receive(m_side, &h, &fd, INFINITE, &timedOut)) return;  // the server has gone
    if (h.kind != kZqRemoteCall || !ServeAndAnswer(m_side, h, m_side.buffer.data() + sizeof h, fd)) {
      End();
      return;
    }
  }
}

std::shared_ptr<ZqRemoteConnection> ZqRemoteConnect(int socket, HANDLE process, int sideSocket) {
  auto connection = std::make_shared<ZqRemoteConnection>(socket, process, sideSocket);
  // The thread keeps the connection until the server hangs up.
  if (process != nullptr && sideSocket >= 0) std::thread([connection] { connection->ServeSideCalls(); }).detach();
  return connection;
}

HRESULT ZqRemoteGetClassObject(const std::shared_ptr<ZqRemoteConnection>& connection, REFIID riid, void** object) {
  if (object == nullptr) return E_POINTER;
  *object = nullptr;
  HRESULT status;
  std::vector<uint8_t> reply;
  if (!connection->Call(kZqRemoteClassObject, kZqRemoteFactory, kZqRemoteGetClassObject, Writer(), &status, &reply))
    return status;
  if (FAILED(status)) return status;
  Reader in(reply.data(), reply.size());
  const uint32_t id = in.Get<uint32_t>();
  if (!in.ok || id == 0) {
    connection->End();
    return ZQ_E_RPC_CALL_FAILED;
  }
  IUnknown* proxy = MakeProxy(connection.get(), id, kZqRemoteFactory);
  if (proxy == nullptr) return E_OUTOFMEMORY;
  const HRESULT hr = proxy->QueryInterface(riid, object);
  proxy->Release();
  return hr;
}

void ZqRemoteSetCallLimit(const std::shared_ptr<ZqRemoteConnection>& connection, DWORD timeoutMs) {
  connection->SetCallLimit(timeoutMs);
}

bool ZqRemoteIsEnded(const std::shared_ptr<ZqRemoteConnection>& connection) { return !connection->PeerAlive(); }

void ZqRemoteTerminate(const std::shared_ptr<ZqRemoteConnection>& connection) { connection->Terminate(); }

bool ZqRemoteWaitForEnd(const std::shared_ptr<ZqRemoteConnection>& connection, DWORD timeoutMs) {
  return connection->WaitForEnd(timeoutMs);
}

DWORD ZqRemoteProcessId(const std::shared_ptr<ZqRemoteConnection>& connection) { return connection->ProcessId(); }

int ZqRemoteServe(const std::shared_ptr<ZqRemoteConnection>& connection, IUnknown* classObject, HRESULT status,
                  bool (*shouldQuit)()) {
  return connection->Run(classObject, status, shouldQuit);
}
