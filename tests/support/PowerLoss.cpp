// SPDX-License-Identifier: Apache-2.0
#include "support/PowerLoss.hpp"

#include <fcntl.h>
#include <sys/stat.h>

#include <fstream>
#include <set>
#include <sstream>
#include <string_view>
#include <utility>

#include "platform/Descriptor.hpp"
#include "platform/SystemError.hpp"
#include "support/FaultInjector.hpp"

namespace tolva {
namespace {

using Names = std::map<std::string, ino_t>;

struct Node {
  bool folder = false;
  Names names;          // of a folder
  std::string content;  // of a file
};
using Nodes = std::map<ino_t, Node>;

std::string readAll(std::filesystem::path const& path) {
  std::ostringstream content;
  content << std::ifstream(path, std::ios::binary).rdbuf();
  return content.str();
}

struct stat statusOf(int descriptor) {
  struct stat status {};
  if (::fstat(descriptor, &status) != 0) throwSystemError("fstat");
  return status;
}

/// Which of the two states of each node is taken: the one on the disk or the present one.
struct Choice {
  std::string says;
  std::function<bool(ino_t)> namesNow;
  enum class Data { disk, half, now } data = Data::disk;
};

/// The tree of one folder: as it is, and what of it is on the disk.
class Recorder {
 public:
  explicit Recorder(std::filesystem::path const& root) : root_(root) {
    look();
    disk_ = now_;
  }

  void before(std::string_view call, int descriptor) {
    bool const flush = call == "fsync" || call == "fdatasync";
    if (!flush && !call.starts_with("rename") && !call.starts_with("unlink") && !call.starts_with("link") &&
        !call.starts_with("mkdir") && call != "rmdir" && call != "remove")
      return;
    look();
    record("before " + std::string(call) + " " + std::to_string(++calls_), /*completed=*/false);
    if (!flush) return;
    ino_t const inode = statusOf(descriptor).st_ino;
    if (now_.contains(inode)) disk_[inode] = now_[inode];
  }

  std::vector<PowerLoss> end() {
    look();
    seen_.clear();
    record("at the end", /*completed=*/true);
    return std::move(losses_);
  }

 private:
  /// Nodes are never forgotten, and held, so that the number of a deleted one is given to no other.
  void look() { rootNode_ = lookAt(root_); }

  ino_t lookAt(std::filesystem::path const& path) {
    Descriptor place(::open(path.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    if (!place) throwFileError("open", path);
    struct stat const status = statusOf(place.get());
    if (!held_.contains(status.st_ino)) held_.emplace(status.st_ino, std::move(place));
    Node node{.folder = S_ISDIR(status.st_mode), .names = {}, .content = {}};
    if (node.folder) {
      for (auto const& entry : std::filesystem::directory_iterator(path)) {
        node.names.emplace(entry.path().filename(), lookAt(entry.path()));
      }
    } else if (S_ISREG(status.st_mode)) {
      node.content = readAll(path);
    }
    now_[status.st_ino] = std::move(node);
    return status.st_ino;
  }

  Names const& namesOf(ino_t folder, bool now) { return now ? now_[folder].names : disk_[folder].names; }

  std::string contentOf(ino_t file, Choice::Data data) {
    std::string const& present = now_[file].content;
    std::string const& kept = disk_[file].content;
    if (data == Choice::Data::disk || present == kept) return kept;
    return data == Choice::Data::now ? present : present.substr(0, present.size() / 2);
  }

  void gather(ino_t folder, std::filesystem::path const& path, Choice const& choice, PowerLoss::Entries& entries) {
    for (auto const& [name, inode] : namesOf(folder, choice.namesNow(folder))) {
      if (now_[inode].folder) {
        entries.emplace(path / name, std::nullopt);
        gather(inode, path / name, choice, entries);
      } else {
        entries.emplace(path / name, contentOf(inode, choice.data));
      }
    }
  }

  std::vector<Choice> choices() {
    using Data = Choice::Data;
    auto const none = [](ino_t) { return false; };
    auto const all = [](ino_t) { return true; };
    std::vector<Choice> choices{
        {"nothing unflushed", none, Data::disk},
        {"all names and no data", all, Data::disk},
        {"all names and half the data", all, Data::half},
        {"no names and half the data", none, Data::half},
        {"everything", all, Data::now},
        {"no names and all data", none, Data::now},
    };
    for (auto const& [inode, node] : now_) {
      if (!node.folder || node.names == disk_[inode].names) continue;
      std::string const folder = "folder " + std::to_string(inode);
      choices.push_back({"the names of " + folder, [only = inode](ino_t each) { return each == only; }, Data::disk});
      choices.push_back({"all names but of " + folder, [but = inode](ino_t each) { return each != but; }, Data::disk});
    }
    return choices;
  }

  void record(std::string const& moment, bool completed) {
    for (Choice const& choice : choices()) {
      PowerLoss::Entries entries;
      gather(rootNode_, {}, choice, entries);
      if (!seen_.insert(entries).second) continue;
      losses_.push_back({.says = moment + ", with " + choice.says, .completed = completed, .entries = entries});
    }
  }

  std::filesystem::path const root_;
  ino_t rootNode_ = 0;
  Nodes now_;
  Nodes disk_;
  std::map<ino_t, Descriptor> held_;
  std::set<PowerLoss::Entries> seen_;
  std::vector<PowerLoss> losses_;
  int calls_ = 0;
};

}  // namespace

std::vector<PowerLoss> PowerLoss::during(std::filesystem::path const& folder, std::function<void()> const& operation) {
  return during(
      folder, [] {}, operation);
}

std::vector<PowerLoss> PowerLoss::during(std::filesystem::path const& folder, std::function<void()> const& earlier,
                                         std::function<void()> const& operation) {
  Recorder recorder(folder);
  earlier();
  std::function<void(char const*, int)> const watch = [&](char const* call, int descriptor) {
    recorder.before(call, descriptor);
  };
  {
    FaultInjector const injector(folder, {.watch = &watch});
    operation();
  }
  return recorder.end();
}

void PowerLoss::restore(std::filesystem::path const& folder) const {
  std::filesystem::remove_all(folder);
  std::filesystem::create_directories(folder);
  for (auto const& [path, content] : entries) {
    if (content) {
      std::ofstream(folder / path, std::ios::binary) << *content;
    } else {
      std::filesystem::create_directory(folder / path);
    }
  }
}

}  // namespace tolva
