// SPDX-License-Identifier: Apache-2.0
#include "transfer/CSVStream.hpp"

#include "platform/SafeFile.hpp"
#include "transfer/CSVRowReader.hpp"

namespace tolva {

struct CSVStream::Source {
  Source(std::filesystem::path const& path, CSVOptions const& options, CSVLimits const& limits)
      : file(path), rows([this](std::span<std::uint8_t> into) { return file.read(into); }, options, limits) {}

  SafeFile file;
  CSVRowReader rows;
};

CSVStream::CSVStream(std::filesystem::path const& file, CSVOptions const& options, CSVLimits const& limits)
    : source_(std::make_unique<Source>(file, options, limits)) {}

CSVStream::~CSVStream() = default;

std::optional<std::vector<std::string>> CSVStream::next(std::stop_token const& task) {
  auto const fields = nextFields(task);
  if (!fields) return std::nullopt;
  return std::vector<std::string>(fields->begin(), fields->end());
}

std::optional<std::span<std::string_view const>> CSVStream::nextFields(std::stop_token const& task) {
  return source_->rows.next(task);
}

}  // namespace tolva
