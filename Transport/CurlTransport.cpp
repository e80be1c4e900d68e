#include "Transport/CurlTransport.h"

#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <deque>
#include <exception>
#include <mutex>
#include <stdexcept>
#include <string_view>
#include <utility>
#include <vector>

#include "Platform/Dispatch/Mutex.h"
#include "Platform/Dispatch/ThreadSignals.h"
#include "Transport/CurlHandle.h"

namespace zorvane {

using platform::Mutex;
using platform::MutexLock;

namespace {

constexpr std::size_t kMaxRequestsInProgress = 6;
constexpr int kLongestPollMilliseconds = 3'600'000;
const char* const kClosed = "the transport was closed";

using Completion = std::function<void(const TransportResponse&)>;

TransportResponse failure(std::string why) {
  TransportResponse response;
  response.error = std::move(why);
  return response;
}

// Scheme, host and port.
std::string_view originOf(std::string_view url) {
  const std::size_t scheme = url.find("://");
  return url.substr(0, url.find('/', scheme == std::string_view::npos ? 0 : scheme + 3));
}

CURLM* makeMultiHandle() {
  static const CURLcode ready = curl_global_init(CURL_GLOBAL_DEFAULT);
  if (ready != CURLE_OK) throw std::runtime_error(std::string("libcurl: ") + curl_easy_strerror(ready));
  CURLM* multi = curl_multi_init();
  if (!multi) throw std::runtime_error("libcurl cannot make a multi handle");
  return multi;
}

}  // namespace

// Shared by the transport and its thread; outlives both.
class CurlTransport::Driver {
 public:
  explicit Driver(CurlTransportOptions options) : options_(std::move(options)), multi_(makeMultiHandle()) {
    curl_multi_setopt(multi_.get(), CURLMOPT_MAX_HOST_CONNECTIONS, static_cast<long>(kMaxRequestsInProgress));
    curl_multi_setopt(multi_.get(), CURLMOPT_MAXCONNECTS, static_cast<long>(kMaxRequestsInProgress));
  }

  void take(TransportRequest request, Completion completion) ZR_EXCLUDES(mutex_) {
    bool first = false;
    {
      const MutexLock lock(mutex_);
      first = waiting_.empty();
      waiting_.push_back({std::move(request), std::move(completion)});
      ++outstanding_;
    }
    if (first) wake();
  }

  std::size_t outstanding() ZR_EXCLUDES(mutex_) {
    const MutexLock lock(mutex_);
    return outstanding_;
  }

  void waitUntilIdle() ZR_EXCLUDES(mutex_) {
    const MutexLock lock(mutex_);
    while (outstanding_ != 0) idle_.wait(mutex_);
  }

  void close() {
    closing_ = true;
    wake();
  }

  // The thread's loop; returns after close().
  void run() {
    while (!closing_) {
      while (startNext()) {
      }
      if (!finishDone()) wait();
    }
    for (Slot& slot : slots_) {
      if (!slot.busy) continue;
      callCurl([&] { curl_multi_remove_handle(multi_.get(), slot.handle.get()); });
      (void)slot.handle.takeResponse(CURLE_OK);
      finish(slot, failure(kClosed));
    }
    for (Waiting next; takeWaiting(next);) complete(std::move(next.completion), failure(kClosed));
  }

  // At exit: returns when the thread has left libcurl for good, because the libraries below libcurl are torn down next.
  void park() {
    exiting_ = true;
    wake();
    curlInUse_.lock();  // never unlocked
  }
  bool isParked() const { return exiting_; }

 private:
  struct Waiting {
    TransportRequest request;
    Completion completion;
  };
  struct Slot {
    CurlHandle handle;
    Completion completion;
    std::string url;
    bool busy = false;
  };
  struct Cleanup {
    void operator()(CURLM* multi) const { curl_multi_cleanup(multi); }
  };

  void wake() { curl_multi_wakeup(multi_.get()); }

  template <typename Call>
  void callCurl(Call call) {
    while (exiting_) ::pause();
    const std::lock_guard lock(curlInUse_);
    call();
  }

  bool takeWaiting(Waiting& next) ZR_EXCLUDES(mutex_) {
    const MutexLock lock(mutex_);
    if (waiting_.empty()) return false;
    next = std::move(waiting_.front());
    waiting_.pop_front();
    return true;
  }

  // Nobody is there: completes the queued requests to that origin without making their bodies.
  void failWaiting(std::string_view origin, const TransportResponse& response) ZR_EXCLUDES(mutex_) {
    std::vector<Waiting> failed;
    {
      const MutexLock lock(mutex_);
      std::deque<Waiting> others;
      for (Waiting& each : waiting_) {
        if (originOf(each.request.url) == origin) {
          failed.push_back(std::move(each));
        } else {
          others.push_back(std::move(each));
        }
      }
      waiting_.swap(others);
    }
    for (Waiting& each : failed) complete(std::move(each.completion), response);
  }

  // Sends the first queued request. False if there is none, or no free slot.
  bool startNext() {
    Slot* free = nullptr;
    for (Slot& slot : slots_) {
      if (!slot.busy) free = &slot;
    }
    Waiting next;
    if (!free || closing_ || !takeWaiting(next)) return false;
    free->busy = true;
    free->completion = std::move(next.completion);
    free->url = next.request.url;
    std::string problem;
    try {
      std::string body = next.request.makeBody();
      next.request.makeBody = nullptr;
      CURLMcode added = CURLM_OK;
      bool prepared = false;
      callCurl([&] {
        prepared = free->handle.prepare(options_, next.request, std::move(body));
        if (!prepared) return;
        curl_easy_setopt(free->handle.get(), CURLOPT_PRIVATE, static_cast<void*>(free));
        added = curl_multi_add_handle(multi_.get(), free->handle.get());
      });
      if (prepared && added == CURLM_OK) return true;
      problem = prepared ? curl_multi_strerror(added) : free->handle.takeResponse(CURLE_OK).error;
    } catch (const std::exception& thrown) {
      problem = std::string("the request could not be made: ") + thrown.what();
    } catch (...) {
      problem = "the request could not be made";
    }
    finish(*free, failure(std::move(problem)));
    return true;
  }

  // Lets libcurl work and completes finished requests. False if there were none.
  bool finishDone() {
    std::vector<std::pair<Slot*, CURLcode>> done;
    callCurl([&] {
      int running = 0;
      curl_multi_perform(multi_.get(), &running);
      int left = 0;
      while (const CURLMsg* message = curl_multi_info_read(multi_.get(), &left)) {
        if (message->msg != CURLMSG_DONE) continue;
        void* slot = nullptr;
        curl_easy_getinfo(message->easy_handle, CURLINFO_PRIVATE, &slot);
        done.emplace_back(static_cast<Slot*>(slot), message->data.result);
      }
      for (const auto& [slot, result] : done) curl_multi_remove_handle(multi_.get(), slot->handle.get());
    });
    for (const auto& [slot, result] : done) {
      const TransportResponse response = slot->handle.takeResponse(result);
      if (result == CURLE_COULDNT_CONNECT || result == CURLE_COULDNT_RESOLVE_HOST) {
        failWaiting(originOf(slot->url), response);
      }
      finish(*slot, response);
    }
    return !done.empty();
  }

  void wait() {
    callCurl([this] { curl_multi_poll(multi_.get(), nullptr, 0, kLongestPollMilliseconds, nullptr); });
  }

  void finish(Slot& slot, const TransportResponse& response) {
    slot.busy = false;
    complete(std::exchange(slot.completion, nullptr), response);
  }

  void complete(Completion completion, const TransportResponse& response) ZR_EXCLUDES(mutex_) {
    try {
      if (completion) completion(response);
    } catch (...) {  // a completion's exception affects nobody else
    }
    completion = nullptr;
    const MutexLock lock(mutex_);
    if (--outstanding_ == 0) idle_.notifyAll();
  }

  const CurlTransportOptions options_;
  const std::unique_ptr<CURLM, Cleanup> multi_;
  std::array<Slot, kMaxRequestsInProgress> slots_;  // after multi_: destroyed before it
  std::mutex curlInUse_;
  std::atomic<bool> closing_{false};
  std::atomic<bool> exiting_{false};

  Mutex mutex_;
  platform::Condition idle_;
  std::deque<Waiting> waiting_ ZR_GUARDED_BY(mutex_);
  std::size_t outstanding_ ZR_GUARDED_BY(mutex_) = 0;

 public:
  // Registers the driver to be parked at exit, before the exit handlers of libcurl's libraries run.
  static void parkAtExit(const std::shared_ptr<Driver>& driver) {
    struct Registry {
      Mutex mutex;
      std::vector<std::weak_ptr<Driver>> drivers ZR_GUARDED_BY(mutex);
    };
    static Registry& registry = *new Registry;  // never destroyed: threads outlive main
    static const int registered = std::atexit([] {
      std::vector<std::weak_ptr<Driver>> all;
      {
        const MutexLock lock(registry.mutex);
        all = registry.drivers;
      }
      for (const auto& each : all) {
        if (const auto living = each.lock()) living->park();
      }
    });
    if (registered != 0) throw std::runtime_error("no room for an exit handler");
    const MutexLock lock(registry.mutex);
    std::erase_if(registry.drivers, [](const std::weak_ptr<Driver>& each) { return each.expired(); });
    registry.drivers.push_back(driver);
  }
};

CurlTransport::CurlTransport(CurlTransportOptions options) : driver_(std::make_shared<Driver>(std::move(options))) {
  Driver::parkAtExit(driver_);
  const platform::BlockedSignals blocked;
  thread_ = std::thread([driver = driver_] { driver->run(); });
}

CurlTransport::~CurlTransport() {
  driver_->close();
  if (driver_->isParked() || thread_.get_id() == std::this_thread::get_id()) {
    thread_.detach();
  } else {
    thread_.join();
  }
}

void CurlTransport::send(TransportRequest request, Completion completion) {
  driver_->take(std::move(request), std::move(completion));
}

std::size_t CurlTransport::outstanding() const {
  return driver_->outstanding();
}

void CurlTransport::waitUntilIdle() const {
  driver_->waitUntilIdle();
}

}  // namespace zorvane
