#include "display/chart_png.h"

#include <fmt/format.h>

#include <cmath>
#include <cstring>
#include <string>

#include "platform/text_file.h"

namespace vorel::display {
namespace {

// A line of odd width is centred on its coordinates; moving it half a pixel puts it on
// whole pixels instead of smearing it over two.
double Snap(double v, double lineWidth) {
  return static_cast<int>(std::lround(lineWidth)) % 2 == 1 ? std::floor(v) + 0.5 : v;
}

cairo_status_t WriteToOutput(void* closure, const unsigned char* data, unsigned int length) {
  static_cast<platform::OutputFile*>(closure)->Write(data, length);
  return CAIRO_STATUS_SUCCESS;
}

}  // namespace

ChartCanvas::ChartCanvas(int width, int height, int32_t background)
    : width_(width), height_(height) {
  surface_ = cairo_image_surface_create(CAIRO_FORMAT_RGB24, width, height);
  cr_ = cairo_create(surface_);
  FillRect(0, 0, width, height, background);
}

ChartCanvas::~ChartCanvas() {
  cairo_destroy(cr_);
  cairo_surface_destroy(surface_);
}

void ChartCanvas::SetColour(int32_t rgb) {
  cairo_set_source_rgb(cr_, ((rgb >> 16) & 0xFF) / 255.0, ((rgb >> 8) & 0xFF) / 255.0,
                       (rgb & 0xFF) / 255.0);
}

void ChartCanvas::Line(double x0, double y0, double x1, double y1, int32_t colour,
                       double lineWidth) {
  SetColour(colour);
  cairo_set_line_width(cr_, lineWidth);
  cairo_set_line_cap(cr_, CAIRO_LINE_CAP_SQUARE);
  cairo_move_to(cr_, Snap(x0, lineWidth), Snap(y0, lineWidth));
  cairo_line_to(cr_, Snap(x1, lineWidth), Snap(y1, lineWidth));
  cairo_stroke(cr_);
}

void ChartCanvas::Polyline(const double* x, const double* y, size_t n, int32_t colour,
                           double lineWidth) {
  if (n == 0) return;
  SetColour(colour);
  cairo_set_line_width(cr_, lineWidth);
  cairo_set_line_join(cr_, CAIRO_LINE_JOIN_ROUND);
  cairo_move_to(cr_, x[0], y[0]);
  for (size_t k = 1; k < n; ++k) cairo_line_to(cr_, x[k], y[k]);
  cairo_stroke(cr_);
}

void ChartCanvas::FillRect(double left, double top, double width, double height, int32_t fill) {
  SetColour(fill);
  cairo_rectangle(cr_, left, top, width, height);
  cairo_fill(cr_);
}

void ChartCanvas::FramedRect(double left, double top, double width, double height, int32_t fill,
                             int32_t frame) {
  cairo_rectangle(cr_, left + 0.5, top + 0.5, width - 1.0, height - 1.0);
  SetColour(fill);
  cairo_fill_preserve(cr_);
  SetColour(frame);
  cairo_set_line_width(cr_, 1.0);
  cairo_stroke(cr_);
}

void ChartCanvas::FramedOval(double left, double top, double width, double height, int32_t fill,
                             int32_t frame) {
  cairo_save(cr_);
  cairo_translate(cr_, left + width / 2.0, top + height / 2.0);
  cairo_scale(cr_, (width - 1.0) / 2.0, (height - 1.0) / 2.0);
  cairo_arc(cr_, 0.0, 0.0, 1.0, 0.0, 2.0 * M_PI);
  cairo_restore(cr_);
  SetColour(fill);
  cairo_fill_preserve(cr_);
  SetColour(frame);
  cairo_set_line_width(cr_, 1.0);
  cairo_stroke(cr_);
}

void ChartCanvas::Text(std::string_view text, double x, double y, int32_t colour, double size,
                       int align) {
  const std::string s(text);
  cairo_select_font_face(cr_, "sans-serif", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
  cairo_set_font_size(cr_, size);
  cairo_text_extents_t extents;
  cairo_text_extents(cr_, s.c_str(), &extents);
  double left = x - extents.x_bearing;
  if (align == 1) left = x - extents.width / 2.0 - extents.x_bearing;
  if (align == 2) left = x - extents.width - extents.x_bearing;
  SetColour(colour);
  cairo_move_to(cr_, left, y - extents.height / 2.0 - extents.y_bearing);
  cairo_show_text(cr_, s.c_str());
}

int32_t ChartCanvas::Pixel(int x, int y) {
  if (x < 0 || y < 0 || x >= width_ || y >= height_) return -1;
  cairo_surface_flush(surface_);
  const unsigned char* data = cairo_image_surface_get_data(surface_);
  const int stride = cairo_image_surface_get_stride(surface_);
  uint32_t word;
  std::memcpy(&word, data + static_cast<size_t>(y) * stride + 4 * static_cast<size_t>(x), 4);
  return static_cast<int32_t>(word & 0xFFFFFF);
}

bool ChartCanvas::WritePng(const std::filesystem::path& path, std::string& error) {
  cairo_surface_flush(surface_);
  if (cairo_status(cr_) != CAIRO_STATUS_SUCCESS) {
    error = fmt::format("{}: the chart could not be drawn ({})", path.string(),
                        cairo_status_to_string(cairo_status(cr_)));
    return false;
  }
  platform::OutputFile file;
  if (!file.Open(path)) {
    error = fmt::format("{}: cannot be created ({})", path.string(), file.error());
    return false;
  }
  const cairo_status_t status = cairo_surface_write_to_png_stream(surface_, WriteToOutput, &file);
  if (status != CAIRO_STATUS_SUCCESS) {
    file.Abandon();
    error = fmt::format("{}: the PNG could not be encoded ({})", path.string(),
                        cairo_status_to_string(status));
    return false;
  }
  if (!file.Close()) {
    error = file.error();
    return false;
  }
  return true;
}

std::string ChartCanvas::PngBytes() {
  cairo_surface_flush(surface_);
  std::string png;
  const auto append = [](void* closure, const unsigned char* data, unsigned int length) {
    static_cast<std::string*>(closure)->append(reinterpret_cast<const char*>(data), length);
    return CAIRO_STATUS_SUCCESS;
  };
  if (cairo_status(cr_) != CAIRO_STATUS_SUCCESS ||
      cairo_surface_write_to_png_stream(surface_, append, &png) != CAIRO_STATUS_SUCCESS)
    png.clear();
  return png;
}

}  // namespace vorel::display
