// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <unicode/udat.h>
#include <unicode/udatpg.h>
#include <unicode/uloc.h>
#include <unicode/ustring.h>

namespace tolva {

/// The functions of ICU that write a date (https://unicode-org.github.io/icu-docs/apidoc/released/icu4c/udat_8h.html),
/// from the library that was compiled against, loaded when they are first asked for: linking it costs a short command a
/// third of its time, and most never need it.
struct DateLibrary {
  decltype(&uloc_canonicalize) canonicalize;
  decltype(&uloc_getLanguage) language;
  decltype(&udatpg_open) openPatterns;
  decltype(&udatpg_getBestPattern) bestPattern;
  decltype(&udatpg_close) closePatterns;
  decltype(&udat_open) openFormat;
  decltype(&udat_format) format;
  decltype(&udat_close) closeFormat;
  decltype(&u_strToUTF8) toUTF8;

  /// Null where the library cannot be loaded. Any thread.
  static DateLibrary const* shared();
};

}  // namespace tolva
