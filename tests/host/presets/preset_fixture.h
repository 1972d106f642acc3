// Helpers of the preset tests: files as byte vectors, their big-endian words,
// and saving into or loading from memory streams.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "kernel/containers/streambase.h"
#include "kernel/containers/streams.h"
#include "tests/host/vsthost_fixture.h"

namespace zqtest {

using Bytes = std::vector<uint8_t>;

inline uint32_t Be(const Bytes& b, size_t at) {
  return static_cast<uint32_t>(b.at(at)) << 24 | static_cast<uint32_t>(b.at(at + 1)) << 16 |
         static_cast<uint32_t>(b.at(at + 2)) << 8 | b.at(at + 3);
}
inline void PutBe(Bytes& b, size_t at, uint32_t v) {
  for (int i = 0; i < 4; ++i) b.at(at + static_cast<size_t>(i)) = static_cast<uint8_t>(v >> (24 - 8 * i));
}
inline void AppendBe(Bytes& b, uint32_t v) {
  b.resize(b.size() + 4);
  PutBe(b, b.size() - 4, v);
}
inline uint32_t Bits(float f) {
  uint32_t u;
  std::memcpy(&u, &f, 4);
  return u;
}
// Text of a field, up to its first zero.
inline std::string Text(const Bytes& b, size_t at, size_t size) {
  std::string s(reinterpret_cast<const char*>(b.data() + at), size);
  return s.substr(0, s.find('\0'));
}
// `text` in a zero-filled field of `size` bytes.
inline Bytes Field(const char* text, size_t size) {
  Bytes f(size, 0);
  std::memcpy(f.data(), text, std::min(size, strlen(text)));
  return f;
}
// The six common words and the count at 24.
inline Bytes Header(const char* form, const char* id, uint32_t version, uint32_t count, uint32_t byteSize) {
  Bytes h = {'C', 'c', 'n', 'K'};
  AppendBe(h, byteSize);
  h.insert(h.end(), form, form + 4);
  AppendBe(h, 0);
  h.insert(h.end(), id, id + 4);
  AppendBe(h, version);
  AppendBe(h, count);
  return h;
}

// SavePreset or SaveBank into a memory stream; the bytes written.
inline Bytes Save(CZqVstEffect* effect, bool bank) {
  Bytes room(1 << 20);
  IStream* stream = nullptr;
  if (ZqCreateStreamFromMemory(room.data(), static_cast<ULONG>(room.size()), 0, &stream, FALSE) != S_OK) return {};
  ULONG size = 0;
  const HRESULT hr = bank ? effect->SaveBank(stream, &size) : effect->SavePreset(stream, &size);
  STATSTG stat{};
  stream->Stat(&stat, STATFLAG_NONAME);
  stream->Release();
  if (hr != S_OK || stat.cbSize.QuadPart != size) return {};
  room.resize(size);
  return room;
}

// LoadPreset or LoadBank (selecting `program`) from a memory stream over `file`.
inline HRESULT Load(CZqVstEffect* effect, Bytes file, bool bank, LONG program = 0) {
  IStream* stream = nullptr;
  file.reserve(1);
  HRESULT hr = ZqCreateStreamFromMemory(file.data(), static_cast<ULONG>(file.size()),
                                        static_cast<ULONG>(file.size()), &stream, FALSE);
  if (FAILED(hr)) return hr;
  hr = bank ? effect->LoadBank(stream, program) : effect->LoadPreset(stream);
  stream->Release();
  return hr;
}

// A stream over `file` whose reads fail (STG_E_READFAULT) once they reach
// byte `failAt`.
class FailingStream final : public ZqStreamObject<FailingStream> {
 public:
  FailingStream(Bytes file, size_t failAt) : m_file(std::move(file)), m_failAt(failAt) {}
  HRESULT STDMETHODCALLTYPE Read(void* buffer, ULONG size, ULONG* read) override {
    if (read) *read = 0;
    if (m_position + size > m_failAt) return STG_E_READFAULT;
    const size_t n = std::min<size_t>(size, m_file.size() - std::min(m_position, m_file.size()));
    if (n) std::memcpy(buffer, m_file.data() + m_position, n);
    m_position += n;
    if (read) *read = static_cast<ULONG>(n);
    return n == size ? S_OK : S_FALSE;
  }
  HRESULT STDMETHODCALLTYPE Seek(LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER* at) override {
    const LONGLONG base = origin == STREAM_SEEK_CUR ? static_cast<LONGLONG>(m_position)
                          : origin == STREAM_SEEK_END ? static_cast<LONGLONG>(m_file.size())
                                                      : 0;
    if (base + move.QuadPart < 0) return STG_E_INVALIDFUNCTION;
    m_position = static_cast<size_t>(base + move.QuadPart);
    if (at) at->QuadPart = m_position;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE Write(const void*, ULONG, ULONG*) override { return E_NOTIMPL; }

 private:
  friend class ZqComObject<FailingStream, IStream>;
  ~FailingStream() = default;
  Bytes m_file;
  size_t m_failAt;
  size_t m_position = 0;
};

inline HRESULT LoadFailing(CZqVstEffect* effect, const Bytes& file, size_t failAt, bool bank) {
  auto* stream = new (std::nothrow) FailingStream(file, failAt);
  const HRESULT hr = bank ? effect->LoadBank(stream, 0) : effect->LoadPreset(stream);
  stream->Release();
  return hr;
}

}  // namespace zqtest
