#!/usr/bin/env python3
"""Turns world-atlas's land-110m.json (Natural Earth 110m land, TopoJSON) into the plain
ring file the map's base picture reads: data/world/coastlines-110m.txt.

Run once by hand when the data is to be refreshed:
  (cd /tmp && npm pack world-atlas && tar xzf world-atlas-*.tgz)
  scripts/convert-coastlines.py /tmp/package/land-110m.json > data/world/coastlines-110m.txt
"""
import json
import sys


def decode_arcs(topo):
    sx, sy = topo["transform"]["scale"]
    tx, ty = topo["transform"]["translate"]
    arcs = []
    for arc in topo["arcs"]:
        x = y = 0
        points = []
        for dx, dy in arc:
            x += dx
            y += dy
            points.append((x * sx + tx, y * sy + ty))
        arcs.append(points)
    return arcs


def ring_points(ring, arcs):
    points = []
    for index in ring:
        arc = arcs[index] if index >= 0 else list(reversed(arcs[~index]))
        # Consecutive arcs share their joining point.
        points.extend(arc if not points else arc[1:])
    return points


def unwrap(points):
    """Longitudes run on past +-180 so that a ring never jumps across the map; a ring that
    goes round the pole (Antarctica) is closed along the pole's edge of the map."""
    out = [points[0]]
    for lon, lat in points[1:]:
        prev = out[-1][0]
        while lon - prev > 180.0:
            lon -= 360.0
        while prev - lon > 180.0:
            lon += 360.0
        out.append((lon, lat))
    turn = out[-1][0] - out[0][0]
    if abs(turn) > 180.0:
        pole = -90.0 if sum(lat for _, lat in out) < 0 else 90.0
        out.append((out[-1][0], pole))
        out.append((out[0][0], pole))
    return out


def main():
    topo = json.load(open(sys.argv[1]))
    arcs = decode_arcs(topo)
    rings = []
    for geometry in topo["objects"]["land"]["geometries"]:
        polygons = geometry["arcs"]
        if geometry["type"] == "Polygon":
            polygons = [polygons]
        for polygon in polygons:
            for ring in polygon:
                rings.append(unwrap(ring_points(ring, arcs)))
    print("# Land outlines of Natural Earth 1:110m (public domain), from world-atlas 2.0.2")
    print("# land-110m.json. One ring per block: 'ring N', then N lines 'lon lat' in degrees;")
    print("# longitudes run on past +-180 where a ring crosses it, and the ring round the")
    print("# south pole is closed along latitude -90.")
    for points in rings:
        print(f"ring {len(points)}")
        for lon, lat in points:
            print(f"{lon:.4f} {lat:.4f}")


if __name__ == "__main__":
    main()
