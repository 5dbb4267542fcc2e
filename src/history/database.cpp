#include "history/database.h"

#include <sqlite3.h>

namespace tervano {

namespace {

constexpr int kBusyMilliseconds = 250;

}  // namespace

Database::Database(const std::string& path) : path_(path) {
  const int code =
      sqlite3_open_v2(path.c_str(), &handle_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr);
  if (code != SQLITE_OK) {
    const std::string reason = handle_ == nullptr ? sqlite3_errstr(code) : sqlite3_errmsg(handle_);
    sqlite3_close(handle_);
    throw HistoryError("The history " + path + " cannot be opened: " + reason, false);
  }
  sqlite3_extended_result_codes(handle_, 1);
  sqlite3_busy_timeout(handle_, kBusyMilliseconds);
}

Database::~Database() {
  sqlite3_close(handle_);
}

void Database::execute(const std::string& statements) {
  const int code = sqlite3_exec(handle_, statements.c_str(), nullptr, nullptr, nullptr);
  if (code != SQLITE_OK) fail(code);
}

std::int64_t Database::lastNumber() const {
  return sqlite3_last_insert_rowid(handle_);
}

std::size_t Database::changedRows() const {
  return static_cast<std::size_t>(sqlite3_changes(handle_));
}

void Database::fail(int code) const {
  constexpr int kPrimaryCode = 0xFF;
  const int kind = code & kPrimaryCode;
  throw HistoryError("The history " + path_ + " cannot be used: " + sqlite3_errmsg(handle_),
                     kind == SQLITE_BUSY || kind == SQLITE_LOCKED);
}

Statement::Statement(const Database& database, const std::string& text) : database_(database) {
  const int code = sqlite3_prepare_v2(database.handle(), text.c_str(),
                                      static_cast<int>(text.size()), &handle_, nullptr);
  if (code != SQLITE_OK) database.fail(code);
}

Statement::~Statement() {
  sqlite3_finalize(handle_);
}

Statement& Statement::bind(std::int64_t value) {
  sqlite3_bind_int64(handle_, ++bound_, value);
  return *this;
}

Statement& Statement::bind(std::optional<double> value) {
  ++bound_;
  if (value) sqlite3_bind_double(handle_, bound_, *value);
  return *this;
}

Statement& Statement::bind(const std::string& text) {
  sqlite3_bind_text(handle_, ++bound_, text.data(), static_cast<int>(text.size()),
                    SQLITE_TRANSIENT);
  return *this;
}

Statement& Statement::bindBytes(const std::string& bytes) {
  sqlite3_bind_blob(handle_, ++bound_, bytes.data(), static_cast<int>(bytes.size()),
                    SQLITE_TRANSIENT);
  return *this;
}

bool Statement::step() {
  const int code = sqlite3_step(handle_);
  if (code == SQLITE_ROW) return true;
  if (code != SQLITE_DONE) {
    sqlite3_reset(handle_);
    database_.fail(code);
  }
  return false;
}

void Statement::run() {
  while (step()) {
  }
  sqlite3_reset(handle_);
  sqlite3_clear_bindings(handle_);
  bound_ = 0;
}

std::int64_t Statement::integer(int column) const {
  return sqlite3_column_int64(handle_, column);
}

std::optional<double> Statement::real(int column) const {
  if (sqlite3_column_type(handle_, column) == SQLITE_NULL) return std::nullopt;
  return sqlite3_column_double(handle_, column);
}

std::string Statement::text(int column) const {
  const auto* bytes = static_cast<const char*>(sqlite3_column_blob(handle_, column));
  const auto size = static_cast<std::size_t>(sqlite3_column_bytes(handle_, column));
  return bytes == nullptr ? std::string() : std::string(bytes, size);
}

Transaction::Transaction(Database& database) : database_(database) {
  database_.execute("BEGIN IMMEDIATE");
}

Transaction::~Transaction() {
  if (!isCommitted_) sqlite3_exec(database_.handle(), "ROLLBACK", nullptr, nullptr, nullptr);
}

void Transaction::commit() {
  database_.execute("COMMIT");
  isCommitted_ = true;
}

}  // namespace tervano
