#pragma once
// The map's projection: longitude and latitude in degrees onto the 646 by 475 canvas, the
// whole world from 180 W at the left edge to 180 E at the right, 90 N at the top.

namespace vorel::display {

inline constexpr int kMapWidth = 646;
inline constexpr int kMapHeight = 475;

// Column of a longitude; past the right edge it comes round once (a longitude from 180
// to 540 degrees lands on the map, beyond that it stays off it).
inline double MapX(double lon) {
  double x = (lon / 360.0 + 0.5) * 646.0;
  if (x > 646.0) x = x - 646.0;
  return x;
}

// Row of a latitude.
inline double MapY(double lat) { return (1.0 - (lat + 90.0) / 180.0) * 475.0; }

}  // namespace vorel::display
