// The process's standard streams seen as a console: whether one of them is a
// terminal, and how wide that terminal is.  Command-line programs use this
// to decide whether to draw progress.
#pragma once

#include "platform/handle.h"

#if !defined(_WIN32)

// The original platform's numbers for the three standard handles.
constexpr DWORD STD_INPUT_HANDLE = static_cast<DWORD>(-10);
constexpr DWORD STD_OUTPUT_HANDLE = static_cast<DWORD>(-11);
constexpr DWORD STD_ERROR_HANDLE = static_cast<DWORD>(-12);

#endif  // !_WIN32

// TRUE when the standard stream `stdHandle` (STD_*_HANDLE) is a terminal;
// FALSE for a file, a pipe, a closed stream or an unknown number.
ZQ_EXTERN_C BOOL ZqIsConsole(DWORD stdHandle);
// Columns of the terminal behind `stdHandle`, or 0 when it is no terminal or
// does not tell.
ZQ_EXTERN_C int ZqGetConsoleWidth(DWORD stdHandle);
