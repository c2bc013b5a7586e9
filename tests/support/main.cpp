// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <clocale>

#include "core/SQLiteLibrary.hpp"

/// Runs the tests under the locale of the environment, as a desktop program that uses the library would.
int main(int count, char** arguments) {
  std::setlocale(LC_ALL, "");
  tolva::SQLiteLibrary::prepare();  // before the tests use SQLite themselves
  testing::InitGoogleTest(&count, arguments);
  return RUN_ALL_TESTS();
}
