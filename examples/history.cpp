// SPDX-License-Identifier: Apache-2.0
#include <time.h>

#include <algorithm>
#include <array>
#include <exception>
#include <iostream>
#include <tolva/snapshots/DatabaseDiffService.hpp>
#include <tolva/snapshots/SnapshotService.hpp>

#include "TerminalText.hpp"

namespace {

using Path = std::filesystem::path;

constexpr char const* usage =
    "usage: history FILE snapshot [LABEL], history FILE list, history FILE compare A B, history FILE rename A LABEL,\n"
    "       history FILE delete A, history FILE mark, or history FILE changed";

/// Digits enough to tell the snapshots of one database apart.
std::string shortID(tolva::UUID const& id) { return id.text().substr(0, 8); }

std::string dateText(std::chrono::system_clock::time_point date) {
  std::time_t const seconds = std::chrono::system_clock::to_time_t(date);
  std::tm parts{};
  std::array<char, 32> text{};
  if (gmtime_r(&seconds, &parts)) std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%SZ", &parts);
  return text.data();
}

void print(tolva::Snapshot const& snapshot) {
  std::cout << shortID(snapshot.id) << '\t' << dateText(snapshot.timestamp) << '\t' << snapshot.size << " bytes\t"
            << terminalText(snapshot.title()) << '\n';
}

// Progress goes where errors go, over the line that was written before.

void showPages(tolva::SnapshotProgress const& progress) {
  std::cerr << '\r' << progress.copiedPages << " of " << progress.totalPages << " pages";
  if (progress.copiedPages == progress.totalPages) std::cerr << '\n';
}

void showTable(std::string const& name) { std::cerr << "Comparing " << terminalText(name) << '\n'; }

// Snapshots ----------------------------------------------------------------------------------------

/// The snapshot whose identifier begins so.
tolva::Snapshot named(Path const& file, std::string const& id) {
  for (tolva::Snapshot const& snapshot : tolva::SnapshotService::shared().history(file, std::stop_token())) {
    if (!id.empty() && snapshot.id.text().starts_with(id)) return snapshot;
  }
  throw tolva::DatabaseError("There is no snapshot " + id);
}

void list(Path const& file) {
  for (tolva::Snapshot const& snapshot : tolva::SnapshotService::shared().history(file, std::stop_token())) {
    print(snapshot);
  }
}

// Differences --------------------------------------------------------------------------------------

std::string shown(std::optional<std::string> const& value) { return value ? terminalText(*value) : "-"; }

void printRows(tolva::DatabaseDiffService& comparison, tolva::TableDifference const& table) {
  for (std::int64_t last = 0;;) {
    auto const rows = comparison.rows(table.id(), last, 100, std::stop_token());
    if (rows.empty()) return;
    for (tolva::DifferenceRow const& row : rows) {
      std::cout << "  " << row.kind << ' ' << terminalText(row.identity) << '\n';
      for (tolva::DifferenceCell const& cell : comparison.cells(table.id(), row.id, std::stop_token())) {
        if (!cell.changed) continue;
        std::cout << "    " << terminalText(cell.column) << ": " << shown(cell.before) << " → " << shown(cell.after)
                  << '\n';
      }
    }
    last = rows.back().id;
  }
}

void compare(tolva::PreparedSnapshotComparison const& prepared) {
  tolva::DatabaseDiffService comparison;
  auto const differences = comparison.compare(prepared.before, prepared.after, showTable, std::stop_token());
  tolva::DifferenceSummary const summary(differences);
  for (tolva::TableDifference const& difference : differences) {
    bool const same = difference.inserted + difference.updated + difference.deleted == 0;
    if (difference.compared() && same) continue;
    std::cout << terminalText(difference.kind) << ' ' << terminalText(difference.name) << ": ";
    if (!difference.compared()) {
      std::cout << difference.status << ". " << terminalText(difference.explanation) << '\n';
      continue;
    }
    std::cout << difference.inserted << " inserted, " << difference.updated << " updated, " << difference.deleted
              << " deleted\n";
    printRows(comparison, difference);
  }
  std::cout << summary.comparedTables << " tables compared, " << summary.changedTables << " of them changed; "
            << summary.excludedTables << " not compared; " << summary.schemaChanges << " changes of the schema\n";
}

// What changed -------------------------------------------------------------------------------------

void mark(Path const& file) {
  auto& service = tolva::SnapshotService::shared();
  auto const former = service.baseline(file, std::stop_token()).id;
  print(service.captureBaseline(file, former, showPages, std::stop_token()));
}

void showChanges(Path const& file) {
  auto& service = tolva::SnapshotService::shared();
  auto const baseline = service.baseline(file, std::stop_token()).id;
  if (!baseline) throw tolva::DatabaseError("There is no mark yet: history FILE mark");
  compare(service.prepareChanges(file, *baseline, showPages, std::stop_token()));
}

/// False if no command reads so.
bool run(Path const& file, std::string const& command, std::vector<std::string> const& rest) {
  auto& service = tolva::SnapshotService::shared();
  if (command == "snapshot" && rest.size() <= 1) {
    std::optional<std::string> label;
    if (!rest.empty()) label = rest[0];
    print(service.create(file, label, showPages, {}, std::stop_token()));
  } else if (command == "list" && rest.empty()) {
    list(file);
  } else if (command == "compare" && rest.size() == 2) {
    compare({.before = service.open(named(file, rest[0])), .after = service.open(named(file, rest[1]))});
  } else if (command == "rename" && rest.size() == 2) {
    print(service.rename(named(file, rest[0]), rest[1]));
  } else if (command == "delete" && rest.size() == 1) {
    service.deleteSnapshot(named(file, rest[0]));
  } else if (command == "mark" && rest.empty()) {
    mark(file);
  } else if (command == "changed" && rest.empty()) {
    showChanges(file);
  } else {
    return false;
  }
  return true;
}

}  // namespace

int main(int count, char** arguments) try {
  if (count < 3 || !run(arguments[1], arguments[2], {arguments + 3, arguments + count}))
    throw tolva::DatabaseError(usage);
} catch (tolva::DatabaseError const& error) {
  std::cerr << terminalText(error.errorDescription()) << '\n';
  return 1;
} catch (std::exception const& error) {  // the system's own, of files and folders
  std::cerr << terminalText(error.what()) << '\n';
  return 1;
}
