// Display names of locales, over ICU.
#pragma once

#include <memory>

#include "Platform/Application/DeviceServices.h"

namespace zorvane {

// The given locale, with display names in its own language; empty for what ICU has no name for. Any thread.
std::shared_ptr<platform::LocaleService> makeICULocale(std::shared_ptr<platform::LocaleService> locale);

}  // namespace zorvane
