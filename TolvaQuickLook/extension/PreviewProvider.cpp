// SPDX-License-Identifier: Apache-2.0
#include "extension/PreviewProvider.hpp"

#include <string>
#include <utility>

#include "platform/LastPathComponent.hpp"

namespace tolva {
namespace {

constexpr ContentSize previewSize{650, 460};

}  // namespace

PreviewProvider::~PreviewProvider() {
  worker_.request_stop();
  if (worker_.joinable()) worker_.join();
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
  std::lock_guard const lock(lock_);
  if (!worker_.joinable()) worker_ = std::jthread([this](std::stop_token ended) { answerAll(ended); });
  pending_.push_back({std::move(request), std::move(completion)});
  changed_.notify_one();
}

void PreviewProvider::answer(Pending const& pending) {
  std::optional<QLPreviewReply> reply;
  std::exception_ptr error;
  try {
    reply = providePreview(pending.request, std::stop_token());
  } catch (...) {
    error = std::current_exception();
  }
  pending.completion(std::move(reply), error);
}

/// Ends when it is asked to and nothing is left to answer.
void PreviewProvider::answerAll(std::stop_token const& ended) {
  std::unique_lock lock(lock_);
  while (changed_.wait(lock, ended, [&] { return !pending_.empty(); })) {
    std::optional<Pending> next = std::move(pending_.front());
    pending_.pop_front();
    lock.unlock();
    answer(*next);
    next.reset();  // the handler's captures go before anybody can see that it was called
    lock.lock();
  }
}

}  // namespace tolva
