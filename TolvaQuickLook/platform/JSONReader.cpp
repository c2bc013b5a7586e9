// SPDX-License-Identifier: Apache-2.0
#include "platform/JSONReader.hpp"

#include <boost/json/basic_parser_impl.hpp>
#include <boost/json/error.hpp>
#include <cstdint>
#include <iterator>
#include <limits>
#include <map>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace tolva {
namespace {

using Error = boost::json::error_code;

/// The last `count` elements of a stack.
template <class Element>
std::span<Element> topOf(std::vector<Element>& stack, std::size_t count) {
  return std::span(stack).last(count);
}

template <class Element>
void drop(std::vector<Element>& stack, std::size_t count) {
  stack.erase(stack.end() - static_cast<std::ptrdiff_t>(count), stack.end());
}

/// Collects the members of one object; a name that comes again replaces the value and keeps its place.
class MemberList {
 public:
  explicit MemberList(std::size_t most) : indexed_(most > mostSearched) { members_.reserve(most); }

  void set(std::string name, JSONValue value) {
    if (auto* const known = find(name)) {
      known->value = std::move(value);
      return;
    }
    members_.push_back({std::move(name), std::move(value)});
    if (indexed_) index_.emplace(members_.back().name, members_.size() - 1);
  }

  JSONValue::Object take() { return std::move(members_); }

 private:
  static constexpr std::size_t mostSearched = 16;

  JSONValue::Member* find(std::string_view name) {
    if (indexed_) {
      auto const found = index_.find(name);
      return found == index_.end() ? nullptr : &members_[found->second];
    }
    for (auto& member : members_)
      if (member.name == name) return &member;
    return nullptr;
  }

  bool const indexed_;
  JSONValue::Object members_;  // never grows beyond its reserve, so the index may refer to the names in it
  std::map<std::string_view, std::size_t> index_;  // ordered: names chosen to collide cannot slow it down
};

/// Turns the parser's events into a tree. Names and signatures are those that Boost.JSON calls.
class TreeBuilder {
 public:
  static constexpr std::size_t max_object_size = std::numeric_limits<std::size_t>::max();
  static constexpr std::size_t max_array_size = std::numeric_limits<std::size_t>::max();
  static constexpr std::size_t max_key_size = std::numeric_limits<std::size_t>::max();
  static constexpr std::size_t max_string_size = std::numeric_limits<std::size_t>::max();

  JSONValue takeRoot() { return std::move(values_.front()); }

  bool on_document_begin(Error&) { return true; }
  bool on_document_end(Error&) { return true; }

  bool on_array_begin(Error&) { return true; }
  bool on_array_end(std::size_t count, Error&) {
    auto const items = topOf(values_, count);
    JSONValue::Array array(std::make_move_iterator(items.begin()), std::make_move_iterator(items.end()));
    drop(values_, count);
    return add(JSONValue::array(std::move(array)));
  }

  bool on_object_begin(Error&) { return true; }
  bool on_object_end(std::size_t count, Error&) {
    auto const names = topOf(names_, count);
    auto const values = topOf(values_, count);
    MemberList members(count);
    for (std::size_t i = 0; i < count; ++i) members.set(std::move(names[i]), std::move(values[i]));
    drop(names_, count);
    drop(values_, count);
    return add(JSONValue::object(members.take()));
  }

  bool on_key_part(std::string_view part, std::size_t, Error&) { return append(part); }
  bool on_key(std::string_view part, std::size_t, Error&) {
    names_.push_back(finished(part));
    return true;
  }

  bool on_string_part(std::string_view part, std::size_t, Error&) { return append(part); }
  bool on_string(std::string_view part, std::size_t, Error&) { return add(JSONValue::string(finished(part))); }

  // The parser's own reading of a number is dropped: it is not exact, and the literal is.
  bool on_number_part(std::string_view part, Error&) { return append(part); }
  bool on_int64(std::int64_t, std::string_view part, Error&) { return addNumber(part); }
  bool on_uint64(std::uint64_t, std::string_view part, Error&) { return addNumber(part); }
  bool on_double(double, std::string_view part, Error&) { return addNumber(part); }

  bool on_bool(bool value, Error&) { return add(JSONValue::boolean(value)); }
  bool on_null(Error&) { return add(JSONValue::null()); }

  bool on_comment_part(std::string_view, Error&) { return true; }
  bool on_comment(std::string_view, Error&) { return true; }

 private:
  bool add(JSONValue&& value) {
    values_.push_back(std::move(value));
    return true;
  }

  bool addNumber(std::string_view part) { return add(JSONValue::number(finished(part))); }

  bool append(std::string_view part) {
    text_.append(part);
    return true;
  }

  std::string finished(std::string_view part) {
    if (text_.empty()) return std::string(part);  // by far the most
    text_.append(part);
    return std::exchange(text_, {});
  }

  std::string text_;                // the parts so far of a name, string or number
  std::vector<std::string> names_;  // of the members of all open objects
  std::vector<JSONValue> values_;   // of all open arrays and objects, and at last the root
};

}  // namespace

JSONValue readJSON(std::string_view text) {
  boost::json::parse_options options;
  options.max_depth = jsonDepthLimit;
  boost::json::basic_parser<TreeBuilder> parser(options);
  Error error;
  auto const consumed = parser.write_some(false, text.data(), text.size(), error);
  if (!error && consumed < text.size()) error = boost::json::error::extra_data;
  if (error) throw JSONError("Invalid JSON at byte " + std::to_string(consumed) + ": " + error.message() + ".");
  return parser.handler().takeRoot();
}

}  // namespace tolva
