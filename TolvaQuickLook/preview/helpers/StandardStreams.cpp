// SPDX-License-Identifier: Apache-2.0
#include "preview/helpers/StandardStreams.hpp"

#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace tolva {

std::optional<Bytes> readRequest(std::size_t most) {
  constexpr std::size_t piece = 64 << 10;
  Bytes request;
  for (;;) {
    std::size_t const had = request.size();
    request.resize(std::min(had + piece, most + 1));
    ssize_t const got = ::read(STDIN_FILENO, request.data() + had, request.size() - had);
    request.resize(had + static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
    if (request.size() > most) return {};
    if (got == 0) return request;
    if (got < 0 && errno != EINTR) return {};
  }
}

bool writeAnswer(std::span<std::uint8_t const> answer) {
  while (!answer.empty()) {
    ssize_t const written = ::write(STDOUT_FILENO, answer.data(), answer.size());
    if (written > 0) answer = answer.subspan(static_cast<std::size_t>(written));
    if (written == 0 || (written < 0 && errno != EINTR)) return false;
  }
  return true;
}

}  // namespace tolva
