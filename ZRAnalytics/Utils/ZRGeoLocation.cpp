#include "ZRAnalytics/Utils/ZRGeoLocation.h"

#include "Platform/Values/FormatText.h"

namespace zorvane {

std::shared_ptr<ZRGeoLocation> ZRGeoLocation::initWithLatitudeAndLongitude(double latitude, double longitude) {
  auto location = std::make_shared<ZRGeoLocation>();
  location->latitude_ = latitude;
  location->longitude_ = longitude;
  return location;
}

std::string ZRGeoLocation::description() const {
  return platform::formatText("%f,%f", {latitude_, longitude_});
}

bool ZRGeoLocation::isEqual(const Object& other) const {
  const auto* location = other.as<ZRGeoLocation>();
  return location && location->latitude_ == latitude_ && location->longitude_ == longitude_;
}

}  // namespace zorvane
