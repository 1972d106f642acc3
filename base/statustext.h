// Names and English texts of the system's status codes.
#pragma once

#include <cstddef>
#include <cstdint>

#include "base/types.h"

// The text of `status`, or null for a code without one.  The text is a
// constant of the library and lives as long as it is loaded.
ZQ_API const char* ZqStatusText(HRESULT status);

// The name of `status` as base/status.h declares it ("ZQ_E_NOT_FOUND"), or
// null for a code without a name.  For logs and test messages.
ZQ_API const char* ZqStatusName(HRESULT status);

// One row of the table behind ZqStatusText and ZqStatusName: the code's 32
// bits, its name and its text; a row has at least one of the two.
struct ZqStatusTextRow {
  uint32_t code;
  const char* name;
  const char* text;
};

// The whole table, rising by code; for checks of the table itself.
const ZqStatusTextRow* ZqStatusTextRows(size_t* count);
