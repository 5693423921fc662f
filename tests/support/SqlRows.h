// Reads and prepares database files with the sqlite3 C API, beside the store under test: the
// scenarios and end-to-end tests look at what the journal stored, the store tests make old files.
#pragma once

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <string>
#include <vector>

// Runs `sql` (one or more statements) on the database file at `path`, waiting up to 5 s for another
// writer; the rows, each row's columns joined by blanks (NULL as "NULL").
inline std::vector<std::string> sqlRows(const std::string& path, const std::string& sql) {
  sqlite3* db = nullptr;
  std::vector<std::string> rows;
  EXPECT_EQ(sqlite3_open(path.c_str(), &db), SQLITE_OK);
  sqlite3_busy_timeout(db, 5000);
  const auto collect = [](void* out, int columns, char** values, char**) {
    std::string row;
    for (int c = 0; c < columns; ++c) row += (c ? " " : "") + std::string(values[c] ? values[c] : "NULL");
    static_cast<std::vector<std::string>*>(out)->push_back(row);
    return 0;
  };
  EXPECT_EQ(sqlite3_exec(db, sql.c_str(), collect, &rows, nullptr), SQLITE_OK) << sqlite3_errmsg(db);
  sqlite3_close(db);
  return rows;
}
