// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <locale.h>

namespace tolva {

/// Has the C library read and write numbers with a point on this thread for a scope, whatever the host program has set.
class PlainLocale {
 public:
  PlainLocale() : before_(uselocale(handle())) {}
  ~PlainLocale() { uselocale(before_); }
  PlainLocale(PlainLocale const&) = delete;
  PlainLocale& operator=(PlainLocale const&) = delete;

  /// The locale "C", for calls that take one. Never freed: calls may still come while the process ends. Any thread.
  static locale_t handle() {
    static locale_t const plain = newlocale(LC_ALL_MASK, "C", nullptr);
    return plain;
  }

 private:
  locale_t const before_;
};

}  // namespace tolva
