// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <condition_variable>
#include <cstddef>
#include <exception>
#include <functional>
#include <mutex>
#include <optional>
#include <stop_token>

#include "core/DatabaseReader.hpp"
#include "extension/PreviewReply.hpp"

namespace tolva {

/// The principal class of the preview extension: one for the life of the process, many requests.
///
/// Any thread. Requests are answered one at a time, in the order they came. There is no fallback text: whatever fails
/// is the answer to the request, and the desktop shows its own generic preview.
class PreviewProvider {
 public:
  using CompletionHandler = std::function<void(std::optional<QLPreviewReply>, std::exception_ptr)>;

  PreviewProvider() = default;
  ~PreviewProvider();  // waits for the completion handlers that are still to be called
  PreviewProvider(PreviewProvider const&) = delete;
  PreviewProvider& operator=(PreviewProvider const&) = delete;

  /// The summary of a SQLite file as 650 by 460 points of plain text in UTF-8, titled with the file's name. Blocks until
  /// the whole text is made. Throws what `DatabaseReader::preview` throws.
  QLPreviewReply providePreview(QLFilePreviewRequest const& request, std::stop_token task);

  /// The same for a caller that does not wait: returns at once, and calls `completion` on another thread with either
  /// the reply or the error. `completion` must not throw.
  void providePreview(QLFilePreviewRequest request, CompletionHandler completion);

 private:
  DatabaseReader reader_;
  std::mutex lock_;
  std::condition_variable finished_;
  std::size_t running_ = 0;  // completion handlers still to be called; guarded by lock_
};

}  // namespace tolva
