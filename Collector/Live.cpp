#include "Collector/Live.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <system_error>
#include <utility>

#include "Collector/Contents.h"

namespace zorvane::collector {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr std::size_t kPages = 256;
// Several arrivals within this time are one message. The more pages, the longer: each answers a message with requests.
constexpr milliseconds kShortestPause{150}, kPausePerPage{10}, kLongestPause{700};
// A comment after this time finds pages whose connection is gone.
constexpr milliseconds kHeartbeat{15'000};

}  // namespace

Live::Live() : started_(timeNow()), wake_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  if (wake_ < 0) throw std::system_error(errno, std::generic_category(), "cannot make an event descriptor");
  thread_ = std::thread([this] { work(); });
}

Live::~Live() {
  stop();
  ::close(wake_);
}

void Live::take(int socket) {
  {
    const std::lock_guard lock(mutex_);
    if (stopping_ || count_ == kPages) {
      ::close(socket);
      return;
    }
    ++count_;
    taken_.push_back(socket);
  }
  ::eventfd_write(wake_, 1);
}

void Live::announce() {
  ++stored_;
  ::eventfd_write(wake_, 1);
}

void Live::stop() {
  {
    const std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  ::eventfd_write(wake_, 1);
  if (thread_.joinable()) thread_.join();
}

void Live::work() {
  std::vector<Page> pages;
  std::uint64_t told = 0;
  Clock::time_point nextMessage = Clock::now();
  Clock::time_point nextHeartbeat = nextMessage + kHeartbeat;
  while (true) {
    bool isStopping = false;
    {
      const std::lock_guard lock(mutex_);
      for (const int socket : std::exchange(taken_, {})) pages.push_back({socket});
      isStopping = stopping_;
    }
    if (isStopping) break;
    const std::uint64_t stored = stored_;
    const std::string message =
        "data: {\"started\": \"" + started_ + "\", \"stored\": " + std::to_string(stored) + "}\n\n";
    auto now = Clock::now();
    send(pages, true, message);
    if (stored != told && now >= nextMessage) {
      send(pages, false, message);
      told = stored;
      nextMessage = now + std::min(kShortestPause + kPausePerPage * static_cast<int>(pages.size()), kLongestPause);
      nextHeartbeat = now + kHeartbeat;
    } else if (now >= nextHeartbeat) {
      send(pages, false, ":\n\n");
      nextHeartbeat = now + kHeartbeat;
    }

    // While a message must wait, wakes are not looked at.
    const bool isWaiting = stored != told;
    const auto until = isWaiting ? nextMessage : nextHeartbeat;
    std::vector<pollfd> entries{{isWaiting ? -1 : wake_, POLLIN, 0}};
    for (const Page& page : pages) entries.push_back({page.socket, POLLIN, 0});
    now = Clock::now();
    const auto left = std::chrono::ceil<milliseconds>(std::max(until - now, Clock::duration::zero())).count();
    if (::poll(entries.data(), entries.size(), static_cast<int>(left)) <= 0) continue;
    eventfd_t count = 0;
    if (entries[0].revents != 0) ::eventfd_read(wake_, &count);
    dropClosed(pages);
  }
  for (const Page& page : pages) ::close(page.socket);
}

void Live::dropClosed(std::vector<Page>& pages) {
  char rest[1024];
  for (Page& page : pages) {
    const ssize_t size = ::recv(page.socket, rest, sizeof rest, MSG_DONTWAIT);
    if (size > 0 || (size < 0 && (errno == EAGAIN || errno == EINTR))) continue;
    ::close(std::exchange(page.socket, -1));
  }
  const std::size_t closed = std::erase_if(pages, [](const Page& page) { return page.socket < 0; });
  const std::lock_guard lock(mutex_);
  count_ -= closed;
}

void Live::send(std::vector<Page>& pages, bool onlyNew, const std::string& text) {
  for (Page& page : pages) {
    if (onlyNew && !page.isNew) continue;
    page.isNew = false;
    const ssize_t sent = ::send(page.socket, text.data(), text.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    // A page that takes no messages connects again and catches up.
    if (sent != static_cast<ssize_t>(text.size())) ::shutdown(page.socket, SHUT_RDWR);
  }
}

}  // namespace zorvane::collector
