#include "kernel/paths.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <functional>
#include <fstream>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "platform/environment.h"
#include "platform/folders.h"
#include "platform/registry.h"
#include "platform/text.h"
#include "tests/support/test_folder.h"

namespace {

namespace fs = std::filesystem;
using Text = std::u16string;

Text W(const std::string& s) { return ZqUtf8ToUtf16(s); }
std::string N(const Text& s) { return ZqUtf16ToUtf8(s); }
Text W(const fs::path& p) { return W(p.string()); }

void Touch(const fs::path& path, const std::string& bytes = "x") { std::ofstream(path, std::ios::binary) << bytes; }

// ---------------------------------------------------------------------------
// Texts.
// ---------------------------------------------------------------------------

TEST(PathText, NameAndExtensionPointers) {
  const struct { const char16_t *path, *name, *extension; } kCases[] = {
      {u"dir/a.wav", u"a.wav", u".wav"},
      {u"C:a.wav", u"C:a.wav", u".wav"},  // ":" does not end a folder here
      {u"dir\\a", u"dir\\a", u""},        // nor does "\"
      {u"dir/", u"", u""},
      {u"a.b c", u"a.b c", u""},          // white space behind the dot: no extension
      {u"a.", u"a.", u"."},
      {u"x.y/abc", u"abc", u""},
  };
  for (const auto& c : kCases) {
    const WCHAR* name = ZqGetFileNamePtrW(c.path);
    EXPECT_EQ(Text(name), c.name) << N(c.path);
    EXPECT_EQ(Text(ZqGetFileNameExtensionPtrW(name)), c.extension) << N(c.path);
  }
  EXPECT_STREQ(ZqGetFileNameExtensionPtrA(ZqGetFileNamePtrA("d.x/n.tar.gz")), ".gz");
}

TEST(PathText, EditsStayInsideTheirBuffers) {
  WCHAR b[16];
  const auto set = [&](const char16_t* text) { lstrcpyW(b, text); };
  const struct {
    const char* what;
    const char16_t* start;
    std::function<int()> edit;
    int result;
    const char16_t* after;
  } kCases[] = {
      {"slash on empty", u"", [&] { return ZqAddSlashToPathName(b, 16); }, 0, u""},
      {"slash present", u"/usr/", [&] { return ZqAddSlashToPathName(b, 16); }, 5, u"/usr/"},
      {"slash no room", u"abc", [&] { return ZqAddSlashToPathName(b, 4); }, 0, u"abc"},
      {"slash fits", u"abc", [&] { return ZqAddSlashToPathName(b, 5); }, 4, u"abc/"},
      {"unslash", u"/a/", [&] { return ZqRemoveSlashFromPathNameEnd(b, 16); }, 2, u"/a"},
      {"unslash unterminated", u"/a/", [&] { return ZqRemoveSlashFromPathNameEnd(b, 2); }, 0, u"/a/"},
      {"append with extension", u"/a", [&] { return ZqAppendToPathName(b, 16, u"//b.txt", u"wav"); }, 8, u"/a/b.wav"},
      {"append cut", u"/abc", [&] { return ZqAppendToPathName(b, 8, u"defgh", nullptr); }, 7, u"/abc/de"},
      {"same extension other case", u"x.WAV", [&] { return ZqAddExtensionToPathName(b, 16, u".wav"); }, 5, u"x.WAV"},
      {"extension replaced", u"x.txt", [&] { return ZqAddExtensionToPathName(b, 16, u"wav"); }, 5, u"x.wav"},
      {"extension cut", u"name", [&] { return ZqAddExtensionToPathName(b, 8, u"wave"); }, 7, u"name.wa"},
      {"dot supplied", u"d.x/n", [&] { return ZqReplaceExtensionOnPathName(b, 16, u"fxp"); }, 5, u"d.x/n.fxp"},
      {"up from folder", u"/a/b/c/", [&] { return ZqDirectoryUpOneLevel(b, 16); }, 1, u"/a/b/"},
      {"up from file", u"/a/b/c", [&] { return ZqDirectoryUpOneLevel(b, 16); }, 1, u"/a/b/"},
      {"up too short", u"/ab", [&] { return ZqDirectoryUpOneLevel(b, 16); }, 0, u"/ab"},
      {"up without slash", u"abcdef", [&] { return ZqDirectoryUpOneLevel(b, 16); }, 0, u"abcdef"},
  };
  for (const auto& c : kCases) {
    set(c.start);
    EXPECT_EQ(c.edit(), c.result) << c.what;
    EXPECT_EQ(Text(b), c.after) << c.what;
  }
  Text longPath(MAX_PATH, u'a');
  longPath[0] = u'/';
  std::vector<WCHAR> big(longPath.begin(), longPath.end());
  big.push_back(0);
  EXPECT_EQ(ZqDirectoryUpOneLevel(big.data(), MAX_PATH + 1), 0);
}

TEST(PathText, FolderAndRootParts) {
  WCHAR b[32];
  const struct { const char16_t* path; int size, folderLength, rootLength; const char16_t* root; } kCases[] = {
      {u"//srv/share/x/y", 32, 14, 12, u"//srv/share/"},
      {u"//srv/share", 32, 6, 12, u"//srv/share/"},
      {u"/home/x", 32, 6, 1, u"/"},
      {u"rel/x", 32, 4, 4, u"rel/"},
      {u"name", 32, 0, 0, u""},
      {u"/long/folder/x", 4, 13, 1, u"/"},  // too small: the length only
  };
  for (const auto& c : kCases) {
    EXPECT_EQ(ZqGetPathNameFromFilePath(c.path, b, c.size), c.folderLength) << N(c.path);
    EXPECT_EQ(ZqGetRootPathFromFilePath(c.path, b, c.size), c.rootLength) << N(c.path);
    EXPECT_EQ(Text(b), c.root) << N(c.path);
  }
  EXPECT_EQ(ZqGetFileNameWithoutPathOrExtension(u"/a/take.1.wav", b, 5), 4);
  EXPECT_EQ(Text(b), u"take");
}

TEST(PathText, FileNameValidation) {
  const struct { const char16_t* name; bool fix; BOOL result; const char16_t* after; } kCases[] = {
      {u"a:b", true, 0, u"a_b"},    {u"name.", true, 0, u"name_"}, {u"a \"b\"?", true, 0, u"a _b__"},
      {u"ok name", true, 1, u"ok name"}, {u"a?b", false, 0, u"a?b"}, {u"x\\y", false, 0, u"x\\y"},
      {u"trail ", false, 0, u"trail "},  {u"", false, 1, u""},
  };
  for (const auto& c : kCases) {
    WCHAR b[32];
    lstrcpyW(b, c.name);
    EXPECT_EQ(ZqValidateFileName(b, c.fix), c.result) << N(c.name);
    EXPECT_EQ(Text(b), c.after) << N(c.name);
  }
}

TEST(PathText, WildCardsCompareNarrowlyAndNeverBacktrack) {
  const struct { const char16_t* pattern; const char16_t* name; BOOL match; } kCases[] = {
      {u"*", u"anything.at.all", 1}, {u"*.*", u"a", 0},    {u"*.*", u"a.b", 1},   {u"a?c", u"abc", 1},
      {u"a?c", u"ac", 0},            {u"*.wav", u"a.wav", 1}, {u"*.wav", u"a.WAV", 0}, {u"a*", u"a", 1},
      {u"a*c", u"abc", 1},           {u"a*c", u"acbc", 0},  {u"ab.", u"ab", 1},   {u"ab", u"ab.", 1},
      {u"ab", u"abc", 0},            {u"*b", u"x.b", 0},     // "*" does not cross a "."
  };
  for (const auto& c : kCases)
    EXPECT_EQ(ZqIsMatchWildCard(c.pattern, c.name), c.match) << N(c.pattern) << " ~ " << N(c.name);
}

TEST(PathText, LogicalOrderReadsDigitRunsAsNumbers) {
  const struct { const char16_t* a; const char16_t* b; int sign; } kCases[] = {
      {u"take2", u"take10", -1}, {u"Take", u"take", 0}, {u"a10b2", u"a10b1", 1}, {u"x", u"x1", -1}, {u"x007", u"x7", 0},
  };
  for (const auto& c : kCases) {
    const int r = ZqFilenameLogicalCompare(c.a, c.b);
    EXPECT_EQ((r > 0) - (r < 0), c.sign) << N(c.a) << " vs " << N(c.b);
  }
}

TEST(PathText, RelativePathsShareWholeLevels) {
  EXPECT_EQ(Text(ZqGetFileNamePtrRelative(u"/old/Media/x/a.wav", u"/new/media/X/A.WAV")), u"media/X/A.WAV");
  EXPECT_EQ(Text(ZqGetFileNamePtrRelative(u"/a/bx/y", u"/c/cx/y")), u"y");  // "x" alone is no level
  EXPECT_EQ(Text(ZqGetFileNamePtrRelative(u"/a/b", u"/c/d")), u"");
  WCHAR b[16];
  EXPECT_EQ(ZqGetBasePathRelative(u"/old/x/a.wav", u"/new/x/a.wav", b, 16), 5);
  EXPECT_EQ(Text(b), u"/new/");

  const Text longBase(MAX_PATH - 4, u'n');
  const struct {
    const char16_t *path, *oldBase, *newBase;
    int size;
    HRESULT status;
    const char16_t* result;
  } kCases[] = {
      {u"/Old/x.wav", u"/old", u"/new", 16, S_OK, u"/new/x.wav"},
      {u"/other/x.wav", u"/old", u"/new", 16, E_FAIL, u""},
      {u"/o", u"/old", u"/new", 16, E_FAIL, u""},
      {u"/old/x.wav", u"/old", u"/newer/base", 8, E_FAIL, u"/newer/"},  // cut to the buffer
      {u"/old/x.wav", u"/old", longBase.c_str(), 300, E_FAIL, u""},       // 261 characters or more
  };
  for (const auto& c : kCases) {
    WCHAR out[300];
    EXPECT_EQ(ZqReplaceBasePathRelative(c.path, c.oldBase, c.newBase, out, c.size), c.status) << N(c.path);
    EXPECT_EQ(Text(out), c.result) << N(c.path);
  }
}

// ---------------------------------------------------------------------------
// Widths.
// ---------------------------------------------------------------------------

int Width(const Text& t) { return ZqTextDevice_Width(nullptr, t.c_str(), -1); }

TEST(PathEllipsis, PathsKeepTheirTailAndFit) {
  const Text path = u"/usr/share/sounds/collection/very/deep/take.wav";
  const int full = Width(path);
  const int tail = Width(u".../take.wav");
  WCHAR out[MAX_PATH];
  for (int width : {full, full - 1, (full + tail) / 2, tail + 1}) {
    const int length = ZqCalcPathEllipsis(path.c_str(), out, MAX_PATH, width);
    EXPECT_EQ(length, lstrlenW(out));
    EXPECT_LE(Width(out), width) << N(out);
    EXPECT_EQ(Text(out).substr(Text(out).size() - 12), width >= full ? path.substr(path.size() - 12) : u".../take.wav");
  }
  // The tail alone is too wide, or there is no folder: the path stays whole.
  ZqCalcPathEllipsis(path.c_str(), out, MAX_PATH, tail - 1);
  EXPECT_EQ(Text(out), path);
  ZqCalcPathEllipsis(u"take-without-folder.wav", out, MAX_PATH, 5);
  EXPECT_EQ(Text(out), u"take-without-folder.wav");
}

TEST(PathEllipsis, StringsShortenAtEitherEnd) {
  const Text text = u"A rather long plug-in name";
  const int width = Width(text) / 2;
  for (bool fromEnd : {false, true}) {
    WCHAR b[64];
    lstrcpyW(b, text.c_str());
    const auto shorten = fromEnd ? ZqCalcStringEllipsisFromEnd : ZqCalcStringEllipsis;
    EXPECT_EQ(shorten(nullptr, b, 64, width), 1);
    EXPECT_LE(Width(b), width - 2);
    const Text shown = b;
    EXPECT_EQ(fromEnd ? shown.substr(0, 3) : shown.substr(shown.size() - 3), u"...");
    // The size limits the text too: "..." and the rest fit in 8 characters.
    lstrcpyW(b, text.c_str());
    ZqCalcStringEllipsis(nullptr, b, 8, Width(text) - 1);
    EXPECT_LT(lstrlenW(b), 8);
  }
  WCHAR fits[16] = u"short";
  EXPECT_EQ(ZqCalcStringEllipsis(nullptr, fits, 16, Width(fits) + 2), 0);
  EXPECT_EQ(Text(fits), u"short");
}

TEST(PathEllipsis, FilenameFormatStyles) {
  WCHAR out[64] = u"untouched";
  EXPECT_EQ(ZqFilenameFormat(nullptr, 1000, u"/a/b.wav", out, 64, 5), E_INVALIDARG);
  EXPECT_EQ(ZqFilenameFormat(nullptr, 1000, u"/a/b.wav", out, 64, ZQFNF_NOTHING), S_OK);
  EXPECT_EQ(Text(out), u"untouched");
  EXPECT_EQ(ZqFilenameFormat(nullptr, 1000, u"/a/b.wav", out, 64, ZQFNF_NAME), S_OK);
  EXPECT_EQ(Text(out), u"b.wav");
  EXPECT_EQ(ZqFilenameFormat(nullptr, 1000, u"", out, 64, ZQFNF_PATH_SHORTENED), S_OK);
  EXPECT_EQ(Text(out), u"");
}

// ---------------------------------------------------------------------------
// On the disk.
// ---------------------------------------------------------------------------

class PathDisk : public ::testing::Test {
 protected:
  zqtest::TestFolder folder_{"zqpaths-"};
  Text At(const std::string& leaf) const { return W(folder_.path() / leaf); }
};

TEST_F(PathDisk, CreateDirectoryRefusesDoubleSlashesAndMissingRoots) {
  EXPECT_EQ(ZqCreateDirectory((At("a") + u"//b").c_str(), nullptr), 0);
  EXPECT_FALSE(fs::exists(folder_.path() / "a"));
  EXPECT_EQ(ZqCreateDirectory(u"no-such-root-folder/x", nullptr), 0);
  EXPECT_EQ(ZqCreateDirectory(At("a/b/c/").c_str(), nullptr), 1);
  EXPECT_TRUE(fs::is_directory(folder_.path() / "a/b/c"));
  Touch(folder_.path() / "file");
  EXPECT_EQ(ZqCreateDirectory(At("file/sub").c_str(), nullptr), 0);
}

TEST_F(PathDisk, UniqueSubFolderSkipsFoldersNotFiles) {
  fs::create_directories(folder_.path() / "Take");
  fs::create_directories(folder_.path() / "Take1");
  Touch(folder_.path() / "Take2");
  WCHAR out[MAX_PATH];
  ASSERT_EQ(ZqGetUniqueSubFolder(W(folder_.path()).c_str(), u"Take", out, MAX_PATH), S_OK);
  EXPECT_EQ(Text(out), At("Take2"));
  EXPECT_EQ(ZqGetUniqueSubFolder(W(folder_.path()).c_str(), u"Take", out, MAX_PATH - 1), E_INVALIDARG);
}

TEST_F(PathDisk, TemporaryNamesNeverCollide) {
  const Text dir = W(folder_.path());
  constexpr int kPerThread = 150;
  std::vector<Text> names[2];
  const auto make = [&](std::vector<Text>* out) {
    for (int i = 0; i < kPerThread; ++i) {
      WCHAR name[MAX_PATH];
      if (ZqCreateTempFileAndNameEx(dir.c_str(), u"rec", u".tmp", u"%04d", name, MAX_PATH) == S_OK)
        out->push_back(name);
    }
  };
  std::thread a(make, &names[0]), b(make, &names[1]);
  a.join();
  b.join();
  std::set<Text> all(names[0].begin(), names[0].end());
  all.insert(names[1].begin(), names[1].end());
  EXPECT_EQ(all.size(), 2u * kPerThread);
  EXPECT_EQ(static_cast<size_t>(std::distance(fs::directory_iterator(folder_.path()), {})), 2u * kPerThread);
  EXPECT_TRUE(all.count(At("rec0001.tmp")));
}

TEST_F(PathDisk, TemporaryNameFailuresLeaveNothingBehind) {
  Touch(folder_.path() / "file");
  const struct { const char* what; Text folder; int size; HRESULT status; } kCases[] = {
      {"name does not fit", W(folder_.path()), 10, E_INVALIDARG},
      {"missing folder", At("missing"), MAX_PATH, ZQ_E_NOT_FOUND},
      {"a file in place of the folder", At("file"), MAX_PATH, ZQ_E_NOT_FOUND},
  };
  for (const auto& c : kCases) {
    WCHAR name[MAX_PATH] = u"stale";
    EXPECT_EQ(ZqCreateTempFileAndNameEx(c.folder.c_str(), u"p", u".tmp", nullptr, name, c.size), c.status) << c.what;
    EXPECT_EQ(Text(name), u"") << c.what;
  }
  EXPECT_EQ(ZqCreateTempFileAndNameEx(nullptr, nullptr, nullptr, nullptr, nullptr, 0), E_INVALIDARG);
  EXPECT_EQ(static_cast<size_t>(std::distance(fs::directory_iterator(folder_.path()), {})), 1u);
}

TEST_F(PathDisk, FolderQuestions) {
  fs::create_directories(folder_.path() / "empty/inner");
  fs::create_directories(folder_.path() / "full/sub");
  Touch(folder_.path() / "full/a", std::string(10, 'a'));
  Touch(folder_.path() / "full/sub/b", std::string(32, 'b'));
  Touch(folder_.path() / "full/.hidden");
  ULONGLONG size = 99;
  EXPECT_EQ(ZqGetDirectorySize(At("full").c_str(), &size), S_OK);
  EXPECT_EQ(size, 43u);
  EXPECT_EQ(ZqGetDirectorySize(At("missing").c_str(), &size), S_OK);
  EXPECT_EQ(size, 0u);

  EXPECT_EQ(ZqIsDirectoryEmpty(At("empty/inner").c_str()), 1);
  EXPECT_EQ(ZqIsDirectoryEmpty(At("empty").c_str()), 0);
  EXPECT_EQ(ZqIsDirectoryEmpty(At("missing").c_str()), 1);
  EXPECT_EQ(ZqIsDirectoryEmptyRecursive(At("empty").c_str(), FALSE), 1);
  EXPECT_EQ(ZqIsDirectoryEmptyRecursive(At("full/sub").c_str(), FALSE), 0);

  EXPECT_EQ(ZqDoesFileExist(At("full/a").c_str(), true), 1);
  EXPECT_EQ(ZqDoesFileExist(At("full/.hidden").c_str(), true), 0);
  EXPECT_EQ(ZqIsDirectoryWritable(At("full").c_str()), 1);
  EXPECT_EQ(static_cast<size_t>(std::distance(fs::directory_iterator(folder_.path() / "full"), {})), 3u);

  EXPECT_EQ(ZqMoveFolder(At("full").c_str(), At("full/sub/x").c_str()), ZQ_E_DESTINATION_INSIDE);
  EXPECT_EQ(ZqDeleteFiles(At("full").c_str(), u"*"), S_OK);
  EXPECT_TRUE(fs::exists(folder_.path() / "full/sub/b"));
  EXPECT_FALSE(fs::exists(folder_.path() / "full/a"));
  EXPECT_EQ(ZqDeleteDirectoryTree(At("full").c_str()), S_OK);
  EXPECT_FALSE(fs::exists(folder_.path() / "full"));
}

TEST_F(PathDisk, SpecialFoldersFollowXdgAndAreCreated) {
  ASSERT_TRUE(SetEnvironmentVariableW(u"XDG_STATE_HOME", At("state").c_str()));
  ASSERT_TRUE(SetEnvironmentVariableW(u"XDG_DOCUMENTS_DIR", At("docs").c_str()));
  WCHAR out[MAX_PATH];
  ASSERT_EQ(ZqGetSpecialFolderVer(out, MAX_PATH, 28 | CSIDL_FLAG_CREATE, u"App", 1, 2), S_OK);
  EXPECT_EQ(Text(out), At("state/Ostrand/App/1.2/"));
  EXPECT_TRUE(fs::is_directory(folder_.path() / "state/Ostrand/App/1.2"));
  ASSERT_EQ(ZqGetSpecialFolderNoVer(out, MAX_PATH, 5, u"App"), S_OK);
  EXPECT_EQ(Text(out), At("docs/App/"));
  EXPECT_EQ(ZqGetSpecialFolderNoVer(out, MAX_PATH - 1, 5, u"App"), E_INVALIDARG);
  EXPECT_EQ(ZqGetSpecialFolderNoVer(out, MAX_PATH, 0xEE, u"App"), E_FAIL);
}

TEST_F(PathDisk, SharedFoldersComeFromTheMachineStore) {
  const BOOL before = ZqRegistryAllowMachineWrite(TRUE);
  RegDeleteTreeW(HKEY_LOCAL_MACHINE, u"Software\\Ostrand\\Shared Information");
  WCHAR out[MAX_PATH];
  EXPECT_EQ(ZqGetSharedComponentsFolder(out, MAX_PATH), E_FAIL);
  ASSERT_EQ(ZqSetSpecialOstrandFolder(u"/opt/themes/", 0), S_OK);
  ASSERT_EQ(ZqGetSpecialOstrandFolder(out, MAX_PATH, 0), S_OK);
  EXPECT_EQ(Text(out), u"/opt/themes/");
  HKEY key = nullptr;
  ASSERT_EQ(RegCreateKeyW(HKEY_LOCAL_MACHINE, u"Software\\Ostrand\\Shared Information", &key), ERROR_SUCCESS);
  const Text shared = u"/opt/shared";
  RegSetValueExW(key, u"SharedComponentsFolder", 0, REG_SZ, reinterpret_cast<const BYTE*>(shared.c_str()),
                 static_cast<DWORD>((shared.size() + 1) * 2));
  RegCloseKey(key);
  ASSERT_EQ(ZqGetSpecialOstrandFolder(out, MAX_PATH, 1), S_OK);
  EXPECT_EQ(Text(out), u"/opt/shared/Audio Transitions/");
  EXPECT_EQ(ZqGetSharedComponentsFolder(out, 12), E_FAIL);  // "/opt/shared/" needs 13
  EXPECT_EQ(ZqGetSpecialOstrandFolder(out, MAX_PATH, 2), E_INVALIDARG);
  ZqRegistryAllowMachineWrite(FALSE);
  EXPECT_EQ(ZqSetSpecialOstrandFolder(u"/x/", 1), ZQ_E_ADMIN_REQUIRED);
  ZqRegistryAllowMachineWrite(before);
}

}  // namespace

// The system's font configuration library keeps caches that it never frees;
// measuring text loads it, and the leak checker would count its caches.
extern "C" __attribute__((visibility("default"), used)) const char* __lsan_default_suppressions() {
  return "leak:libfontconfig.so\n";
}
