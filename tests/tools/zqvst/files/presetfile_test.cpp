// `zqvst preset show`: descriptions of .fxp and .fxb files without a plug-in.
#include "tools/zqvst/presetfile.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <vector>

#include "tests/support/test_folder.h"

namespace {

namespace fs = std::filesystem;

constexpr uint32_t kId = 0x5A71446C;  // 'ZqDl'

// Big-endian records built byte by byte, as a file on disk holds them.
std::string U32(uint32_t v) {
  std::string out;
  for (int shift = 24; shift >= 0; shift -= 8) out += static_cast<char>((v >> shift) & 0xFF);
  return out;
}
std::string F32(float f) {
  uint32_t bits;
  std::memcpy(&bits, &f, 4);
  return U32(bits);
}
// A name field of 28 bytes, zero-filled.
std::string Name(const std::string& name) {
  std::string field = name.substr(0, 28);
  field.resize(28, '\0');
  return field;
}

// Overwrites the big-endian word at `at`.
std::string PatchWord(std::string bytes, size_t at, uint32_t v) { return bytes.replace(at, 4, U32(v)); }

// The common header of `form` and then `body`, with the byte size word (the
// length less 8) filled in.
std::string Record(const char* form, const std::string& body, uint32_t version = 1, uint32_t id = kId,
                   uint32_t fxVersion = 1000) {
  const std::string bytes = "CcnK" + U32(0) + form + U32(version) + U32(id) + U32(fxVersion) + body;
  return PatchWord(bytes, 4, static_cast<uint32_t>(bytes.size() - 8));
}

std::string Program(const std::string& name, const std::vector<float>& params) {
  std::string body = U32(static_cast<uint32_t>(params.size())) + Name(name);
  for (float p : params) body += F32(p);
  return Record("FxCk", body);
}

std::string ChunkProgram(const std::string& name, uint32_t numParams, const std::string& chunk) {
  return Record("FPCh", U32(numParams) + Name(name) + U32(static_cast<uint32_t>(chunk.size())) + chunk);
}

std::string Bank(const std::vector<std::string>& programs, uint32_t version = 1, uint32_t current = 0) {
  std::string body = U32(static_cast<uint32_t>(programs.size())) + U32(current) + std::string(124, '\0');
  for (const std::string& p : programs) body += p;
  return Record("FxBk", body, version);
}

std::string ChunkBank(uint32_t numPrograms, const std::string& chunk, uint32_t version = 1, uint32_t current = 0) {
  const std::string header = U32(numPrograms) + U32(current) + std::string(124, '\0');
  return Record("FBCh", header + U32(static_cast<uint32_t>(chunk.size())) + chunk, version);
}

class PresetFileTest : public testing::Test {
 protected:
  zqtest::TestFolder folder_{"zq_zqvst_preset_"};

  std::string Write(const std::string& bytes, const std::string& name = "file.fxp") {
    const std::string path = (dir_ / name).string();
    std::ofstream(path, std::ios::binary) << bytes;
    return path;
  }

  std::string Describe(const std::string& bytes) {
    std::string text, error;
    EXPECT_TRUE(ZqvstDescribePresetFile(Write(bytes), &text, &error)) << error;
    return text;
  }

  // The message without the path in front.
  std::string Refusal(const std::string& bytes) {
    const std::string path = Write(bytes);
    std::string text, error;
    EXPECT_FALSE(ZqvstDescribePresetFile(path, &text, &error));
    EXPECT_EQ(error.rfind(path + ": ", 0), 0u) << error;
    return error.size() > path.size() + 2 ? error.substr(path.size() + 2) : error;
  }

  const fs::path& dir_ = folder_.path();
};

TEST_F(PresetFileTest, DescribesAProgramWithItsParameterValues) {
  EXPECT_EQ(Describe(Program("Warm Room", {0.5f, 0.25f, 1.0f, 1e-5f})),
            "Kind: FxCk (program with parameters)\n"
            "File size: 72 bytes\n"
            "Byte size field: 64\n"
            "Format version: 1\n"
            "Plug-in id: 'ZqDl' (0x5A71446C)\n"
            "Plug-in version: 1000\n"
            "Parameters: 4\n"
            "Program name: \"Warm Room\"\n"
            "Parameter 0: 0.5\n"
            "Parameter 1: 0.25\n"
            "Parameter 2: 1\n"
            "Parameter 3: 1e-05\n");
  // A program of no parameters is a program all the same.
  EXPECT_NE(Describe(Program("", {})).find("Parameters: 0\nProgram name: \"\"\n"), std::string::npos);
}

// Chunks and banks differ from a program after the common header.
TEST_F(PresetFileTest, DescribesChunksAndBanksAfterTheCommonHeader) {
  const std::string bank =
      Bank({Program("One", {0.1f, 0.2f}), Program("Solo", {0.5f}), ChunkProgram("Three", 2, "abc")});
  const std::string chunk(40, '\x7F');
  const std::pair<std::string, std::string> cases[] = {
      {ChunkProgram("Init", 12, std::string(100, 'x')),
       "Kind: FPCh (program chunk)\nFile size: 160 bytes\nByte size field: 152\nFormat version: 1\n"
       "Plug-in id: 'ZqDl' (0x5A71446C)\nPlug-in version: 1000\n"
       "Parameters: 12\nProgram name: \"Init\"\nChunk size: 100 bytes\n"},
      {bank, "Kind: FxBk (bank of programs)\nFile size: " + std::to_string(bank.size()) +
                 " bytes\nByte size field: " + std::to_string(bank.size() - 8) +
                 "\nFormat version: 1\nPlug-in id: 'ZqDl' (0x5A71446C)\nPlug-in version: 1000\nPrograms: 3\n"
                 "Program 0: \"One\" (FxCk, 2 parameters)\nProgram 1: \"Solo\" (FxCk, 1 parameter)\n"
                 "Program 2: \"Three\" (FPCh, chunk of 3 bytes)\n"},
      // The current program shows from format version 2; before, the field
      // is reserved and says nothing.
      {ChunkBank(16, chunk, 2, 5),
       "Kind: FBCh (bank chunk)\nFile size: 200 bytes\nByte size field: 192\nFormat version: 2\n"
       "Plug-in id: 'ZqDl' (0x5A71446C)\nPlug-in version: 1000\n"
       "Programs: 16\nCurrent program: 5\nChunk size: 40 bytes\n"},
      {ChunkBank(16, chunk, 1, 5), "Programs: 16\nChunk size: 40 bytes\n"},
      {ChunkBank(16, chunk, 0, 0), "Programs: 16\nChunk size: 40 bytes\n"},
      {Bank({Program("A", {}), Program("B", {})}, 2, 1),
       "Programs: 2\nCurrent program: 1\nProgram 0: \"A\" (FxCk, 0 parameters)\nProgram 1: \"B\" (FxCk, 0 parameters)\n"},
      {Bank({}), "Programs: 0\n"},
  };
  for (const auto& [bytes, text] : cases) {
    const std::string described = Describe(bytes);
    EXPECT_NE(described.find(text), std::string::npos) << described;
    EXPECT_EQ(described.substr(described.find(text)).size(), text.size()) << "more after\n" << text;
  }
}

TEST_F(PresetFileTest, TellsAByteSizeThatDisagreesWithTheFile) {
  // Bytes after the program are no damage: loading never reads them.
  const std::string longer = Program("P", {0.5f}) + "trailing";
  EXPECT_NE(Describe(longer).find("Byte size field: 52 (should be 60, the file size less 8)\n"), std::string::npos);
  EXPECT_NE(Describe(PatchWord(Program("P", {0.5f}), 4, 0)).find("Byte size field: 0 (should be 52"),
            std::string::npos);
}

TEST_F(PresetFileTest, ShowsIdsAndNamesThatAreNotPlainText) {
  const std::string text =
      Describe(Record("FxCk", U32(0) + Name("Say \"hi\"\\\x01\t\xC3\xA9t\xC3\xA9 \xE9"), 1, 0x01FF4142, 0xFFFFFFFF));
  EXPECT_NE(text.find("Plug-in id: '..AB' (0x01FF4142)\n"), std::string::npos) << text;
  EXPECT_NE(text.find("Plug-in version: -1\n"), std::string::npos) << text;
  // UTF-8 stays, a lone 8-bit byte and control characters are escaped.
  EXPECT_NE(text.find("Program name: \"Say \\\"hi\\\"\\\\\\x01\\x09\xC3\xA9t\xC3\xA9 \\xE9\"\n"), std::string::npos)
      << text;

  // All 28 bytes without a zero: the name ends with the field.
  const std::string full(28, 'N');
  EXPECT_NE(Describe(Program(full, {0.5f})).find("Program name: \"" + full + "\"\nParameter 0: 0.5\n"),
            std::string::npos);
}

TEST_F(PresetFileTest, RefusesDamagedAndCutFiles) {
  const std::string program = Program("P", {0.1f, 0.2f, 0.3f});
  const std::string chunkProgram = ChunkProgram("C", 2, std::string(50, 'c'));
  const std::string bank = Bank({Program("A", {0.1f}), Program("B", {0.2f})});
  const std::string chunkBank = ChunkBank(4, std::string(30, 'z'));

  EXPECT_EQ(Refusal(""), "too short for a preset or bank file (0 bytes; the header alone has 24)");
  EXPECT_EQ(Refusal(program.substr(0, 23)), "too short for a preset or bank file (23 bytes; the header alone has 24)");
  EXPECT_EQ(Refusal("RIFF" + program.substr(4)), "not a preset or bank file: it does not begin with 'CcnK'");
  EXPECT_EQ(Refusal(PatchWord(program, 8, 0x46784378)),  // "FxCx"
            "unknown kind 'FxCx' (0x46784378; known are FxCk, FPCh, FxBk, FBCh)");

  // Programs with parameters.
  EXPECT_EQ(Refusal(program.substr(0, 40)), "cut short: 56 bytes needed for the program header, the file has 40");
  EXPECT_EQ(Refusal(program.substr(0, program.size() - 1)), "cut short: 68 bytes needed for 3 parameters, the file has 67");
  EXPECT_EQ(Refusal(PatchWord(program, 24, 0xFFFFFFFF)), "damaged: parameter count -1");

  // Program chunks.
  EXPECT_EQ(Refusal(chunkProgram.substr(0, 58)), "cut short: 60 bytes needed for the program header, the file has 58");
  EXPECT_EQ(Refusal(PatchWord(chunkProgram, 56, 0)), "damaged: chunk size 0");
  EXPECT_EQ(Refusal(PatchWord(chunkProgram, 56, 0x80000000)), "damaged: chunk size -2147483648");
  EXPECT_EQ(Refusal(chunkProgram.substr(0, 100)), "cut short: 110 bytes needed for a chunk of 50 bytes, the file has 100");

  // Banks of programs.
  EXPECT_EQ(Refusal(bank.substr(0, 100)), "cut short: 156 bytes needed for the bank header, the file has 100");
  EXPECT_EQ(Refusal(PatchWord(bank, 24, 0xFFFFFFFE)), "damaged: program count -2");
  EXPECT_EQ(Refusal(PatchWord(bank, 24, 3)),
            "program 2 (at byte 276): cut short: 300 bytes needed for its header, the file has 276");
  EXPECT_EQ(Refusal(PatchWord(bank, 24, 0x7FFFFFFF)),
            "program 2 (at byte 276): cut short: 300 bytes needed for its header, the file has 276");
  EXPECT_EQ(Refusal(bank.substr(0, bank.size() - 2)),
            "program 1 (at byte 216): cut short: 276 bytes needed for 1 parameter, the file has 274");
  EXPECT_EQ(Refusal(PatchWord(bank, 156 + 60, 0x52494646)), "program 1 (at byte 216): does not begin with 'CcnK'");
  EXPECT_EQ(Refusal(PatchWord(bank, 156 + 60 + 8, 0x4678426B)),  // "FxBk" inside a bank
            "program 1 (at byte 216): is no program: its kind is 'FxBk'");
  EXPECT_EQ(Refusal(PatchWord(bank, 156 + 60 + 16, 0x41424344)),
            "program 1 (at byte 216): is for another plug-in, 'ABCD' (0x41424344)");
  EXPECT_EQ(Refusal(PatchWord(bank, 156 + 24, 0xFFFFFFFF)), "program 0 (at byte 156): damaged: parameter count -1");
  EXPECT_EQ(Refusal(Bank({ChunkProgram("C", 1, "")})), "program 0 (at byte 156): damaged: chunk size 0");

  // Bank chunks.
  EXPECT_EQ(Refusal(chunkBank.substr(0, 158)), "cut short: 160 bytes needed for the bank header, the file has 158");
  EXPECT_EQ(Refusal(PatchWord(chunkBank, 156, 0)), "damaged: chunk size 0");
  EXPECT_EQ(Refusal(PatchWord(chunkBank, 156, 31)), "cut short: 191 bytes needed for a chunk of 31 bytes, the file has 190");
  EXPECT_EQ(Refusal(PatchWord(chunkBank, 24, 0x80000000)), "damaged: program count -2147483648");
}

// A missing file and a folder are named in the message; files that the
// library itself saved for the example plug-ins read back without a remark.
TEST_F(PresetFileTest, ReadsFilesTheLibraryWroteAndNamesWhatItCannotRead) {
  const std::string missing = (dir_ / "none.fxp").string();
  std::string text, error;
  EXPECT_FALSE(ZqvstDescribePresetFile(missing, &text, &error));
  EXPECT_EQ(error.rfind(missing + ": ", 0), 0u) << error;
  EXPECT_FALSE(ZqvstDescribePresetFile(dir_.string(), &text, &error));
  EXPECT_EQ(error, dir_.string() + ": is a folder, not a file");
  const fs::path corpus = fs::path(ZQ_TEST_SOURCE_DIR) / ".." / ".." / ".." / "host" / "presets" / "corpus";
  for (const char* name : {"preset/zqgain.fxp", "preset/zqchunk.fxp", "bank/zqgain.fxb", "bank/zqchunk.fxb"}) {
    EXPECT_TRUE(ZqvstDescribePresetFile((corpus / name).string(), &text, &error)) << error;
    EXPECT_EQ(text.find("(should be"), std::string::npos) << name << "\n" << text;
  }
}

}  // namespace
