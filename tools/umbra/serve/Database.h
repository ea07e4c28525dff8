// SQLite with exceptions: whatever fails is a std::runtime_error with its text.
#pragma once

#include <sqlite3.h>

#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

#include "tools/umbra/serve/Model.h"

namespace Serve {

class Database {
 public:
  Database(const std::string& path, int flags) {
    const int status = sqlite3_open_v2(path.c_str(), &handle_, flags, nullptr);
    if (status != SQLITE_OK) {
      const std::string why = path + ": " + sqlite3_errstr(status);
      sqlite3_close(handle_);
      throw std::runtime_error(why);
    }
    sqlite3_busy_timeout(handle_, 2000);
  }
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;
  ~Database() { sqlite3_close_v2(handle_); }

  sqlite3* handle() const { return handle_; }
  void run(const char* commands) {
    if (sqlite3_exec(handle_, commands, nullptr, nullptr, nullptr) != SQLITE_OK) fail();
  }
  [[noreturn]] void fail() const { throw std::runtime_error(sqlite3_errmsg(handle_)); }

 private:
  sqlite3* handle_ = nullptr;
};

class Statement {
 public:
  Statement(Database& database, const char* text) : database_(database) {
    if (sqlite3_prepare_v2(database.handle(), text, -1, &handle_, nullptr) != SQLITE_OK) {
      database.fail();
    }
  }
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;
  ~Statement() { sqlite3_finalize(handle_); }

  // Parameters from 1 on. What is bound has to live until the next step().
  Statement& bind(int at, S64 value) {
    sqlite3_bind_int64(handle_, at, value);
    return *this;
  }
  Statement& bind(int at, double value) {
    sqlite3_bind_double(handle_, at, value);
    return *this;
  }
  Statement& bind(int at, std::string_view value) {
    sqlite3_bind_text(handle_, at, value.data(), static_cast<int>(value.size()), SQLITE_STATIC);
    return *this;
  }
  Statement& bind(int at, std::span<const U8> value) {
    sqlite3_bind_blob(handle_, at, value.data(), static_cast<int>(value.size()), SQLITE_STATIC);
    return *this;
  }

  // False at the end.
  bool step() {
    const int status = sqlite3_step(handle_);
    if (status != SQLITE_ROW && status != SQLITE_DONE) database_.fail();
    return status == SQLITE_ROW;
  }
  // For other parameters.
  void reset() {
    sqlite3_reset(handle_);
    sqlite3_clear_bindings(handle_);
  }
  void runOnce() {
    while (step()) continue;
    reset();
  }

  S64 number(int column) const { return sqlite3_column_int64(handle_, column); }
  std::string text(int column) const {
    const auto* text = sqlite3_column_text(handle_, column);
    return text == nullptr ? std::string() : reinterpret_cast<const char*>(text);
  }
  std::vector<U8> bytes(int column) const {
    const auto* from = static_cast<const U8*>(sqlite3_column_blob(handle_, column));
    return from == nullptr ? std::vector<U8>()
                           : std::vector<U8>(from, from + sqlite3_column_bytes(handle_, column));
  }

 private:
  Database& database_;
  sqlite3_stmt* handle_ = nullptr;
};

}  // namespace Serve
