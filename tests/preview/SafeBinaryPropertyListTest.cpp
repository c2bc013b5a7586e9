// SPDX-License-Identifier: Apache-2.0
#include "preview/SafeBinaryPropertyList.hpp"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <limits>
#include <new>
#include <span>
#include <string>
#include <vector>

#include "platform/Bytes.hpp"
#include "support/Corpora.hpp"

namespace tolva {
namespace {

using namespace std::string_literals;

void append(std::string& out, std::uint64_t number, int width) {
  for (int byte = width - 1; byte >= 0; --byte) {
    out += byte < 8 ? static_cast<char>(number >> (8 * byte)) : '\0';
  }
}

/// A binary list out of the bytes of its objects, each of whose numbers a test may falsify.
struct List {
  std::vector<std::string> objects;
  int offsetWidth = 2;
  int referenceWidth = 2;
  std::uint64_t top = 0;
  std::function<void(std::uint64_t&)> count = {};  // what the trailer says
  std::function<void(std::uint64_t&)> table = {};
  std::function<void(std::uint64_t&)> firstOffset = {};  // of the object 0
  std::string gap = {};                                  // between the table and the trailer

  Bytes bytes() const {
    std::string out = "bplist00";
    std::vector<std::uint64_t> offsets;
    for (auto const& object : objects) {
      offsets.push_back(out.size());
      out += object;
    }
    auto const changed = [](std::uint64_t number, auto const& change) {
      if (change) change(number);
      return number;
    };
    std::uint64_t const tableOffset = changed(out.size(), table);
    for (std::size_t index = 0; index < offsets.size(); ++index) {
      append(out, index == 0 ? changed(offsets[0], firstOffset) : offsets[index], offsetWidth);
    }
    out += gap + std::string(6, '\0');
    append(out, static_cast<std::uint64_t>(offsetWidth), 1);
    append(out, static_cast<std::uint64_t>(referenceWidth), 1);
    append(out, changed(objects.size(), count), 8);
    append(out, top, 8);
    append(out, tableOffset, 8);
    return Bytes(out.begin(), out.end());
  }
};

auto set(std::uint64_t value) {
  return [value](std::uint64_t& number) { number = value; };
}

bool isSafe(List const& list) { return isSafeBinaryPropertyList(list.bytes()); }

char byte(int kind, std::size_t low) { return static_cast<char>(static_cast<unsigned>(kind) << 4 | low); }

/// The marker of an object with its length.
std::string marker(int kind, std::size_t length) {
  if (length < 15) return {byte(kind, length)};
  std::string out{byte(kind, 15), '\x12'};
  append(out, length, 4);
  return out;
}

std::string container(int kind, std::vector<std::uint64_t> const& references, int width = 2) {
  std::string out = marker(kind, kind == 13 ? references.size() / 2 : references.size());
  for (auto const reference : references) append(out, reference, width);
  return out;
}

std::string array(std::vector<std::uint64_t> const& references) { return container(10, references); }
std::string array(std::size_t count, std::uint64_t reference) { return array(std::vector(count, reference)); }
std::string dictionary(std::vector<std::uint64_t> const& references) { return container(13, references); }
std::string ascii(std::size_t length) { return marker(5, length) + std::string(length, 'a'); }

std::string const null(1, '\0');
std::string const yes = "\x09";

struct ObjectCase {
  char const* says;
  std::string object;  // alone in its list
  bool safe;
};

ObjectCase const objects[] = {
    {"null", null, true},
    {"false", "\x08", true},
    {"true", yes, true},
    {"fill", "\x0F", false},
    {"the value 1 of the first kind", "\x01", false},
    {"a URL", "\x0C", false},
    {"the value 14 of the first kind", "\x0E", false},
    {"an integer of 1 byte", "\x10\x01", true},
    {"an integer of 2 bytes", "\x11\x01\x02", true},
    {"an integer of 4 bytes", "\x12\x01\x02\x03\x04", true},
    {"an integer of 8 bytes", "\x13\x01\x02\x03\x04\x05\x06\x07\x08", true},
    {"an integer of 16 bytes", "\x14" + std::string(16, '\1'), false},
    {"a real of 4 bytes", "\x22\x01\x02\x03\x04", true},
    {"a real of 8 bytes", "\x23\x01\x02\x03\x04\x05\x06\x07\x08", true},
    {"a real of 16 bytes", "\x24" + std::string(16, '\1'), false},
    {"a date", "\x33\x01\x02\x03\x04\x05\x06\x07\x08", true},
    {"a date of 4 bytes", "\x32\x01\x02\x03\x04", false},
    {"no data", "\x40", true},
    {"14 bytes of data", marker(4, 14) + std::string(14, '\xFF'), true},
    {"15 bytes of data", marker(4, 15) + std::string(15, '\xFF'), true},
    {"a string", ascii(3), true},
    {"a string with a length of 1 byte", "\x5F\x10\x03"s + "abc", true},
    {"a string with a length of 2 bytes", "\x5F\x11\0\x03"s + "abc", true},
    {"a string with a length of 8 bytes", "\x5F\x13\0\0\0\0\0\0\0\x03"s + "abc", true},
    {"a string with a length of 16 bytes", "\x5F\x14"s + std::string(15, '\0') + "\x03" + "abc", false},
    {"a string whose length is no integer", "\x5F\x20\x03"s + "abc", false},
    {"a string whose length is negative", "\x5F\x13\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF"s + "abc", false},
    {"a string whose length is the largest number", "\x5F\x13\x7F\xFF\xFF\xFF\xFF\xFF\xFF\xFF"s + "abc", false},
    {"a string of 65,536 bytes", ascii(65'536), true},
    {"a string of 65,537 bytes", ascii(65'537), false},
    {"text in UTF-16", marker(6, 2) + "\0a\0b"s, true},
    {"text of 65,536 units in UTF-16", marker(6, 65'536) + std::string(131'072, '\1'), true},
    {"text of 65,537 units in UTF-16", marker(6, 65'537) + std::string(131'074, '\1'), false},
    {"kind 7", "\x70", false},
    {"an archive's reference", "\x80\x01", false},
    {"kind 9", "\x90", false},
    {"an empty array", array({}), true},
    {"an ordered set", "\xB0", false},
    {"an empty set", container(12, {}), true},
    {"an empty dictionary", dictionary({}), true},
    {"kind 14", "\xE0", false},
    {"kind 15", "\xF0", false},
    {"a reference beyond the objects", array({1}), false},
    {"a cycle of one", array({0}), false},
};

TEST(SafeBinaryPropertyList, KnowsEachKindOfObject) {
  for (ObjectCase const& one : objects) {
    SCOPED_TRACE(one.says);
    EXPECT_EQ(isSafe({.objects = {one.object}, .offsetWidth = 4}), one.safe);
  }
}

TEST(SafeBinaryPropertyList, RefusesObjectsThatReachBeyondTheData) {
  std::string whole;  // the markers that may stand in the last byte of all
  for (std::size_t last = 0; last < 256; ++last) {
    // The last byte is the lowest of the table's offset, which padding makes any marker.
    List list{.objects = {std::string((last - 8) & 0xFF, '\0')}};
    list.firstOffset = set(list.bytes().size() - 1);
    ASSERT_EQ(list.bytes().back(), last);
    if (isSafe(list)) whole += static_cast<char>(last);
  }
  EXPECT_EQ(whole, "\0\x08\x09\x40\x50\x60\xA0\xC0\xD0"s);
}

TEST(SafeBinaryPropertyList, LetsTextReachTheEndOfTheData) {
  constexpr std::size_t left = 2 + 32;  // the table and the trailer
  for (int const kind : {4, 5, 6}) {
    SCOPED_TRACE(kind);
    std::size_t const fitting = kind == 6 ? left / 2 : left;
    EXPECT_TRUE(isSafe({.objects = {marker(kind, fitting)}}));
    EXPECT_FALSE(isSafe({.objects = {marker(kind, fitting + 1)}}));
  }
}

struct ListCase {
  char const* says;
  List list;
  bool safe;
};

std::uint64_t const tooLarge = std::uint64_t{1} << 63;

ListCase const lists[] = {
    {"an array of two", {.objects = {array({1, 2}), yes, ascii(2)}}, true},
    {"the top object stands last", {.objects = {yes, array({0})}, .top = 1}, true},
    {"the top object is the number of objects", {.objects = {yes}, .top = 1}, false},
    {"the top object takes the sign's bit", {.objects = {yes}, .top = tooLarge}, false},
    {"what the top one does not reach is not read", {.objects = {"\xF0", yes}, .top = 1}, true},
    {"a reference of 1 byte", {.objects = {container(10, {1}, 1), yes}, .referenceWidth = 1}, true},
    {"a reference of 4 bytes", {.objects = {container(10, {1}, 4), yes}, .referenceWidth = 4}, true},
    {"a reference of 8 bytes", {.objects = {container(10, {1}, 8), yes}, .referenceWidth = 8}, true},
    {"a reference of 3 bytes", {.objects = {container(10, {1}, 3), yes}, .referenceWidth = 3}, false},
    {"a reference of 0 bytes", {.objects = {array({}), yes}, .referenceWidth = 0}, false},
    {"a reference that takes the sign's bit",
     {.objects = {container(10, {tooLarge}, 8), yes}, .referenceWidth = 8},
     false},
    {"an offset of 1 byte", {.objects = {yes}, .offsetWidth = 1}, true},
    {"an offset of 4 bytes", {.objects = {yes}, .offsetWidth = 4}, true},
    {"an offset of 8 bytes", {.objects = {yes}, .offsetWidth = 8}, true},
    {"an offset of 3 bytes", {.objects = {yes}, .offsetWidth = 3}, false},
    {"an offset of 0 bytes", {.objects = {yes}, .offsetWidth = 0}, false},
    {"an offset of 16 bytes", {.objects = {yes}, .offsetWidth = 16}, false},
    {"an object in the header", {.objects = {yes}, .firstOffset = set(7)}, false},
    {"an object behind the end", {.objects = {yes}, .firstOffset = set(8 + 1 + 2 + 32)}, false},
    {"an object at the largest offset",
     {.objects = {yes}, .offsetWidth = 8, .firstOffset = set(std::numeric_limits<std::int64_t>::max())},
     false},
    {"an object at an offset that takes the sign's bit",
     {.objects = {yes}, .offsetWidth = 8, .firstOffset = set(tooLarge)},
     false},
    {"no objects", {.objects = {yes}, .count = set(0)}, false},
    {"one object more than the table holds", {.objects = {yes}, .count = set(2)}, false},
    {"2,049 objects", {.objects = std::vector(2'049, yes)}, false},
    {"2,048 objects", {.objects = std::vector(2'048, yes)}, true},
    {"objects beyond all bounds", {.objects = {yes}, .count = set(std::numeric_limits<std::int64_t>::max())}, false},
    {"a number of objects that takes the sign's bit", {.objects = {yes}, .count = set(tooLarge + 1)}, false},
    {"a table in the header", {.objects = {yes}, .table = set(7)}, false},
    {"a table over its own object", {.objects = {"\x09\x00\x08"s}, .offsetWidth = 1, .table = set(10)}, true},
    {"a table at the trailer", {.objects = {yes}, .table = set(8 + 1 + 2)}, false},
    {"a table that reaches into the trailer", {.objects = {yes}, .table = set(8 + 1 + 1)}, false},
    {"a table at the largest offset",
     {.objects = {yes}, .table = set(std::numeric_limits<std::int64_t>::max())},
     false},
    {"a table whose offset takes the sign's bit", {.objects = {yes}, .table = set(tooLarge + 9)}, false},
    {"a gap before the trailer", {.objects = {yes}, .gap = "gap"}, true},
    {"a dictionary", {.objects = {dictionary({1, 2}), ascii(1), yes}}, true},
    {"a dictionary whose value is missing", {.objects = {dictionary({1, 3}), ascii(1), yes}}, false},
    {"a dictionary whose value is of no kind", {.objects = {dictionary({1, 2}), ascii(1), "\xF0"}}, false},
    {"a set of two", {.objects = {container(12, {1, 1}), yes}}, true},
    {"one object twice", {.objects = {array({1, 1}), yes}}, true},
    {"2,047 references and the top one", {.objects = {array(2'047, 1), yes}}, true},
    {"2,048 references and the top one", {.objects = {array(2'048, 1), yes}}, false},
    {"1,023 keys with values", {.objects = {dictionary(std::vector<std::uint64_t>(2'046, 1)), yes}}, true},
    {"1,024 keys with values", {.objects = {dictionary(std::vector<std::uint64_t>(2'048, 1)), yes}}, false},
    {"a cycle of two", {.objects = {array({1}), array({0})}}, false},
    {"a cycle beside sound objects", {.objects = {array({1, 1, 0}), yes}}, false},
    {"45 times 45 shared objects", {.objects = {array(45, 1), array(44, 2), yes}}, true},
    {"46 times 46 shared objects", {.objects = {array(46, 1), array(45, 2), yes}}, false},
    {"text shared up to 262,144 bytes", {.objects = {array(8, 1), ascii(32'768)}, .offsetWidth = 4}, true},
    {"text shared beyond",
     {.objects = {array({1, 1, 1, 1, 1, 1, 1, 1, 2}), ascii(32'768), ascii(1)}, .offsetWidth = 4},
     false},
};

TEST(SafeBinaryPropertyList, BoundsTheListAndItsNumbers) {
  for (ListCase const& one : lists) {
    SCOPED_TRACE(one.says);
    EXPECT_EQ(isSafe(one.list), one.safe);
  }
}

/// Arrays within arrays, with the last one that many levels below the top.
List chain(std::uint64_t depth) {
  List list;
  for (std::uint64_t level = 1; level <= depth; ++level) list.objects.push_back(array({level}));
  list.objects.push_back(array({}));
  return list;
}

TEST(SafeBinaryPropertyList, GoesDown32Levels) {
  EXPECT_TRUE(isSafe(chain(32)));
  EXPECT_FALSE(isSafe(chain(33)));
}

TEST(SafeBinaryPropertyList, EndsAPowerOfSharedReferencesAtOnce) {
  List list;  // 30 levels of ten references each: 10^30 objects for a reader that follows them
  for (std::uint64_t level = 1; level <= 30; ++level) list.objects.push_back(array(10, level));
  list.objects.push_back(yes);
  EXPECT_FALSE(isSafe(list));
}

TEST(SafeBinaryPropertyList, EndsACycleWithManyBranches) {
  List list;  // every level leads to all levels: stopped by the count of visits before it is deep
  for (int level = 0; level < 30; ++level) list.objects.push_back(array(60, 29));
  list.objects.back() = array(60, 0);
  EXPECT_FALSE(isSafe(list));
}

TEST(SafeBinaryPropertyList, NeedsAHeaderAndATrailer) {
  Bytes const whole = List{.objects = {yes}, .offsetWidth = 1}.bytes();
  EXPECT_TRUE(isSafeBinaryPropertyList(whole));
  for (std::size_t size = 0; size < whole.size(); ++size) {
    EXPECT_FALSE(isSafeBinaryPropertyList(std::span(whole).first(size))) << size;
    EXPECT_FALSE(isSafeBinaryPropertyList(std::span(whole).last(size))) << size;
  }
}

/// Memory whose last byte is the last one of its page, before one that ends the test when it is touched.
class BeforeAGuardPage {
 public:
  BeforeAGuardPage() {
    if (pages_ == MAP_FAILED || mprotect(pages_, page, PROT_READ | PROT_WRITE) != 0) throw std::bad_alloc();
  }
  ~BeforeAGuardPage() { munmap(pages_, 2 * page); }
  BeforeAGuardPage(BeforeAGuardPage const&) = delete;
  BeforeAGuardPage& operator=(BeforeAGuardPage const&) = delete;

  std::span<std::uint8_t const> hold(Bytes const& bytes) {
    auto* const begin = static_cast<std::uint8_t*>(pages_) + page - bytes.size();
    std::ranges::copy(bytes, begin);
    return {begin, bytes.size()};
  }

 private:
  static inline std::size_t const page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));

  void* const pages_ = mmap(nullptr, 2 * page, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
};

TEST(SafeBinaryPropertyList, LooksAtNothingBehindTheData) {
  BeforeAGuardPage guarded;
  Bytes const whole = List{.objects = {array({1, 2}), ascii(20), marker(6, 4) + std::string(8, '\1')}}.bytes();
  for (std::size_t at = 8; at < whole.size(); ++at) {
    for (int value : {0x00, 0x0F, 0x13, 0x5F, 0x6F, 0x7F, 0x80, 0xAF, 0xDF, 0xFF}) {
      Bytes changed(whole);
      changed[at] = static_cast<std::uint8_t>(value);
      auto const list = guarded.hold(changed);
      EXPECT_EQ(isSafeBinaryPropertyList(list), isSafeBinaryPropertyList(changed));
      fitsXML(list);
    }
  }
}

TEST(SafeBinaryPropertyList, AgreesWithTheNotesOnRealLists) {
  TOLVA_NEEDS_CORPORA();
  int seen = 0;
  for (auto const& row : corpusManifest("plist")) {
    if (row[2] != "bplist") continue;
    SCOPED_TRACE(row[0]);
    std::string const list = contents(corpusFile("plist/" + row[0]));
    EXPECT_EQ(isSafeBinaryPropertyList(Bytes(list.begin(), list.end())), row[3] == "pass") << row[3];
    ++seen;
  }
  EXPECT_GE(seen, 40);
}

}  // namespace
}  // namespace tolva
