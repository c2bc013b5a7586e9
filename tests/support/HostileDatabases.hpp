// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <filesystem>
#include <string>

namespace tolva {

// Files made to take more time or memory than a reader of the schema has. Each function writes one.

/// A view of one IN list of 20 million items, 40 MB of SQL.
void writeLongList(std::filesystem::path const& path);

/// A view whose SQL ends in one token of 150 MB.
void writeLongToken(std::filesystem::path const& path);

/// The view v18 that joins v17 twice, and so on down to v1, which joins the empty table v0 twice; and the tables t1 to
/// t3000, of one column "id".
void writeMultiplyingViews(std::filesystem::path const& path);

/// A schema of 10^24 entries, each of which SQLite accepts, in 13 pages.
void writeEndlessSchema(std::filesystem::path const& path);

/// 300 entries, `times` over, that share one SQL text of so many bytes, which is nothing but blanks.
void writeSharedSQL(std::filesystem::path const& path, std::size_t bytes, std::size_t times);
void writeSharedSQL(std::filesystem::path const& path);

/// 14,000 entries of as many kinds, each a text of 62 KB: 7 MB, since the kinds share most of their pages.
void writeManyKinds(std::filesystem::path const& path);

/// A query of one number that takes more time and memory to prepare than there is: of forty tables that it names, each
/// is twice the one before.
std::string doublingQuery();

}  // namespace tolva
