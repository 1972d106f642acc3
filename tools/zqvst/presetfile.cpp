// Reading of .fxp and .fxb files for `zqvst preset show`.
//
// The four forms all open with six big-endian words: "CcnK", the byte size
// (file length less 8), the form, a format version, the plug-in's uniqueID
// and its version.
//
//   "FxCk"  program, a float per parameter      numParams at 24, name at 28, floats from 56
//   "FPCh"  program as the plug-in's chunk      numParams at 24, name at 28, size at 56, chunk from 60
//   "FxBk"  bank of programs                    numPrograms at 24, 128 reserved, programs from 156
//   "FBCh"  bank as the plug-in's chunk         numPrograms at 24, 128 reserved, size at 156, chunk from 160
//
// A bank of format version 2 keeps the current program in the first word of
// its reserved bytes.
//
// A file counts as damaged where a plug-in would refuse it whatever it is:
// a missing magic, an unknown form, a chunk of no bytes, a count below zero,
// a program in a bank that names another plug-in or is no program at all,
// and anything the counts and sizes promise that the file does not hold.
// The byte size word is reported but not held against the file, as loading
// does not read it either.  Nothing is sized by a field of the file before
// the file was seen to hold it.
#include "tools/zqvst/presetfile.h"

#include <charconv>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <sstream>
#include <string_view>
#include <system_error>

#include "tools/zqvst/idtext.h"
#include "tools/zqvst/timefiles.h"

namespace {

constexpr size_t kCommonHeader = 24;
constexpr size_t kProgramParams = 56;   // "FxCk": the first float
constexpr size_t kProgramChunk = 60;    // "FPCh": the first chunk byte
constexpr size_t kBankPrograms = 156;   // "FxBk": the first program
constexpr size_t kBankChunk = 160;      // "FBCh": the first chunk byte
constexpr size_t kNameField = 28;

constexpr uint32_t Magic(const char (&m)[5]) {
  return (uint32_t(uint8_t(m[0])) << 24) | (uint32_t(uint8_t(m[1])) << 16) | (uint32_t(uint8_t(m[2])) << 8) |
         uint32_t(uint8_t(m[3]));
}
constexpr uint32_t kChunkMagic = Magic("CcnK");
constexpr uint32_t kProgramMagic = Magic("FxCk");
constexpr uint32_t kProgramChunkMagic = Magic("FPCh");
constexpr uint32_t kBankMagic = Magic("FxBk");
constexpr uint32_t kBankChunkMagic = Magic("FBCh");

// The largest file the 32-bit byte size can describe.
constexpr uint64_t kLargestFile = 0xFFFFFFFFull + 8;

uint32_t Word(std::string_view data, size_t at) {
  const auto* p = reinterpret_cast<const unsigned char*>(data.data() + at);
  return (uint32_t(p[0]) << 24) | (uint32_t(p[1]) << 16) | (uint32_t(p[2]) << 8) | uint32_t(p[3]);
}
int32_t SignedWord(std::string_view data, size_t at) { return static_cast<int32_t>(Word(data, at)); }

std::string IdText(uint32_t id) { return "'" + ZqvstFourChars(id) + "' (" + ZqvstHex(id) + ")"; }

// Length of a valid UTF-8 sequence at `s[i]`, or 0.
size_t Utf8Length(std::string_view s, size_t i) {
  const auto c = static_cast<unsigned char>(s[i]);
  size_t n = 0;
  uint32_t cp = 0;
  if (c >= 0xC2 && c <= 0xDF) n = 2, cp = c & 0x1F;
  else if (c >= 0xE0 && c <= 0xEF) n = 3, cp = c & 0x0F;
  else if (c >= 0xF0 && c <= 0xF4) n = 4, cp = c & 0x07;
  else return 0;
  if (i + n > s.size()) return 0;
  for (size_t k = 1; k < n; ++k) {
    const auto b = static_cast<unsigned char>(s[i + k]);
    if ((b & 0xC0) != 0x80) return 0;
    cp = (cp << 6) | (b & 0x3F);
  }
  // Overlong forms, surrogates and values beyond the last code point.
  if ((n == 3 && cp < 0x800) || (n == 4 && (cp < 0x10000 || cp > 0x10FFFF)) || (cp >= 0xD800 && cp <= 0xDFFF))
    return 0;
  return n;
}

// The 28-byte name field in double quotes.  The name ends at its first zero
// or with the field; a file may leave out the zero.  Control characters,
// quotes, backslashes and bytes that are not UTF-8 (the plug-in's 8-bit
// text) are escaped, so that a line never breaks a terminal or a script.
std::string NameText(std::string_view data, size_t at) {
  std::string_view field = data.substr(at, kNameField);
  field = field.substr(0, field.find('\0'));
  std::string s = "\"";
  for (size_t i = 0; i < field.size();) {
    const auto c = static_cast<unsigned char>(field[i]);
    if (c == '"' || c == '\\') {
      s += '\\';
      s += static_cast<char>(c);
      ++i;
    } else if (c >= 0x20 && c < 0x7F) {
      s += static_cast<char>(c);
      ++i;
    } else if (const size_t n = c >= 0x80 ? Utf8Length(field, i) : 0; n > 0) {
      s.append(field.substr(i, n));
      i += n;
    } else {
      static const char digits[] = "0123456789ABCDEF";
      s += "\\x";
      s += digits[c >> 4];
      s += digits[c & 0xF];
      ++i;
    }
  }
  return s + "\"";
}

std::string FloatText(uint32_t bits) {
  float value;
  std::memcpy(&value, &bits, sizeof value);
  char buffer[32];
  const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
  return std::string(buffer, result.ptr);
}

// Problems found while walking the file; the first one ends the walk.
struct Fault {
  std::string message;
};

// Requires `need` bytes from `at` in a file of `size` bytes.
void Require(uint64_t at, uint64_t need, size_t size, const std::string& what) {
  if (at + need > size)
    throw Fault{"cut short: " + std::to_string(at + need) + " bytes needed for " + what + ", the file has " +
                std::to_string(size)};
}

std::string Parameters(int32_t n) { return std::to_string(n) + (n == 1 ? " parameter" : " parameters"); }

int32_t Count(std::string_view data, size_t at, const char* what) {
  const int32_t n = SignedWord(data, at);
  if (n < 0) throw Fault{"damaged: " + std::string(what) + " " + std::to_string(n)};
  return n;
}

uint32_t ChunkSize(std::string_view data, size_t at) {
  const int32_t n = SignedWord(data, at);
  if (n <= 0) throw Fault{"damaged: chunk size " + std::to_string(n)};
  return static_cast<uint32_t>(n);
}

// A program of a bank at `at`: checks it and answers its length and a
// summary.
size_t DescribeBankProgram(std::string_view data, size_t at, uint32_t bankId, int index, std::string* summary) {
  const std::string self = "program " + std::to_string(index) + " (at byte " + std::to_string(at) + ")";
  try {
    Require(at, kCommonHeader, data.size(), "its header");
    if (Word(data, at) != kChunkMagic) throw Fault{"does not begin with 'CcnK'"};
    const uint32_t form = Word(data, at + 8);
    if (form != kProgramMagic && form != kProgramChunkMagic)
      throw Fault{"is no program: its kind is '" + ZqvstFourChars(form) + "'"};
    const uint32_t id = Word(data, at + 16);
    if (id != bankId) throw Fault{"is for another plug-in, " + IdText(id)};
    if (form == kProgramMagic) {
      Require(at, kProgramParams, data.size(), "its header");
      const int32_t params = Count(data, at + 24, "parameter count");
      Require(at, kProgramParams + uint64_t(params) * 4, data.size(), Parameters(params));
      *summary = NameText(data, at + 28) + " (FxCk, " + Parameters(params) + ")";
      return kProgramParams + size_t(params) * 4;
    }
    Require(at, kProgramChunk, data.size(), "its header");
    Count(data, at + 24, "parameter count");
    const uint32_t chunk = ChunkSize(data, at + 56);
    Require(at, kProgramChunk + uint64_t(chunk), data.size(), "its chunk of " + std::to_string(chunk) + " bytes");
    *summary = NameText(data, at + 28) + " (FPCh, chunk of " + std::to_string(chunk) + " bytes)";
    return kProgramChunk + chunk;
  } catch (Fault& fault) {
    fault.message = self + ": " + fault.message;
    throw;
  }
}

std::string Describe(std::string_view data) {
  std::ostringstream out;
  const size_t size = data.size();
  if (size < kCommonHeader)
    throw Fault{"too short for a preset or bank file (" + std::to_string(size) + " bytes; the header alone has " +
                std::to_string(kCommonHeader) + ")"};
  if (Word(data, 0) != kChunkMagic)
    throw Fault{"not a preset or bank file: it does not begin with 'CcnK'"};
  const uint32_t form = Word(data, 8);
  const uint32_t byteSize = Word(data, 4);
  const uint32_t version = Word(data, 12);
  const uint32_t id = Word(data, 16);
  const uint32_t fxVersion = Word(data, 20);

  const char* kind = nullptr;
  if (form == kProgramMagic) kind = "FxCk (program with parameters)";
  else if (form == kProgramChunkMagic) kind = "FPCh (program chunk)";
  else if (form == kBankMagic) kind = "FxBk (bank of programs)";
  else if (form == kBankChunkMagic) kind = "FBCh (bank chunk)";
  else
    throw Fault{"unknown kind '" + ZqvstFourChars(form) + "' (" + ZqvstHex(form) +
                "; known are FxCk, FPCh, FxBk, FBCh)"};

  out << "Kind: " << kind << '\n';
  out << "File size: " << size << " bytes\n";
  out << "Byte size field: " << byteSize;
  if (uint64_t(byteSize) + 8 != size) out << " (should be " << size - 8 << ", the file size less 8)";
  out << '\n';
  out << "Format version: " << version << '\n';
  out << "Plug-in id: " << IdText(id) << '\n';
  out << "Plug-in version: " << static_cast<int32_t>(fxVersion) << '\n';

  if (form == kProgramMagic) {
    Require(0, kProgramParams, size, "the program header");
    const int32_t params = Count(data, 24, "parameter count");
    Require(0, kProgramParams + uint64_t(params) * 4, size, Parameters(params));
    out << "Parameters: " << params << '\n';
    out << "Program name: " << NameText(data, 28) << '\n';
    for (int32_t i = 0; i < params; ++i)
      out << "Parameter " << i << ": " << FloatText(Word(data, kProgramParams + size_t(i) * 4)) << '\n';
  } else if (form == kProgramChunkMagic) {
    Require(0, kProgramChunk, size, "the program header");
    const int32_t params = Count(data, 24, "parameter count");
    const uint32_t chunk = ChunkSize(data, 56);
    Require(0, kProgramChunk + uint64_t(chunk), size, "a chunk of " + std::to_string(chunk) + " bytes");
    out << "Parameters: " << params << '\n';
    out << "Program name: " << NameText(data, 28) << '\n';
    out << "Chunk size: " << chunk << " bytes\n";
  } else {
    const bool chunkBank = form == kBankChunkMagic;
    Require(0, chunkBank ? kBankChunk : kBankPrograms, size, "the bank header");
    const int32_t programs = Count(data, 24, "program count");
    out << "Programs: " << programs << '\n';
    // Version 2 of the bank keeps its current program in the reserved bytes;
    // earlier versions leave them zero.
    if (version >= 2) out << "Current program: " << SignedWord(data, 28) << '\n';
    if (chunkBank) {
      const uint32_t chunk = ChunkSize(data, 156);
      Require(0, kBankChunk + uint64_t(chunk), size, "a chunk of " + std::to_string(chunk) + " bytes");
      out << "Chunk size: " << chunk << " bytes\n";
    } else {
      // Every program is walked before the count is trusted: a count beyond
      // what the file holds ends at the first program that is not there.
      size_t at = kBankPrograms;
      for (int32_t p = 0; p < programs; ++p) {
        std::string summary;
        at += DescribeBankProgram(data, at, id, p, &summary);
        out << "Program " << p << ": " << summary << '\n';
      }
    }
  }
  return out.str();
}

// The file's bytes, refusing before reading one larger than any preset or
// bank can be.
bool ReadWholeFile(const std::string& path, std::string* bytes, std::string* error) {
  std::error_code ec;
  const uintmax_t size = std::filesystem::file_size(path, ec);
  if (!ec && size > kLargestFile) {
    *error = path + ": too large for a preset or bank file";
    return false;
  }
  return ZqvstReadFile(path, bytes, error);
}

}  // namespace

bool ZqvstDescribePresetFile(const std::string& path, std::string* text, std::string* error) {
  std::string message;
  std::string bytes;
  if (!ReadWholeFile(path, &bytes, &message)) {
    if (error) *error = message;
    return false;
  }
  try {
    *text = Describe(bytes);
    return true;
  } catch (const Fault& fault) {
    if (error) *error = path + ": " + fault.message;
    return false;
  }
}
