// SPDX-License-Identifier: Apache-2.0
#include "platform/DateLibrary.hpp"

#include <dlfcn.h>

#include <optional>

// ICU's functions carry its version in their names, which its headers put there by macros.
#define TOLVA_TEXT_OF(name) #name
#define TOLVA_EXPANDED(name) TOLVA_TEXT_OF(name)

namespace tolva {
namespace {

template <class Function>
bool find(void* library, char const* name, Function& function) {
  function = reinterpret_cast<Function>(dlsym(library, name));
  return function != nullptr;
}

std::optional<DateLibrary> load() {
  void* const library = dlopen("libicui18n.so." U_ICU_VERSION_SHORT, RTLD_LAZY | RTLD_LOCAL);  // for good
  DateLibrary found{};
  bool const complete = library && find(library, TOLVA_EXPANDED(uloc_canonicalize), found.canonicalize) &&
                        find(library, TOLVA_EXPANDED(uloc_getLanguage), found.language) &&
                        find(library, TOLVA_EXPANDED(udatpg_open), found.openPatterns) &&
                        find(library, TOLVA_EXPANDED(udatpg_getBestPattern), found.bestPattern) &&
                        find(library, TOLVA_EXPANDED(udatpg_close), found.closePatterns) &&
                        find(library, TOLVA_EXPANDED(udat_open), found.openFormat) &&
                        find(library, TOLVA_EXPANDED(udat_format), found.format) &&
                        find(library, TOLVA_EXPANDED(udat_close), found.closeFormat) &&
                        find(library, TOLVA_EXPANDED(u_strToUTF8), found.toUTF8);
  return complete ? std::optional(found) : std::nullopt;
}

}  // namespace

DateLibrary const* DateLibrary::shared() {
  static std::optional<DateLibrary> const loaded = load();
  return loaded ? &*loaded : nullptr;
}

}  // namespace tolva
