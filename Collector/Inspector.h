// The inspector page and the API that it reads: everything that is got, not posted.
#pragma once

#include "Collector/Listener.h"
#include "Collector/Reader.h"

namespace zorvane::collector {

class Inspector {
 public:
  // The reader must outlive this, and this the listener's last request.
  explicit Inspector(Reader& reader) : reader_(reader) {}

  // GET / and /page/...: the page. GET /api/...: see docs/collector.md.
  void setRoutes(Listener& listener);

 private:
  Reader& reader_;
};

// Loads nothing from elsewhere, runs no script but the page's own files.
inline constexpr const char* kContentSecurityPolicy =
    "default-src 'none'; connect-src 'self'; script-src 'self'; style-src 'self'; img-src 'self'; base-uri 'none'; "
    "form-action 'none'; frame-ancestors 'none'";

}  // namespace zorvane::collector
