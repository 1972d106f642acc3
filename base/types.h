// Basic types shared by every part of the system.
//
// On Windows these come from <windows.h>; elsewhere they are declared here
// with the same names, sizes and meanings, so that shared code reads the same
// on both.  Text is 16-bit everywhere (WCHAR); a word that held a pointer or a
// handle on the original 32-bit design is pointer-sized (UINT_PTR, HANDLE).
#pragma once

#include <cstddef>
#include <cstdint>

#if defined(_WIN32)
#include <windows.h>
#define ZQ_EXPORT __declspec(dllexport)
#else

#define ZQ_EXPORT __attribute__((visibility("default")))

typedef uint8_t BYTE;
typedef uint16_t WORD;
typedef uint32_t DWORD;
typedef int32_t LONG;
typedef uint32_t ULONG;
typedef int32_t INT;
typedef uint32_t UINT;
typedef int32_t BOOL;
typedef int16_t SHORT;
typedef uint16_t USHORT;
typedef int64_t LONGLONG;
typedef uint64_t ULONGLONG;
typedef intptr_t INT_PTR;
typedef uintptr_t UINT_PTR;
typedef intptr_t LONG_PTR;
typedef uintptr_t ULONG_PTR;
typedef uintptr_t DWORD_PTR;
typedef char16_t WCHAR;
typedef WCHAR* LPWSTR;
typedef const WCHAR* LPCWSTR;
typedef char* LPSTR;
typedef const char* LPCSTR;
typedef void* LPVOID;
typedef void* HANDLE;
typedef void* HMODULE;
typedef void* HINSTANCE;
typedef int32_t HRESULT;
typedef UINT_PTR WPARAM;
typedef LONG_PTR LPARAM;
typedef LONG_PTR LRESULT;

#ifndef TRUE
#define TRUE 1
#define FALSE 0
#endif

#define MAX_PATH 260

union LARGE_INTEGER {
  struct {
    DWORD LowPart;
    LONG HighPart;
  } u;
  LONGLONG QuadPart;
};
union ULARGE_INTEGER {
  struct {
    DWORD LowPart;
    DWORD HighPart;
  } u;
  ULONGLONG QuadPart;
};

struct FILETIME {
  DWORD dwLowDateTime;
  DWORD dwHighDateTime;
};

#endif  // !_WIN32

// Callbacks clean their own stack on the 32-bit original.
#ifndef ZQ_STDCALL
#if defined(_WIN32) && !defined(_WIN64)
#define ZQ_STDCALL __stdcall
#else
#define ZQ_STDCALL
#endif
#endif

#define ZQ_EXTERN_C extern "C"
// A function of the kernel exported by name with C linkage.
#define ZQ_API ZQ_EXTERN_C ZQ_EXPORT

#if !defined(_WIN32)
// The calling thread's last platform error number, as the original platform
// keeps it.  Platform functions that fail set it; HRESULT_FROM_WIN32 turns it
// into a status.
ZQ_EXTERN_C DWORD GetLastError();
ZQ_EXTERN_C void SetLastError(DWORD error);
#endif
