# SPDX-License-Identifier: Apache-2.0
# The system libraries, and the proof that SQLite knows what the system's SQL relies on.

find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
find_package(SQLite3 3.37 REQUIRED)
find_package(ICU 70 REQUIRED COMPONENTS i18n uc)
find_package(Boost 1.81 REQUIRED COMPONENTS json)
find_package(fmt 9 REQUIRED)
find_package(EXPAT 2.5 REQUIRED)
pkg_check_modules(plist REQUIRED IMPORTED_TARGET libplist-2.0)
pkg_check_modules(sodium REQUIRED IMPORTED_TARGET libsodium)
if(TOLVA_BUILD_THUMBNAILER)
  pkg_check_modules(pangocairo REQUIRED IMPORTED_TARGET pangocairo)
endif()
if(TOLVA_BUILD_HELPERS OR TOLVA_BUILD_TESTS)
  pkg_check_modules(png REQUIRED IMPORTED_TARGET libpng)
endif()
if(TOLVA_BUILD_HELPERS)
  pkg_check_modules(vips REQUIRED IMPORTED_TARGET vips gmodule-2.0)
  # The folder of libvips's own plugins, one of which is loaded.
  pkg_get_variable(vipsLibraries vips libdir)
  string(REGEX MATCH "^[0-9]+\\.[0-9]+" vipsSeries "${vips_vips_VERSION}")
  set(TOLVA_VIPS_MODULES "${vipsLibraries}/vips-modules-${vipsSeries}")
  pkg_check_modules(poppler REQUIRED IMPORTED_TARGET poppler-cpp)
  pkg_check_modules(seccomp REQUIRED IMPORTED_TARGET libseccomp)
endif()

include(TolvaProbeSQLite)
