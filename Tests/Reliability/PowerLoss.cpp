#include "Reliability/PowerLoss.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>

#include "Platform/Files/SystemCalls.h"

namespace zorvane::testing {
namespace {

using platform::SystemCalls;
namespace fs = std::filesystem;

struct Node {
  bool isDirectory = false;
  std::string content;                                 // as synced
  std::map<std::string, std::shared_ptr<Node>> names;  // as synced
};

std::string contentOf(const fs::path& path) {
  std::ifstream stream(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

class Disk {
 public:
  Disk(int number, UnsyncedNames names, fs::path root) : countdown_(number), names_(names), root_(std::move(root)) {
    for (const auto& entry : fs::recursive_directory_iterator(root_)) syncNode(entry.path());
    for (const auto& entry : fs::recursive_directory_iterator(root_)) {
      if (entry.is_directory()) syncNames(entry.path());
    }
    syncNames(root_);
  }

  void beforeChange() {
    if (countdown_-- != 0) return;
    if (names_ == UnsyncedNames::Kept) {
      for (const auto& entry : fs::recursive_directory_iterator(root_)) {
        if (entry.is_directory()) syncNames(entry.path());
      }
      syncNames(root_);
    }
    const std::shared_ptr<Node> root = nodeAt(root_);
    for (const auto& entry : fs::directory_iterator(root_)) fs::remove_all(entry.path());
    restore(*root, root_);
    _exit(0);
  }
  void created(const fs::path& path) { nodes_[inodeOf(path)] = std::make_shared<Node>(); }
  void madeDirectory(const fs::path& path) {
    created(path);
    nodeAt(path)->isDirectory = true;
  }
  void synced(int file) {
    const fs::path path = pathOf(file);
    if (fs::is_directory(path)) {
      syncNames(path);
    } else {
      nodeAt(path)->content = contentOf(path);
    }
  }
  static fs::path pathOf(int file) { return fs::read_symlink("/proc/self/fd/" + std::to_string(file)); }

 private:
  static ino_t inodeOf(const fs::path& path) {
    struct stat status {};
    ::lstat(path.c_str(), &status);
    return status.st_ino;
  }
  std::shared_ptr<Node> nodeAt(const fs::path& path) {
    std::shared_ptr<Node>& node = nodes_[inodeOf(path)];
    if (!node) node = std::make_shared<Node>();
    return node;
  }
  void syncNode(const fs::path& path) {
    nodeAt(path)->isDirectory = fs::is_directory(path);
    if (fs::is_regular_file(path)) nodeAt(path)->content = contentOf(path);
  }
  void syncNames(const fs::path& directory) {
    Node& node = *nodeAt(directory);
    node.names.clear();
    for (const auto& entry : fs::directory_iterator(directory)) {
      node.names[entry.path().filename().string()] = nodeAt(entry.path());
    }
  }
  void restore(const Node& directory, const fs::path& path) {
    for (const auto& [name, node] : directory.names) {
      if (node->isDirectory) {
        fs::create_directory(path / name);
        restore(*node, path / name);
      } else {
        std::ofstream(path / name, std::ios::binary) << node->content;
      }
    }
  }

  int countdown_;
  const UnsyncedNames names_;
  const fs::path root_;
  std::map<ino_t, std::shared_ptr<Node>> nodes_;
};

Disk* disk = nullptr;

constexpr SystemCalls kFollowedCalls{
    [](const char* p, int f, mode_t m) { return ::open(p, f, m); },  // creates nothing
    [](int d, const char* n, int f, mode_t m) {
      disk->beforeChange();
      const int file = ::openat(d, n, f, m);
      if (file >= 0 && (f & O_CREAT) != 0) disk->created(Disk::pathOf(file));
      return file;
    },
    ::fstat,
    ::fstatat,
    ::read,
    [](int f, const iovec* p, int c) {
      disk->beforeChange();
      return ::writev(f, p, c);
    },
    [](int f) {
      disk->beforeChange();
      disk->synced(f);
      return 0;
    },
    ::close,
    [](int d, const char* a, int e, const char* b) {
      disk->beforeChange();
      return ::renameat(d, a, e, b);
    },
    [](int d, const char* n, int f) {
      disk->beforeChange();
      return ::unlinkat(d, n, f);
    },
    [](const char* p, mode_t m) {
      disk->beforeChange();
      const int result = ::mkdir(p, m);
      if (result == 0) disk->madeDirectory(p);
      return result;
    },
    ::flock,
};

}  // namespace

void losePowerAt(int number, UnsyncedNames names, const std::string& tree) {
  disk = new Disk(number, names, tree);
  platform::setSystemCalls(&kFollowedCalls);
}

}  // namespace zorvane::testing
