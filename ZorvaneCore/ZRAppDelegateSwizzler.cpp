#include "ZorvaneCore/ZRAppDelegateSwizzler.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "Platform/Dispatch/Mutex.h"
#include "ZorvaneCore/ZRCoreUtils.h"

namespace zorvane {
namespace {

struct Chain {
  platform::Mutex mutex;
  bool proxied ZR_GUARDED_BY(mutex) = false;
  ZRAppDelegateSwizzler::InterceptorID lastID ZR_GUARDED_BY(mutex) = 0;
  std::vector<std::pair<ZRAppDelegateSwizzler::InterceptorID, std::weak_ptr<UIApplicationDelegate>>> interceptors
      ZR_GUARDED_BY(mutex);
};

Chain& chain() {
  static Chain* const shared = new Chain;
  return *shared;
}

}  // namespace

bool ZRAppDelegateSwizzler::isAppDelegateProxyEnabled() {
  return ZRCoreUtils::isAppDelegateProxyEnabled();
}

void ZRAppDelegateSwizzler::proxyOriginalDelegate() {
  platform::MutexLock lock(chain().mutex);
  chain().proxied = true;
}

ZRAppDelegateSwizzler::InterceptorID ZRAppDelegateSwizzler::registerAppDelegateInterceptor(
    std::weak_ptr<UIApplicationDelegate> interceptor) {
  platform::MutexLock lock(chain().mutex);
  chain().interceptors.emplace_back(++chain().lastID, std::move(interceptor));
  return chain().lastID;
}

void ZRAppDelegateSwizzler::unregisterAppDelegateInterceptorWithID(InterceptorID interceptor) {
  platform::MutexLock lock(chain().mutex);
  std::erase_if(chain().interceptors, [interceptor](const auto& entry) { return entry.first == interceptor; });
}

void ZRAppDelegateSwizzler::forEachInterceptor(const std::function<void(UIApplicationDelegate&)>& call) {
  std::vector<std::weak_ptr<UIApplicationDelegate>> snapshot;
  {
    platform::MutexLock lock(chain().mutex);
    if (!chain().proxied) return;
    for (const auto& [id, interceptor] : chain().interceptors) snapshot.push_back(interceptor);
  }
  for (const auto& weak : snapshot) {
    const auto interceptor = weak.lock();
    if (!interceptor) continue;
    try {
      call(*interceptor);
    } catch (...) {  // the others are called all the same
    }
  }
}

}  // namespace zorvane
