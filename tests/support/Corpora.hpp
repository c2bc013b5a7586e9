// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace tolva {

/// The folder of real data that the build was given (the cache variable TOLVA_CORPORA); empty when it was given none.
inline std::filesystem::path corpora() { return TOLVA_CORPORA; }

/// The file "folder/name" of the corpora. Throws when it is missing: data that was promised must be there.
inline std::filesystem::path corpusFile(std::string_view name) {
  auto const file = corpora() / name;
  if (!std::filesystem::is_regular_file(file)) throw std::runtime_error("The corpora lack " + file.string());
  return file;
}

/// The files below a folder of the corpora whose names end in `suffix`, sorted. Throws when there is none.
inline std::vector<std::filesystem::path> corpusFiles(std::string_view folder, std::string_view suffix = {}) {
  std::vector<std::filesystem::path> files;
  for (auto const& entry : std::filesystem::recursive_directory_iterator(corpora() / folder)) {
    if (entry.is_regular_file() && entry.path().string().ends_with(suffix)) files.push_back(entry.path());
  }
  if (files.empty()) throw std::runtime_error("The corpora lack files in " + std::string(folder));
  std::sort(files.begin(), files.end());
  return files;
}

/// The bytes of a file.
inline std::string contents(std::filesystem::path const& file) {
  std::string bytes(std::filesystem::file_size(file), '\0');
  std::ifstream stream(file, std::ios::binary);
  if (!stream.read(bytes.data(), static_cast<std::streamsize>(bytes.size()))) {
    throw std::runtime_error("Cannot read " + file.string());
  }
  return bytes;
}

/// The rows of a folder's MANIFEST.tsv behind its heading, as columns. Throws when there is none.
inline std::vector<std::vector<std::string>> corpusManifest(std::string_view folder) {
  std::vector<std::vector<std::string>> rows;
  std::istringstream lines(contents(corpusFile(std::string(folder) + "/MANIFEST.tsv")));
  std::string line;
  for (std::getline(lines, line); std::getline(lines, line);) {
    auto& columns = rows.emplace_back();
    std::istringstream fields(line);
    for (std::string field; std::getline(fields, field, '\t');) columns.push_back(field);
  }
  if (rows.empty()) throw std::runtime_error("The corpora note nothing of " + std::string(folder));
  return rows;
}

}  // namespace tolva

/// Ends a test that needs the corpora, and says so, when the build was given none. The first line of such a test.
#define TOLVA_NEEDS_CORPORA() \
  if (tolva::corpora().empty()) GTEST_SKIP() << "Real data was not read: configure with -DTOLVA_CORPORA=FOLDER."
