#include "Platform/HostServices.h"

#include <errno.h>
#include <stdlib.h>
#include <unistd.h>

#include <utility>

#include "Platform/Dispatch/Mutex.h"

namespace zorvane::platform {
namespace {

struct Configuration {
  Mutex mutex;
  HostServices services ZR_GUARDED_BY(mutex);
  bool inUse ZR_GUARDED_BY(mutex) = false;
};

Configuration& configuration() {
  static Configuration& instance = *new Configuration;
  return instance;
}

std::string currentFolder() {
  std::string path(256, '\0');
  while (!getcwd(path.data(), path.size())) {
    if (errno != ERANGE) return ".";
    path.resize(path.size() * 2);
  }
  path.resize(path.find('\0'));
  return path;
}

std::string containerFolder() {
  const auto absolute = [](const char* path) { return path && path[0] == '/'; };
  if (const char* data = getenv("XDG_DATA_HOME"); absolute(data)) return std::string(data) + "/zorvane";
  if (const char* home = getenv("HOME"); absolute(home)) return std::string(home) + "/.local/share/zorvane";
  return currentFolder() + "/zorvane";
}

void setIfEmpty(std::string& path, const char* nameInContainer) {
  if (path.empty()) path = containerFolder() + nameInContainer;
}

void makeAbsolute(std::string& path) {
  if (!path.empty() && path[0] != '/') path = currentFolder() + '/' + path;
}

void complete(HostServices& services) {
  if (!services.clock) services.clock = std::make_shared<SystemClock>();
  if (!services.scheduler) services.scheduler = makeThreadScheduler(services.clock);
  if (!services.notificationCenter) services.notificationCenter = std::make_shared<NotificationCenter>();
  if (!services.application) services.application = makePortableApplication();
  if (!services.locale) services.locale = makeProcessLocale();
  if (!services.timeZone) services.timeZone = makeProcessTimeZone();
  setIfEmpty(services.directories.documents, "/Documents");
  setIfEmpty(services.directories.library, "/Library");
  setIfEmpty(services.directories.defaults, "/Defaults");
}

}  // namespace

bool configureHost(HostServices services) {
  Directories& directories = services.directories;
  for (std::string* path : {&directories.documents, &directories.library, &directories.defaults}) makeAbsolute(*path);
  Configuration& given = configuration();
  MutexLock lock(given.mutex);
  if (given.inUse) return false;
  std::swap(given.services, services);
  return true;
}

const HostServices& hostServices() {
  static const HostServices& services = []() -> const HostServices& {
    HostServices* given = nullptr;
    {
      MutexLock lock(configuration().mutex);
      configuration().inUse = true;
      given = &configuration().services;
    }
    // Nobody else touches them any more.
    complete(*given);
    return *given;
  }();
  return services;
}

}  // namespace zorvane::platform
