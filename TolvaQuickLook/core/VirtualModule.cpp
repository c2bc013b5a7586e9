// SPDX-License-Identifier: Apache-2.0
#include "core/VirtualModule.hpp"

#include <algorithm>
#include <initializer_list>
#include <span>
#include <utility>
#include <vector>

#include "platform/ASCIICase.hpp"

namespace tolva {
namespace {

constexpr std::size_t mostWords = 10;  // CREATE VIRTUAL TABLE IF NOT EXISTS schema.name USING module
constexpr std::string_view blanks = " \t\n\v\f\r";
constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";  // SQLite takes it for a blank

struct Word {
  std::string text;     // without its quotes
  bool quoted = false;  // and so never a keyword
  bool dotted = false;  // behind a dot

  bool is(std::string_view keyword) const { return !quoted && !dotted && lowerASCII(text) == keyword; }
};

/// Takes the words of a statement one by one. What lies between quotes is one word.
class WordScanner {
 public:
  explicit WordScanner(std::string_view sql) : rest_(sql) {}

  /// Nothing at the end, at a parenthesis, and at whatever else no word begins with.
  std::optional<Word> next() {
    skipBlanks();
    bool const dotted = rest_.starts_with('.');
    if (dotted) {
      rest_.remove_prefix(1);
      skipBlanks();
    }
    if (char const closing = closingQuote()) return quotedWord(closing, dotted);
    std::size_t const size = wordSize();
    if (size == 0) return std::nullopt;
    return Word{.text = std::string(taken(size)), .dotted = dotted};
  }

 private:
  void skipBlanks() {
    while (std::size_t const size = blankSize()) rest_.remove_prefix(size);
  }

  /// The size of the white space or the comment at the front, 0 when none stands there.
  std::size_t blankSize() const {
    if (rest_.starts_with("--")) return endOf("\n", 2);
    if (rest_.starts_with("/*")) return endOf("*/", 2);
    if (rest_.starts_with(byteOrderMark)) return byteOrderMark.size();
    return std::min(rest_.find_first_not_of(blanks), rest_.size());
  }

  std::size_t endOf(std::string_view mark, std::size_t from) const {
    std::size_t const found = rest_.find(mark, from);
    return found == rest_.npos ? rest_.size() : found + mark.size();
  }

  /// What ends the quoted word at the front; NUL when none begins there.
  char closingQuote() const {
    if (rest_.starts_with('[')) return ']';
    return !rest_.empty() && std::string_view("\"'`").find(rest_.front()) != rest_.npos ? rest_.front() : '\0';
  }

  /// A closing quote that is doubled stands for itself. A quote that is never closed is no word.
  std::optional<Word> quotedWord(char closing, bool dotted) {
    Word word{.quoted = true, .dotted = dotted};
    rest_.remove_prefix(1);
    for (std::size_t end = rest_.find(closing); end != rest_.npos; end = rest_.find(closing)) {
      word.text += taken(end);
      rest_.remove_prefix(1);
      if (!rest_.starts_with(closing)) return word;
      word.text += taken(1);
    }
    return std::nullopt;
  }

  std::size_t wordSize() const {
    auto const isOutside = [](char c) {
      bool const letter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
      bool const inside = letter || (c >= '0' && c <= '9') || c == '_' || c == '$' || static_cast<signed char>(c) < 0;
      return !inside;
    };
    return static_cast<std::size_t>(std::ranges::find_if(rest_, isOutside) - rest_.begin());
  }

  std::string_view taken(std::size_t size) {
    std::string_view const front = rest_.substr(0, size);
    rest_.remove_prefix(size);
    return front;
  }

  std::string_view rest_;
};

/// The first words of a statement.
std::vector<Word> headOf(std::string_view sql) {
  WordScanner scanner(sql);
  std::vector<Word> words;
  while (words.size() < mostWords) {
    std::optional<Word> word = scanner.next();
    if (!word) break;
    words.push_back(std::move(*word));
  }
  return words;
}

/// Takes these keywords off the front, or nothing when others stand there.
bool take(std::span<Word const>& words, std::initializer_list<std::string_view> keywords) {
  if (words.size() < keywords.size()) return false;
  auto const is = [](std::string_view keyword, Word const& word) { return word.is(keyword); };
  if (!std::equal(keywords.begin(), keywords.end(), words.begin(), is)) return false;
  words = words.subspan(keywords.size());
  return true;
}

/// Takes one name off the front, with what dots join to it; false when none stands there.
bool takeName(std::span<Word const>& words) {
  if (words.empty() || words.front().dotted) return false;
  auto const isDotted = [](Word const& word) { return word.dotted; };
  words = {std::find_if_not(words.begin() + 1, words.end(), isDotted), words.end()};
  return true;
}

}  // namespace

std::optional<std::string> virtualModule(std::string_view sql) {
  std::vector<Word> const head = headOf(sql);
  std::span<Word const> words = head;
  if (!take(words, {"create", "virtual", "table"})) return std::nullopt;
  take(words, {"if", "not", "exists"});
  if (!takeName(words) || !take(words, {"using"})) return std::nullopt;
  if (words.empty() || words.front().dotted) return std::nullopt;
  return lowerASCII(words.front().text);
}

}  // namespace tolva
