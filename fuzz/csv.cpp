// SPDX-License-Identifier: Apache-2.0
// Any bytes as delimited text, with any delimiter, limits and sizes of reads: the rows and the failure are those of the
// byte machine, the push parser agrees on plain ASCII, and what is encoded reads back as it was.

#include <algorithm>
#include <cstdint>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "core/DatabaseError.hpp"
#include "fuzz/Expect.hpp"
#include "platform/Graphemes.hpp"
#include "transfer/CSVByteMachine.hpp"
#include "transfer/CSVRowReader.hpp"
#include "transfer/SpreadsheetCodec.hpp"

namespace tolva {
namespace {

using Rows = std::vector<std::vector<std::string>>;

struct Outcome {
  Rows rows;
  std::string failure;

  bool operator==(Outcome const&) const = default;
};

template <class Next>
Outcome outcomeOf(Next&& next) {
  Outcome outcome;
  try {
    while (auto row = next()) outcome.rows.emplace_back(row->begin(), row->end());
  } catch (DatabaseError const& error) {
    outcome.failure = error.detail;
  }
  return outcome;
}

Outcome byMachine(std::string_view text, CSVOptions const& options, CSVLimits const& limits) {
  CSVByteMachine machine(text, options, limits);
  return outcomeOf([&] { return machine.next(); });
}

/// Reads of `most` bytes at most, of all lengths in turn.
Outcome byReader(std::string_view text, CSVOptions const& options, CSVLimits const& limits, std::size_t most) {
  std::size_t reads = 0;
  CSVRowReader reader(
      [&](std::span<std::uint8_t> into) {
        std::size_t const size = std::min({into.size(), text.size(), 1 + reads++ % most});
        std::copy_n(text.begin(), size, into.begin());
        text.remove_prefix(size);
        return size;
      },
      options, limits);
  return outcomeOf([&] { return reader.next(std::stop_token()); });
}

Outcome byParser(std::string_view text, std::string_view delimiter) {
  Outcome outcome;
  try {
    outcome.rows = SpreadsheetCodec::decode(text, delimiter);
  } catch (DatabaseError const& error) {
    outcome.failure = error.detail;
  }
  return outcome;
}

bool isASCII(std::string_view text) {
  return std::none_of(text.begin(), text.end(), [](char byte) { return (byte & 0x80) != 0; });
}

/// What both readers are to read alike: they differ by their characters, and in what CR LF is where CR is the
/// delimiter.
void checkParser(std::string_view text, char delimiter) {
  if (!isASCII(text) || (delimiter & 0x80) != 0 || delimiter == '\r') return;
  Outcome const stream = byMachine(text, {.delimiter = static_cast<std::uint8_t>(delimiter)}, {});
  Outcome const parser = byParser(text, std::string_view(&delimiter, 1));
  expect(stream.failure == parser.failure, "both readers refuse the same texts");
  expect(!stream.failure.empty() || stream.rows == parser.rows, "both readers give the same rows");
}

/// Whether each quote, delimiter and line end of the text is a character of its own.
bool standApart(std::string_view text, char delimiter) {
  GraphemeCursor characters(text);
  while (auto const character = characters.next()) {
    bool const special =
        character->find_first_of("\"\r\n") != character->npos || character->find(delimiter) != character->npos;
    if (special && character->size() > 1 && *character != "\r\n") return false;
  }
  return true;
}

void checkRoundTrip(Rows rows, char delimiter) {
  rows.push_back({"a last row that is no empty line"});
  std::string const text = SpreadsheetCodec::encode(rows, std::string_view(&delimiter, 1));
  CSVOptions const options{.delimiter = static_cast<std::uint8_t>(delimiter)};
  expect(byReader(text, options, {}, 65'536).rows == rows, "the stream reads back what was encoded");
  if (standApart(text, delimiter)) {
    expect(byParser(text, std::string_view(&delimiter, 1)).rows == rows, "the parser reads back what was encoded");
  }
}

}  // namespace
}  // namespace tolva

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  using namespace tolva;
  constexpr std::size_t settings = 6;
  if (size < settings) return 0;
  std::string const text(data + settings, data + size);
  CSVOptions const options{.delimiter = data[0],
                           .encoding = data[1] % 2 == 0 ? CSVEncoding::utf8 : CSVEncoding::latin1};
  auto const limit = [](std::uint8_t byte) { return byte == 255 ? CSVLimits::none : std::int64_t{byte}; };
  CSVLimits const limits{limit(data[2]), limit(data[3]), limit(data[4])};
  expect(byReader(text, options, limits, 1U + data[5]) == byMachine(text, options, limits),
         "the rows and the failure are those of the byte machine");
  checkParser(text, static_cast<char>(options.delimiter));
  checkRoundTrip(byMachine(text, {.encoding = CSVEncoding::latin1}, {}).rows, data[5] % 2 == 0 ? ',' : '\t');
  checkRoundTrip(byMachine(text, {}, {}).rows, ';');
  return 0;
}
