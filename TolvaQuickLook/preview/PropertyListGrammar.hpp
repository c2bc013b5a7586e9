// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace tolva {

/// Whether an XML document is a property list to the letter, told from its elements in their order. Used by one thread.
///
/// The reader of such lists guesses: it takes "42xy" for 42, "010" for 8, an impossible date for 1970, damaged data for
/// none and the last of two values with one key for the only one. What a person is shown must be what the value holds,
/// so a list is only for that reader when it leaves nothing to guess.
class PropertyListGrammar {
 public:
  void start(std::string_view name);
  void text(std::string_view text);  // all that stands between two tags
  void end();

  /// Asked behind the last end.
  bool isSound() const { return sound_; }

 private:
  struct Element {
    std::string name;
    std::string text;
    std::int64_t children = 0;
    std::set<std::string> keys = {};  // of a dictionary
  };

  static bool mayHold(Element const& parent, std::string_view child);
  static bool isComplete(Element const& element);

  std::vector<Element> open_;
  bool sound_ = true;
};

}  // namespace tolva
