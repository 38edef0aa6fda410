#pragma once
// A small drawing surface for the charts: an RGB canvas in pixels with the panel
// canvas's vocabulary (pen colour as 0xRRGGBB, lines, framed rectangles and ovals,
// centred text), written out as a PNG file. Coordinates are pixels from the top left,
// as on the panel; one-pixel lines sit on pixel centres so that they stay sharp.

#include <cairo.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

namespace vorel::display {

// The size of the panels' chart canvas, on which every chart is drawn.
inline constexpr int kChartWidth = 640;
inline constexpr int kChartHeight = 400;

class ChartCanvas {
 public:
  ChartCanvas(int width, int height, int32_t background = 0xFFFFFF);
  ~ChartCanvas();
  ChartCanvas(const ChartCanvas&) = delete;
  ChartCanvas& operator=(const ChartCanvas&) = delete;

  int width() const { return width_; }
  int height() const { return height_; }
  cairo_t* cr() { return cr_; }

  void SetColour(int32_t rgb);
  void Line(double x0, double y0, double x1, double y1, int32_t colour, double lineWidth = 1.0);
  // A polyline through the points (x[k], y[k]).
  void Polyline(const double* x, const double* y, size_t n, int32_t colour, double lineWidth = 1.0);
  void FillRect(double left, double top, double width, double height, int32_t fill);
  // Filled with `fill`, outlined in `frame`: the panel canvas's rectangle and oval.
  void FramedRect(double left, double top, double width, double height, int32_t fill,
                  int32_t frame);
  void FramedOval(double left, double top, double width, double height, int32_t fill,
                  int32_t frame);
  // Text in a sans-serif face, `size` pixels high; `align` 0 left, 1 centred, 2 right of x,
  // vertically centred on y.
  void Text(std::string_view text, double x, double y, int32_t colour, double size = 11.0,
            int align = 1);

  // The colour of one pixel, 0xRRGGBB (for checks on what was drawn).
  int32_t Pixel(int x, int y);

  // Writes the canvas as a PNG through a temporary name, renamed when whole. Returns false
  // with `error` naming the file when it could not be written.
  bool WritePng(const std::filesystem::path& path, std::string& error);
  // The canvas as PNG bytes, for a server to send; empty when it could not be encoded.
  std::string PngBytes();

 private:
  int width_;
  int height_;
  cairo_surface_t* surface_;
  cairo_t* cr_;
};

}  // namespace vorel::display
