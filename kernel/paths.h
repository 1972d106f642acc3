// Paths and files: taking path texts apart and joining them, wild cards,
// file names, shortening paths to a width, and the kernel's file-system
// routines (existence, sizes, folders, temporary names, special folders).
//
// Conventions.  A path is a NUL-terminated 16-bit text; "/" is the only
// separator (a "\" or ":" is an ordinary character of a name).  Sizes are in
// characters and include the terminator; most buffers hold MAX_PATH (260).
// A buffer that is too small never overflows: every copy is bounded and cut.
// Text routines signal failure with a length of 0 (or a pointer to the
// terminator); disk routines answer statuses, with the platform's errors
// passed through ZqErrorHandler_TranslateWin32Error.  Comparisons said to be
// without regard to case fold with ZqToLowerW.
//
// Threads: every routine uses only its arguments and the stack and may run
// on any thread.  Two threads that race for a temporary name are kept apart
// by the exclusive create of the file.
#pragma once

#include "base/status.h"
#include "base/types.h"
#include "platform/file.h"
#include "platform/text_width.h"

class IStream;
struct HWND__;

// ---------------------------------------------------------------------------
// Texts only.
// ---------------------------------------------------------------------------

// The part behind the last "/"; the whole text when there is none.  A
// pointer into `path` (the terminator for a path that ends in "/").
ZQ_API LPCWSTR ZqGetFileNamePtrW(LPCWSTR path);
ZQ_API LPCSTR ZqGetFileNamePtrA(LPCSTR path);
// The "." of the name's extension, or its terminator when it has none: the
// last "." counts unless white space follows it ("report.final version" has
// no extension); a final "." is itself the result.  Pass a file name (the
// result of ZqGetFileNamePtrW): a "." in a folder name is not told apart.
ZQ_API LPCWSTR ZqGetFileNameExtensionPtrW(LPCWSTR name);
ZQ_API LPCSTR ZqGetFileNameExtensionPtrA(LPCSTR name);
// The file name of `path` without its extension into `dst` of `size`,
// cut to fit.  Answers the length written.
ZQ_API int ZqGetFileNameWithoutPathOrExtension(LPCWSTR path, LPWSTR dst, int size);

// Appends "/" unless the path ends in one.  Answers the new length; 0 (and
// nothing changed) for an empty path, a path whose length reaches `size`, or
// no room for the "/".
ZQ_API int ZqAddSlashToPathName(LPWSTR path, int size);
// Removes one final "/".  Answers the new length; 0 for an empty text or one
// without a terminator within `size`.
ZQ_API int ZqRemoveSlashFromPathNameEnd(LPWSTR path, int size);
// Adds "/" (ZqAddSlashToPathName) and `part` without leading "/", cut to
// fit; with an `extension` the extension of the appended part is replaced
// (ZqAddExtensionToPathName).  Answers the whole length (0 when the "/"
// could not be added).
ZQ_API int ZqAppendToPathName(LPWSTR path, int size, LPCWSTR part, LPCWSTR extension);
// Gives the name the extension `extension` (a leading "." is tolerated):
// nothing changes when it has it already, apart from case; otherwise the
// present extension (if any) is replaced, cut to fit.  Answers the length.
ZQ_API int ZqAddExtensionToPathName(LPWSTR path, int size, LPCWSTR extension);
// Replaces the extension (a missing "." is supplied).  Answers the position
// of the "." written, 0 when nothing fits.
ZQ_API int ZqReplaceExtensionOnPathName(LPWSTR path, int size, LPCWSTR extension);
// The folder part of `path` with its final "/" into `dst`.  Answers its
// length; 0 when the path has no folder part.  When `size` is too small only
// the length is answered and `dst` is left alone.
ZQ_API int ZqGetPathNameFromFilePath(LPCWSTR path, LPWSTR dst, int size);
// The root with its "/": "//server/share/" for "//server/share/x",
// otherwise everything up to the first "/" ("/" for an absolute path).
// Answers its length, 0 when there is none or it does not fit.
ZQ_API int ZqGetRootPathFromFilePath(LPCWSTR path, LPWSTR dst, int size);
// Removes the last level, keeping the "/" before it: "/a/b/c/" and "/a/b/c"
// become "/a/b/".  1 when done; 0 for a null path, a path of MAX_PATH
// characters or more, one shorter than 4 characters, or one without "/".
ZQ_API BOOL ZqDirectoryUpOneLevel(LPWSTR path, int size);
// Invalid in a name: LF, CR, the double quote, * / : < > ? \ | and a final
// blank or ".".  Without `fix`: 0 at the first invalid place, else 1.  With
// `fix` every invalid character becomes "_": 0 when something was
// replaced, 1 when the name was valid.  An empty name is valid.
ZQ_API BOOL ZqValidateFileName(LPWSTR name, bool fix);
// 1 when `name` matches `pattern`: "*" alone matches everything; "?" takes
// one character; "*" skips up to the next "." of the name, or up to the
// first character equal to the one behind the "*", without backtracking and
// never across a "."; other characters compare by their low 8 bits with
// regard to case.  A pattern that ends at a "." matches a name that has
// ended, and a name that ends in a lone "." matches a pattern that has
// ended.  So "*.wav" matches "a.wav", not "a.WAV"; "a*c" matches "abc",
// not "acbc".
ZQ_API BOOL ZqIsMatchWildCard(LPCWSTR pattern, LPCWSTR name);
// Compares as people sort file names: runs of digits compare as numbers,
// other characters without regard to case.  < 0, 0 or > 0.
ZQ_API int ZqFilenameLogicalCompare(LPCWSTR a, LPCWSTR b);

// Relative paths.  The tail that `base` and `path` share, compared from
// their ends without regard to case, moved forward to a level boundary (the
// next "/", further "/" skipped): a pointer into `path` (its terminator when
// they share no whole level).
ZQ_API LPCWSTR ZqGetFileNamePtrRelative(LPCWSTR base, LPCWSTR path);
// The part of `path` ahead of that tail, with its "/", into `dst`.  Answers
// the length (cut to fit).
ZQ_API int ZqGetBasePathRelative(LPCWSTR base, LPCWSTR path, LPWSTR dst, int size);
// `newBase` followed by what follows `oldBase` in `path`.  `oldBase` must
// match the start of `path` whole, without regard to case.  E_FAIL with an
// empty `dst` when it does not, or when the result would have 261
// characters or more; E_FAIL with the result cut when `size` is too small.
ZQ_API HRESULT ZqReplaceBasePathRelative(LPCWSTR path, LPCWSTR oldBase, LPCWSTR newBase,
                                         LPWSTR dst, int size);

// ---------------------------------------------------------------------------
// Shortening to a width in pixels (measured on a text device, see
// platform/text_width.h; a null device is the user-interface font).
// ---------------------------------------------------------------------------

// Copies `path` into `dst`, shortened to "head...tail" when it is wider than
// `width`: the tail starts at the last "/", and characters leave the end of
// the head until the whole fits ("/usr/share...x.wav").  The path stays
// whole when it has no "/", fits already, or when the tail and "..." alone
// are wider than `width`.  Answers the length written.
ZQ_API int ZqCalcPathEllipsisEx(HZQTEXTDEVICE device, LPCWSTR path, LPWSTR dst, int size, int width);
// The same with the user-interface font.
ZQ_API int ZqCalcPathEllipsis(LPCWSTR path, LPWSTR dst, int size, int width);
// The same for a control; windows carry no font here, so the user-interface
// font is used.
ZQ_API int ZqCalcPathEllipsisExCtl(HWND__* control, LPCWSTR path, LPWSTR dst, int size, int width);
// In place: 0 when `text` is at most `width` - 2 wide; otherwise it loses
// characters from its end until it and "..." fit in `width` - 2 and in
// `size`, "..." is appended, and the result is 1.
ZQ_API BOOL ZqCalcStringEllipsis(HZQTEXTDEVICE device, LPWSTR text, int size, int width);
// The same from the front: "...tail".
ZQ_API BOOL ZqCalcStringEllipsisFromEnd(HZQTEXTDEVICE device, LPWSTR text, int size, int width);

// Styles of ZqFilenameFormat.
enum ZQFILENAMEFORMAT : int {
  ZQFNF_NAME = 0,            // the file name
  ZQFNF_PATH_ELLIPSIS = 1,   // ZqCalcPathEllipsisEx of the path
  ZQFNF_NAME_ELLIPSIS = 2,   // the file name shortened at its end
  ZQFNF_NOTHING = 3,         // nothing: the result is 0 and `dst` untouched
  ZQFNF_PATH_SHORTENED = 4,  // the whole path shortened at its end
};
// `path` formatted for `width` by `style`.  E_INVALIDARG for null arguments
// or a style above 4.  An empty path gives an empty `dst` (when `size` is at
// least 2).  S_OK otherwise.
ZQ_API HRESULT ZqFilenameFormat(HZQTEXTDEVICE device, int width, LPCWSTR path, LPWSTR dst, int size,
                                int style);
// The same for a window's width and for a control, in the user-interface
// font (windows carry no font here).
ZQ_API HRESULT ZqFilenameFormatForWidth(HWND__* window, int width, LPCWSTR path, LPWSTR dst,
                                        int size, int style);
ZQ_API HRESULT ZqFilenameFormatForCtl(HWND__* control, int width, LPCWSTR path, LPWSTR dst,
                                      int size, int style);

// ---------------------------------------------------------------------------
// On the disk.
// ---------------------------------------------------------------------------

// 1 for an existing file that is neither a folder nor a device; with
// `refuseHidden` a hidden file (a name that starts with ".") gives 0.
ZQ_API BOOL ZqDoesFileExist(LPCWSTR path, bool refuseHidden);
// 1 when the file opens for writing.
ZQ_API BOOL ZqIsFileWritable(LPCWSTR path);
// 1 when a file can be created in the folder (tried and removed at once).
ZQ_API BOOL ZqIsDirectoryWritable(LPCWSTR path);
// The size of the file at `path`.  E_POINTER for a null `size`, the
// translated platform error otherwise.
ZQ_API HRESULT ZqGetFileSizeByName(LPCWSTR path, ULONGLONG* size);
// The long form of `path`: there are no short names here, so an existing
// path is copied as it is.  When it does not exist or does not fit, `dst`
// holds a copy of `path` (cut to fit) and the answer is 0; otherwise its
// length.
ZQ_API DWORD ZqGetLongPathName(LPCWSTR path, LPWSTR dst, DWORD size);
// The absolute form of `path` ("." and ".." resolved) into `dst` of `size`,
// `name` (optional) pointing at its file-name part.  Answers the length, or
// 0 when it fails or does not fit.
ZQ_API DWORD ZqGetFullPathName(LPCWSTR path, DWORD size, LPWSTR dst, LPWSTR* name);
// 1 when the absolute form of `path` fits in `dst`; 0 (and `dst` empty)
// otherwise.
ZQ_API BOOL ZqQualifyPath(LPCWSTR path, LPWSTR dst, int size);
// The temporary folder with its final "/".  Answers the length, 0 when it
// does not fit.
ZQ_API DWORD ZqGetTempPath(DWORD size, LPWSTR dst);
// The folder (with "/") or the file of a loaded module (null: the
// executable).  Answers the length, 0 on failure or when it does not fit.
ZQ_API DWORD ZqGetModulePath(HMODULE module, LPWSTR dst, DWORD size);
ZQ_API DWORD ZqGetModuleFileName(HMODULE module, LPWSTR dst, DWORD size);

// Whether a file is an executable image, and of which machine, is the
// platform's question: ZqIsFileExecutable and ZqGetFileExecutableInfo are
// in platform/exeinfo.h, which reads portable executables and ELF objects.

// Creates `path` level by level below its root (which must exist as a
// folder; a relative path's first level is its root).  0 for an empty root,
// a path with "//" behind the root, or a level that cannot be created
// (levels made before stay); 1 when every level stands.
ZQ_API BOOL ZqCreateDirectory(LPCWSTR path, LPSECURITY_ATTRIBUTES security);

// Creates a new empty file "<folder>/<prefix><n><suffix>" for the first
// counter n from 1 whose name is free, exclusively, and closes it; its name
// goes to `dst`.  `numberFormat` prints the counter (null: "%d"; one
// integer conversion, at most 40 characters).  E_INVALIDARG for a null
// `dst`, for null `folder`, `prefix` and `suffix` together, or a name that
// does not fit in `size`; another failure of the create is translated
// (E_FAIL in place of a success) and leaves `dst` empty.
ZQ_API HRESULT ZqCreateTempFileAndNameEx(LPCWSTR folder, LPCWSTR prefix, LPCWSTR suffix,
                                         LPCWSTR numberFormat, LPWSTR dst, int size);
// The same with "%d" and room of MAX_PATH characters.
ZQ_API HRESULT ZqCreateTempFileAndName(LPCWSTR folder, LPCWSTR prefix, LPCWSTR suffix, LPWSTR dst);

// Deletes the files of `folder` whose names match `pattern` (ZqIsMatchWildCard;
// null: every file); folders stay.  S_OK, or the translated error of the
// first file that could not be deleted (the others are still tried).
ZQ_API HRESULT ZqDeleteFiles(LPCWSTR folder, LPCWSTR pattern);
// Deletes `folder` with everything in it.  S_OK, or the translated error of
// the first entry that could not be deleted.
ZQ_API HRESULT ZqDeleteDirectoryTree(LPCWSTR folder);
// 1 when `from` can be moved to `to`: `from` is a folder, `to` does not
// exist and does not lie inside `from`.
ZQ_API BOOL ZqCanMoveFolder(LPCWSTR from, LPCWSTR to);
// Moves a folder (across file systems by copying).  ZQ_E_DESTINATION_INSIDE
// when `to` lies in `from`, else the translated error.
ZQ_API HRESULT ZqMoveFolder(LPCWSTR from, LPCWSTR to);
// 1 when nothing but "." and ".." stands in the folder, and 1 also when it
// cannot be read; 0 for a path of MAX_PATH characters or more.
ZQ_API BOOL ZqIsDirectoryEmpty(LPCWSTR path);
// The same through the sub-folders: a folder that holds only empty folders
// is empty.  With `ignoreHidden` hidden files (names that start with ".")
// do not count.
ZQ_API BOOL ZqIsDirectoryEmptyRecursive(LPCWSTR path, BOOL ignoreHidden);
// The sum of the sizes of every file below `path`.  E_INVALIDARG for a null
// `size`; a missing folder gives S_OK and 0.
ZQ_API HRESULT ZqGetDirectorySize(LPCWSTR path, ULONGLONG* size);
// Bytes free to the caller and bytes in all on the file system of `path`.
ZQ_API HRESULT ZqGetDiskFreeSpace(LPCWSTR path, ULONGLONG* freeBytes);
ZQ_API HRESULT ZqGetDiskTotalSpace(LPCWSTR path, ULONGLONG* totalBytes);
// The free space as a localised text ("1023 bytes", "12.50 KB", "4.00 MB",
// "2.25 GB").  Answers the length, 0 on failure (and `dst` empty).
ZQ_API int ZqFormatDiskFreeSpace(LPCWSTR path, LPWSTR dst, int size);

// A name for a new sub-folder of `parent`: "<parent>/<prefix>", or while a
// folder of that name exists "<parent>/<prefix><n>" for n from 1.  The name
// is written to `dst`; no folder is created.  E_INVALIDARG for null
// arguments or a `size` below MAX_PATH; E_FAIL when n reaches 0x10000.
ZQ_API HRESULT ZqGetUniqueSubFolder(LPCWSTR parent, LPCWSTR prefix, LPWSTR dst, int size);

// The folder number (CSIDL, flag byte masked) is one that users browse
// (documents, desktop, profile, the common documents, music, pictures,
// video: 5, 12, 16, 25, 40, 46, 53, 54, 55 give 0); every other one is
// hidden by default (1).
ZQ_API BOOL ZqIsHiddenFolderByDefault(int folder);
// The special folder `folder` (platform/folders.h) with
// "Ostrand/<app>/<major>.<minor>/" behind it when hidden by default, else
// "<app>/<major>.<minor>/"; the folder is created.  E_INVALIDARG for a
// `size` below MAX_PATH, E_FAIL when it cannot be found, does not fit or
// cannot be created.
ZQ_API HRESULT ZqGetSpecialFolderVer(LPWSTR dst, int size, int folder, LPCWSTR app, int major,
                                     int minor);
// The same without the version level.
ZQ_API HRESULT ZqGetSpecialFolderNoVer(LPWSTR dst, int size, int folder, LPCWSTR app);

// Shared folders, from the machine's store key "Software\Ostrand\Shared
// Information".  The shared components folder is its value
// "SharedComponentsFolder" with a final "/": E_FAIL when the value is empty
// or missing or does not fit in `size`.
ZQ_API HRESULT ZqGetSharedComponentsFolder(LPWSTR dst, int size);
// Folder `index` (0 themes "MelliferThemesFolder", 1 audio transitions
// "AudioTransitionsFolder") from its value, or else the shared components
// folder with the default name of the index and "/".  E_INVALIDARG for an
// index above 1 when the value is missing.
ZQ_API HRESULT ZqGetSpecialOstrandFolder(LPWSTR dst, int size, int index);
// Writes folder `index` to the machine's store (creating the key).
// ZQ_E_ADMIN_REQUIRED when that fails, E_INVALIDARG for an index above 1.
ZQ_API HRESULT ZqSetSpecialOstrandFolder(LPCWSTR path, int index);
// The default name of folder `index` ("Mellifer Themes", "Audio
// Transitions").  E_INVALIDARG for an index above 1.
ZQ_API HRESULT ZqGetSpecialOstrandDefaultFolderName(LPWSTR dst, int size, int index);

// The time of last write of an open file, of a file by name, in the packed
// form of old file systems (date: year - 1980 << 9 | month << 5 | day; time:
// hour << 11 | minute << 5 | seconds / 2), in local time or in UTC.
ZQ_API BOOL ZqDosGetDateTime(HANDLE file, WORD* date, WORD* time);
ZQ_API BOOL ZqDosGetDateTimeUTC(HANDLE file, WORD* date, WORD* time);
ZQ_API BOOL ZqGetDateTime(LPCWSTR path, WORD* date, WORD* time);

// Forwards of the platform's reads.
ZQ_API BOOL ZqReadFile(HANDLE file, LPVOID buffer, DWORD size, DWORD* bytesRead);
ZQ_API HRESULT ZqReadIStream(IStream* stream, void* buffer, ULONG size, ULONG* bytesRead);
