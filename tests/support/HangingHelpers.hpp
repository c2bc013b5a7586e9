// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <signal.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <string>
#include <thread>

#include "support/TemporaryFolder.hpp"

namespace tolva {

/// A folder with both helpers, which never answer. Each leaves its number there once it runs.
class HangingHelpers {
 public:
  HangingHelpers() {
    std::string const script = "#!/bin/sh\necho $$ >'" + (folder() / "new").string() + "'\nmv '" +
                               (folder() / "new").string() + "' '" + (folder() / "id").string() + "'\nexec sleep 60\n";
    for (char const* const name : {"tolva-image-helper", "tolva-pdf-helper"}) {
      std::filesystem::permissions(folder_.write(name, script), std::filesystem::perms::owner_all);
    }
  }

  std::filesystem::path const& folder() const { return folder_.path(); }

  /// Waits until a helper runs. False if none does for a long time.
  bool waitForStart() const {
    for (int time = 0; time < 20'000 && !std::filesystem::exists(folder() / "id"); ++time) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return std::filesystem::exists(folder() / "id");
  }

  /// Whether the last helper that was started still runs, or has ended and was not reaped.
  bool runs() const { return ::kill(std::stoi(folder_.read("id")), 0) == 0 || errno != ESRCH; }

  void forget() const { std::filesystem::remove(folder() / "id"); }

 private:
  TemporaryFolder const folder_;
};

}  // namespace tolva
