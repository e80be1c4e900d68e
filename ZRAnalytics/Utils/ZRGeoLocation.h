// A place on the map.
#pragma once

#include <memory>

#include "ZorvaneCore/ZRCoreTypes.h"

namespace zorvane {

// Degrees; no range is checked. Fill it before it is handed over.
class ZRGeoLocation final : public Object {
 public:
  static std::shared_ptr<ZRGeoLocation> initWithLatitudeAndLongitude(double latitude, double longitude);

  double latitude() const { return latitude_; }
  void setLatitude(double latitude) { latitude_ = latitude; }
  double longitude() const { return longitude_; }
  void setLongitude(double longitude) { longitude_ = longitude; }

  // "12.971599,77.594563": six digits after the point.
  std::string description() const override;
  bool isEqual(const Object& other) const override;

 private:
  double latitude_ = 0;
  double longitude_ = 0;
};

}  // namespace zorvane
