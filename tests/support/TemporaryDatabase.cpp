// SPDX-License-Identifier: Apache-2.0
#include "support/TemporaryDatabase.hpp"

namespace tolva {

TemporaryDatabase::TemporaryDatabase(TemporaryFolder const& folder, std::string const& name, std::string const& sql)
    : path_(folder.write(name, "")) {  // an empty file is a database without tables
  run(sql);
}

TemporaryDatabase::TemporaryDatabase(std::string const& sql)
    : own_(std::make_unique<TemporaryFolder>()), path_(own_->write("t.db", "")) {
  run(sql);
}

}  // namespace tolva
