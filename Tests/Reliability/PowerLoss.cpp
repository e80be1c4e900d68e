#include "Reliability/PowerLoss.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <random>
#include <sstream>

#include "Platform/Files/SystemCalls.h"
#include "ZRAnalytics/Journal/ZRJournalRing.h"

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
  std::ostringstream content;
  content << std::ifstream(path, std::ios::binary).rdbuf();
  return content.str();
}

class Disk {
 public:
  Disk(int number, UnsyncedNames names, fs::path root) : countdown_(number), names_(names), root_(std::move(root)) {
    for (const auto& entry : fs::recursive_directory_iterator(root_)) syncNode(entry.path());
    syncAllNames();
  }

  void followJournal(fs::path journal, unsigned seed) {
    journal_ = std::move(journal);
    chance_.seed(seed);
    pace_ = seed % 3 * 8;
    rest_ = 1 + seed % 5;
  }
  void beforeChange() {
    if (countdown_-- != 0) return writeSomething();
    for (std::size_t at = 0; !journal_.empty() && at < kJournalBytes; at += kSector) {
      if (isChosen(rest_)) writeJournal(at, at + kSector);
    }
    if (names_ == UnsyncedNames::Kept) syncAllNames();
    const std::shared_ptr<Node> root = nodeAt(root_);
    for (const auto& entry : fs::directory_iterator(root_)) fs::remove_all(entry.path());
    ::umask(077);
    restore(*root, root_);
    _exit(::testing::Test::HasFailure() ? 1 : journal_.empty() ? 0 : 9);
  }
  // These bytes of the journal reach the disk.
  void writeJournal(std::size_t first, std::size_t last) {
    if (!fs::exists(journal_)) return;
    std::string& content = nodeAt(journal_)->content;
    content.resize(fs::file_size(journal_));
    last = std::min(last, content.size());
    if (first >= last) return;
    std::ifstream stream(journal_, std::ios::binary);
    stream.seekg(static_cast<std::streamoff>(first));
    stream.read(content.data() + first, static_cast<std::streamsize>(last - first));
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
  static constexpr std::size_t kJournalBytes = 64u << 10;
  static constexpr std::size_t kSector = 512;

  bool isChosen(unsigned among) { return chance_() % among == 0; }
  // What the system does by itself between two calls.
  void writeSomething() {
    if (pace_ == 0 || journal_.empty()) return;
    const std::size_t sector = chance_() % (kJournalBytes / kSector) * kSector;
    if (isChosen(pace_)) writeJournal(sector, sector + kSector);
    if (isChosen(pace_ * 8)) syncAllNames();
  }
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
  void syncAllNames() {
    for (const auto& entry : fs::recursive_directory_iterator(root_)) {
      if (entry.is_directory()) syncNames(entry.path());
    }
    syncNames(root_);
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
  fs::path journal_;
  std::mt19937 chance_;
  // One in so many calls lets a sector reach the disk; 0: none. One in so many sectors does so at the end.
  unsigned pace_ = 0;
  unsigned rest_ = 1;
};

Disk* disk = nullptr;

constexpr SystemCalls kFollowedCalls{
    [](const char* p, int f, mode_t m) {
      if ((f & O_CREAT) == 0) return ::open(p, f, m);
      disk->beforeChange();
      const bool isNew = !fs::exists(p);
      const int file = ::open(p, f, m);
      if (isNew) disk->created(p);
      return file;
    },
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

void loseJournalPowerAt(int number, unsigned seed, const std::string& tree, const std::string& journal) {
  losePowerAt(number, seed % 2 == 0 ? UnsyncedNames::Lost : UnsyncedNames::Kept, tree);
  disk->followJournal(journal, seed);
  journal::Ring::onStep = [] { disk->beforeChange(); };
  journal::Ring::onSync = [](std::size_t first, std::size_t last) { disk->writeJournal(first, last); };
}

}  // namespace zorvane::testing
