// Tells open pages that something arrived: server-sent events on connections that take no thread each.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace zorvane::collector {

// Thread-safe.
class Live {
 public:
  // Throws std::system_error.
  Live();
  // Calls stop().
  ~Live();
  Live(const Live&) = delete;
  Live& operator=(const Live&) = delete;

  // Takes over a socket whose response header was sent, and closes it in the end. Its first message follows at once. A
  // socket too many is closed.
  void take(int socket);
  // Something was stored: each page gets a message {"started": TIME, "stored": NUMBER} within a second, the sooner the
  // fewer they are. Does no I/O but a wake.
  void announce();
  // How often something was announced.
  std::uint64_t stored() const { return stored_; }
  // Closes the sockets. What is taken from now on is closed at once.
  void stop();

 private:
  struct Page {
    int socket = -1;
    bool isNew = true;
  };
  void work();
  void dropClosed(std::vector<Page>& pages);
  void send(std::vector<Page>& pages, bool onlyNew, const std::string& text);

  const std::string started_;
  const int wake_;
  std::mutex mutex_;
  std::vector<int> taken_;
  std::size_t count_ = 0;
  bool stopping_ = false;
  std::atomic<std::uint64_t> stored_{0};
  std::thread thread_;
};

}  // namespace zorvane::collector
