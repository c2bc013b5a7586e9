// SPDX-License-Identifier: Apache-2.0
#include "preview/PreviewHelpers.hpp"

#include <dlfcn.h>

#include <chrono>
#include <system_error>
#include <utility>

#include "platform/ChildExchange.hpp"
#include "platform/FilePath.hpp"
#include "platform/TaskCancellation.hpp"
#include "preview/helpers/HelperAnswer.hpp"
#include "preview/helpers/PictureFormat.hpp"
#include "preview/helpers/PreviewLimits.hpp"

namespace tolva {
namespace {

using std::filesystem::path;

/// The folder of the file that holds this very code, links resolved. Empty where the system does not know it: a name
/// that is not absolute would be looked for where the program happens to stand.
path ownFolder() {
  Dl_info own{};
  if (::dladdr(reinterpret_cast<void const*>(&ownFolder), &own) == 0 || !own.dli_fname) return {};
  path const file = own.dli_fname;
  std::error_code unknown;
  return file.is_absolute() ? std::filesystem::canonical(file, unknown).parent_path() : path();
}

path installedFolder() {
  path const own = ownFolder();
  if (own.empty()) return {};
  // Beside an installed library, and beside one that was just built.
  for (char const* place : {TOLVA_HELPERS_FROM_LIBRARY, "TolvaQuickLook/preview/helpers"}) {
    path folder = (own / place).lexically_normal();
    std::error_code unknown;
    if (std::filesystem::exists(folder / "tolva-image-helper", unknown)) return folder;
  }
  return {};
}

/// Whatever goes wrong with a helper is no answer.
std::optional<Bytes> ask(ChildExchange const& helper, Bytes const& request, std::stop_token task) {
  if (!helper.program.is_absolute()) return {};
  try {
    return helper.ask(request, std::move(task));
  } catch (std::system_error const&) {
    return {};
  }
}

constexpr std::chrono::seconds patience(3);

}  // namespace

PreviewHelpers::PreviewHelpers() {
  static path const installed = installedFolder();
  folder_ = installed;
}

PreviewHelpers::PreviewHelpers(path const& folder) : folder_(absolutePath(folder)) {}

std::optional<Bytes> PreviewHelpers::thumbnail(Bytes const& picture, std::stop_token task) const {
  checkCancellation(task);
  auto const format = pictureFormat(picture);
  if (!format || picture.size() > PreviewLimits::mostPicture) return {};
  ChildExchange helper{
      .program = folder_ / "tolva-image-helper", .time = patience, .mostAnswer = PreviewLimits::mostPNG};
  if (format == PictureFormat::heif) helper.arguments.emplace_back("heif");
  auto png = ask(helper, picture, std::move(task));
  if (!png || !HelperAnswer::thumbnailSize(*png)) return {};
  return png;
}

std::optional<PDFFirstPage> PreviewHelpers::firstPage(Bytes const& document, std::stop_token task) const {
  checkCancellation(task);
  if (document.size() > PreviewLimits::mostDocument) return {};
  ChildExchange const helper{
      .program = folder_ / "tolva-pdf-helper", .time = patience, .mostAnswer = HelperAnswer::mostBytes};
  auto const answer = ask(helper, document, std::move(task));
  return answer ? HelperAnswer::decode(*answer) : std::nullopt;
}

}  // namespace tolva
