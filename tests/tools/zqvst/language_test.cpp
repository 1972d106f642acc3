// zqvst's messages follow the user's language: the one saved for zqvst in
// the settings store first, then the environment's.  A settings store that
// cannot be read is named in one line, left as it is, and the job goes on.
#include "platform/environment.h"
#include "platform/registry.h"
#include "tests/tools/zqvst/zqvst_fixture.h"

namespace {

using namespace zqvsttest;

class ZqvstLanguage : public ZqvstTest {};

TEST_F(ZqvstLanguage, TheStatusTextIsInTheSavedLanguageElseTheEnvironments) {
  const Args missingInput{"render", "--input", Path("missing.wav"), "--output", Path("out.wav")};
  const struct { const char* language; DWORD saved; const char* text; } cases[] = {
      {"fr", 0, "Le fichier n'a pas pu être ouvert."},
      {"en", 0x407, "Die Datei konnte nicht geöffnet werden."},  // the saved language wins
      {"en", 0, "The file could not be opened."},
  };
  for (const auto& c : cases) {
    SetEnvironmentVariableW(u"LANGUAGE", ZqUtf8ToUtf16(c.language).c_str());
    HKEY key = nullptr;
    ASSERT_EQ(RegCreateKeyExW(HKEY_CURRENT_USER, u"Software\\Ostrand\\zqvst\\Lang", 0, nullptr, 0, KEY_WRITE,
                              nullptr, &key, nullptr),
              ERROR_SUCCESS);
    const LSTATUS written = c.saved ? RegSetValueExW(key, u"ULangID", 0, REG_DWORD,
                                                     reinterpret_cast<const BYTE*>(&c.saved), sizeof c.saved)
                                    : RegDeleteValueW(key, u"ULangID");
    RegCloseKey(key);
    ASSERT_TRUE(written == ERROR_SUCCESS || written == ERROR_FILE_NOT_FOUND);
    const Result r = Run(missingInput);
    EXPECT_EQ(r.exitCode, 1u) << c.language;
    EXPECT_NE(r.err.find(c.text), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("(0x8004E007)\n"), std::string::npos) << r.err;
  }
}

TEST_F(ZqvstLanguage, ADamagedSettingsStoreIsNamedAndLeftAlone) {
  const fs::path store = fs::path(Path("store"));
  fs::create_directories(store);
  WriteAll(store / "user.db", "this is no database\n");
  SetEnvironmentVariableW(u"ZQ_REGISTRY_DIR", ZqUtf8ToUtf16(store.string()).c_str());
  const Result r = Run({"render", "--seconds", "0.05", "--output", Path("out.wav")});
  EXPECT_EQ(r.exitCode, 0u) << r.err;
  EXPECT_EQ(r.err, "zqvst: cannot read the settings store " + (store / "user.db").string() +
                       " (the language stays the default): The configuration registry database is corrupt. "
                       "(0x800703F1)\n");
  EXPECT_EQ(ReadAll(store / "user.db"), "this is no database\n");
  EXPECT_TRUE(ReadAudio(Path("out.wav")).ok);
}

}  // namespace
