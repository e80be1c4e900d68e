// The inspector page and the API that it reads: everything that is got, not posted.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <string>

#include "Collector/Listener.h"
#include "Collector/Live.h"
#include "Collector/Reader.h"

namespace zorvane::collector {

class Inspector {
 public:
  // Both must outlive this, and this the listener's last request.
  Inspector(Reader& reader, const Live& live) : reader_(reader), live_(live) {}

  // GET / and /page/...: the page. GET /api/...: see docs/collector.md.
  void setRoutes(Listener& listener);

 private:
  // The text for a target that was made a moment ago, if nothing was stored since: open pages ask the same at once.
  std::string recent(const std::string& target, const std::function<std::string()>& make);

  struct Recent {
    std::string target, text;
    std::uint64_t stored = 0;
    std::chrono::steady_clock::time_point made{};
  };
  Reader& reader_;
  const Live& live_;
  std::mutex mutex_;
  std::deque<Recent> recent_;
};

// Loads nothing from elsewhere, runs no script but the page's own files.
inline constexpr const char* kContentSecurityPolicy =
    "default-src 'none'; connect-src 'self'; script-src 'self'; style-src 'self'; img-src 'self'; base-uri 'none'; "
    "form-action 'none'; frame-ancestors 'none'";

}  // namespace zorvane::collector
