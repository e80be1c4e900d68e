// Display names of locales, over ICU.
#pragma once

#include <memory>

#include "Platform/Application/DeviceServices.h"
#include "Platform/Export.h"

namespace zorvane {

// Adds display names, in the locale's own language, to the given locale. A name that ICU does not know is empty.
// Thread-safe.
ZR_PUBLIC std::shared_ptr<platform::LocaleService> makeICULocale(std::shared_ptr<platform::LocaleService> locale);

}  // namespace zorvane
