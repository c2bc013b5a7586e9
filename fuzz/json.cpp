// SPDX-License-Identifier: Apache-2.0
// Any bytes as JSON: what the reader accepts, the writer writes so that the reader reads the same again.

#include <cstdint>
#include <string>

#include "core/SQLiteValue.hpp"
#include "fuzz/Expect.hpp"
#include "platform/JSONReader.hpp"
#include "platform/JSONWriter.hpp"
#include "platform/UTF8.hpp"

namespace tolva {
namespace {

void checkTree(JSONValue const& tree) {
  std::string const compact = writeJSON(tree);
  expect(isValidUTF8(compact), "written JSON is UTF-8");
  expect(readJSON(compact) == tree, "compact JSON reads back");
  expect(readJSON(writeJSON(tree, {.pretty = true})) == tree, "pretty JSON reads back");
  std::string const sorted = writeJSON(tree, {.sortedKeys = true});
  expect(writeJSON(readJSON(sorted)) == sorted, "sorted JSON stays sorted");
}

void checkValue(JSONValue const& tree) try {
  SQLiteValue const value = SQLiteValue::decode(tree);
  std::string coded;
  JSONWriter writer(coded);
  value.encode(writer);
  expect(SQLiteValue::decode(readJSON(coded)) == value, "a coded value reads back");
} catch (JSONError const&) {
  // Most trees are no coded value.
}

}  // namespace
}  // namespace tolva

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  try {
    tolva::JSONValue const tree = tolva::readJSON({reinterpret_cast<char const*>(data), size});
    tolva::checkTree(tree);
    tolva::checkValue(tree);
  } catch (tolva::JSONError const&) {
    // Refused.
  }
  return 0;
}
