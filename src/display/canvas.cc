#include "display/canvas.h"

#include <cstring>
#include <string>

namespace vorel::display {
namespace {

void SetColour(cairo_t* cr, uint32_t colour) {
  cairo_set_source_rgb(cr, ((colour >> 16) & 0xFF) / 255.0, ((colour >> 8) & 0xFF) / 255.0,
                       (colour & 0xFF) / 255.0);
}

// Fill, then a one-pixel frame along the inside of the same path's pixels.
void FrameAndFill(cairo_t* cr, uint32_t pen, uint32_t fill) {
  SetColour(cr, fill);
  cairo_fill_preserve(cr);
  SetColour(cr, pen);
  cairo_set_line_width(cr, 1.0);
  cairo_stroke(cr);
}

cairo_status_t AppendBytes(void* closure, const unsigned char* data, unsigned int length) {
  auto* out = static_cast<std::vector<uint8_t>*>(closure);
  out->insert(out->end(), data, data + length);
  return CAIRO_STATUS_SUCCESS;
}

}  // namespace

Canvas::Canvas(int width, int height) : width_(width), height_(height) {
  surface_.reset(cairo_image_surface_create(CAIRO_FORMAT_ARGB32, width, height));
  Open();
}

Canvas::Canvas(const Canvas& other) : Canvas(other.width_, other.height_) {
  cairo_surface_flush(other.surface_.get());
  cairo_surface_flush(surface_.get());
  const int stride = cairo_image_surface_get_stride(surface_.get());
  std::memcpy(cairo_image_surface_get_data(surface_.get()),
              cairo_image_surface_get_data(other.surface_.get()),
              static_cast<size_t>(stride) * height_);
  cairo_surface_mark_dirty(surface_.get());
}

Canvas& Canvas::operator=(const Canvas& other) {
  if (this != &other) *this = Canvas(other);
  return *this;
}

void Canvas::Open() {
  cr_.reset(cairo_create(surface_.get()));
  cairo_set_antialias(cr_.get(), CAIRO_ANTIALIAS_NONE);
  cairo_set_line_cap(cr_.get(), CAIRO_LINE_CAP_SQUARE);
  cairo_set_line_join(cr_.get(), CAIRO_LINE_JOIN_MITER);
}

void Canvas::Clear() {
  cairo_t* cr = cr_.get();
  cairo_save(cr);
  cairo_set_operator(cr, CAIRO_OPERATOR_CLEAR);
  cairo_paint(cr);
  cairo_restore(cr);
}

void Canvas::Fill(uint32_t colour) {
  cairo_t* cr = cr_.get();
  cairo_save(cr);
  cairo_set_operator(cr, CAIRO_OPERATOR_SOURCE);
  SetColour(cr, colour);
  cairo_paint(cr);
  cairo_restore(cr);
}

void Canvas::DrawRect(int top, int left, int height, int width, uint32_t pen, uint32_t fill) {
  if (height <= 0 || width <= 0) return;
  FillRect(top, left, height, width, fill);
  cairo_t* cr = cr_.get();
  // The frame runs through the centres of the outermost pixels.
  cairo_rectangle(cr, left + 0.5, top + 0.5, width - 1.0, height - 1.0);
  SetColour(cr, pen);
  cairo_set_line_width(cr, 1.0);
  cairo_stroke(cr);
}

void Canvas::FillRect(int top, int left, int height, int width, uint32_t fill) {
  if (height <= 0 || width <= 0) return;
  cairo_t* cr = cr_.get();
  cairo_rectangle(cr, left, top, width, height);
  SetColour(cr, fill);
  cairo_fill(cr);
}

void Canvas::DrawOval(int top, int left, int height, int width, uint32_t pen, uint32_t fill) {
  if (height <= 0 || width <= 0) return;
  cairo_t* cr = cr_.get();
  cairo_save(cr);
  // An ellipse through the centres of the rectangle's outermost pixels.
  cairo_translate(cr, left + width / 2.0, top + height / 2.0);
  cairo_scale(cr, (width - 1) / 2.0 > 0 ? (width - 1) / 2.0 : 0.5,
              (height - 1) / 2.0 > 0 ? (height - 1) / 2.0 : 0.5);
  cairo_arc(cr, 0.0, 0.0, 1.0, 0.0, 6.283185307179586);
  cairo_restore(cr);
  FrameAndFill(cr, pen, fill);
}

void Canvas::DrawPoly(const std::vector<Point>& points, uint32_t pen, uint32_t fill) {
  if (points.empty()) return;
  cairo_t* cr = cr_.get();
  cairo_move_to(cr, points[0].x + 0.5, points[0].y + 0.5);
  for (size_t i = 1; i < points.size(); ++i)
    cairo_line_to(cr, points[i].x + 0.5, points[i].y + 0.5);
  cairo_close_path(cr);
  FrameAndFill(cr, pen, fill);
}

void Canvas::DrawLine(double x0, double y0, double x1, double y1, uint32_t pen, double width) {
  cairo_t* cr = cr_.get();
  cairo_move_to(cr, x0 + 0.5, y0 + 0.5);
  cairo_line_to(cr, x1 + 0.5, y1 + 0.5);
  SetColour(cr, pen);
  cairo_set_line_width(cr, width);
  cairo_stroke(cr);
}

void Canvas::DrawText(std::string_view text, double x, double y, double size, uint32_t colour) {
  cairo_t* cr = cr_.get();
  const std::string s(text);
  cairo_save(cr);
  cairo_set_antialias(cr, CAIRO_ANTIALIAS_DEFAULT);
  cairo_select_font_face(cr, "sans-serif", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
  cairo_set_font_size(cr, size);
  SetColour(cr, colour);
  cairo_move_to(cr, x, y);
  cairo_show_text(cr, s.c_str());
  cairo_restore(cr);
}

void Canvas::DrawTextCentred(std::string_view text, double x, double y, double size,
                             uint32_t colour) {
  cairo_t* cr = cr_.get();
  const std::string s(text);
  cairo_save(cr);
  cairo_select_font_face(cr, "sans-serif", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
  cairo_set_font_size(cr, size);
  cairo_text_extents_t e;
  cairo_text_extents(cr, s.c_str(), &e);
  cairo_restore(cr);
  DrawText(text, x - e.width / 2.0 - e.x_bearing, y - e.height / 2.0 - e.y_bearing, size, colour);
}

void Canvas::Paint(const Canvas& layer, int opacity) {
  if (opacity <= 0) return;
  cairo_t* cr = cr_.get();
  cairo_surface_flush(layer.surface_.get());
  cairo_save(cr);
  cairo_set_source_surface(cr, layer.surface_.get(), 0.0, 0.0);
  cairo_paint_with_alpha(cr, (opacity > 255 ? 255 : opacity) / 255.0);
  cairo_restore(cr);
}

uint32_t Canvas::Pixel(int x, int y) const {
  if (x < 0 || y < 0 || x >= width_ || y >= height_) return 0;
  cairo_surface_flush(surface_.get());
  const unsigned char* data = cairo_image_surface_get_data(surface_.get());
  const int stride = cairo_image_surface_get_stride(surface_.get());
  uint32_t value;
  std::memcpy(&value, data + static_cast<size_t>(y) * stride + 4 * static_cast<size_t>(x), 4);
  return value;
}

std::vector<uint8_t> Canvas::EncodePng() const {
  std::vector<uint8_t> out;
  cairo_surface_flush(surface_.get());
  if (cairo_surface_write_to_png_stream(surface_.get(), AppendBytes, &out) != CAIRO_STATUS_SUCCESS)
    out.clear();
  return out;
}

}  // namespace vorel::display
