// Event codes of the media framework.  Its statuses (VFW_*) are declared
// with every other status in base/status.h.
#pragma once

#include "base/status.h"

// Graph events a filter reports through IMediaEventSink::Notify.
constexpr LONG EC_COMPLETE = 0x01;       // a renderer saw the end of its stream; param1 the status
constexpr LONG EC_USERABORT = 0x02;
constexpr LONG EC_ERRORABORT = 0x03;     // streaming stopped on a failure; param1 the status
