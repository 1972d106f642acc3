// The store files of the settings store: where they are, how they are opened
// and laid out, and the one connection per file that a process keeps.
#include "platform/linux/registry_store.h"

#include <fcntl.h>
#include <pthread.h>
#include <pwd.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <map>

#include "platform/environment.h"
#include "platform/text.h"
#include "platform/time.h"

namespace zq::platform::registry {
namespace {

// 'ZQRG': tells our files from other SQLite databases.
constexpr int kApplicationId = 0x5A515247;
constexpr int kLayoutVersion = 1;
constexpr int kBusyTimeoutMs = 10000;

// The texts of the prepared statements, in the order of `Statement`.
constexpr const char* kStatementText[kStatementCount] = {
    "BEGIN",
    "BEGIN IMMEDIATE",
    "COMMIT",
    "ROLLBACK",
    // kFindChild(parent, fold) -> id
    "SELECT id FROM keys WHERE parent=?1 AND fold=?2",
    // kKeyExists(id) -> 1
    "SELECT 1 FROM keys WHERE id=?1",
    // kKeyInfo(id) -> class, written
    "SELECT class, written FROM keys WHERE id=?1",
    // kInsertKey(parent, name, fold, class, written)
    "INSERT INTO keys(parent, name, fold, class, written) VALUES(?1, ?2, ?3, ?4, ?5)",
    // kTouchKey(id, written)
    "UPDATE keys SET written=?2 WHERE id=?1",
    // kCountChildren(id) -> 0 or 1
    "SELECT EXISTS(SELECT 1 FROM keys WHERE parent=?1)",
    // kDeleteKeyValues(id)
    "DELETE FROM vals WHERE key=?1",
    // kDeleteKeyRow(id)
    "DELETE FROM keys WHERE id=?1",
    // kDeleteTreeValues(id): the values of the key and of everything below
    "WITH RECURSIVE t(id) AS (SELECT ?1 UNION ALL SELECT k.id FROM keys k JOIN t ON k.parent=t.id)"
    " DELETE FROM vals WHERE key IN t",
    // kDeleteTreeKeys(id): the key and everything below
    "WITH RECURSIVE t(id) AS (SELECT ?1 UNION ALL SELECT k.id FROM keys k JOIN t ON k.parent=t.id)"
    " DELETE FROM keys WHERE id IN t",
    // kDeleteChildTrees(id): everything below the key, not the key
    "WITH RECURSIVE t(id) AS (SELECT id FROM keys WHERE parent=?1"
    " UNION ALL SELECT k.id FROM keys k JOIN t ON k.parent=t.id)"
    " DELETE FROM keys WHERE id IN t",
    // kDeleteChildTreeValues(id)
    "WITH RECURSIVE t(id) AS (SELECT id FROM keys WHERE parent=?1"
    " UNION ALL SELECT k.id FROM keys k JOIN t ON k.parent=t.id)"
    " DELETE FROM vals WHERE key IN t",
    // kQueryValue(id, fold) -> type, data; no row: no key; null type: no value
    "SELECT v.type, v.data FROM keys k LEFT JOIN vals v ON v.key=k.id AND v.fold=?2"
    " WHERE k.id=?1",
    // kSetValue(key, name, fold, type, data)
    "INSERT INTO vals(key, name, fold, type, data) VALUES(?1, ?2, ?3, ?4, ?5)"
    " ON CONFLICT(key, fold) DO UPDATE SET name=excluded.name, type=excluded.type,"
    " data=excluded.data",
    // kDeleteValue(key, fold)
    "DELETE FROM vals WHERE key=?1 AND fold=?2",
    // kEnumKey(parent, index) -> name, class, written
    "SELECT name, class, written FROM keys WHERE parent=?1 ORDER BY fold LIMIT 1 OFFSET ?2",
    // kEnumValue(key, index) -> name, type, data
    "SELECT name, type, data FROM vals WHERE key=?1 ORDER BY fold LIMIT 1 OFFSET ?2",
    // kInfoKeys(parent) -> count, longest name (units), longest class (bytes)
    "SELECT count(*), ifnull(max(length(fold)), 0) / 2, ifnull(max(length(CAST(class AS BLOB))), 0)"
    " FROM keys WHERE parent=?1",
    // kInfoValues(key) -> count, longest name (units), longest data (bytes)
    "SELECT count(*), ifnull(max(length(fold)), 0) / 2, ifnull(max(length(data)), 0)"
    " FROM vals WHERE key=?1",
};

constexpr const char* kLayout =
    "CREATE TABLE keys(id INTEGER PRIMARY KEY AUTOINCREMENT, parent INTEGER,"
    " name TEXT NOT NULL, fold BLOB NOT NULL, class TEXT, written INTEGER NOT NULL,"
    " UNIQUE(parent, fold));"
    "CREATE TABLE vals(key INTEGER NOT NULL, name TEXT NOT NULL, fold BLOB NOT NULL,"
    " type INTEGER NOT NULL, data BLOB NOT NULL, PRIMARY KEY(key, fold)) WITHOUT ROWID;";

std::atomic<bool> g_machineWrite{false};

// Counts the forks of this process, so that a child tells a connection it
// inherited from one of its own without asking for its process id each call.
std::atomic<unsigned> g_forks{0};

unsigned Forks() {
  static const bool counting = [] {
    pthread_atfork(nullptr, nullptr, [] { g_forks.fetch_add(1); });
    return true;
  }();
  (void)counting;
  return g_forks.load(std::memory_order_relaxed);
}

std::string Environment(const char16_t* name) {
  WCHAR small[512];
  DWORD n = GetEnvironmentVariableW(name, small, 512);
  if (n == 0) return std::string();
  if (n < 512) return ZqUtf16ToUtf8(std::u16string_view(small, n));
  std::u16string big(n, u'\0');
  n = GetEnvironmentVariableW(name, big.data(), n);
  big.resize(n);
  return ZqUtf16ToUtf8(big);
}

// Creates every missing folder on the way to `file` with mode 0700; folders
// that exist are left as they are.
bool MakeFolders(const std::string& file) {
  for (size_t slash = file.find('/', 1); slash != std::string::npos;
       slash = file.find('/', slash + 1)) {
    const std::string folder = file.substr(0, slash);
    if (mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) return false;
  }
  struct stat st;
  const size_t last = file.rfind('/');
  return last == std::string::npos ||
         (stat(file.substr(0, last).c_str(), &st) == 0 && S_ISDIR(st.st_mode));
}

// One row of one column of a statement that is run once (the pragmas).
int QueryInt(sqlite3* db, const char* sql, int* value) {
  sqlite3_stmt* statement = nullptr;
  int rc = sqlite3_prepare_v2(db, sql, -1, &statement, nullptr);
  if (rc == SQLITE_OK) {
    rc = sqlite3_step(statement);
    if (rc == SQLITE_ROW) {
      *value = sqlite3_column_int(statement, 0);
      rc = SQLITE_OK;
    } else if (rc == SQLITE_DONE) {
      *value = 0;
      rc = SQLITE_OK;
    }
  }
  sqlite3_finalize(statement);
  return rc;
}

int ReadHeader(sqlite3* db, int* applicationId, int* version, int* tables) {
  sqlite3_stmt* statement = nullptr;
  int rc = sqlite3_prepare_v2(db,
                              "SELECT (SELECT application_id FROM pragma_application_id),"
                              " (SELECT user_version FROM pragma_user_version),"
                              " (SELECT count(*) FROM sqlite_master)",
                              -1, &statement, nullptr);
  if (rc == SQLITE_OK) {
    rc = sqlite3_step(statement);
    if (rc == SQLITE_ROW) {
      *applicationId = sqlite3_column_int(statement, 0);
      *version = sqlite3_column_int(statement, 1);
      *tables = sqlite3_column_int(statement, 2);
      rc = SQLITE_OK;
    }
  }
  sqlite3_finalize(statement);
  return rc;
}

int QueryText(sqlite3* db, const char* sql, std::string* value) {
  sqlite3_stmt* statement = nullptr;
  int rc = sqlite3_prepare_v2(db, sql, -1, &statement, nullptr);
  if (rc == SQLITE_OK) {
    rc = sqlite3_step(statement);
    if (rc == SQLITE_ROW) {
      const auto* text = sqlite3_column_text(statement, 0);
      *value = text ? reinterpret_cast<const char*>(text) : "";
      rc = SQLITE_OK;
    }
  }
  sqlite3_finalize(statement);
  return rc;
}

}  // namespace

LSTATUS StatusFromSqlite(int code) {
  switch (code & 0xFF) {
    case SQLITE_OK:
    case SQLITE_DONE:
    case SQLITE_ROW:
      return ERROR_SUCCESS;
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
      return ERROR_BUSY;
    case SQLITE_NOTADB:
    case SQLITE_CORRUPT:
    case SQLITE_SCHEMA:
    case SQLITE_FORMAT:
      return ERROR_BADDB;
    case SQLITE_CANTOPEN:
      return ERROR_CANTOPEN;
    case SQLITE_READONLY:
    case SQLITE_PERM:
    case SQLITE_AUTH:
      return ERROR_ACCESS_DENIED;
    case SQLITE_FULL:
      return ERROR_DISK_FULL;
    case SQLITE_NOMEM:
      return ERROR_NOT_ENOUGH_MEMORY;
    case SQLITE_IOERR:
      return ERROR_REGISTRY_IO_FAILED;
    case SQLITE_TOOBIG:
    case SQLITE_CONSTRAINT:
    case SQLITE_MISMATCH:
    case SQLITE_RANGE:
      return ERROR_INVALID_PARAMETER;
    default:
      return ERROR_GEN_FAILURE;
  }
}

std::string FoldName(std::u16string_view name) {
  std::string fold(name.size() * 2, '\0');
  for (size_t i = 0; i < name.size(); ++i) {
    const WCHAR c = ZqToLowerW(name[i]);
    fold[2 * i] = static_cast<char>(c >> 8);
    fold[2 * i + 1] = static_cast<char>(c & 0xFF);
  }
  return fold;
}

int64_t NowFileTime() {
  FILETIME now;
  GetSystemTimeAsFileTime(&now);
  return static_cast<int64_t>((static_cast<uint64_t>(now.dwHighDateTime) << 32) |
                              now.dwLowDateTime);
}

std::string HivePath(Hive hive) {
  const char* leaf = hive == Hive::User ? "/user.db" : "/machine.db";
  std::string folder = Environment(u"ZQ_REGISTRY_DIR");
  if (!folder.empty()) return folder + leaf;
  if (hive == Hive::Machine) return std::string("/etc/xdg/Ostrand") + leaf;
  // A relative XDG_CONFIG_HOME is not valid and is ignored.
  folder = Environment(u"XDG_CONFIG_HOME");
  if (folder.empty() || folder[0] != '/') {
    std::string home = Environment(u"HOME");
    if (home.empty()) {
      struct passwd entry;
      struct passwd* found = nullptr;
      char buffer[4096];
      if (getpwuid_r(getuid(), &entry, buffer, sizeof buffer, &found) == 0 && found)
        home = found->pw_dir;
    }
    folder = home + "/.config";
  }
  return folder + "/Ostrand" + leaf;
}

std::shared_ptr<Store> CurrentStore(Hive hive) {
  static auto* lock = new std::mutex;
  // The hive's present store, and every store still in use by a handle, so
  // that a file is never reached through two connections of one process.
  static auto* current = new std::shared_ptr<Store>[2];
  static auto* live = new std::map<std::string, std::weak_ptr<Store>>;
  std::string path = HivePath(hive);
  std::lock_guard<std::mutex> guard(*lock);
  std::shared_ptr<Store>& slot = current[hive == Hive::User ? 0 : 1];
  if (slot && slot->path() == path && !slot->Replaced()) return slot;
  std::erase_if(*live, [](const auto& entry) { return entry.second.expired(); });
  std::weak_ptr<Store>& known = (*live)[path];
  slot = known.lock();
  if (!slot || slot->Replaced()) {
    slot = std::make_shared<Store>(hive, path);
    known = slot;
  }
  return slot;
}

bool MachineWriteAllowed() { return g_machineWrite.load(); }

bool AllowMachineWrite(bool allow) { return g_machineWrite.exchange(allow); }

Store::~Store() { Disconnect(); }

void Store::Disconnect() {
  if (db_ == nullptr) return;
  // A connection inherited through fork belongs to the parent: closing it
  // here could disturb the parent's file, so the child only forgets it.
  if (forks_ == Forks()) {
    // Closing removes the log files by name; when the file has been removed
    // or replaced, those names may belong to another store by now.
    if (!FileStillSame()) {
      int keep = 1;
      sqlite3_file_control(db_, "main", SQLITE_FCNTL_PERSIST_WAL, &keep);
    }
    for (sqlite3_stmt*& statement : statements_) sqlite3_finalize(statement);
    sqlite3_close_v2(db_);
  }
  for (sqlite3_stmt*& statement : statements_) statement = nullptr;
  db_ = nullptr;
}

bool Store::FileStillSame() const {
  struct stat st;
  return stat(path_.c_str(), &st) == 0 && st.st_dev == device_ && st.st_ino == inode_;
}

bool Store::Replaced() {
  std::lock_guard<std::mutex> guard(lock_);
  if (!gone_ && db_ != nullptr && !FileStillSame()) {
    gone_ = true;
    Disconnect();
  }
  return gone_;
}

LSTATUS Store::Connect(Mode mode) {
  // The keys of a file removed or replaced are gone with it.
  if (gone_) return ERROR_KEY_DELETED;
  // A connection of the parent (inherited through fork), or a read-only
  // connection that must now write: open the file again.
  if (db_ != nullptr && (forks_ != Forks() || (mode != Mode::Read && readOnly_))) Disconnect();
  if (db_ != nullptr) return ERROR_SUCCESS;
  return OpenConnection(mode);
}

LSTATUS Store::OpenConnection(Mode mode) {
  const bool readOnly = hive_ == Hive::Machine && !MachineWriteAllowed();
  struct stat st;
  if (stat(path_.c_str(), &st) != 0) {
    if (errno != ENOENT) return ERROR_CANTOPEN;
    if (mode != Mode::Create) return ERROR_FILE_NOT_FOUND;
    if (readOnly) return ERROR_ACCESS_DENIED;
    // Our own file and folders: created private before SQLite sees them, so
    // that the journal files it makes beside it take the same mode.
    if (!MakeFolders(path_)) return ERROR_CANTOPEN;
    const int fd = open(path_.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0600);
    if (fd < 0 && errno != EEXIST) return ERROR_CANTOPEN;
    if (fd >= 0) close(fd);
    if (stat(path_.c_str(), &st) != 0) return ERROR_CANTOPEN;
  }
  if (!S_ISREG(st.st_mode)) return ERROR_CANTOPEN;

  const int flags = (readOnly ? SQLITE_OPEN_READONLY : SQLITE_OPEN_READWRITE) | SQLITE_OPEN_NOMUTEX;
  sqlite3* db = nullptr;
  const int rc = sqlite3_open_v2(path_.c_str(), &db, flags, nullptr);
  if (rc != SQLITE_OK) {
    sqlite3_close_v2(db);
    return rc == SQLITE_NOMEM ? ERROR_NOT_ENOUGH_MEMORY : ERROR_CANTOPEN;
  }
  sqlite3_extended_result_codes(db, 1);
  sqlite3_busy_timeout(db, kBusyTimeoutMs);
  db_ = db;
  forks_ = Forks();
  readOnly_ = readOnly;
  device_ = st.st_dev;
  inode_ = st.st_ino;

  // Two processes that open a new store at once may both try to switch it
  // to its journal mode; SQLite answers one of them "busy" at once instead
  // of waiting (the two would otherwise wait for each other).  The loser
  // tries again, within the busy timeout, and finds the layout made.
  LSTATUS status = CheckLayout(!readOnly);
  for (int waited = 0; status == ERROR_BUSY && waited < kBusyTimeoutMs; waited += 5 + waited / 4) {
    const int pause = 5 + waited / 4;
    const timespec delay{pause / 1000, (pause % 1000) * 1000000L};
    nanosleep(&delay, nullptr);
    status = CheckLayout(!readOnly);
  }
  for (int i = 0; status == ERROR_SUCCESS && i < kStatementCount; ++i) {
    if (sqlite3_prepare_v3(db_, kStatementText[i], -1, SQLITE_PREPARE_PERSISTENT, &statements_[i],
                           nullptr) != SQLITE_OK)
      status = ERROR_BADDB;  // a file of our name and version with other tables
  }
  if (status != ERROR_SUCCESS) Disconnect();
  return status;
}

LSTATUS Store::CheckLayout(bool writable) {
  int applicationId = 0, version = 0, tables = 0;
  // Reading the header is what tells a file that is no database at all.  One
  // statement, so that a layout written meanwhile by another process is seen
  // whole or not at all.
  int rc = ReadHeader(db_, &applicationId, &version, &tables);
  if (rc != SQLITE_OK) return StatusFromSqlite(rc);
  if (applicationId == 0 && version == 0 && tables == 0) {
    // An empty file: ours, just created here or by another process.
    if (!writable) return ERROR_FILE_NOT_FOUND;
    return CreateLayout();
  }
  if (applicationId != kApplicationId || version != kLayoutVersion) return ERROR_BADDB;
  std::string check;
  rc = QueryText(db_, "PRAGMA quick_check", &check);
  if (rc != SQLITE_OK) return StatusFromSqlite(rc);
  if (check != "ok") return ERROR_BADDB;
  if (writable) {
    rc = SetJournal();
    if (rc != SQLITE_OK) return StatusFromSqlite(rc);
  }
  return ERROR_SUCCESS;
}

int Store::SetJournal() {
  // The user's store: readers never wait for writers, and a commit is safe
  // when the process dies at once and on the disk at the next checkpoint or
  // RegFlushKey.  The machine's store is read by users who cannot write its
  // folder, where the shared-memory file of a log could not be made: it
  // keeps a rollback journal and syncs every commit (it is written rarely).
  const bool user = hive_ == Hive::User;
  std::string mode;
  int rc = QueryText(db_, user ? "PRAGMA journal_mode=WAL" : "PRAGMA journal_mode=DELETE", &mode);
  if (rc == SQLITE_OK)
    rc = sqlite3_exec(db_, user ? "PRAGMA synchronous=NORMAL" : "PRAGMA synchronous=FULL", nullptr,
                      nullptr, nullptr);
  return rc;
}

LSTATUS Store::CreateLayout() {
  int rc = SetJournal();
  if (rc == SQLITE_OK) rc = sqlite3_exec(db_, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr);
  if (rc != SQLITE_OK) return StatusFromSqlite(rc);
  // Another process may have laid the file out while this one waited.
  int version = 0;
  rc = QueryInt(db_, "PRAGMA user_version", &version);
  if (rc == SQLITE_OK && version == 0) {
    rc = sqlite3_exec(db_, kLayout, nullptr, nullptr, nullptr);
    if (rc == SQLITE_OK) {
      const std::string root =
          "INSERT INTO keys(id, parent, name, fold, class, written)"
          " VALUES(1, NULL, '', x'', NULL, " + std::to_string(NowFileTime()) + ");" +
          "PRAGMA application_id=" + std::to_string(kApplicationId) + ";" +
          "PRAGMA user_version=" + std::to_string(kLayoutVersion) + ";";
      rc = sqlite3_exec(db_, root.c_str(), nullptr, nullptr, nullptr);
    }
  }
  if (rc == SQLITE_OK) rc = sqlite3_exec(db_, "COMMIT", nullptr, nullptr, nullptr);
  if (rc != SQLITE_OK) {
    sqlite3_exec(db_, "ROLLBACK", nullptr, nullptr, nullptr);
    return StatusFromSqlite(rc);
  }
  int applicationId = 0, tables = 0;
  rc = ReadHeader(db_, &applicationId, &version, &tables);
  if (rc != SQLITE_OK) return StatusFromSqlite(rc);
  return applicationId == kApplicationId && version == kLayoutVersion ? ERROR_SUCCESS : ERROR_BADDB;
}

Store::Session::Session(Store& store, Mode mode)
    : lock_(store.lock_), store_(store), status_(store.Connect(mode)) {}

Store::Session::~Session() {
  if (inTransaction_) {
    sqlite3_stmt* rollback = store_.statements_[kRollback];
    if (rollback) {
      sqlite3_step(rollback);
      sqlite3_reset(rollback);
    }
  }
  if (store_.dropAfterSession_) {
    store_.dropAfterSession_ = false;
    store_.Disconnect();
  }
}

sqlite3* Store::Session::db() const { return store_.db_; }

Store::Session::Use Store::Session::Get(Statement which) { return Use(store_.statements_[which]); }

LSTATUS Store::Session::Step(sqlite3_stmt* statement, bool* row) {
  const int rc = sqlite3_step(statement);
  if (row) *row = rc == SQLITE_ROW;
  if (rc == SQLITE_ROW || rc == SQLITE_DONE) return ERROR_SUCCESS;
  return Fail(StatusFromSqlite(rc));
}

LSTATUS Store::Session::Run(Statement which) {
  Use use = Get(which);
  return Step(use.get());
}

LSTATUS Store::Session::Begin(bool write) {
  const LSTATUS status = Run(write ? kBeginWrite : kBegin);
  if (status == ERROR_SUCCESS) inTransaction_ = true;
  return status;
}

LSTATUS Store::Session::Commit() {
  const LSTATUS status = Run(kCommit);
  if (status == ERROR_SUCCESS) inTransaction_ = false;
  return status;
}

LSTATUS Store::Session::Fail(LSTATUS status) {
  if (status == ERROR_BADDB || status == ERROR_REGISTRY_IO_FAILED) store_.dropAfterSession_ = true;
  return status;
}

}  // namespace zq::platform::registry
