// The registry functions over the store files of registry_store.cpp: handles,
// key paths, access rights and the statuses of the original platform.
#include "platform/registry.h"

#include <cstring>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "platform/linux/registry_store.h"
#include "platform/text.h"

using zq::platform::registry::CurrentStore;
using zq::platform::registry::FoldName;
using zq::platform::registry::Hive;
using zq::platform::registry::kRootKey;
using zq::platform::registry::MachineWriteAllowed;
using zq::platform::registry::NowFileTime;
using zq::platform::registry::Store;
using Mode = Store::Mode;
using Session = Store::Session;
namespace reg = zq::platform::registry;

namespace {

constexpr size_t kMaxKeyName = 255;
constexpr size_t kMaxValueName = 16383;
// Rights that change the store (KEY_SET_VALUE, KEY_CREATE_SUB_KEY,
// KEY_CREATE_LINK, DELETE, WRITE_DAC, WRITE_OWNER).
constexpr REGSAM kWriteRights = 0x000D0026;

// An open key: the store it lives in (kept alive by the handle, so that a
// change of the environment does not move an open key) and its row.
struct OpenKey {
  std::shared_ptr<Store> store;
  int64_t id = 0;
  REGSAM sam = 0;
};

class HandleTable {
 public:
  HKEY Add(OpenKey key) {
    std::lock_guard<std::mutex> guard(lock_);
    // Values are never reused, so a closed handle is refused instead of
    // reaching a later key; they stay far from the predefined roots.
    next_ += 8;
    keys_.emplace(next_, std::move(key));
    return reinterpret_cast<HKEY>(next_);
  }
  bool Find(HKEY handle, OpenKey* key) {
    std::lock_guard<std::mutex> guard(lock_);
    auto it = keys_.find(reinterpret_cast<uintptr_t>(handle));
    if (it == keys_.end()) return false;
    *key = it->second;
    return true;
  }
  bool Remove(HKEY handle) {
    OpenKey removed;  // released outside the lock: it may close a store
    std::lock_guard<std::mutex> guard(lock_);
    auto it = keys_.find(reinterpret_cast<uintptr_t>(handle));
    if (it == keys_.end()) return false;
    removed = std::move(it->second);
    keys_.erase(it);
    return true;
  }

 private:
  std::mutex lock_;
  uintptr_t next_ = 0x10000;
  std::unordered_map<uintptr_t, OpenKey> keys_;
};

HandleTable& Handles() {
  static auto* table = new HandleTable;
  return *table;
}

bool IsPredefined(HKEY key) {
  const auto value = reinterpret_cast<uintptr_t>(key);
  const auto first = reinterpret_cast<uintptr_t>(HKEY_CLASSES_ROOT);
  return value >= first && value < first + 0x10;
}

LSTATUS Resolve(HKEY handle, OpenKey* key) {
  if (handle == HKEY_CURRENT_USER || handle == HKEY_LOCAL_MACHINE) {
    key->store = CurrentStore(handle == HKEY_CURRENT_USER ? Hive::User : Hive::Machine);
    key->id = kRootKey;
    key->sam = KEY_ALL_ACCESS;
    return ERROR_SUCCESS;
  }
  if (IsPredefined(handle) || !Handles().Find(handle, key)) return ERROR_INVALID_HANDLE;
  return ERROR_SUCCESS;
}

bool WriteDenied(const OpenKey& key) {
  return key.store->hive() == Hive::Machine && !MachineWriteAllowed();
}

std::u16string_view View(LPCWSTR text) {
  return text ? std::u16string_view(text) : std::u16string_view();
}

// Splits a key path into its names.
LSTATUS ParsePath(LPCWSTR subKey, std::vector<std::u16string_view>* parts) {
  std::u16string_view path = View(subKey);
  if (path.empty()) return ERROR_SUCCESS;
  if (path.front() == u'\\') return ERROR_BAD_PATHNAME;
  if (path.back() == u'\\') path.remove_suffix(1);
  while (true) {
    const size_t slash = path.find(u'\\');
    const std::u16string_view part = path.substr(0, slash);
    if (part.empty()) return ERROR_BAD_PATHNAME;
    if (part.size() > kMaxKeyName) return ERROR_INVALID_PARAMETER;
    parts->push_back(part);
    if (slash == std::u16string_view::npos) return ERROR_SUCCESS;
    path.remove_prefix(slash + 1);
  }
}

LSTATUS KeyExists(Session& session, int64_t id) {
  auto use = session.Get(reg::kKeyExists);
  use.Bind(1, id);
  bool row = false;
  const LSTATUS status = session.Step(use.get(), &row);
  if (status != ERROR_SUCCESS) return status;
  return row ? ERROR_SUCCESS : ERROR_KEY_DELETED;
}

// The child `name` of `parent`: ERROR_SUCCESS with its id, or
// ERROR_FILE_NOT_FOUND.
LSTATUS FindChild(Session& session, int64_t parent, std::u16string_view name, int64_t* id) {
  const std::string fold = FoldName(name);
  auto use = session.Get(reg::kFindChild);
  use.Bind(1, parent).BindBlob(2, fold.data(), fold.size());
  bool row = false;
  const LSTATUS status = session.Step(use.get(), &row);
  if (status != ERROR_SUCCESS) return status;
  if (!row) return ERROR_FILE_NOT_FOUND;
  *id = sqlite3_column_int64(use.get(), 0);
  return ERROR_SUCCESS;
}

// From the key `from` (checked to exist) down the path, inside the session's
// transaction.
LSTATUS Walk(Session& session, int64_t from, const std::vector<std::u16string_view>& parts,
             int64_t* id) {
  LSTATUS status = KeyExists(session, from);
  for (size_t i = 0; status == ERROR_SUCCESS && i < parts.size(); ++i)
    status = FindChild(session, from, parts[i], &from);
  *id = from;
  return status;
}

// A name into a caller's buffer of `*cch` WCHARs (see the header's rules).
LSTATUS CopyName(std::u16string_view name, LPWSTR buffer, DWORD* cch) {
  if (*cch < name.size() + 1) {
    *cch = static_cast<DWORD>(name.size() + 1);
    return ERROR_MORE_DATA;
  }
  std::memcpy(buffer, name.data(), name.size() * sizeof(WCHAR));
  buffer[name.size()] = 0;
  *cch = static_cast<DWORD>(name.size());
  return ERROR_SUCCESS;
}

std::u16string ColumnText(sqlite3_stmt* statement, int column) {
  const auto* text = sqlite3_column_text(statement, column);
  if (text == nullptr) return std::u16string();
  return ZqUtf8ToUtf16(
      std::string_view(reinterpret_cast<const char*>(text),
                       static_cast<size_t>(sqlite3_column_bytes(statement, column))));
}

// Value bytes and type into the caller's optional outputs.
LSTATUS CopyValue(DWORD valueType, const void* bytes, size_t size, DWORD* type, BYTE* data,
                  DWORD* cbData) {
  if (type) *type = valueType;
  if (data == nullptr) {
    if (cbData) *cbData = static_cast<DWORD>(size);
    return ERROR_SUCCESS;
  }
  if (*cbData < size) {
    *cbData = static_cast<DWORD>(size);
    return ERROR_MORE_DATA;
  }
  if (size) std::memcpy(data, bytes, size);
  *cbData = static_cast<DWORD>(size);
  return ERROR_SUCCESS;
}

void SetFileTime(int64_t value, FILETIME* time) {
  if (time == nullptr) return;
  time->dwLowDateTime = static_cast<DWORD>(static_cast<uint64_t>(value));
  time->dwHighDateTime = static_cast<DWORD>(static_cast<uint64_t>(value) >> 32);
}

// The empty hive of a store file that does not exist: only its root is there.
LSTATUS EmptyHive(const OpenKey& key, LSTATUS rootAnswer) {
  return key.id == kRootKey ? rootAnswer : ERROR_KEY_DELETED;
}

}  // namespace

LSTATUS RegOpenKeyExW(HKEY handle, LPCWSTR subKey, DWORD options, REGSAM sam, HKEY* result) {
  if (result == nullptr) return ERROR_INVALID_PARAMETER;
  *result = nullptr;
  if (options != 0) return ERROR_INVALID_PARAMETER;
  OpenKey key;
  LSTATUS status = Resolve(handle, &key);
  if (status != ERROR_SUCCESS) return status;
  if ((sam & kWriteRights) && WriteDenied(key)) return ERROR_ACCESS_DENIED;
  std::vector<std::u16string_view> parts;
  if ((status = ParsePath(subKey, &parts)) != ERROR_SUCCESS) return status;
  {
    Session session(*key.store, Mode::Read);
    status = session.status();
    if (status == ERROR_FILE_NOT_FOUND) {
      status = EmptyHive(key, parts.empty() ? ERROR_SUCCESS : ERROR_FILE_NOT_FOUND);
    } else if (status == ERROR_SUCCESS) {
      if ((status = session.Begin(false)) != ERROR_SUCCESS) return status;
      status = Walk(session, key.id, parts, &key.id);
      if (status == ERROR_SUCCESS) status = session.Commit();
    }
  }
  if (status != ERROR_SUCCESS) return status;
  key.sam = sam;
  *result = Handles().Add(std::move(key));
  return ERROR_SUCCESS;
}

LSTATUS RegCreateKeyExW(HKEY handle, LPCWSTR subKey, DWORD reserved, LPWSTR cls, DWORD options,
                        REGSAM sam, void* security, HKEY* result, DWORD* disposition) {
  (void)security;
  if (result == nullptr) return ERROR_INVALID_PARAMETER;
  *result = nullptr;
  if (reserved != 0 || (options & REG_OPTION_VOLATILE)) return ERROR_INVALID_PARAMETER;
  OpenKey key;
  LSTATUS status = Resolve(handle, &key);
  if (status != ERROR_SUCCESS) return status;
  if (WriteDenied(key) || !(key.sam & KEY_CREATE_SUB_KEY)) return ERROR_ACCESS_DENIED;
  std::vector<std::u16string_view> parts;
  if ((status = ParsePath(subKey, &parts)) != ERROR_SUCCESS) return status;
  const std::string className = ZqUtf16ToUtf8(View(cls));
  bool created = false;
  {
    Session session(*key.store, Mode::Create);
    if ((status = session.status()) != ERROR_SUCCESS) return status;
    if ((status = session.Begin(true)) != ERROR_SUCCESS) return status;
    status = KeyExists(session, key.id);
    const int64_t now = NowFileTime();
    for (size_t i = 0; status == ERROR_SUCCESS && i < parts.size(); ++i) {
      status = FindChild(session, key.id, parts[i], &key.id);
      if (status != ERROR_FILE_NOT_FOUND) continue;
      const std::string name = ZqUtf16ToUtf8(parts[i]);
      const std::string fold = FoldName(parts[i]);
      const bool last = i + 1 == parts.size();
      auto use = session.Get(reg::kInsertKey);
      use.Bind(1, key.id).BindText(2, &name).BindBlob(3, fold.data(), fold.size());
      use.BindText(4, last && cls ? &className : nullptr).Bind(5, now);
      status = session.Step(use.get());
      key.id = sqlite3_last_insert_rowid(session.db());
      created = last;
    }
    if (status == ERROR_SUCCESS) status = session.Commit();
  }
  if (status != ERROR_SUCCESS) return status;
  if (disposition) *disposition = created ? REG_CREATED_NEW_KEY : REG_OPENED_EXISTING_KEY;
  key.sam = sam;
  *result = Handles().Add(std::move(key));
  return ERROR_SUCCESS;
}

LSTATUS RegOpenKeyW(HKEY key, LPCWSTR subKey, HKEY* result) {
  return RegOpenKeyExW(key, subKey, 0, KEY_ALL_ACCESS, result);
}

LSTATUS RegCreateKeyW(HKEY key, LPCWSTR subKey, HKEY* result) {
  return RegCreateKeyExW(key, subKey, 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_ALL_ACCESS, nullptr,
                         result, nullptr);
}

LSTATUS RegCloseKey(HKEY handle) {
  if (handle == HKEY_CURRENT_USER || handle == HKEY_LOCAL_MACHINE) return ERROR_SUCCESS;
  if (IsPredefined(handle) || !Handles().Remove(handle)) return ERROR_INVALID_HANDLE;
  return ERROR_SUCCESS;
}

LSTATUS RegQueryValueExW(HKEY handle, LPCWSTR name, DWORD* reserved, DWORD* type, BYTE* data,
                         DWORD* cbData) {
  if (reserved != nullptr || (data != nullptr && cbData == nullptr)) return ERROR_INVALID_PARAMETER;
  OpenKey key;
  LSTATUS status = Resolve(handle, &key);
  if (status != ERROR_SUCCESS) return status;
  if (!(key.sam & KEY_QUERY_VALUE)) return ERROR_ACCESS_DENIED;
  const std::string fold = FoldName(View(name));
  Session session(*key.store, Mode::Read);
  status = session.status();
  if (status == ERROR_FILE_NOT_FOUND) return EmptyHive(key, ERROR_FILE_NOT_FOUND);
  if (status != ERROR_SUCCESS) return status;
  // One statement tells a deleted key (no row) from a missing value (null).
  auto use = session.Get(reg::kQueryValue);
  use.Bind(1, key.id).BindBlob(2, fold.data(), fold.size());
  bool row = false;
  if ((status = session.Step(use.get(), &row)) != ERROR_SUCCESS) return status;
  if (!row) return ERROR_KEY_DELETED;
  if (sqlite3_column_type(use.get(), 0) == SQLITE_NULL) return ERROR_FILE_NOT_FOUND;
  const void* bytes = sqlite3_column_blob(use.get(), 1);
  const size_t size = static_cast<size_t>(sqlite3_column_bytes(use.get(), 1));
  return CopyValue(static_cast<DWORD>(sqlite3_column_int64(use.get(), 0)), bytes, size, type, data,
                   cbData);
}

LSTATUS RegSetValueExW(HKEY handle, LPCWSTR name, DWORD reserved, DWORD type, const BYTE* data,
                       DWORD cbData) {
  if (reserved != 0) return ERROR_INVALID_PARAMETER;
  if (data == nullptr && cbData != 0) return ERROR_NOACCESS;
  const std::u16string_view valueName = View(name);
  if (valueName.size() > kMaxValueName) return ERROR_INVALID_PARAMETER;
  OpenKey key;
  LSTATUS status = Resolve(handle, &key);
  if (status != ERROR_SUCCESS) return status;
  if (WriteDenied(key) || !(key.sam & KEY_SET_VALUE)) return ERROR_ACCESS_DENIED;
  const std::string utf8 = ZqUtf16ToUtf8(valueName);
  const std::string fold = FoldName(valueName);
  Session session(*key.store, Mode::Create);
  if ((status = session.status()) != ERROR_SUCCESS) return status;
  if ((status = session.Begin(true)) != ERROR_SUCCESS) return status;
  if ((status = KeyExists(session, key.id)) != ERROR_SUCCESS) return status;
  {
    auto use = session.Get(reg::kSetValue);
    use.Bind(1, key.id).BindText(2, &utf8).BindBlob(3, fold.data(), fold.size());
    use.Bind(4, type).BindBlob(5, data, cbData);
    if ((status = session.Step(use.get())) != ERROR_SUCCESS) return status;
  }
  {
    auto use = session.Get(reg::kTouchKey);
    use.Bind(1, key.id).Bind(2, NowFileTime());
    if ((status = session.Step(use.get())) != ERROR_SUCCESS) return status;
  }
  return session.Commit();
}

LSTATUS RegDeleteValueW(HKEY handle, LPCWSTR name) {
  OpenKey key;
  LSTATUS status = Resolve(handle, &key);
  if (status != ERROR_SUCCESS) return status;
  if (WriteDenied(key) || !(key.sam & KEY_SET_VALUE)) return ERROR_ACCESS_DENIED;
  const std::string fold = FoldName(View(name));
  Session session(*key.store, Mode::Modify);
  status = session.status();
  if (status == ERROR_FILE_NOT_FOUND) return EmptyHive(key, ERROR_FILE_NOT_FOUND);
  if (status != ERROR_SUCCESS) return status;
  if ((status = session.Begin(true)) != ERROR_SUCCESS) return status;
  if ((status = KeyExists(session, key.id)) != ERROR_SUCCESS) return status;
  {
    auto use = session.Get(reg::kDeleteValue);
    use.Bind(1, key.id).BindBlob(2, fold.data(), fold.size());
    if ((status = session.Step(use.get())) != ERROR_SUCCESS) return status;
  }
  if (sqlite3_changes(session.db()) == 0) return ERROR_FILE_NOT_FOUND;
  {
    auto use = session.Get(reg::kTouchKey);
    use.Bind(1, key.id).Bind(2, NowFileTime());
    if ((status = session.Step(use.get())) != ERROR_SUCCESS) return status;
  }
  return session.Commit();
}

namespace {

// Both deletes: find the key below `handle`, then let `remove` take it away
// inside one writing transaction.
template <typename Remove>
LSTATUS DeleteBelow(HKEY handle, LPCWSTR subKey, Remove remove) {
  OpenKey key;
  LSTATUS status = Resolve(handle, &key);
  if (status != ERROR_SUCCESS) return status;
  if (WriteDenied(key)) return ERROR_ACCESS_DENIED;
  std::vector<std::u16string_view> parts;
  if ((status = ParsePath(subKey, &parts)) != ERROR_SUCCESS) return status;
  Session session(*key.store, Mode::Modify);
  status = session.status();
  if (status == ERROR_FILE_NOT_FOUND)
    return EmptyHive(key, parts.empty() ? remove(nullptr, kRootKey) : ERROR_FILE_NOT_FOUND);
  if (status != ERROR_SUCCESS) return status;
  if ((status = session.Begin(true)) != ERROR_SUCCESS) return status;
  int64_t id = 0;
  if ((status = Walk(session, key.id, parts, &id)) != ERROR_SUCCESS) return status;
  if ((status = remove(&session, id)) != ERROR_SUCCESS) return status;
  return session.Commit();
}

LSTATUS RunOn(Session& session, reg::Statement which, int64_t id) {
  auto use = session.Get(which);
  use.Bind(1, id);
  return session.Step(use.get());
}

}  // namespace

LSTATUS RegDeleteKeyW(HKEY handle, LPCWSTR subKey) {
  return DeleteBelow(handle, subKey, [](Session* session, int64_t id) -> LSTATUS {
    // A hive's root cannot go; a key with sub-keys goes only with its tree.
    if (id == kRootKey || session == nullptr) return ERROR_ACCESS_DENIED;
    auto use = session->Get(reg::kCountChildren);
    use.Bind(1, id);
    LSTATUS status = session->Step(use.get());
    if (status != ERROR_SUCCESS) return status;
    if (sqlite3_column_int(use.get(), 0) != 0) return ERROR_ACCESS_DENIED;
    if ((status = RunOn(*session, reg::kDeleteKeyValues, id)) != ERROR_SUCCESS) return status;
    return RunOn(*session, reg::kDeleteKeyRow, id);
  });
}

LSTATUS RegDeleteTreeW(HKEY handle, LPCWSTR subKey) {
  const bool keepKey = View(subKey).empty();
  return DeleteBelow(handle, subKey, [keepKey](Session* session, int64_t id) -> LSTATUS {
    if (session == nullptr) return ERROR_SUCCESS;  // an empty hive has nothing to clear
    if (keepKey) {
      LSTATUS status = RunOn(*session, reg::kDeleteChildTreeValues, id);
      if (status == ERROR_SUCCESS) status = RunOn(*session, reg::kDeleteChildTrees, id);
      if (status == ERROR_SUCCESS) status = RunOn(*session, reg::kDeleteKeyValues, id);
      return status;
    }
    LSTATUS status = RunOn(*session, reg::kDeleteTreeValues, id);
    if (status == ERROR_SUCCESS) status = RunOn(*session, reg::kDeleteTreeKeys, id);
    return status;
  });
}

namespace {

// Both enumerations: the row at `index` below the key, read in one
// transaction so that a deleted key is told from the end of the list.
template <typename Read>
LSTATUS EnumerateAt(HKEY handle, REGSAM right, reg::Statement which, DWORD index, Read read) {
  OpenKey key;
  LSTATUS status = Resolve(handle, &key);
  if (status != ERROR_SUCCESS) return status;
  if (!(key.sam & right)) return ERROR_ACCESS_DENIED;
  Session session(*key.store, Mode::Read);
  status = session.status();
  if (status == ERROR_FILE_NOT_FOUND) return EmptyHive(key, ERROR_NO_MORE_ITEMS);
  if (status != ERROR_SUCCESS) return status;
  if ((status = session.Begin(false)) != ERROR_SUCCESS) return status;
  if ((status = KeyExists(session, key.id)) != ERROR_SUCCESS) return status;
  {
    auto use = session.Get(which);
    use.Bind(1, key.id).Bind(2, index);
    bool row = false;
    if ((status = session.Step(use.get(), &row)) != ERROR_SUCCESS) return status;
    if (!row) return ERROR_NO_MORE_ITEMS;
    status = read(use.get());
  }
  const LSTATUS ended = session.Commit();
  return status != ERROR_SUCCESS ? status : ended;
}

}  // namespace

LSTATUS RegEnumKeyExW(HKEY handle, DWORD index, LPWSTR name, DWORD* cchName, DWORD* reserved,
                      LPWSTR cls, DWORD* cchClass, FILETIME* lastWrite) {
  if (reserved != nullptr || name == nullptr || cchName == nullptr ||
      (cls != nullptr && cchClass == nullptr))
    return ERROR_INVALID_PARAMETER;
  return EnumerateAt(handle, KEY_ENUMERATE_SUB_KEYS, reg::kEnumKey, index,
                     [&](sqlite3_stmt* row) -> LSTATUS {
                       LSTATUS status = CopyName(ColumnText(row, 0), name, cchName);
                       if (status == ERROR_SUCCESS && cchClass != nullptr) {
                         const std::u16string className = ColumnText(row, 1);
                         if (cls != nullptr)
                           status = CopyName(className, cls, cchClass);
                         else
                           *cchClass = static_cast<DWORD>(className.size());
                       }
                       SetFileTime(sqlite3_column_int64(row, 2), lastWrite);
                       return status;
                     });
}

LSTATUS RegEnumKeyW(HKEY key, DWORD index, LPWSTR name, DWORD cchName) {
  return RegEnumKeyExW(key, index, name, &cchName, nullptr, nullptr, nullptr, nullptr);
}

LSTATUS RegEnumValueW(HKEY handle, DWORD index, LPWSTR name, DWORD* cchName, DWORD* reserved,
                      DWORD* type, BYTE* data, DWORD* cbData) {
  if (reserved != nullptr || name == nullptr || cchName == nullptr ||
      (data != nullptr && cbData == nullptr))
    return ERROR_INVALID_PARAMETER;
  return EnumerateAt(
      handle, KEY_QUERY_VALUE, reg::kEnumValue, index, [&](sqlite3_stmt* row) -> LSTATUS {
        const LSTATUS status = CopyName(ColumnText(row, 0), name, cchName);
        const LSTATUS copied =
            CopyValue(static_cast<DWORD>(sqlite3_column_int64(row, 1)), sqlite3_column_blob(row, 2),
                      static_cast<size_t>(sqlite3_column_bytes(row, 2)), type, data, cbData);
        return status != ERROR_SUCCESS ? status : copied;
      });
}

LSTATUS RegQueryInfoKeyW(HKEY handle, LPWSTR cls, DWORD* cchClass, DWORD* reserved, DWORD* subKeys,
                         DWORD* maxSubKeyLen, DWORD* maxClassLen, DWORD* values,
                         DWORD* maxValueNameLen, DWORD* maxValueLen, DWORD* securityDescriptorBytes,
                         FILETIME* lastWrite) {
  if (reserved != nullptr || (cls != nullptr && cchClass == nullptr))
    return ERROR_INVALID_PARAMETER;
  OpenKey key;
  LSTATUS status = Resolve(handle, &key);
  if (status != ERROR_SUCCESS) return status;
  if (!(key.sam & KEY_QUERY_VALUE)) return ERROR_ACCESS_DENIED;
  // Sub-keys, longest name, longest class; values, longest name, longest data.
  DWORD counts[6] = {};
  std::u16string className;
  int64_t written = 0;
  Session session(*key.store, Mode::Read);
  status = session.status();
  if (status == ERROR_FILE_NOT_FOUND) {
    if ((status = EmptyHive(key, ERROR_SUCCESS)) != ERROR_SUCCESS) return status;
  } else {
    if (status != ERROR_SUCCESS) return status;
    if ((status = session.Begin(false)) != ERROR_SUCCESS) return status;
    {
      auto use = session.Get(reg::kKeyInfo);
      use.Bind(1, key.id);
      bool row = false;
      if ((status = session.Step(use.get(), &row)) != ERROR_SUCCESS) return status;
      if (!row) return ERROR_KEY_DELETED;
      className = ColumnText(use.get(), 0);
      written = sqlite3_column_int64(use.get(), 1);
    }
    for (int part = 0; part < 2; ++part) {
      auto use = session.Get(part == 0 ? reg::kInfoKeys : reg::kInfoValues);
      use.Bind(1, key.id);
      if ((status = session.Step(use.get())) != ERROR_SUCCESS) return status;
      for (int column = 0; column < 3; ++column)
        counts[part * 3 + column] = static_cast<DWORD>(sqlite3_column_int64(use.get(), column));
    }
    if ((status = session.Commit()) != ERROR_SUCCESS) return status;
  }
  const DWORD* from = counts;
  for (DWORD* out : {subKeys, maxSubKeyLen, maxClassLen, values, maxValueNameLen, maxValueLen}) {
    if (out) *out = *from;
    ++from;
  }
  if (securityDescriptorBytes) *securityDescriptorBytes = 0;
  SetFileTime(written, lastWrite);
  if (cchClass == nullptr) return ERROR_SUCCESS;
  if (cls == nullptr) {
    *cchClass = static_cast<DWORD>(className.size());
    return ERROR_SUCCESS;
  }
  return CopyName(className, cls, cchClass);
}

LSTATUS RegFlushKey(HKEY handle) {
  OpenKey key;
  LSTATUS status = Resolve(handle, &key);
  if (status != ERROR_SUCCESS) return status;
  Session session(*key.store, Mode::Read);
  status = session.status();
  if (status == ERROR_FILE_NOT_FOUND) return EmptyHive(key, ERROR_SUCCESS);
  if (status != ERROR_SUCCESS) return status;
  if (sqlite3_db_readonly(session.db(), "main") == 1) return ERROR_SUCCESS;
  // A checkpoint writes the log to the disk before it copies from it, so
  // every commit so far is durable afterwards, even if readers keep it from
  // copying everything.
  const int rc =
      sqlite3_wal_checkpoint_v2(session.db(), nullptr, SQLITE_CHECKPOINT_PASSIVE, nullptr, nullptr);
  return session.Fail(reg::StatusFromSqlite(rc));
}

LSTATUS ZqRegistryGetStorePath(HKEY handle, LPWSTR path, DWORD* cchPath) {
  if (path == nullptr || cchPath == nullptr) return ERROR_INVALID_PARAMETER;
  std::string file;
  if (handle == HKEY_CURRENT_USER || handle == HKEY_LOCAL_MACHINE) {
    file = reg::HivePath(handle == HKEY_CURRENT_USER ? Hive::User : Hive::Machine);
  } else {
    OpenKey key;
    const LSTATUS status = Resolve(handle, &key);
    if (status != ERROR_SUCCESS) return status;
    file = key.store->path();
  }
  return CopyName(ZqUtf8ToUtf16(file), path, cchPath);
}

BOOL ZqRegistryAllowMachineWrite(BOOL allow) {
  return reg::AllowMachineWrite(allow != FALSE) ? TRUE : FALSE;
}
