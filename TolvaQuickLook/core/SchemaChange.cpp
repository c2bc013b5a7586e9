// SPDX-License-Identifier: Apache-2.0
#include "core/SchemaChange.hpp"

#include "core/SQLIdentifier.hpp"

namespace tolva {
namespace {

/// Writes the statement of each case.
struct Statement {
  std::string operator()(SchemaChange::CreateTable const& change) const {
    std::string list;
    for (NewColumn const& column : change.columns) {
      if (&column != change.columns.data()) list += ',';
      list += column.sql();
    }
    return "CREATE TABLE " + quoteIdentifier(change.name) + " (" + list + ")";
  }

  std::string operator()(SchemaChange::RenameTable const& change) const {
    return "ALTER TABLE " + quoteIdentifier(change.oldName) + " RENAME TO " + quoteIdentifier(change.newName);
  }

  std::string operator()(SchemaChange::AddColumn const& change) const {
    return "ALTER TABLE " + quoteIdentifier(change.table) + " ADD COLUMN " + change.column.sql();
  }

  std::string operator()(SchemaChange::RenameColumn const& change) const {
    return "ALTER TABLE " + quoteIdentifier(change.table) + " RENAME COLUMN " + quoteIdentifier(change.oldName) +
           " TO " + quoteIdentifier(change.newName);
  }

  std::string operator()(SchemaChange::CreateIndex const& change) const {
    return std::string("CREATE ") + (change.unique ? "UNIQUE " : "") + "INDEX " + quoteIdentifier(change.name) +
           " ON " + quoteIdentifier(change.table) + " (" + quoteIdentifier(change.column) + ")";
  }

  std::string operator()(SchemaChange::DropTable const& change) const {
    return "DROP TABLE " + quoteIdentifier(change.name);
  }

  std::string operator()(SchemaChange::DropIndex const& change) const {
    return "DROP INDEX " + quoteIdentifier(change.name);
  }
};

}  // namespace

std::string SchemaChange::sql() const { return std::visit(Statement{}, case_); }

}  // namespace tolva
