// English texts of the system's status codes.
//
// One table sorted by the code as an unsigned 32-bit number, searched by
// halves, merged at compile time from two sources:
//   - the codes of the kernel's message table, whose texts are the English
//     of the string table, generated from the text catalogue
//     (kernel/strings), without the two line feeds that a message box puts
//     in front of most of them and with the host application's name, which
//     only a message box fills in, as "the application";
//   - the codes the message table does not list, with the platform's own
//     system texts: media framework codes, storage and remote call codes,
//     and the platform errors that reach the system as HRESULT_FROM_WIN32.
#include "base/statustext.h"

#include "base/status.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <iterator>

namespace {

// A code as its 32 bits, whether it is written as a named constant (a signed
// HRESULT) or as a number.
struct Code {
  uint32_t bits;
  constexpr Code(uint32_t value) : bits(value) {}
  constexpr Code(HRESULT value) : bits(static_cast<uint32_t>(value)) {}
};
struct CodeText {
  Code code;
  const char* text;
};
struct CodeName {
  Code code;
  const char* name;
};

// clang-format off
constexpr CodeText kCatalogueRows[] = {
#include "base/zqstatus_rows.inc"
};

constexpr CodeText kPlatformRows[] = {
    {S_OK, "The operation completed successfully."},
    {STG_S_CONVERTED, "The underlying file was converted to compound file format."},
    {VFW_S_NO_MORE_ITEMS, "The end of the list has been reached."},
    {VFW_S_DUPLICATE_NAME, "An attempt to add a filter with a duplicate name succeeded with a modified name."},
    {VFW_S_STATE_INTERMEDIATE, "The state transition has not completed."},
    {VFW_S_NO_STOP_TIME, "The stop time for the sample was not set."},
    {E_ABORT, "Operation aborted"},
    {RPC_E_DISCONNECTED, "The object invoked has disconnected from its clients."},
    {STG_E_INVALIDFUNCTION, "Unable to perform requested operation."},
    {STG_E_READFAULT, "A disk error occurred during a read operation."},
    {CLASS_E_NOAGGREGATION, "Class does not support aggregation (or class object is remote)"},
    {CLASS_E_CLASSNOTAVAILABLE, "ClassFactory cannot supply requested class"},
    {VFW_E_INVALIDMEDIATYPE, "An invalid media type was specified."},
    {VFW_E_INVALIDSUBTYPE, "An invalid media subtype was specified."},
    {VFW_E_NEED_OWNER, "This object can only be created as an aggregated object."},
    {VFW_E_ENUM_OUT_OF_SYNC, "The enumerator has become invalid."},
    {VFW_E_ALREADY_CONNECTED, "At least one of the pins involved in the operation is already connected."},
    {VFW_E_FILTER_ACTIVE, "This operation cannot be performed because the filter is active."},
    {VFW_E_NO_TYPES, "One of the specified pins supports no media types."},
    {VFW_E_NO_ACCEPTABLE_TYPES, "There is no common media type between these pins."},
    {VFW_E_INVALID_DIRECTION, "Two pins of the same direction cannot be connected together."},
    {VFW_E_NOT_CONNECTED, "The operation cannot be performed because the pins are not connected."},
    {VFW_E_NO_ALLOCATOR, "No sample buffer allocator is available."},
    {VFW_E_RUNTIME_ERROR, "A run-time error occurred."},
    {VFW_E_BUFFER_NOTSET, "No buffer space has been set."},
    {VFW_E_BUFFER_OVERFLOW, "The buffer is not big enough."},
    {VFW_E_BADALIGN, "An invalid alignment was specified."},
    {VFW_E_ALREADY_COMMITTED, "Cannot change allocated memory while the filter is active."},
    {VFW_E_BUFFERS_OUTSTANDING, "One or more buffers are still active."},
    {VFW_E_NOT_COMMITTED, "Cannot allocate a sample when the allocator is not active."},
    {VFW_E_SIZENOTSET, "Cannot allocate memory because no size has been set."},
    {VFW_E_NO_CLOCK, "Cannot lock for synchronization because no clock has been defined."},
    {VFW_E_NOT_FOUND, "An object or name was not found."},
    {VFW_E_CANNOT_CONNECT, "No combination of intermediate filters could be found to make the connection."},
    {VFW_E_STATE_CHANGED, "The state changed while waiting to process the sample."},
    {VFW_E_NOT_STOPPED, "The operation could not be performed because the filter is not stopped."},
    {VFW_E_NOT_PAUSED, "The operation could not be performed because the filter is not paused."},
    {VFW_E_NOT_RUNNING, "The operation could not be performed because the filter is not running."},
    {VFW_E_WRONG_STATE, "The operation could not be performed because the filter is in the wrong state."},
    {VFW_E_TYPE_NOT_ACCEPTED, "This pin cannot use the supplied media type."},
    {VFW_E_SAMPLE_REJECTED, "This sample cannot be rendered."},
    {VFW_E_SAMPLE_REJECTED_EOS, "This sample cannot be rendered because the end of the stream has been reached."},
    {VFW_E_DUPLICATE_NAME, "An attempt to add a filter with a duplicate name failed."},
    {VFW_E_TIMEOUT, "A time-out has expired."},
    {VFW_E_ENUM_OUT_OF_RANGE, "The list has already been exhausted."},
    {VFW_E_CIRCULAR_GRAPH, "The filter graph is circular."},
    {VFW_E_SAMPLE_TIME_NOT_SET, "No time stamp has been set for this sample."},
    {VFW_E_MEDIA_TIME_NOT_SET, "No media time stamp has been set for this sample."},
    {VFW_E_NOT_IN_GRAPH, "Cannot perform the requested function on an object that is not in the filter graph."},
    {HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND), "The system cannot find the file specified."},
    {HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND), "The system cannot find the path specified."},
    {HRESULT_FROM_WIN32(ERROR_TOO_MANY_OPEN_FILES), "The system cannot open the file."},
    {HRESULT_FROM_WIN32(ERROR_NOT_ENOUGH_MEMORY), "Not enough memory resources are available to process this command."},
    {HRESULT_FROM_WIN32(ERROR_NOT_READY), "The device is not ready."},
    {HRESULT_FROM_WIN32(ERROR_HANDLE_EOF), "Reached the end of the file."},
    {HRESULT_FROM_WIN32(ERROR_HANDLE_DISK_FULL), "The disk is full."},
    {HRESULT_FROM_WIN32(ERROR_FILE_EXISTS), "The file exists."},
    {HRESULT_FROM_WIN32(ERROR_DISK_FULL), "There is not enough space on the disk."},
    {HRESULT_FROM_WIN32(ERROR_INSUFFICIENT_BUFFER), "The data area passed to a system call is too small."},
    {HRESULT_FROM_WIN32(ERROR_INVALID_NAME), "The filename, directory name, or volume label syntax is incorrect."},
    {HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND), "The specified module could not be found."},
    {HRESULT_FROM_WIN32(ERROR_PROC_NOT_FOUND), "The specified procedure could not be found."},
    {HRESULT_FROM_WIN32(ERROR_ALREADY_EXISTS), "Cannot create a file when that file already exists."},
    {HRESULT_FROM_WIN32(ERROR_BAD_EXE_FORMAT), "The file is not a valid application for this machine."},
    {HRESULT_FROM_WIN32(ERROR_MORE_DATA), "More data is available."},
    {HRESULT_FROM_WIN32(ERROR_NO_MORE_ITEMS), "No more data is available."},
    {HRESULT_FROM_WIN32(ERROR_BADDB), "The configuration registry database is corrupt."},
    {HRESULT_FROM_WIN32(ERROR_CANTOPEN), "The configuration registry key could not be opened."},
    {HRESULT_FROM_WIN32(ERROR_KEY_DELETED), "Illegal operation attempted on a registry key that has been marked for deletion."},
    {HRESULT_FROM_WIN32(ERROR_TIMEOUT), "This operation returned because the timeout period expired."},
    {ZQ_E_RPC_CALL_FAILED, "The RPC server is unavailable."},
    {CO_E_SERVER_EXEC_FAILURE, "Server execution failed"},
};

constexpr CodeName kNames[] = {
#include "base/zqstatus_names.inc"
};
// clang-format on

template <typename Row, size_t N>
constexpr bool StrictlyRising(const Row (&rows)[N]) {
  for (size_t i = 1; i < N; ++i)
    if (rows[i - 1].code.bits >= rows[i].code.bits) return false;
  return true;
}
static_assert(StrictlyRising(kCatalogueRows), "the catalogue's status rows come sorted, each code once");
static_assert(StrictlyRising(kPlatformRows), "the platform texts must stay sorted by code, each code once");
static_assert(StrictlyRising(kNames), "the status names come sorted, each code once");

// The three lists merged by code into one table.  A code with texts in both
// lists takes the catalogue's, so that the message table's sentence is the
// one shown.
template <typename Row, size_t N>
constexpr const Row* Find(const Row (&rows)[N], uint32_t bits) {
  for (const Row& row : rows)
    if (row.code.bits == bits) return &row;
  return nullptr;
}

template <typename Visit>
constexpr void ForEachCode(Visit visit) {
  // Every code once, rising: a three-way merge of sorted lists.
  size_t c = 0, p = 0, n = 0;
  constexpr uint32_t kEnd = 0xFFFFFFFFu;
  auto at = [](const auto& rows, size_t i) { return i < std::size(rows) ? rows[i].code.bits : kEnd; };
  while (c < std::size(kCatalogueRows) || p < std::size(kPlatformRows) || n < std::size(kNames)) {
    const uint32_t next = std::min({at(kCatalogueRows, c), at(kPlatformRows, p), at(kNames, n)});
    visit(next);
    if (at(kCatalogueRows, c) == next) ++c;
    if (at(kPlatformRows, p) == next) ++p;
    if (at(kNames, n) == next) ++n;
  }
}

constexpr size_t kRowCount = [] {
  size_t count = 0;
  ForEachCode([&](uint32_t) { ++count; });
  return count;
}();

constexpr std::array<ZqStatusTextRow, kRowCount> kRows = [] {
  std::array<ZqStatusTextRow, kRowCount> rows{};
  size_t i = 0;
  ForEachCode([&](uint32_t bits) {
    const CodeText* text = Find(kCatalogueRows, bits);
    if (!text) text = Find(kPlatformRows, bits);
    const CodeName* name = Find(kNames, bits);
    rows[i++] = {bits, name ? name->name : nullptr, text ? text->text : nullptr};
  });
  return rows;
}();

const ZqStatusTextRow* RowOf(HRESULT status) {
  const uint32_t key = static_cast<uint32_t>(status);
  const auto row = std::lower_bound(kRows.begin(), kRows.end(), key,
                                    [](const ZqStatusTextRow& r, uint32_t code) { return r.code < code; });
  return row != kRows.end() && row->code == key ? &*row : nullptr;
}

}  // namespace

const ZqStatusTextRow* ZqStatusTextRows(size_t* count) {
  *count = kRows.size();
  return kRows.data();
}

ZQ_API const char* ZqStatusText(HRESULT status) {
  const ZqStatusTextRow* row = RowOf(status);
  return row ? row->text : nullptr;
}

ZQ_API const char* ZqStatusName(HRESULT status) {
  const ZqStatusTextRow* row = RowOf(status);
  return row ? row->name : nullptr;
}
