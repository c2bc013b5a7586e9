# SPDX-License-Identifier: Apache-2.0
# Runs one statement of each kind that the system's SQL needs; a library without it is refused now and not by a user.

function(tolva_probe_sqlite feature sql)
  if(TOLVA_SQLITE_KNOWS_${feature})
    return()
  endif()
  set(probe "${CMAKE_CURRENT_BINARY_DIR}/probe_${feature}.c")
  file(WRITE "${probe}" "
    #include <sqlite3.h>
    #include <stdio.h>
    int main(void) {
      sqlite3* db = 0;
      int const failed = sqlite3_open(\":memory:\", &db) || sqlite3_exec(db, \"${sql}\", 0, 0, 0);
      if (failed) printf(\"%s\", sqlite3_errmsg(db));
      return failed;
    }")
  try_run(ran compiled "${CMAKE_CURRENT_BINARY_DIR}/probe_${feature}" "${probe}"
    LINK_LIBRARIES SQLite::SQLite3 RUN_OUTPUT_VARIABLE said COMPILE_OUTPUT_VARIABLE compiler)
  if(NOT compiled)
    message(FATAL_ERROR "The probe of SQLite's ${feature} does not compile: ${compiler}")
  elseif(NOT ran EQUAL 0)
    message(FATAL_ERROR "This SQLite does not know ${feature}: ${said}")
  endif()
  set(TOLVA_SQLITE_KNOWS_${feature} ON CACHE INTERNAL "")
endfunction()

tolva_probe_sqlite(table_list "SELECT wr, strict FROM pragma_table_list")
tolva_probe_sqlite(RETURNING "CREATE TABLE t(a); INSERT INTO t VALUES(1) RETURNING a")
tolva_probe_sqlite(STRICT "CREATE TABLE t(a INTEGER) STRICT")
