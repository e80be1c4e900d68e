// Why a request was refused, in plain words.
#pragma once

#include <string>

#include "Collector/Checks.h"

namespace zorvane::collector {

// What happened to the request and what its sender should change; empty for one that was accepted and answered. The row
// is that of requestView().
std::string adviceFor(const json& row);

}  // namespace zorvane::collector
