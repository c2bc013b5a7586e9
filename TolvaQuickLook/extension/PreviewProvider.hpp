// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <condition_variable>
#include <deque>
#include <exception>
#include <functional>
#include <mutex>
#include <optional>
#include <stop_token>
#include <thread>

#include "core/DatabaseReader.hpp"
#include "extension/PreviewReply.hpp"

namespace tolva {

/// The principal class of the preview extension: one for the life of the process, many requests.
///
/// Any thread. Requests are answered one at a time. There is no fallback text: whatever fails is the answer to the
/// request, and the desktop shows its own generic preview.
class PreviewProvider {
 public:
  using CompletionHandler = std::function<void(std::optional<QLPreviewReply>, std::exception_ptr)>;

  PreviewProvider() = default;

  /// Returns when every completion handler has been called and has gone, so it is never called by one of them.
  ~PreviewProvider();

  PreviewProvider(PreviewProvider const&) = delete;
  PreviewProvider& operator=(PreviewProvider const&) = delete;

  /// The summary of a SQLite file as 650 by 460 points of plain text in UTF-8, titled with the file's name. Blocks
  /// until the whole text is made. Throws what `DatabaseReader::preview` throws.
  QLPreviewReply providePreview(QLFilePreviewRequest const& request, std::stop_token task);

  /// The same for a caller that does not wait: returns at once, and calls `completion` on another thread with either
  /// the reply or the error, in the order of the requests. `completion` must not throw. Throws `std::system_error`,
  /// and calls nothing, when no thread can be had.
  void providePreview(QLFilePreviewRequest request, CompletionHandler completion);

 private:
  struct Pending {
    QLFilePreviewRequest request;
    CompletionHandler completion;
  };

  void answer(Pending const& pending);
  void answerAll(std::stop_token const& ended);

  DatabaseReader reader_;
  std::mutex lock_;
  std::condition_variable_any changed_;
  std::deque<Pending> pending_;  // guarded by lock_
  std::jthread worker_;          // from the first request that does not wait; its start is guarded by lock_
};

}  // namespace tolva
