// Internal: one store file of the settings store and its SQLite connection.
//
// A Store is one database file (a hive).  The process keeps one Store per
// file, shared by every handle opened in it; the Store keeps one connection,
// opened when first needed, with its statements prepared once.  Every use of
// the connection happens under the Store's lock, through a Session.
//
// Layout of a store file (application_id 'ZQRG', user_version 1):
//   keys(id INTEGER PRIMARY KEY AUTOINCREMENT, parent, name, fold, class,
//        written)  -- the root of the hive is id 1 with a null parent;
//                     ids are never reused, so a handle to a deleted key
//                     never reaches a later one
//   vals(key, name, fold, type, data), primary key (key, fold)
// `name` is the name as created (UTF-8); `fold` is the name with every UTF-16
// unit lowered by ZqToLowerW, as big-endian 16-bit units, so that comparing
// two folds as bytes compares the names without regard to case, unit by unit,
// a shorter name first.  `written` is the last write as a FILETIME.
#pragma once

#include <sqlite3.h>
#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include "platform/registry.h"

namespace zq::platform::registry {

enum class Hive { User, Machine };

constexpr int64_t kRootKey = 1;

// Prepared statements of a connection; the numbers of their parameters are
// in registry_store.cpp beside their text.
enum Statement {
  kBegin,
  kBeginWrite,
  kCommit,
  kRollback,
  kFindChild,
  kKeyExists,
  kKeyInfo,
  kInsertKey,
  kTouchKey,
  kCountChildren,
  kDeleteKeyValues,
  kDeleteKeyRow,
  kDeleteTreeValues,
  kDeleteTreeKeys,
  kDeleteChildTrees,
  kDeleteChildTreeValues,
  kQueryValue,
  kSetValue,
  kDeleteValue,
  kEnumKey,
  kEnumValue,
  kInfoKeys,
  kInfoValues,
  kStatementCount
};

// The platform error number for an SQLite result code.
LSTATUS StatusFromSqlite(int code);

// The case-insensitive sort and identity key of a name (see above).
std::string FoldName(std::u16string_view name);

// FILETIME of now, as one number.
int64_t NowFileTime();

class Store {
 public:
  Store(Hive hive, std::string path) : hive_(hive), path_(std::move(path)) {}
  ~Store();
  Store(const Store&) = delete;
  Store& operator=(const Store&) = delete;

  Hive hive() const { return hive_; }
  const std::string& path() const { return path_; }
  // Whether the file has been removed or replaced since the connection was
  // opened (a stat of the path).  From then on the Store answers
  // ERROR_KEY_DELETED for every key, and a new Store serves the path.
  bool Replaced();

  // What a call needs of the file.  Read: a missing file reads as an empty
  // hive.  Modify: a missing file means there is nothing to change.  Create:
  // a missing file and its folders are created.
  enum class Mode { Read, Modify, Create };

  // Holds the Store's lock and a usable connection for the length of one
  // call.  `status()` is ERROR_SUCCESS when the connection is there,
  // ERROR_FILE_NOT_FOUND when the file does not exist (Read and Modify), and
  // anything else is a failure to report.
  class Session {
   public:
    Session(Store& store, Mode mode);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // One use of a prepared statement: bind, step, read the columns; the
    // statement is reset when the use ends, which ends its read.
    class Use {
     public:
      explicit Use(sqlite3_stmt* statement) : statement_(statement) {}
      ~Use() { sqlite3_reset(statement_); }
      Use(const Use&) = delete;
      Use& operator=(const Use&) = delete;
      sqlite3_stmt* get() const { return statement_; }
      Use& Bind(int index, int64_t value) {
        sqlite3_bind_int64(statement_, index, value);
        return *this;
      }
      // Text as UTF-8; null binds NULL.
      Use& BindText(int index, const std::string* text) {
        if (text)
          sqlite3_bind_text(statement_, index, text->data(), static_cast<int>(text->size()),
                            SQLITE_STATIC);
        else
          sqlite3_bind_null(statement_, index);
        return *this;
      }
      // Bytes; an empty range binds an empty blob, never NULL.
      Use& BindBlob(int index, const void* data, size_t size) {
        sqlite3_bind_blob64(statement_, index, size ? data : "", size, SQLITE_STATIC);
        return *this;
      }

     private:
      sqlite3_stmt* statement_;
    };

    LSTATUS status() const { return status_; }
    sqlite3* db() const;
    Use Get(Statement which);
    // Steps a statement once; `*row` tells whether a row came.  Answers the
    // platform error number.
    LSTATUS Step(sqlite3_stmt* statement, bool* row = nullptr);
    // Runs a statement without parameters or rows.
    LSTATUS Run(Statement which);
    // Starts a transaction (a writing one takes the write lock at once,
    // waiting up to the busy timeout) and ends it; a session that ends inside
    // a transaction rolls it back.
    LSTATUS Begin(bool write);
    LSTATUS Commit();
    // Passes a status on; one that makes the connection suspect (a damaged
    // file, an I/O error) closes the connection when the session ends, so
    // that the next call looks at the file afresh.
    LSTATUS Fail(LSTATUS status);

   private:
    std::unique_lock<std::mutex> lock_;
    Store& store_;
    bool inTransaction_ = false;
    LSTATUS status_;
  };

 private:
  LSTATUS Connect(Mode mode);
  LSTATUS OpenConnection(Mode mode);
  LSTATUS CheckLayout(bool writable);
  LSTATUS CreateLayout();
  int SetJournal();
  void Disconnect();
  bool FileStillSame() const;

  const Hive hive_;
  const std::string path_;
  std::mutex lock_;
  sqlite3* db_ = nullptr;
  sqlite3_stmt* statements_[kStatementCount] = {};
  unsigned forks_ = 0;  // the process's fork count when the connection was opened
  bool gone_ = false;   // the file was removed or replaced under the connection
  bool readOnly_ = false;
  dev_t device_ = 0;
  ino_t inode_ = 0;
  bool dropAfterSession_ = false;
};

// The file of a hive as the environment names it now.
std::string HivePath(Hive hive);
// The process's Store for a hive's file now, made when the file changes.
std::shared_ptr<Store> CurrentStore(Hive hive);
// Whether this process may write the machine's hive, and the switch (which
// answers the previous setting).
bool MachineWriteAllowed();
bool AllowMachineWrite(bool allow);

}  // namespace zq::platform::registry
