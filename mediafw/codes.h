// Statuses and event codes of the media framework that the system's status
// table does not list.  Values are the platform's, bit for bit.
#pragma once

#include "base/status.h"

#if !defined(_WIN32)

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

#endif  // !_WIN32

// Graph events a filter reports through IMediaEventSink::Notify.
constexpr LONG EC_COMPLETE = 0x01;       // a renderer saw the end of its stream; param1 the status
constexpr LONG EC_USERABORT = 0x02;
constexpr LONG EC_ERRORABORT = 0x03;     // streaming stopped on a failure; param1 the status
