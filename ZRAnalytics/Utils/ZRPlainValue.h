// Values without host objects, for files.
#pragma once

#include "ZRAnalytics/Utils/ZRReport.h"
#include "ZorvaneCore/ZRCoreTypes.h"

namespace zorvane {

// The value with each host object in it replaced by its plain value, down to 128 levels. An object that throws becomes
// "" and is reported at the site as "exception is %@". Host objects are called: hold no lock.
Value withoutObjects(const Value& value, const ReportSite& site);
// The same, but throws what an object throws.
Value withoutObjects(const Value& value);

}  // namespace zorvane
