#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

struct sqlite3;
struct sqlite3_stmt;

namespace tervano {

// The history cannot be read or written: one sentence.
class HistoryError : public std::runtime_error {
 public:
  HistoryError(const std::string& sentence, bool isBusy)
      : std::runtime_error(sentence), isBusy_(isBusy) {}
  // Whether somebody else only holds it at the moment.
  bool isBusy() const { return isBusy_; }

 private:
  bool isBusy_;
};

// A file of SQLite. Everything that fails throws HistoryError. One thread at a time.
class Database {
 public:
  // The file exists.
  explicit Database(const std::string& path);
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;
  ~Database();

  void execute(const std::string& statements);
  std::int64_t lastNumber() const;
  std::size_t changedRows() const;
  [[noreturn]] void fail(int code) const;
  sqlite3* handle() const { return handle_; }

 private:
  std::string path_;
  sqlite3* handle_ = nullptr;
};

// One statement, to be given its values in their order and stepped through. The database outlives
// it.
class Statement {
 public:
  Statement(const Database& database, const std::string& text);
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;
  ~Statement();

  Statement& bind(std::int64_t value);
  Statement& bind(std::optional<double> value);
  Statement& bind(const std::string& text);
  Statement& bindBytes(const std::string& bytes);
  // Whether there is a row.
  bool step();
  // To its end, and ready to be given values again.
  void run();

  std::int64_t integer(int column) const;
  std::optional<double> real(int column) const;
  std::string text(int column) const;

 private:
  const Database& database_;
  sqlite3_stmt* handle_ = nullptr;
  int bound_ = 0;
};

// Takes back what was not committed. The whole is seen by others at once.
class Transaction {
 public:
  explicit Transaction(Database& database);
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;
  ~Transaction();

  void commit();

 private:
  Database& database_;
  bool isCommitted_ = false;
};

}  // namespace tervano
