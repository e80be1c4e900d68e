// A geographic location as an attribute value.
#pragma once

#include <memory>

#include "Platform/Export.h"
#include "ZorvaneCore/ZRCoreTypes.h"

namespace zorvane {

// In degrees; the range is not checked. Not thread-safe: do not change it after handing it over.
class ZR_PUBLIC ZRGeoLocation final : public platform::ObjectOf<ZRGeoLocation> {
 public:
  // Both may be any number.
  static std::shared_ptr<ZRGeoLocation> initWithLatitudeAndLongitude(double latitude, double longitude);

  // Positive in the north.
  double latitude() const { return latitude_; }
  void setLatitude(double latitude) { latitude_ = latitude; }
  // Positive in the east.
  double longitude() const { return longitude_; }
  void setLongitude(double longitude) { longitude_ = longitude; }

  // "latitude,longitude" with six digits after the point: "12.971599,77.594563".
  std::string description() const override;
  // Whether both coordinates are equal.
  bool isEqual(const Object& other) const override;

 private:
  double latitude_ = 0;
  double longitude_ = 0;
};

}  // namespace zorvane
