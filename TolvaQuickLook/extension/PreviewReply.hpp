// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <functional>
#include <string>

#include "platform/Bytes.hpp"

namespace tolva {

/// What a desktop asks a preview extension for. A value.
struct QLFilePreviewRequest {
  std::filesystem::path fileURL;
};

/// A size in points, 1/72 inch.
struct ContentSize {
  double width;
  double height;

  bool operator==(ContentSize const&) const = default;
};

/// What a preview extension answers. A value.
struct QLPreviewReply {
  std::string contentType;  // a MIME type
  ContentSize contentSize;
  std::function<Bytes()> dataCreationBlock;  // gives the reply's bytes each time it is called
  std::string title;
  std::string stringEncoding;
};

}  // namespace tolva
