// SPDX-License-Identifier: Apache-2.0
#include "extension/PreviewProvider.hpp"

#include <thread>

#include "platform/LastPathComponent.hpp"

namespace tolva {
namespace {

constexpr ContentSize previewSize{650, 460};

}  // namespace

PreviewProvider::~PreviewProvider() {
  std::unique_lock lock(lock_);
  finished_.wait(lock, [&] { return running_ == 0; });
}

QLPreviewReply PreviewProvider::providePreview(QLFilePreviewRequest const& request, std::stop_token task) {
  std::string text = reader_.preview(request.fileURL, std::move(task));
  QLPreviewReply reply{.contentType = "text/plain",
                       .contentSize = previewSize,
                       .dataCreationBlock = [text = std::move(text)] { return Bytes(text.begin(), text.end()); }};
  reply.title = lastPathComponent(request.fileURL);
  reply.stringEncoding = "UTF-8";
  return reply;
}

void PreviewProvider::providePreview(QLFilePreviewRequest request, CompletionHandler completion) {
  {
    std::lock_guard const lock(lock_);
    ++running_;
  }
  auto const answer = [this, request = std::move(request), completion = std::move(completion)] {
    std::optional<QLPreviewReply> reply;
    std::exception_ptr error;
    try {
      reply = providePreview(request, std::stop_token());
    } catch (...) {
      error = std::current_exception();
    }
    completion(std::move(reply), error);
    std::lock_guard const lock(lock_);
    --running_;
    finished_.notify_all();
  };
  std::thread(answer).detach();  // the destructor waits for it
}

}  // namespace tolva
