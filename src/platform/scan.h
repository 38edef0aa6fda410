#pragma once
// Reading of the program's text formats.
//
// Every reader of the program describes a line by a format string in one small
// language: "%s>" introduces the source text, "%d"/"%i" read an int32, "%f" reads a
// double, "%s" reads a blank-delimited word, "%s[d]" reads a word and drops it,
// "%s[w1d]" drops exactly one character (after leading blanks). Numbers are free
// format: leading blanks are skipped, Fortran D exponents are accepted, and a number
// ends where the next one starts, so "1.5D-04-2.0D-12" holds two numbers.
//
// Targets are written one by one as their fields are read; a field that does not scan
// ends the scan and leaves its target and those after it untouched.

#include <cstdint>
#include <string>
#include <string_view>
#include <variant>

namespace vorel::platform {

// Position-keeping reader over one line of text.
class Scanner {
 public:
  explicit Scanner(std::string_view text) : text_(text) {}

  bool Int(int32_t& value);
  bool Double(double& value);
  bool Word(std::string& value);
  bool SkipWord();
  bool SkipChar();
  void SkipBlanks();

  size_t position() const { return pos_; }
  bool AtEnd() const { return pos_ >= text_.size(); }
  std::string_view Rest() const { return text_.substr(pos_ < text_.size() ? pos_ : text_.size()); }

 private:
  std::string_view text_;
  size_t pos_ = 0;
};

// Free-format number parsing on a bounded text; returns characters consumed, 0 when no
// number starts at `text` (after blanks).
size_t ParseDouble(std::string_view text, double& value);
size_t ParseInt(std::string_view text, int32_t& value);

using ScanTarget = std::variant<int32_t*, double*, std::string*>;

// Interprets `format` on `line`; targets are matched to the storing conversions in
// order. Returns the number of storing conversions that were filled, or -1 when the
// format itself is malformed (a programming error, reported rather than hidden).
int ScanLine(std::string_view line, std::string_view format,
             std::initializer_list<ScanTarget> targets);

}  // namespace vorel::platform
