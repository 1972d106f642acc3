// The status vocabulary of the whole system.
//
// Every operation answers a 32-bit HRESULT: 0 is success, negative is
// failure, a positive value is a success with something to tell.  The numbers
// are those of the original platform, bit for bit, so that statuses stored by
// or exchanged with other programs mean the same thing.  The system's own
// codes are 0x8004Exxx (failures) and 0x0004Exxx (successes to tell).
//
// Choosing a code: prefer the system's own code where one names the
// situation (an item not found is ZQ_E_NOT_FOUND, a damaged file is
// ZQ_E_BAD_FILE); a bad argument is E_INVALIDARG, a null out-pointer
// E_POINTER, an operation the object does not offer E_NOTIMPL, a call in the
// wrong state E_UNEXPECTED.  Errors of the operating system become statuses
// in one place only, through HRESULT_FROM_WIN32 of the platform's mapped
// error numbers.
#pragma once

#include "base/types.h"

#if !defined(_WIN32)

constexpr bool SUCCEEDED(HRESULT hr) { return hr >= 0; }
constexpr bool FAILED(HRESULT hr) { return hr < 0; }

constexpr HRESULT ZqMakeStatus(uint32_t bits) { return static_cast<HRESULT>(bits); }

// A platform error number (as GetLastError answers it) as a status.
constexpr HRESULT HRESULT_FROM_WIN32(uint32_t error) {
  return static_cast<int32_t>(error) <= 0 ? static_cast<HRESULT>(error)
                                          : ZqMakeStatus((error & 0x0000FFFFu) | 0x80070000u);
}
constexpr uint32_t HRESULT_CODE(HRESULT hr) { return static_cast<uint32_t>(hr) & 0xFFFFu; }
constexpr uint32_t HRESULT_FACILITY(HRESULT hr) { return (static_cast<uint32_t>(hr) >> 16) & 0x1FFFu; }

// Platform error numbers (the original platform's values): those the system
// tests for and those the platform layer reports.
constexpr DWORD ERROR_SUCCESS = 0;
constexpr DWORD ERROR_INVALID_FUNCTION = 1;
constexpr DWORD ERROR_FILE_NOT_FOUND = 2;
constexpr DWORD ERROR_PATH_NOT_FOUND = 3;
constexpr DWORD ERROR_TOO_MANY_OPEN_FILES = 4;
constexpr DWORD ERROR_ACCESS_DENIED = 5;
constexpr DWORD ERROR_INVALID_HANDLE = 6;
constexpr DWORD ERROR_NOT_ENOUGH_MEMORY = 8;
constexpr DWORD ERROR_INVALID_DATA = 13;
constexpr DWORD ERROR_OUTOFMEMORY = 14;
constexpr DWORD ERROR_NOT_SAME_DEVICE = 17;
constexpr DWORD ERROR_NO_MORE_FILES = 18;
constexpr DWORD ERROR_WRITE_PROTECT = 19;
constexpr DWORD ERROR_NOT_READY = 21;
constexpr DWORD ERROR_GEN_FAILURE = 31;
constexpr DWORD ERROR_SHARING_VIOLATION = 32;
constexpr DWORD ERROR_HANDLE_EOF = 38;
constexpr DWORD ERROR_HANDLE_DISK_FULL = 39;
constexpr DWORD ERROR_NOT_SUPPORTED = 50;
constexpr DWORD ERROR_FILE_EXISTS = 80;
constexpr DWORD ERROR_INVALID_PARAMETER = 87;
constexpr DWORD ERROR_BROKEN_PIPE = 109;
constexpr DWORD ERROR_DISK_FULL = 112;
constexpr DWORD ERROR_INSUFFICIENT_BUFFER = 122;
constexpr DWORD ERROR_INVALID_NAME = 123;
constexpr DWORD ERROR_MOD_NOT_FOUND = 126;
constexpr DWORD ERROR_PROC_NOT_FOUND = 127;
constexpr DWORD ERROR_NEGATIVE_SEEK = 131;
constexpr DWORD ERROR_DIR_NOT_EMPTY = 145;
constexpr DWORD ERROR_BAD_PATHNAME = 161;
constexpr DWORD ERROR_BUSY = 170;
constexpr DWORD ERROR_ALREADY_EXISTS = 183;
constexpr DWORD ERROR_BAD_EXE_FORMAT = 193;
constexpr DWORD ERROR_FILENAME_EXCED_RANGE = 206;
constexpr DWORD ERROR_MORE_DATA = 234;
constexpr DWORD ERROR_NO_MORE_ITEMS = 259;
constexpr DWORD ERROR_DIRECTORY = 267;
constexpr DWORD ERROR_NOT_OWNER = 288;
constexpr DWORD ERROR_TOO_MANY_POSTS = 298;
constexpr DWORD ERROR_NOACCESS = 998;
constexpr DWORD ERROR_INVALID_FLAGS = 1004;
constexpr DWORD ERROR_BADDB = 1009;  // a settings store file that is damaged or not ours
constexpr DWORD ERROR_CANTOPEN = 1011;
constexpr DWORD ERROR_REGISTRY_IO_FAILED = 1016;
constexpr DWORD ERROR_KEY_DELETED = 1018;
constexpr DWORD ERROR_NO_UNICODE_TRANSLATION = 1113;
constexpr DWORD ERROR_IO_DEVICE = 1117;
constexpr DWORD ERROR_INVALID_WINDOW_HANDLE = 1400;
constexpr DWORD ERROR_INVALID_THREAD_ID = 1444;
constexpr DWORD ERROR_TIMEOUT = 1460;
constexpr DWORD ERROR_CANT_RESOLVE_FILENAME = 1921;

// Generic statuses.
constexpr HRESULT S_OK = 0;
constexpr HRESULT S_FALSE = 1;
constexpr HRESULT E_NOTIMPL = ZqMakeStatus(0x80004001);
constexpr HRESULT E_NOINTERFACE = ZqMakeStatus(0x80004002);
constexpr HRESULT E_POINTER = ZqMakeStatus(0x80004003);
constexpr HRESULT E_ABORT = ZqMakeStatus(0x80004004);
constexpr HRESULT E_FAIL = ZqMakeStatus(0x80004005);
constexpr HRESULT E_UNEXPECTED = ZqMakeStatus(0x8000FFFF);
constexpr HRESULT E_ACCESSDENIED = ZqMakeStatus(0x80070005);
constexpr HRESULT E_HANDLE = ZqMakeStatus(0x80070006);
constexpr HRESULT E_OUTOFMEMORY = ZqMakeStatus(0x8007000E);
constexpr HRESULT E_INVALIDARG = ZqMakeStatus(0x80070057);

// Class objects and components.
constexpr HRESULT CLASS_E_NOAGGREGATION = ZqMakeStatus(0x80040110);
constexpr HRESULT CLASS_E_CLASSNOTAVAILABLE = ZqMakeStatus(0x80040111);
constexpr HRESULT REGDB_E_CLASSNOTREG = ZqMakeStatus(0x80040154);
constexpr HRESULT CO_E_SERVER_EXEC_FAILURE = ZqMakeStatus(0x80080005);
constexpr HRESULT RPC_E_DISCONNECTED = ZqMakeStatus(0x80010108);
// A remote procedure call failed: what a call on a proxy answers once its
// server has died.
constexpr HRESULT ZQ_E_RPC_CALL_FAILED = ZqMakeStatus(0x800706BA);
constexpr HRESULT RPC_E_CALL_FAILED_DNE = ZqMakeStatus(0x800106BA);

// Storage and streams.
constexpr HRESULT STG_E_INVALIDFUNCTION = ZqMakeStatus(0x80030001);
constexpr HRESULT STG_E_ACCESSDENIED = ZqMakeStatus(0x80030005);
constexpr HRESULT STG_E_INVALIDPOINTER = ZqMakeStatus(0x80030009);
constexpr HRESULT STG_E_WRITEFAULT = ZqMakeStatus(0x8003001D);
constexpr HRESULT STG_E_READFAULT = ZqMakeStatus(0x8003001E);
constexpr HRESULT STG_E_MEDIUMFULL = ZqMakeStatus(0x80030070);
constexpr HRESULT STG_E_CANTSAVE = ZqMakeStatus(0x80030103);
constexpr HRESULT STG_S_CONVERTED = ZqMakeStatus(0x00030200);

// Media framework.
constexpr HRESULT VFW_S_NO_MORE_ITEMS = ZqMakeStatus(0x00040103);
constexpr HRESULT VFW_E_INVALIDMEDIATYPE = ZqMakeStatus(0x80040200);
constexpr HRESULT VFW_E_NOT_CONNECTED = ZqMakeStatus(0x80040209);
constexpr HRESULT VFW_E_NOT_COMMITTED = ZqMakeStatus(0x80040211);
constexpr HRESULT VFW_E_SIZENOTSET = ZqMakeStatus(0x80040212);
constexpr HRESULT VFW_E_NO_ALLOCATOR = ZqMakeStatus(0x8004020A);
constexpr HRESULT VFW_E_ALREADY_CONNECTED = ZqMakeStatus(0x80040204);
constexpr HRESULT VFW_E_TYPE_NOT_ACCEPTED = ZqMakeStatus(0x8004022A);
constexpr HRESULT VFW_E_WRONG_STATE = ZqMakeStatus(0x80040227);
constexpr HRESULT VFW_E_NO_ACCEPTABLE_TYPES = ZqMakeStatus(0x80040207);
constexpr HRESULT VFW_E_RUNTIME_ERROR = ZqMakeStatus(0x8004020B);
constexpr HRESULT VFW_E_BUFFERS_OUTSTANDING = ZqMakeStatus(0x80040210);
constexpr HRESULT VFW_E_NOT_IN_GRAPH = ZqMakeStatus(0x8004025F);
constexpr HRESULT VFW_E_NEED_OWNER = ZqMakeStatus(0x80040202);
constexpr HRESULT VFW_E_NOT_STOPPED = ZqMakeStatus(0x80040224);
constexpr HRESULT VFW_E_SAMPLE_TIME_NOT_SET = ZqMakeStatus(0x80040249);
constexpr HRESULT VFW_E_INVALIDSUBTYPE = ZqMakeStatus(0x80040201);
constexpr HRESULT VFW_E_ENUM_OUT_OF_SYNC = ZqMakeStatus(0x80040203);
constexpr HRESULT VFW_E_FILTER_ACTIVE = ZqMakeStatus(0x80040205);
constexpr HRESULT VFW_E_NO_TYPES = ZqMakeStatus(0x80040206);
constexpr HRESULT VFW_E_INVALID_DIRECTION = ZqMakeStatus(0x80040208);
constexpr HRESULT VFW_E_BUFFER_NOTSET = ZqMakeStatus(0x8004020C);
constexpr HRESULT VFW_E_BUFFER_OVERFLOW = ZqMakeStatus(0x8004020D);
constexpr HRESULT VFW_E_BADALIGN = ZqMakeStatus(0x8004020E);
constexpr HRESULT VFW_E_ALREADY_COMMITTED = ZqMakeStatus(0x8004020F);
constexpr HRESULT VFW_E_NO_CLOCK = ZqMakeStatus(0x80040213);
constexpr HRESULT VFW_E_NOT_FOUND = ZqMakeStatus(0x80040216);
constexpr HRESULT VFW_E_CANNOT_CONNECT = ZqMakeStatus(0x80040217);
constexpr HRESULT VFW_E_STATE_CHANGED = ZqMakeStatus(0x80040223);
constexpr HRESULT VFW_E_NOT_PAUSED = ZqMakeStatus(0x80040225);
constexpr HRESULT VFW_E_NOT_RUNNING = ZqMakeStatus(0x80040226);
constexpr HRESULT VFW_E_SAMPLE_REJECTED = ZqMakeStatus(0x8004022B);
constexpr HRESULT VFW_E_SAMPLE_REJECTED_EOS = ZqMakeStatus(0x8004022C);
constexpr HRESULT VFW_E_DUPLICATE_NAME = ZqMakeStatus(0x8004022D);
constexpr HRESULT VFW_S_DUPLICATE_NAME = ZqMakeStatus(0x0004022D);
constexpr HRESULT VFW_E_TIMEOUT = ZqMakeStatus(0x8004022E);
constexpr HRESULT VFW_E_ENUM_OUT_OF_RANGE = ZqMakeStatus(0x80040230);
constexpr HRESULT VFW_E_CIRCULAR_GRAPH = ZqMakeStatus(0x80040231);
constexpr HRESULT VFW_S_STATE_INTERMEDIATE = ZqMakeStatus(0x00040237);
constexpr HRESULT VFW_S_NO_STOP_TIME = ZqMakeStatus(0x00040270);
constexpr HRESULT VFW_E_MEDIA_TIME_NOT_SET = ZqMakeStatus(0x80040251);

// Media parameters.
constexpr HRESULT MP_E_ENVELOPE_OUT_OF_RANGE = E_INVALIDARG;  // media parameters use the generic codes

// Structured exception codes of the original platform, as the fault guard
// reports them.
constexpr DWORD EXCEPTION_DATATYPE_MISALIGNMENT = 0x80000002;
constexpr DWORD EXCEPTION_ACCESS_VIOLATION = 0xC0000005;
constexpr DWORD EXCEPTION_IN_PAGE_ERROR = 0xC0000006;
constexpr DWORD EXCEPTION_ILLEGAL_INSTRUCTION = 0xC000001D;
constexpr DWORD EXCEPTION_NONCONTINUABLE_EXCEPTION = 0xC0000025;
constexpr DWORD EXCEPTION_ARRAY_BOUNDS_EXCEEDED = 0xC000008C;
constexpr DWORD EXCEPTION_FLT_DENORMAL_OPERAND = 0xC000008D;
constexpr DWORD EXCEPTION_FLT_DIVIDE_BY_ZERO = 0xC000008E;
constexpr DWORD EXCEPTION_FLT_INEXACT_RESULT = 0xC000008F;
constexpr DWORD EXCEPTION_FLT_INVALID_OPERATION = 0xC0000090;
constexpr DWORD EXCEPTION_FLT_OVERFLOW = 0xC0000091;
constexpr DWORD EXCEPTION_FLT_STACK_CHECK = 0xC0000092;
constexpr DWORD EXCEPTION_FLT_UNDERFLOW = 0xC0000093;
constexpr DWORD EXCEPTION_INT_DIVIDE_BY_ZERO = 0xC0000094;
constexpr DWORD EXCEPTION_INT_OVERFLOW = 0xC0000095;
constexpr DWORD EXCEPTION_PRIV_INSTRUCTION = 0xC0000096;
constexpr DWORD EXCEPTION_STACK_OVERFLOW = 0xC00000FD;
constexpr DWORD EXCEPTION_CPP = 0xE06D7363;  // a C++ exception left foreign code

#else
constexpr HRESULT ZqMakeStatus(uint32_t bits) { return static_cast<HRESULT>(bits); }
constexpr HRESULT ZQ_E_RPC_CALL_FAILED = ZqMakeStatus(0x800706BA);
constexpr DWORD EXCEPTION_CPP = 0xE06D7363;
#endif  // !_WIN32

// The one exception code that passes every plug-in guard: it stops a worker
// thread that hangs in plug-in code.
constexpr DWORD ZQ_EXCEPTION_STOP_WORKER = 0xE0000001;

// ---------------------------------------------------------------------------
// The system's own statuses.  Texts are in the kernel's string table.
// ---------------------------------------------------------------------------

// Successes with something to tell.
constexpr HRESULT ZQ_S_BASE = ZqMakeStatus(0x0004E000);
constexpr HRESULT ZQ_S_KNOWN = ZqMakeStatus(0x0004E001);       // already known
constexpr HRESULT ZQ_S_0004E003 = ZqMakeStatus(0x0004E003);
constexpr HRESULT ZQ_S_IS_SHELL = ZqMakeStatus(0x0004E005);    // a shell module opened with id 0
constexpr HRESULT ZQ_S_0004E006 = ZqMakeStatus(0x0004E006);
constexpr HRESULT ZQ_S_0004E007 = ZqMakeStatus(0x0004E007);
constexpr HRESULT ZQ_S_0004E008 = ZqMakeStatus(0x0004E008);
constexpr HRESULT ZQ_S_0004E009 = ZqMakeStatus(0x0004E009);
constexpr HRESULT ZQ_S_0004E00B = ZqMakeStatus(0x0004E00B);
constexpr HRESULT ZQ_S_0004E00C = ZqMakeStatus(0x0004E00C);
constexpr HRESULT ZQ_S_0004E00E = ZqMakeStatus(0x0004E00E);
constexpr HRESULT ZQ_S_0004E010 = ZqMakeStatus(0x0004E010);
constexpr HRESULT ZQ_S_0004E015 = ZqMakeStatus(0x0004E015);
constexpr HRESULT ZQ_S_0004E018 = ZqMakeStatus(0x0004E018);
constexpr HRESULT ZQ_S_0004E019 = ZqMakeStatus(0x0004E019);

// Failures.
constexpr HRESULT ZQ_E_UNSUPPORTED_MEDIA_TYPE = ZqMakeStatus(0x8004E000);
constexpr HRESULT ZQ_E_NOT_ENABLED = ZqMakeStatus(0x8004E001);
constexpr HRESULT ZQ_E_DISK_FULL = ZqMakeStatus(0x8004E002);
constexpr HRESULT ZQ_E_RESOURCES = ZqMakeStatus(0x8004E003);       // resources low
constexpr HRESULT ZQ_E_ALLOCATED = ZqMakeStatus(0x8004E004);
constexpr HRESULT ZQ_E_BUSY = ZqMakeStatus(0x8004E005);
constexpr HRESULT ZQ_E_CREATE_FILE = ZqMakeStatus(0x8004E006);     // file not created
constexpr HRESULT ZQ_E_OPEN_FILE = ZqMakeStatus(0x8004E007);       // file not opened
constexpr HRESULT ZQ_E_READ_FILE = ZqMakeStatus(0x8004E008);
constexpr HRESULT ZQ_E_WRITE_FILE = ZqMakeStatus(0x8004E009);
constexpr HRESULT ZQ_E_NOT_FOUND = ZqMakeStatus(0x8004E00A);       // item not found
constexpr HRESULT ZQ_E_BAD_FILE = ZqMakeStatus(0x8004E00B);        // a file that does not fit
constexpr HRESULT ZQ_E_CANCELLED = ZqMakeStatus(0x8004E00C);       // cancelled or timed out
constexpr HRESULT ZQ_E_BAD_FILE_NAME = ZqMakeStatus(0x8004E00D);
constexpr HRESULT ZQ_E_MISSING_RESOURCE = ZqMakeStatus(0x8004E00E);
constexpr HRESULT ZQ_E_CREATE_WINDOW = ZqMakeStatus(0x8004E00F);
constexpr HRESULT ZQ_E_OPEN_DRIVER = ZqMakeStatus(0x8004E010);
constexpr HRESULT ZQ_E_OPEN_CODEC = ZqMakeStatus(0x8004E011);
constexpr HRESULT ZQ_E_CODEC_CONVERT = ZqMakeStatus(0x8004E012);
constexpr HRESULT ZQ_E_NO_DEVICE = ZqMakeStatus(0x8004E015);
constexpr HRESULT ZQ_E_UNSUPPORTED_FORMAT = ZqMakeStatus(0x8004E016);
constexpr HRESULT ZQ_E_EXCEPTION = ZqMakeStatus(0x8004E017);       // an exception in plug-in code
constexpr HRESULT ZQ_E_DELETE_FILE = ZqMakeStatus(0x8004E019);
constexpr HRESULT ZQ_E_NO_AUDIO = ZqMakeStatus(0x8004E01A);
constexpr HRESULT ZQ_E_COMPONENT = ZqMakeStatus(0x8004E01B);       // a component failed to initialise
constexpr HRESULT ZQ_E_VERSION = ZqMakeStatus(0x8004E01C);
constexpr HRESULT ZQ_E_NO_VIDEO = ZqMakeStatus(0x8004E01D);
constexpr HRESULT ZQ_E_OPEN_CODEC2 = ZqMakeStatus(0x8004E01E);
constexpr HRESULT ZQ_E_NO_VIDEO_CODEC = ZqMakeStatus(0x8004E01F);
constexpr HRESULT ZQ_E_RENAME_FILE = ZqMakeStatus(0x8004E020);
constexpr HRESULT ZQ_E_NOT_ENOUGH_AUDIO = ZqMakeStatus(0x8004E023);
constexpr HRESULT ZQ_E_SCRIPT = ZqMakeStatus(0x8004E024);
constexpr HRESULT ZQ_E_CORRUPT = ZqMakeStatus(0x8004E025);
constexpr HRESULT ZQ_E_TOO_MANY_FILES = ZqMakeStatus(0x8004E026);
constexpr HRESULT ZQ_E_SAMPLE_RATE = ZqMakeStatus(0x8004E028);
constexpr HRESULT ZQ_E_BIT_DEPTH = ZqMakeStatus(0x8004E02A);
constexpr HRESULT ZQ_E_CHANNELS = ZqMakeStatus(0x8004E02B);
constexpr HRESULT ZQ_E_NO_ROOM = ZqMakeStatus(0x8004E02E);
constexpr HRESULT ZQ_E_NOT_ON_TRACK = ZqMakeStatus(0x8004E02F);
constexpr HRESULT ZQ_E_TRACK_MEDIA_TYPE = ZqMakeStatus(0x8004E030);
constexpr HRESULT ZQ_E_CHAIN_LOAD = ZqMakeStatus(0x8004E031);
constexpr HRESULT ZQ_E_FILE_EXISTS = ZqMakeStatus(0x8004E032);
constexpr HRESULT ZQ_E_FILE_TYPE = ZqMakeStatus(0x8004E033);
constexpr HRESULT ZQ_E_STREAM_UNRECOGNIZED = ZqMakeStatus(0x8004E035);
constexpr HRESULT ZQ_E_STREAM_OPEN = ZqMakeStatus(0x8004E036);
constexpr HRESULT ZQ_E_STREAM_CREATE = ZqMakeStatus(0x8004E037);
constexpr HRESULT ZQ_E_STREAM_READ = ZqMakeStatus(0x8004E038);
constexpr HRESULT ZQ_E_STREAM_WRITE = ZqMakeStatus(0x8004E039);
constexpr HRESULT ZQ_E_RENDER_SIZE = ZqMakeStatus(0x8004E03A);
constexpr HRESULT ZQ_E_RENDER_SETTINGS = ZqMakeStatus(0x8004E03B);
constexpr HRESULT ZQ_E_BUFFER_TOO_SMALL = ZqMakeStatus(0x8004E03C);
constexpr HRESULT ZQ_E_INPUT_CHANNELS = ZqMakeStatus(0x8004E03D);
constexpr HRESULT ZQ_E_FRAME_SIZE = ZqMakeStatus(0x8004E03E);
constexpr HRESULT ZQ_E_FILE_IN_USE = ZqMakeStatus(0x8004E05A);          // another program has it open
constexpr HRESULT ZQ_E_RIFF_NO_RIFF = ZqMakeStatus(0x8004E080);         // a necessary RIFF header is missing
constexpr HRESULT ZQ_E_RIFF_NO_LIST = ZqMakeStatus(0x8004E081);         // a necessary LIST header is missing
constexpr HRESULT ZQ_E_RIFF_ZERO_SIZE = ZqMakeStatus(0x8004E082);       // a chunk has a length of 0
constexpr HRESULT ZQ_E_RIFF_BAD_SIZE = ZqMakeStatus(0x8004E083);        // a chunk length out of range
constexpr HRESULT ZQ_E_PLUGINS_NOT_INSTALLED = ZqMakeStatus(0x8004E084);  // plug-ins a project names are not here
constexpr HRESULT ZQ_E_ADMIN_REQUIRED = ZqMakeStatus(0x8004E142);       // needs administrator rights
constexpr HRESULT ZQ_E_ALREADY_EXISTS = ZqMakeStatus(0x8004E170);       // the file already exists
constexpr HRESULT ZQ_E_DESTINATION_INSIDE = ZqMakeStatus(0x8004E186);   // destination under the source
constexpr HRESULT ZQ_E_NO_CODEPAGE = ZqMakeStatus(0x8004E1FD);          // no code page could be detected
