#pragma once
// A drawing surface in the manner of the map panel's canvases: a pen colour for frames,
// a fill colour for interiors, whole-pixel coordinates. It is a cairo ARGB32 image; shapes
// are drawn without antialiasing so that a shape covers exactly the pixels the drawing
// rules name (a rectangle at top 10, left 20, 8 high and 6 wide covers rows 10..17 and
// columns 20..25), and tests can check single pixels. Text alone is antialiased.
//
// Colours are 0xRRGGBB. A fresh canvas is transparent: what a layer does not draw on lets
// the layers below it show through.

#include <cairo.h>

#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

namespace vorel::display {

struct Point {
  int x = 0;
  int y = 0;
};

class Canvas {
 public:
  Canvas(int width, int height);
  Canvas(const Canvas& other);
  Canvas& operator=(const Canvas& other);
  Canvas(Canvas&&) noexcept = default;
  Canvas& operator=(Canvas&&) noexcept = default;

  int width() const { return width_; }
  int height() const { return height_; }

  // Transparent again, everywhere.
  void Clear();
  // Every pixel set to an opaque colour.
  void Fill(uint32_t colour);

  // Rectangle: frame in `pen`, interior in `fill`.
  void DrawRect(int top, int left, int height, int width, uint32_t pen, uint32_t fill);
  // Interior only, no frame.
  void FillRect(int top, int left, int height, int width, uint32_t fill);
  // The ellipse inscribed in the rectangle, framed and filled.
  void DrawOval(int top, int left, int height, int width, uint32_t pen, uint32_t fill);
  // Closed polygon through the pixels of `points`, framed and filled.
  void DrawPoly(const std::vector<Point>& points, uint32_t pen, uint32_t fill);
  // A one-pixel line between two points given in pixel coordinates (fractions allowed).
  void DrawLine(double x0, double y0, double x1, double y1, uint32_t pen, double width = 1.0);
  // Text centred on (x, y), antialiased.
  void DrawTextCentred(std::string_view text, double x, double y, double size, uint32_t colour);
  // Text with its left end on x and its baseline on y.
  void DrawText(std::string_view text, double x, double y, double size, uint32_t colour);

  // Draws `layer` over this canvas with every pixel's alpha scaled by opacity / 255.
  void Paint(const Canvas& layer, int opacity);

  // The pixel as 0xAARRGGBB with its colour premultiplied by its alpha (so an opaque pixel
  // reads as 0xFF000000 | colour). Outside the canvas: 0.
  uint32_t Pixel(int x, int y) const;

  // The picture as a PNG file's bytes (8-bit RGBA). Empty on an encoding failure.
  std::vector<uint8_t> EncodePng() const;

  // For drawing with cairo directly (the base picture, the plot's axes). The context's
  // antialiasing is off; restore whatever else is changed.
  cairo_t* context() { return cr_.get(); }

 private:
  struct SurfaceDeleter {
    void operator()(cairo_surface_t* s) const { cairo_surface_destroy(s); }
  };
  struct ContextDeleter {
    void operator()(cairo_t* c) const { cairo_destroy(c); }
  };
  void Open();

  int width_ = 0, height_ = 0;
  std::unique_ptr<cairo_surface_t, SurfaceDeleter> surface_;
  std::unique_ptr<cairo_t, ContextDeleter> cr_;
};

}  // namespace vorel::display
