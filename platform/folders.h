// Folders the platform knows by number, and the file-system facts that the
// file functions (platform/file.h) do not answer: free space and the
// folder numbers of the original platform's shell.
//
// Folder numbers (CSIDL values; the flag byte 0xFF00 is masked off) map to
// the XDG base and user folders, each read from its variable with the usual
// default below $HOME:
//   0, 16 desktop            $XDG_DESKTOP_DIR        ~/Desktop
//   5, 12 documents          $XDG_DOCUMENTS_DIR      ~/Documents
//   13 music                 $XDG_MUSIC_DIR          ~/Music
//   14 video                 $XDG_VIDEOS_DIR         ~/Videos
//   39 pictures              $XDG_PICTURES_DIR       ~/Pictures
//   21 templates             $XDG_TEMPLATES_DIR      ~/Templates
//   26 application data      $XDG_DATA_HOME          ~/.local/share
//   28 local application data $XDG_STATE_HOME        ~/.local/state
//   32 internet cache        $XDG_CACHE_HOME         ~/.cache
//   40 profile               $HOME
//   35 common application data, 46 common documents, 53 common music,
//   54 common pictures, 55 common video, 25 common desktop:
//                            the first folder of $XDG_DATA_DIRS (/usr/local/share)
//   36 windows               /usr
//   37, 38, 43 system, program files, common files   /usr/lib
// A relative value of a variable is ignored, as the XDG rules say.
//
// Threads: every function may be called from any thread (the environment is
// read, see platform/environment.h for its own rule).
#pragma once

#include "platform/handle.h"

#if !defined(_WIN32)

// SHGetFolderPathW flags: the current or the default path; both answer the
// same here.
constexpr DWORD SHGFP_TYPE_CURRENT = 0;
constexpr DWORD SHGFP_TYPE_DEFAULT = 1;
// Flag of the folder number: create the folder when it does not exist.
constexpr int CSIDL_FLAG_CREATE = 0x8000;

// Writes the folder of number `csidl` into `path` (MAX_PATH characters),
// without a final "/".  `owner` and `token` are not read.  S_OK;
// E_INVALIDARG for a number without a folder here or a null `path`;
// HRESULT_FROM_WIN32(ERROR_FILENAME_EXCED_RANGE) when the folder does not
// fit (`path` is then empty); with CSIDL_FLAG_CREATE, the status of the
// failed creation.  Without that flag the folder need not exist.
ZQ_EXTERN_C HRESULT SHGetFolderPathW(void* owner, int csidl, HANDLE token, DWORD flags,
                                     LPWSTR path);

// Bytes free to the caller, bytes in all and bytes free on the file system
// that holds `path` (any of the three may be null).  FALSE with the last
// error (ERROR_PATH_NOT_FOUND, ERROR_FILE_NOT_FOUND, ...) on failure.
ZQ_EXTERN_C BOOL GetDiskFreeSpaceExW(LPCWSTR path, ULARGE_INTEGER* freeToCaller,
                                     ULARGE_INTEGER* total, ULARGE_INTEGER* totalFree);

#endif  // !_WIN32
