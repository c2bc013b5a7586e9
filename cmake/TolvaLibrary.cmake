# SPDX-License-Identifier: Apache-2.0
# The library that other programs link: one shared object made of the rooms' archives, and the headers it shows.

# No header here needs more than the standard library and the others of this list; a test compiles each alone.
set(TOLVA_PUBLIC_HEADERS
  core/BrowseRequest.hpp
  core/CancellationHandle.hpp
  core/CellChange.hpp
  core/ComparisonIdentity.hpp
  core/DatabaseBackup.hpp
  core/DatabaseError.hpp
  core/DatabaseInfo.hpp
  core/DatabaseMonitor.hpp
  core/DatabaseObject.hpp
  core/DatabaseObservation.hpp
  core/DatabaseReader.hpp
  core/DatabaseRow.hpp
  core/DatabaseSession.hpp
  core/DatabaseWriter.hpp
  core/FileObservation.hpp
  core/MemoryBudget.hpp
  core/NewColumn.hpp
  core/ProgressDeadline.hpp
  core/QueryExecutor.hpp
  core/QueryPage.hpp
  core/QuerySafety.hpp
  core/RowIdentityResolver.hpp
  core/RowPage.hpp
  core/RowSelection.hpp
  core/SQLIdentifier.hpp
  core/SQLiteConnection.hpp
  core/SQLiteLibrary.hpp
  core/SQLiteStatement.hpp
  core/SQLiteValue.hpp
  core/SchemaChange.hpp
  core/Stamp.hpp
  core/StructureDetails.hpp
  core/TableFilter.hpp
  core/TableQueryBuilder.hpp
  core/TableSchema.hpp
  platform/Bytes.hpp
  platform/Export.hpp
  platform/JSONError.hpp
  platform/TaskCancellation.hpp
  platform/ThreadSafety.hpp
  platform/Turn.hpp
  platform/UUID.hpp
  platform/Uptime.hpp
  preview/CellInterpretation.hpp
  preview/CellPreview.hpp
  preview/CellPreviewService.hpp
  preview/PDFFirstPage.hpp
  preview/PluginInspectorDate.hpp
  preview/PreviewHelpers.hpp
  preview/PreviewTreeNode.hpp
  preview/StructuredCellPreview.hpp
  snapshots/BaselineSelection.hpp
  snapshots/ComparisonLimits.hpp
  snapshots/DatabaseDiffService.hpp
  snapshots/DifferenceCell.hpp
  snapshots/DifferenceRow.hpp
  snapshots/DifferenceSummary.hpp
  snapshots/PreparedSnapshotComparison.hpp
  snapshots/Snapshot.hpp
  snapshots/SnapshotEstimate.hpp
  snapshots/SnapshotLease.hpp
  snapshots/SnapshotLimits.hpp
  snapshots/SnapshotProgress.hpp
  snapshots/SnapshotService.hpp
  snapshots/TableDifference.hpp
  transfer/CSVOptions.hpp
  transfer/CSVStream.hpp
  transfer/DelimitedParser.hpp
  transfer/ExportFormat.hpp
  transfer/FileTransfer.hpp
  transfer/SpreadsheetCodec.hpp)

# What is installed as <tolva/core/...> is found by the same name in the build folder, and nothing but it.
set(TOLVA_PUBLIC_INCLUDES "${PROJECT_BINARY_DIR}/include")
file(REMOVE_RECURSE "${TOLVA_PUBLIC_INCLUDES}")
foreach(header IN LISTS TOLVA_PUBLIC_HEADERS)
  get_filename_component(room "${header}" DIRECTORY)
  file(MAKE_DIRECTORY "${TOLVA_PUBLIC_INCLUDES}/tolva/${room}")
  file(CREATE_LINK "${PROJECT_SOURCE_DIR}/TolvaQuickLook/${header}" "${TOLVA_PUBLIC_INCLUDES}/tolva/${header}" SYMBOLIC)
endforeach()

add_library(tolva SHARED "${PROJECT_SOURCE_DIR}/cmake/tolva.map")
add_library(Tolva::tolva ALIAS tolva)
set_target_properties(tolva PROPERTIES
  VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR} LINKER_LANGUAGE CXX
  LINK_DEPENDS "${PROJECT_SOURCE_DIR}/cmake/tolva.map"
  LINK_LIBRARY_OVERRIDE "WHOLE_ARCHIVE,tolva_platform,tolva_core,tolva_preview,tolva_query,tolva_transfer,tolva_snapshots")
target_compile_features(tolva INTERFACE cxx_std_20)
# The headers name each other by room, so both folders are needed.
target_include_directories(tolva INTERFACE
  $<BUILD_INTERFACE:${TOLVA_PUBLIC_INCLUDES}> $<BUILD_INTERFACE:${TOLVA_PUBLIC_INCLUDES}/tolva>
  $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}> $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/tolva>)
# SQLite keeps pointers into the library for the life of the process, so it is never unloaded.
target_link_options(tolva PRIVATE "LINKER:--version-script=${PROJECT_SOURCE_DIR}/cmake/tolva.map" "LINKER:-z,nodelete")
target_link_libraries(tolva PUBLIC Threads::Threads PRIVATE tolva_options tolva_snapshots tolva_transfer tolva_query tolva_preview tolva_core tolva_platform)
