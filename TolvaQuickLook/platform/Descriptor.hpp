// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utility>

namespace tolva {

/// The owner of one file descriptor, closed when it goes. Movable; used by one thread at a time.
///
/// Not for a file that SQLite may have open: closing such a descriptor drops SQLite's locks. `SafeFile` is for those.
class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int descriptor) : descriptor_(descriptor) {}  // a negative one owns nothing
  ~Descriptor() { reset(); }

  Descriptor(Descriptor&& other) noexcept : descriptor_(other.release()) {}
  Descriptor& operator=(Descriptor&& other) noexcept;

  int get() const { return descriptor_; }
  explicit operator bool() const { return descriptor_ >= 0; }

  /// Gives the descriptor to the caller, who closes it.
  int release() { return std::exchange(descriptor_, -1); }

  /// Closes the descriptor now. Leaves `errno` as it was, so that a failure can still be reported afterwards.
  void reset() noexcept;

 private:
  int descriptor_ = -1;
};

}  // namespace tolva
