// SPDX-License-Identifier: Apache-2.0
#include "extension/ExtensionHost.hpp"

#include <cerrno>
#include <cstdio>
#include <exception>
#include <span>
#include <string>
#include <string_view>
#include <system_error>

#include "core/SQLiteLibrary.hpp"
#include "extension/ErrorText.hpp"
#include "extension/PreviewProvider.hpp"

namespace tolva {
namespace {

constexpr std::string_view help =
    "Usage: tolva-quicklook FILE...\n"
    "Print a summary of each SQLite database file.\n"
    "\n"
    "      --help     show this text and exit\n"
    "      --version  show the version and exit\n"
    "\n"
    "The exit status is 1 if any file has no summary.\n";

void write(std::FILE* stream, std::string_view text) { std::fwrite(text.data(), 1, text.size(), stream); }

/// Behind what was printed before, where both streams lead to one place.
void complain(std::string const& text) {
  std::fflush(stdout);
  write(stderr, "tolva-quicklook: " + text + "\n");
}

/// The replies of one run on standard output, each apart from the one before by an empty line.
class Replies {
 public:
  /// Makes one request, waits for its reply and prints it, or tells the error. Whether there was a reply.
  bool print(char const* name) {
    try {
      QLPreviewReply const reply = provider_.providePreview({.fileURL = name}, std::stop_token());
      Bytes const bytes = reply.dataCreationBlock();
      if (printed_) write(stdout, "\n");
      std::fwrite(bytes.data(), 1, bytes.size(), stdout);
      write(stdout, "\n");
      printed_ = true;
      return true;
    } catch (...) {
      complain(std::string(name) + ": " + errorText(std::current_exception()));
      return false;
    }
  }

 private:
  PreviewProvider provider_;
  bool printed_ = false;
};

bool previewAll(std::span<char* const> names) {
  Replies replies;
  bool succeeded = true;
  for (char const* const name : names) succeeded = replies.print(name) && succeeded;
  return succeeded;
}

/// Whether all that was printed has reached its reader.
bool outputArrived() {
  if (std::fflush(stdout) == 0 && !std::ferror(stdout)) return true;
  complain("standard output: " + std::generic_category().message(errno));
  return false;
}

}  // namespace

int extensionMain(int count, char** arguments) {
  SQLiteLibrary::leaveOutStatistics();
  std::span const names = std::span(arguments, static_cast<std::size_t>(count)).subspan(count > 0 ? 1 : 0);
  std::string_view const only = names.size() == 1 ? names.front() : "";
  bool succeeded = true;
  if (names.empty()) {
    complain("no file is named. Try \"tolva-quicklook --help\".");
    succeeded = false;
  } else if (only == "--help") {
    write(stdout, help);
  } else if (only == "--version") {
    write(stdout, "tolva-quicklook " TOLVA_VERSION "\n");
  } else {
    succeeded = previewAll(names);
  }
  return outputArrived() && succeeded ? 0 : 1;
}

}  // namespace tolva
