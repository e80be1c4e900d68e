// Sends one request at a time through libcurl's easy interface.
#pragma once

#include <curl/curl.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <string>

#include "Transport/CurlTransport.h"

namespace zorvane {

class CurlHandle {
 public:
  // Throws std::runtime_error.
  CurlHandle();

  CURL* get() const { return easy_.get(); }

  // Sets up the request; sends nothing yet. If that fails, returns false, and takeResponse() has the reason as error.
  bool prepare(const CurlTransportOptions& options, const TransportRequest& request, std::string body);
  // The response, or the error. Frees the request's body.
  TransportResponse takeResponse(CURLcode result);

 private:
  struct Cleanup {
    void operator()(CURL* easy) const { curl_easy_cleanup(easy); }
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
  };
  static std::size_t receive(char* data, std::size_t size, std::size_t count, void* handle);
  bool addHeader(const std::string& line);
  bool setHeaders(const TransportRequest& request);

  std::string body_;
  std::string responseBody_;
  std::size_t maxResponseBytes_ = 0;
  std::string refusal_;
  char errorText_[CURL_ERROR_SIZE] = {};
  std::unique_ptr<curl_slist, Cleanup> headers_;
  std::unique_ptr<CURL, Cleanup> easy_;  // last: destroyed before what it points to
};

}  // namespace zorvane
