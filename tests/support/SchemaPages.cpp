// SPDX-License-Identifier: Apache-2.0
#include "support/SchemaPages.hpp"

#include <fstream>
#include <stdexcept>
#include <string_view>

#include "support/TemporaryDatabase.hpp"

namespace tolva {
namespace {

constexpr std::size_t pageSize = 4096;
constexpr std::size_t fileHeader = 100;    // of the first page alone
constexpr std::size_t pagesInHeader = 28;  // where the file header tells the number of pages
constexpr std::size_t overflow = pageSize - 4;

enum class PageKind : char { interior = 5, leaf = 13 };  // of a table

/// The low `bytes` bytes of `number`, the highest first.
std::string bigEndian(std::uint64_t number, int bytes) {
  std::string text;
  for (int shift = (bytes - 1) * 8; shift >= 0; shift -= 8) text += static_cast<char>(number >> shift & 0xFF);
  return text;
}

std::string varint(std::uint64_t number) {
  std::string text(1, static_cast<char>(number & 0x7F));
  while (number >>= 7) text.insert(text.begin(), static_cast<char>((number & 0x7F) | 0x80));
  return text;
}

std::string textType(std::string const& text) { return varint(13 + 2 * text.size()); }

std::string record(SchemaEntry const& entry) {
  std::string const integerType = varint(4);  // of four bytes
  std::string types = textType(entry.type) + textType(entry.name) + textType(entry.table) + integerType;
  types += entry.sql ? textType(*entry.sql) : varint(0);
  std::string const values = entry.type + entry.name + entry.table +
                             bigEndian(static_cast<std::uint32_t>(entry.rootPage), 4) + entry.sql.value_or("");
  return varint(types.size() + 1) + types + values;
}

/// How much of a payload stands on the leaf itself.
std::size_t localSize(std::size_t payload) {
  constexpr std::size_t most = pageSize - 35;
  constexpr std::size_t least = (pageSize - 12) * 32 / 255 - 23;
  if (payload <= most) return payload;
  std::size_t const fitting = least + (payload - least) % overflow;
  return fitting <= most ? fitting : least;
}

std::string page(std::string begin, PageKind kind, std::vector<std::string> const& cells, std::uint32_t last = 0) {
  std::string content;
  std::string pointers;
  for (std::string const& cell : cells) {
    content.insert(0, cell);
    pointers += bigEndian(pageSize - content.size(), 2);
  }
  std::string head = std::move(begin);
  head += static_cast<char>(kind);
  head += bigEndian(0, 2) + bigEndian(cells.size(), 2) + bigEndian(pageSize - content.size(), 2) + bigEndian(0, 1);
  if (kind == PageKind::interior) head += bigEndian(last, 4);
  head += pointers;
  if (head.size() + content.size() > pageSize) throw std::logic_error("The cells do not fit on one page");
  return head + std::string(pageSize - head.size() - content.size(), '\0') + content;
}

std::string interiorPage(std::string begin, std::vector<SchemaPages::Page> const& children) {
  std::vector<std::string> cells;
  for (std::size_t child = 0; child + 1 < children.size(); ++child)
    cells.push_back(bigEndian(children[child], 4) + varint(child + 1));
  return page(std::move(begin), PageKind::interior, cells, children.back());
}

}  // namespace

SchemaEntry const SchemaPages::keptIndex{.type = "index", .name = "sqlite_autoindex_t_1", .table = "t", .rootPage = 3};

SchemaPages::SchemaPages() {
  TemporaryFolder const folder;
  TemporaryDatabase const database(folder, "t.db", "PRAGMA page_size = 4096; CREATE TABLE t(a UNIQUE)");
  bytes_ = folder.read("t.db");
}

std::string SchemaPages::cell(SchemaEntry const& entry) {
  constexpr std::uint64_t rowid = 100;  // the same in each: a scan never looks at it
  std::string const payload = record(entry);
  std::size_t const local = localSize(payload.size());
  std::string text = varint(payload.size()) + varint(rowid) + payload.substr(0, local);
  if (local < payload.size()) text += bigEndian(addOverflow(std::string_view(payload).substr(local)), 4);
  return text;
}

SchemaPages::Page SchemaPages::leaf(std::vector<std::string> const& cells) {
  return add(page({}, PageKind::leaf, cells));
}

SchemaPages::Page SchemaPages::interior(std::vector<Page> const& children) { return add(interiorPage({}, children)); }

void SchemaPages::append(Page page, std::size_t times) {
  SchemaEntry const table{.type = "table", .name = "t", .table = "t", .rootPage = 2, .sql = "CREATE TABLE t(a UNIQUE)"};
  std::vector<Page> children(times + 1, page);
  children.front() = leaf({cell(table), cell(keptIndex)});
  bytes_.replace(0, pageSize, interiorPage(bytes_.substr(0, fileHeader), children));
  bytes_.replace(pagesInHeader, 4, bigEndian(bytes_.size() / pageSize, 4));
}

void SchemaPages::write(std::filesystem::path const& path) const {
  std::ofstream file(path, std::ios::binary);
  if (!(file << bytes_ << std::flush)) throw std::runtime_error("The database cannot be written");
}

SchemaPages::Page SchemaPages::add(std::string const& page) {
  bytes_ += page;
  return static_cast<Page>(bytes_.size() / pageSize);
}

/// Each page of the chain begins with the number of the next.
SchemaPages::Page SchemaPages::addOverflow(std::string_view rest) {
  Page const first = static_cast<Page>(bytes_.size() / pageSize) + 1;
  while (!rest.empty()) {
    std::string_view const part = rest.substr(0, overflow);
    rest.remove_prefix(part.size());
    Page const next = rest.empty() ? 0 : static_cast<Page>(bytes_.size() / pageSize) + 2;
    std::string page = bigEndian(next, 4).append(part);
    page.resize(pageSize);
    add(page);
  }
  return first;
}

}  // namespace tolva
