// Languages and texts: language choice and its fallbacks, the three forms
// of a text, the string table's columns and resource path, the temporary
// ring, the locale record and the user's language setting.
#include "kernel/lang.h"

#include <gtest/gtest.h>

#include <string>

#include "base/status.h"
#include "kernel/kernel_init.h"
#include "tests/kernel/fault_injection.h"
#include "kernel/langres.h"
#include "kernel/langsys.h"
#include "kernel/langtable.h"
#include "platform/environment.h"
#include "platform/module.h"
#include "platform/text.h"
#include "tests/support/test_folder.h"

namespace {

std::string U8(LPCWSTR text) { return text ? ZqUtf16ToUtf8(text) : "(null)"; }

// Made-up module handles: stores are registered under any value.
HMODULE FakeModule(int n) { return reinterpret_cast<HMODULE>(static_cast<UINT_PTR>(0x51000 + 16 * n)); }

// A handle whose module (and language module) is a made-up one carrying
// `store`: the library's own texts unless told.  The handle is opened for
// the test program, which has no language module, and then pointed at the
// made-up module, which no loader call may see.
struct OpenLang {
  explicit OpenLang(UINT lcid, UINT tempChars = 0, const tZQRESOURCEDIR* store = &g_zqKernelResources)
      : module(FakeModule(store == &g_zqKernelResources ? 0 : 1)) {
    ZqResource_RegisterModule(module, store);
    EXPECT_EQ(ZqLang_Open(&h, GetModuleHandleW(nullptr), lcid, tempChars), 0);
    h->instance = h->langModule = module;
  }
  ~OpenLang() {
    ZqLang_Close(h);
    ZqResource_RegisterModule(module, nullptr);
  }
  HMODULE module;
  HZQLANG h = nullptr;
};

// Sets an environment variable for the life of the object.
struct ScopedEnv {
  ScopedEnv(const char16_t* name, const char16_t* value) : name(name) {
    WCHAR buffer[256];
    const DWORD n = GetEnvironmentVariableW(name, buffer, 256);
    had = n > 0 && n < 256;
    if (had) old = buffer;
    SetEnvironmentVariableW(name, value);
  }
  ~ScopedEnv() { SetEnvironmentVariableW(name, had ? old.c_str() : nullptr); }
  const char16_t* name;
  bool had = false;
  std::u16string old;
};

// An entry with a distinct text in every column: "c1" to "c18".
struct ColumnEntry {
  ColumnEntry() {
    for (int i = 0; i < ZQLANG_COLUMNS; ++i) {
      texts[i] = u"c" + ZqUtf8ToUtf16(std::to_string(i + 1));
      entry.values[i] = reinterpret_cast<UINT_PTR>(texts[i].c_str());
    }
  }
  const WCHAR* const* ref() const { return reinterpret_cast<const WCHAR* const*>(&entry); }
  std::u16string texts[ZQLANG_COLUMNS];
  alignas(8) tZQLANGENTRY entry{0xFFFE, ZQLANG_COLUMNS, 0, {}, 0};
};

TEST(Lang, ConditionedLCIDsFoldRegionsButKeepBothChineseAndBothPortuguese) {
  const struct { UINT lcid, conditioned; } cases[] = {
      {0x409, 0x409}, {0x809, 0x409},  {0xC07, 0x407},  {0x404, 0x404},  {0xC04, 0x404},
      {0x1404, 0x404}, {0x1004, 0x804}, {0x804, 0x804},  {0x416, 0x416},  {0x816, 0x816},
  };
  for (const auto& c : cases)
    EXPECT_EQ(ZqLang_GetConditionedLCID(c.lcid), c.conditioned) << std::hex << c.lcid;
}

TEST(Lang, TableColumnFollowsTheLanguageAndUnknownLanguagesReadEnglish) {
  const struct { UINT lcid; const char* text; } cases[] = {
      {0x409, "c1"},  {0x809, "c1"},   {0x411, "c2"},  {0xC07, "c3"},  {0x804, "c6"},  {0x1004, "c6"},
      {0xC04, "c7"},  {0x416, "c14"},  {0x816, "c15"}, {0x415, "c18"}, {0x40E, "c1"},
  };
  for (const auto& c : cases) {
    ColumnEntry e;
    OpenLang lang(c.lcid);
    EXPECT_EQ(U8(ZqGetString(lang.h, e.ref())), c.text) << std::hex << c.lcid;
  }
  // An entry with fewer columns clips the column to its last one.
  ColumnEntry e;
  e.entry.columns = 0x0305;  // only the low byte counts
  OpenLang polish(0x415);
  EXPECT_EQ(U8(ZqGetString(polish.h, e.ref())), "c5");
}

TEST(Lang, TableHoldsTheTranslationsOfTheCatalogues) {
  const struct { UINT lcid; ZQSTR id; const char* text; } cases[] = {
      {0x409, ZQSTR::BTN_NO_TO_ALL, "N&o to All"},
      {0x407, ZQSTR::BTN_NO_TO_ALL, "Nein für a&lle"},
      {0x40C, ZQSTR::STATUS_8004E00C, "\n\nL'opération a été annulée par l'utilisateur."},
  };
  for (const auto& c : cases) {
    OpenLang lang(c.lcid);
    EXPECT_EQ(U8(ZqGetStringSmart(lang.h, ZqLangEntry(c.id))), c.text) << std::hex << c.lcid;
  }
}

TEST(Lang, ResourceColumnsAreFetchedUnderTheNextLanguageAndPatchedOnce) {
  // The German column (3) looks under the language at 0-based index 3 of
  // the table: Spanish.
  // Block 313 holds the strings 4992 to 5007; 4995 is "hola".
  static const WORD kBlock[] = {0, 0, 0, 5, u'h', u'o', u'l', u'a', 0};
  static const tZQRESOURCE kItems[] = {{RT_STRING_ID, nullptr, 313, nullptr, 0x40A, kBlock, sizeof kBlock}};
  static const tZQRESOURCEDIR kDir = {kItems, 1};
  OpenLang german(0x407, 0, &kDir);

  ColumnEntry found, missing;
  found.entry.values[2] = 4995;
  missing.entry.values[2] = 4996;
  EXPECT_EQ(U8(ZqGetString(german.h, found.ref())), "hola");
  EXPECT_GE(found.entry.values[2], 0x10000u) << "the column now holds the text";
  EXPECT_EQ(U8(ZqGetString(german.h, missing.ref())), "c1");
  EXPECT_EQ(missing.entry.values[2], missing.entry.values[0]);
}

TEST(Lang, SmartTakesNumbersEntriesAndPlainTexts) {
  OpenLang lang(0x407);
  static const WCHAR plain[] = u"plain";
  alignas(4) static const WCHAR markerAtOddPlace[] = {u'x', 0xFFFE, u'y', 0};
  EXPECT_EQ(ZqGetStringSmart(lang.h, nullptr), nullptr);
  EXPECT_EQ(ZqGetStringSmart(lang.h, plain), plain);
  EXPECT_EQ(ZqGetStringSmart(lang.h, markerAtOddPlace + 1), markerAtOddPlace + 1);
  EXPECT_FALSE(IsZQLANGSTRINGID(lang.h, markerAtOddPlace + 1));
  EXPECT_TRUE(IsZQLANGSTRINGID(lang.h, ZqLangEntry(ZQSTR::BTN_OK)));
  EXPECT_EQ(U8(ZqGetStringSmart(lang.h, MAKEINTRESOURCEW(1010))), "VST-Preset öffnen");
  EXPECT_EQ(U8(ZqGetStringSmart(lang.h, ZqLangStatusEntry(ZQ_E_CANCELLED))),
            "\n\nDer Vorgang wurde vom Benutzer abgebrochen.");
  EXPECT_EQ(ZqLangStatusEntry(ZqMakeStatus(0x8004E999)), nullptr);
  // A number without a string gives the shared empty text, never null.
  LPCWSTR none = ZqGetStringSmart(lang.h, MAKEINTRESOURCEW(9999));
  ASSERT_NE(none, nullptr);
  EXPECT_EQ(none[0], 0);
}

TEST(Lang, StringResourcesAreCachedUntilTheLanguageChanges) {
  ASSERT_EQ(ZqKernel_EarlyInitialize(GetModuleHandleW(nullptr), 0), 1);
  OpenLang lang(0x407);
  LPCWSTR first = ZqGetString(lang.h, 1011);
  EXPECT_EQ(U8(first), "VST-Preset speichern");
  EXPECT_EQ(ZqGetString(lang.h, 1011), first) << "the second lookup finds the cached record";
  EXPECT_EQ(ZqLang_UpdateKernelLCID(lang.h, 0, 0), 1);
  EXPECT_EQ(ZqLang_GetLCID(lang.h), 1033u);
  EXPECT_EQ(U8(ZqGetString(lang.h, 1011)), "Save VST Preset");
  EXPECT_EQ(ZqLang_GetLCID(ZqLang_GetKernelLang()), 1033u);
  EXPECT_EQ(ZqLang_UpdateKernelLCID(lang.h, 0x40D, 0), 1);  // Hebrew mirrors the process
  DWORD layout = 0;
  GetProcessDefaultLayout(&layout);
  EXPECT_EQ(layout, 1u);
  ZqLang_UpdateKernelLCID(lang.h, 0x409, 0);
  EXPECT_EQ(ZqKernel_LateTerminate(), 1);
  EXPECT_EQ(ZqLang_UpdateKernelLCID(lang.h, 0x407, 0), 0) << "no kernel handle";
}

TEST(Lang, LoadStringStripsTheMarkerAndClips) {
  static const WORD kBlock[] = {0, 7, u'^', u'*', u'O', u'p', u'e', u'n', 0};
  static const tZQRESOURCE kItems[] = {{RT_STRING_ID, nullptr, 1, nullptr, 0x409, kBlock, sizeof kBlock}};
  static const tZQRESOURCEDIR kDir = {kItems, 1};
  OpenLang lang(0x409, 0, &kDir);
  WCHAR buffer[16];
  EXPECT_EQ(ZqLoadString(lang.h, 1, buffer, 16), 4);
  EXPECT_EQ(U8(buffer), "Open");
  EXPECT_EQ(ZqLoadString(lang.h, 1, buffer, 4), 1);  // "^*O" then stripped
  EXPECT_EQ(U8(buffer), "O");
  EXPECT_EQ(ZqLoadString(lang.h, 2, buffer, 16), 0);
  EXPECT_EQ(buffer[0], 0);
}

TEST(Lang, LanguageModuleNextToTheModuleComesFirst) {
  HMODULE module = LoadLibraryW(ZqUtf8ToUtf16(ZQ_LANG_FIXTURE).c_str());
  ASSERT_NE(module, nullptr);
  const struct { UINT lcid; const char *text, *dialogText; bool fromLanguageModule; } cases[] = {
      {0x407, "VST-Preset-Bank öffnen", "&Durchsuchen...", true},  // from the .LNG file
      {0x40E, "Open VST Preset Bank", "&Browse...", false},       // Hungarian: the module's own English
      {0x409, "Open VST Preset Bank", "&Browse...", false},       // English never asks the language module
  };
  for (const auto& c : cases) {
    HZQLANG h = nullptr;
    ASSERT_EQ(ZqLang_Open(&h, module, c.lcid, 0), 0);
    EXPECT_NE(h->langModule, module);
    EXPECT_EQ(ZqLang_InstFromLang(h), c.lcid == 0x409 ? module : h->langModule);
    EXPECT_EQ(U8(ZqGetString(h, 1012)), c.text) << std::hex << c.lcid;
    // Dialog 104's texts: control 1018 first, then 1020, as counted texts.
    const WCHAR* types[] = {u"NOSUCHTYPE", u"ZQDLGTEXT"};
    int which = -1;
    HRSRC dialog = ZqFindResourceMulti(h, MAKEINTRESOURCEW(104), types, 2, &which);
    ASSERT_NE(dialog, nullptr);
    EXPECT_EQ(which, 1);
    EXPECT_EQ(ZqFindResInstance(h, MAKEINTRESOURCEW(104), u"zqdlgtext"),
              c.fromLanguageModule ? h->langModule : module);
    UINT size = 0;
    const auto* words = static_cast<const WORD*>(ZqLoadResourceCustom(h, 104, u"ZQDLGTEXT", &size));
    ASSERT_NE(words, nullptr);
    const WORD* second = words + 2 + words[1];
    EXPECT_EQ(second[0], 1020);
    EXPECT_EQ(U8(reinterpret_cast<const WCHAR*>(second + 2)), c.dialogText);
    // Only the module asked measures: the instance's resource is nothing
    // while the language module is in use.
    EXPECT_EQ(ZqSizeofResource(h, dialog) == size, c.fromLanguageModule || c.lcid == 0x409) << std::hex << c.lcid;
    EXPECT_EQ(ZqLang_Open(&h, module, c.lcid, 0), ZQLANG_S_ALREADY_OPEN);
    ZqLang_Close(h);
  }
  FreeLibrary(module);
}

TEST(Lang, OpeningWithoutMemoryLeavesNothingBehind) {
  const LONG_PTR before = ZqMemory_GetLiveBlocks();
  auto check = [&](HZQLANG& h, const ZqFaultRun& run) {
    SCOPED_TRACE(testing::Message() << "failing allocation " << run.n);
    EXPECT_TRUE(!run.failed || (run.status == static_cast<HRESULT>(0x8007000E) && h == nullptr));
    ZqLang_Close(h);
    EXPECT_EQ(ZqMemory_GetLiveBlocks(), before);
  };
  const LONG points = ZqForEachAllocFailure(
      [] { return HZQLANG{}; }, [](HZQLANG& h) { return ZqLang_Open(&h, GetModuleHandleW(nullptr), 0x407, 0); }, check);
  EXPECT_GE(points, 3);  // record, ring, cache
}

TEST(Lang, TempRingSizesStepsAndWraps) {
  const struct { UINT asked, size; } sizes[] = {{0, 8192}, {1, 2048}, {2048, 2048}, {3000, 3000}};
  for (const auto& s : sizes) {
    OpenLang lang(0x409, s.asked);
    EXPECT_EQ(lang.h->tempChars, s.size) << s.asked;
  }
  OpenLang lang(0x409, 2048);
  LPWSTR a = ZqGetTempStringBuffer(lang.h, 0);
  LPWSTR b = ZqGetTempStringBuffer(lang.h, 0);
  EXPECT_EQ(b - a, 2);
  ZqGetTempStringBuffer(lang.h, 1019);  // 4 + 1019 + 2, made even: 1024
  EXPECT_EQ(lang.h->tempPos, 1024u);
  EXPECT_EQ(ZqGetTempStringBuffer(lang.h, 0), a + 1024) << "1024 is still below the limit";
  EXPECT_EQ(ZqGetTempStringBuffer(lang.h, 0), a) << "1026 wraps";
  EXPECT_EQ(ZqGetTempStringBuffer(nullptr, 0), nullptr);
  // Narrow text through the ring, both ways.
  EXPECT_STREQ(ZqGetMultiByteFromPrintString(lang.h, u"Grüße"), "Grüße");
  EXPECT_EQ(U8(ZqGetPrintFromMultiByteString(lang.h, "Grüße")), "Grüße");
}

TEST(Lang, LocaleNamesBecomeLCIDs) {
  const struct { const char* name; UINT lcid; } cases[] = {
      {"de_DE.UTF-8", 0x407}, {"de_AT.UTF-8@euro", 0xC07}, {"en_GB", 0x809}, {"pt_BR", 0x416},
      {"pt", 0x816},          {"zh_TW", 0x404},            {"fr", 0x40C},    {"C", 0x409},
      {"", 0x409},            {"xx_YY", 0x409},
  };
  for (const auto& c : cases) EXPECT_EQ(ZqLang_LCIDFromLocaleName(c.name), c.lcid) << c.name;
  ScopedEnv language(u"LANGUAGE", u"fr:de");
  EXPECT_EQ(GetUserDefaultUILanguage(), 0x40Cu);
}

TEST(Lang, LocaleRecordForSeveralLanguages) {
  const struct {
    const char16_t* locale;
    UINT lcid;
    const char *english, *decimal, *thousand, *list;
    DWORD measure, country;
  } cases[] = {
      {u"en_US.UTF-8", 0x409, "English", ".", ",", ",", 1, 1},
      {u"de_DE.UTF-8", 0x407, "German", ",", ".", ";", 0, 49},
      {u"fr_FR.UTF-8", 0x40C, "French", ",", "\u00A0", ";", 0, 33},
  };
  for (const auto& c : cases) {
    ScopedEnv all(u"LC_ALL", c.locale);
    ZqLang_GetInternationals(nullptr, 0);
    tZQINTERNATIONALS r;
    ASSERT_EQ(ZqLang_GetInternationals(&r, sizeof r), 796);
    EXPECT_EQ(r.size, 796u);
    EXPECT_EQ(r.languageNumber, c.lcid);
    EXPECT_EQ(U8(r.englishLanguageName), c.english);
    EXPECT_EQ(U8(r.decimalSeparator), c.decimal);
    EXPECT_EQ(U8(r.thousandSeparator), c.thousand);
    EXPECT_EQ(U8(r.listSeparator), c.list);
    EXPECT_EQ(U8(r.negativeSign), "-");
    EXPECT_EQ(r.measure, c.measure);
    EXPECT_EQ(r.countryNumber, c.country);
    EXPECT_EQ(r.grouping, 3u);
    WCHAR text[8];
    EXPECT_EQ(ZqGetInatN(ZQINAT_DECIMAL, text, 8), 1);
    EXPECT_EQ(U8(text), c.decimal);
    EXPECT_EQ(ZqGetInat(ZQINAT_LANGUAGE_NUMBER, text), static_cast<int>(c.lcid));
  }
  ZqLang_GetInternationals(nullptr, 0);
  tZQINTERNATIONALS part;
  EXPECT_EQ(ZqLang_GetInternationals(&part, 100), 100);
  EXPECT_EQ(part.size, 100u);
  WCHAR text[4] = u"x";
  EXPECT_EQ(ZqGetInat(7, text), 0);
  EXPECT_EQ(text[0], 0);
  EXPECT_EQ(ZqGetInatN(ZQINAT_SMPTE_WHOLE, text, 4), 1);
  EXPECT_EQ(U8(text), ":");
}

TEST(Lang, LanguageNamesAndCodes) {
  const struct {
    UINT lcid;
    const char *abbrev, *llcc;
  } cases[] = {{0x409, "ENU", ""}, {0x807, "DEU", "de-DE"}, {0x804, "CHS", "zh-CN"}, {0x40E, "HUN", ""}};
  for (const auto& c : cases) {
    OpenLang lang(c.lcid);
    WCHAR text[16];
    EXPECT_EQ(ZqLang_GetLangAbbrev(lang.h, text, 16), 1);
    EXPECT_EQ(U8(text), c.abbrev);
    EXPECT_EQ(ZqLang_GetLangllCC(lang.h, text, 16), c.llcc[0] ? 0 : 1);
    EXPECT_EQ(U8(text), c.llcc);
  }
  OpenLang japanese(1041);
  WCHAR name[32];
  EXPECT_EQ(ZqLang_LocalizeUserName(japanese.h, u"Taro", u"Yamada", name, 32), 11);
  EXPECT_EQ(U8(name), "Yamada Taro");
  EXPECT_EQ(ZqSetLangID(u"DEUTSCH"), 3);
  EXPECT_EQ(ZqSetLangID(nullptr), 3);
}

TEST(Lang, UserLanguageSettingIsStoredPerVersionOrForAllVersions) {
  zqtest::TestFolder folder("lang");
  ScopedEnv store(u"ZQ_REGISTRY_DIR", ZqUtf8ToUtf16(folder.path().string()).c_str());
  UINT lcid = 0;
  EXPECT_EQ(ZqLang_LoadUserLCIDMetric(u"App", 0x02010000, &lcid, false), 0);
  EXPECT_EQ(ZqLang_SaveUserLCIDMetric(u"App", 0x02010000, 0x10407, false), 1);
  EXPECT_EQ(ZqLang_LoadUserLCIDMetric(u"App", 0x02010000, &lcid, false), 1);
  EXPECT_EQ(lcid, 0x407u) << "the low 16 bits";
  EXPECT_EQ(ZqLang_LoadUserLCIDMetric(u"App", 0x02010000, &lcid, true), 0) << "another key";
  EXPECT_EQ(ZqLang_SaveUserLCIDMetricAppReg(u"App", 0, 0x40C, u"Other"), 1);
  EXPECT_EQ(ZqLang_LoadUserLCIDMetricAppReg(u"App", 0x00050000, &lcid, u"Other"), 1) << "major 0: no version";
  EXPECT_EQ(lcid, 0x40Cu);
}

}  // namespace
