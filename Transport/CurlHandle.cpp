#include "Transport/CurlHandle.h"

#include <algorithm>
#include <new>
#include <stdexcept>

namespace zorvane {

namespace {

bool hasControlCharacter(const std::string& text) {
  return std::any_of(text.begin(), text.end(), [](unsigned char c) { return c < 0x20 || c == 0x7F; });
}

}  // namespace

CurlHandle::CurlHandle() : easy_(curl_easy_init()) {
  if (!easy_) throw std::runtime_error("libcurl cannot make a handle");
}

std::size_t CurlHandle::receive(char* data, std::size_t size, std::size_t count, void* handle) {
  auto& self = *static_cast<CurlHandle*>(handle);
  if (size * count > self.maxResponseBytes_ - self.responseBody_.size()) {
    self.refusal_ = "the response is larger than " + std::to_string(self.maxResponseBytes_) + " bytes";
    return CURL_WRITEFUNC_ERROR;
  }
  try {
    self.responseBody_.append(data, size * count);
  } catch (const std::bad_alloc&) {
    return CURL_WRITEFUNC_ERROR;
  }
  return size * count;
}

bool CurlHandle::addHeader(const std::string& line) {
  curl_slist* longer = curl_slist_append(headers_.get(), line.c_str());
  if (!longer) return false;
  (void)headers_.release();
  headers_.reset(longer);
  return true;
}

bool CurlHandle::setHeaders(const TransportRequest& request) {
  headers_.reset();
  // An empty "Expect" keeps libcurl from sending "Expect: 100-continue" and waiting a second for the reply.
  bool good = addHeader("Content-Type: application/json; charset=utf-8") && addHeader("Expect:");
  for (const auto& [name, value] : request.headers) {
    if (name.empty() || hasControlCharacter(name) || hasControlCharacter(value)) {
      refusal_ = "a header is not valid: " + name;
      return false;
    }
    // libcurl takes "Name;" as a header without a value.
    good = good && addHeader(value.empty() ? name + ";" : name + ": " + value);
  }
  if (!good) refusal_ = "out of memory";
  return good;
}

bool CurlHandle::prepare(const CurlTransportOptions& options, const TransportRequest& request, std::string body) {
  body_ = std::move(body);
  responseBody_.clear();
  refusal_.clear();
  errorText_[0] = '\0';
  maxResponseBytes_ = options.maxResponseBytes;
  if (!setHeaders(request)) return false;

  CURLcode failure = CURLE_OK;
  const auto set = [&](CURLoption option, auto value) {
    const CURLcode code = curl_easy_setopt(easy_.get(), option, value);
    if (failure == CURLE_OK) failure = code;
  };
  curl_easy_reset(easy_.get());
  set(CURLOPT_ERRORBUFFER, errorText_);
  set(CURLOPT_NOSIGNAL, 1L);
#if LIBCURL_VERSION_NUM >= 0x075700
  // Do not wait for a thread that resolves a name.
  (void)curl_easy_setopt(easy_.get(), CURLOPT_QUICK_EXIT, 1L);
#endif
  set(CURLOPT_PROTOCOLS_STR, "http,https");
  set(CURLOPT_FOLLOWLOCATION, 0L);
  set(CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
  set(CURLOPT_TCP_NODELAY, 1L);
  set(CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(options.connectTimeout.count()));
  set(CURLOPT_TIMEOUT_MS, static_cast<long>(options.totalTimeout.count()));
  if (!options.certificateFile.empty()) set(CURLOPT_CAINFO, options.certificateFile.c_str());
  set(CURLOPT_URL, request.url.c_str());
  set(CURLOPT_HTTPHEADER, headers_.get());
  set(CURLOPT_POST, 1L);
  set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body_.size()));
  set(CURLOPT_POSTFIELDS, body_.data());
  set(CURLOPT_WRITEFUNCTION, &CurlHandle::receive);
  set(CURLOPT_WRITEDATA, static_cast<void*>(this));
  if (failure != CURLE_OK) refusal_ = curl_easy_strerror(failure);
  return failure == CURLE_OK;
}

TransportResponse CurlHandle::takeResponse(CURLcode result) {
  TransportResponse response;
  body_ = {};
  if (!refusal_.empty()) {
    response.error = std::move(refusal_);
  } else if (result != CURLE_OK) {
    response.error = errorText_[0] != '\0' ? errorText_ : curl_easy_strerror(result);
  } else {
    long status = 0;
    curl_easy_getinfo(easy_.get(), CURLINFO_RESPONSE_CODE, &status);
    response.status = static_cast<int>(status);
    response.body = std::move(responseBody_);
  }
  responseBody_ = {};
  refusal_ = {};
  return response;
}

}  // namespace zorvane
