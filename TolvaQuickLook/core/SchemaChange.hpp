// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "core/NewColumn.hpp"
#include "platform/Export.hpp"

namespace tolva {

/// One change of a schema, of the few kinds that there are. A value, made of its case:
/// `SchemaChange(SchemaChange::DropTable{"log"})`.
class TOLVA_EXPORT SchemaChange {
 public:
  struct CreateTable {
    std::string name;
    std::vector<NewColumn> columns;
    bool operator==(CreateTable const&) const = default;
  };

  struct RenameTable {
    std::string oldName;
    std::string newName;
    bool operator==(RenameTable const&) const = default;
  };

  struct AddColumn {
    std::string table;
    NewColumn column;
    bool operator==(AddColumn const&) const = default;
  };

  struct RenameColumn {
    std::string table;
    std::string oldName;
    std::string newName;
    bool operator==(RenameColumn const&) const = default;
  };

  struct CreateIndex {
    std::string name;
    std::string table;
    std::string column;
    bool unique = false;
    bool operator==(CreateIndex const&) const = default;
  };

  /// Also deletes, or sets to NULL, the rows of other tables whose foreign keys say so (ON DELETE CASCADE). A backup
  /// that was made before holds them.
  struct DropTable {
    std::string name;
    bool operator==(DropTable const&) const = default;
  };

  struct DropIndex {
    std::string name;
    bool operator==(DropIndex const&) const = default;
  };

  using Case = std::variant<CreateTable, RenameTable, AddColumn, RenameColumn, CreateIndex, DropTable, DropIndex>;

  SchemaChange(Case change) : case_(std::move(change)) {}

  Case const& asCase() const { return case_; }

  /// The one statement (https://sqlite.org/lang.html) that makes the change.
  std::string sql() const;

  bool operator==(SchemaChange const&) const = default;

 private:
  Case case_;
};

}  // namespace tolva
