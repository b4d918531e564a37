#pragma once

namespace kov::drivers::lidar::vesk::serialization::angles {

// Degrees on the interface, radians on the wire. Every step is done in single precision and the range
// checks compare the radian value against these stored bounds, so that -90, +90, -18 and +10 degrees
// themselves are accepted.

constexpr float DEGREES_TO_RADIANS = 0.017453292F;  // bits 0x3C8EFA35
constexpr float RADIANS_TO_DEGREES = 57.29578F;     // bits 0x42652EE1

constexpr float MIN_ELEVATION_RADIANS = -0.31415927F;  // -18 degrees, bits 0xBEA0D97C
constexpr float MAX_ELEVATION_RADIANS = 0.17453292F;   // +10 degrees, bits 0x3E32B8C2
constexpr float MIN_AZIMUTH_RADIANS = -1.5707964F;     // -90 degrees, bits 0xBFC90FDB
constexpr float MAX_AZIMUTH_RADIANS = 1.5707964F;      // +90 degrees, bits 0x3FC90FDB

// The bounds as they are printed in range messages.
constexpr float MIN_ELEVATION_DEGREES = -18.0F;
constexpr float MAX_ELEVATION_DEGREES = 10.0F;
constexpr float MIN_AZIMUTH_DEGREES = -90.0F;
constexpr float MAX_AZIMUTH_DEGREES = 90.0F;

inline float toRadians(float degrees) {
  return degrees * DEGREES_TO_RADIANS;
}
inline float toDegrees(float radians) {
  return radians * RADIANS_TO_DEGREES;
}

/// False for NaN.
inline bool isElevationInRange(float radians) {
  return radians >= MIN_ELEVATION_RADIANS && radians <= MAX_ELEVATION_RADIANS;
}

/// False for NaN.
inline bool isAzimuthInRange(float radians) {
  return radians >= MIN_AZIMUTH_RADIANS && radians <= MAX_AZIMUTH_RADIANS;
}

}  // namespace kov::drivers::lidar::vesk::serialization::angles
