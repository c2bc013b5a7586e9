// SPDX-License-Identifier: Apache-2.0
#include "support/TemporaryFolder.hpp"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <fstream>
#include <sstream>

#include "platform/SystemError.hpp"

namespace tolva {

TemporaryFolder::TemporaryFolder() {
  std::string name = std::filesystem::canonical(std::filesystem::temp_directory_path()) / "tolva-test-XXXXXX";
  if (!::mkdtemp(name.data())) throwFileError("The test's folder cannot be made", name);
  path_ = name;
}

TemporaryFolder::~TemporaryFolder() {
  try {
    for (std::string const& name : leftovers()) ADD_FAILURE() << "The test leaves " << name << " behind.";
    std::filesystem::remove_all(path_);
  } catch (std::exception const& error) {
    ADD_FAILURE() << "The test's folder cannot be removed: " << error.what();
  }
}

void TemporaryFolder::openToEverybody() { std::filesystem::permissions(path_, std::filesystem::perms::all); }

std::filesystem::path TemporaryFolder::write(std::string const& name, std::string_view content) const {
  std::ofstream file(path_ / name, std::ios::binary);
  file << content << std::flush;
  if (!file) throwFileError("The test's file cannot be written", path_ / name);
  return path_ / name;
}

std::string TemporaryFolder::read(std::string const& name) const {
  std::ifstream file(path_ / name, std::ios::binary);
  if (!file) return "(no " + name + ")";
  std::ostringstream content;
  content << file.rdbuf();
  return content.str();
}

std::vector<std::string> TemporaryFolder::names() const {
  std::vector<std::string> names;
  for (auto const& entry : std::filesystem::directory_iterator(path_)) names.push_back(entry.path().filename());
  std::sort(names.begin(), names.end());
  return names;
}

std::vector<std::string> TemporaryFolder::leftovers() const {
  std::vector<std::string> left;
  for (auto const& entry : std::filesystem::recursive_directory_iterator(path_)) {
    std::string const name = entry.path().filename();
    if (name.starts_with('.') && !allowed_.contains(name)) left.push_back(entry.path().lexically_relative(path_));
  }
  return left;
}

}  // namespace tolva
