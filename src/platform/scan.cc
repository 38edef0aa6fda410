#include "platform/scan.h"

#include <charconv>
#include <cmath>
#include <cstdlib>
#include <string>
#include <vector>

namespace vorel::platform {
namespace {

bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\f' || c == '\v'; }
bool IsDigit(char c) { return c >= '0' && c <= '9'; }

size_t SkipBlanksFrom(std::string_view t, size_t i) {
  while (i < t.size() && IsBlank(t[i])) ++i;
  return i;
}

// The number in C syntax, as strtod reads it: from_chars gives the same correctly
// rounded double without strtod's cost; a value out of the double's range (which
// from_chars does not store) and a leading '+' (which it does not take) go to strtod.
double ToDouble(const char* text, size_t size) {
  if (text[0] != '+') {
    double v = 0.0;
    const auto [end, ec] = std::from_chars(text, text + size, v);
    if (ec == std::errc() && end == text + size) return v;
  }
  const std::string copy(text, size);
  return std::strtod(copy.c_str(), nullptr);
}

}  // namespace

size_t ParseDouble(std::string_view t, double& value) {
  size_t i = SkipBlanksFrom(t, 0);
  // The mantissa and the exponent as C writes them (a Fortran D made an e); a number too
  // long for the buffer is read from a string.
  char buffer[64];
  std::string longer;
  size_t used = 0;
  const auto push = [&](char c) {
    if (used < sizeof buffer) {
      buffer[used++] = c;
      return;
    }
    if (longer.empty()) longer.assign(buffer, used);
    longer.push_back(c);
  };
  if (i < t.size() && (t[i] == '+' || t[i] == '-')) push(t[i++]);
  size_t mantissaDigits = 0;
  while (i < t.size() && IsDigit(t[i])) { push(t[i++]); ++mantissaDigits; }
  if (i < t.size() && t[i] == '.') {
    push(t[i++]);
    while (i < t.size() && IsDigit(t[i])) { push(t[i++]); ++mantissaDigits; }
  }
  if (mantissaDigits == 0) return 0;
  // Exponent: e, E, d or D, optionally signed; taken only when digits follow.
  if (i < t.size() && (t[i] == 'e' || t[i] == 'E' || t[i] == 'd' || t[i] == 'D')) {
    size_t j = i + 1;
    if (j < t.size() && (t[j] == '+' || t[j] == '-')) ++j;
    if (j < t.size() && IsDigit(t[j])) {
      push('e');
      for (size_t k = i + 1; k < j; ++k) push(t[k]);
      while (j < t.size() && IsDigit(t[j])) push(t[j++]);
      i = j;
    }
  }
  value = longer.empty() ? ToDouble(buffer, used) : ToDouble(longer.data(), longer.size());
  return i;
}

size_t ParseInt(std::string_view t, int32_t& value) {
  size_t i = SkipBlanksFrom(t, 0);
  bool negative = false;
  if (i < t.size() && (t[i] == '+' || t[i] == '-')) negative = t[i++] == '-';
  if (i >= t.size() || !IsDigit(t[i])) return 0;
  int64_t v = 0;
  while (i < t.size() && IsDigit(t[i])) {
    // Saturate rather than overflow on absurd inputs.
    if (v < (int64_t{1} << 40)) v = v * 10 + (t[i] - '0');
    ++i;
  }
  if (negative) v = -v;
  if (v > INT32_MAX) v = INT32_MAX;
  if (v < INT32_MIN) v = INT32_MIN;
  value = static_cast<int32_t>(v);
  return i;
}

void Scanner::SkipBlanks() { pos_ = SkipBlanksFrom(text_, pos_); }

bool Scanner::Int(int32_t& value) {
  size_t n = ParseInt(Rest(), value);
  if (n == 0) return false;
  pos_ += n;
  return true;
}

bool Scanner::Double(double& value) {
  size_t n = ParseDouble(Rest(), value);
  if (n == 0) return false;
  pos_ += n;
  return true;
}

bool Scanner::Word(std::string& value) {
  SkipBlanks();
  size_t end = pos_;
  while (end < text_.size() && !IsBlank(text_[end])) ++end;
  if (end == pos_) return false;
  value.assign(text_.substr(pos_, end - pos_));
  pos_ = end;
  return true;
}

bool Scanner::SkipWord() {
  SkipBlanks();
  size_t end = pos_;
  while (end < text_.size() && !IsBlank(text_[end])) ++end;
  if (end == pos_) return false;
  pos_ = end;
  return true;
}

bool Scanner::SkipChar() {
  SkipBlanks();
  if (pos_ >= text_.size()) return false;
  ++pos_;
  return true;
}

int ScanLine(std::string_view line, std::string_view format,
             std::initializer_list<ScanTarget> targets) {
  Scanner scanner(line);
  const ScanTarget* next = targets.begin();
  int filled = 0;
  size_t i = 0;
  if (format.substr(0, 3) == "%s>") i = 3;
  while (i < format.size()) {
    if (format[i] != '%') {
      // Literal text in a format: blanks match any run of blanks, others match exactly.
      if (IsBlank(format[i])) {
        scanner.SkipBlanks();
      } else {
        std::string_view rest = scanner.Rest();
        if (rest.empty() || rest[0] != format[i]) return filled;
        scanner.SkipChar();
      }
      ++i;
      continue;
    }
    if (i + 1 >= format.size()) return -1;
    const char conv = format[i + 1];
    i += 2;
    std::string_view modifier;
    if (i < format.size() && format[i] == '[') {
      size_t close = format.find(']', i);
      if (close == std::string_view::npos) return -1;
      modifier = format.substr(i + 1, close - i - 1);
      i = close + 1;
    }
    const bool discard = !modifier.empty() && modifier.back() == 'd';
    if (conv == 's' && modifier == "w1d") {
      if (!scanner.SkipChar()) return filled;
      continue;
    }
    if (conv == 's' && discard) {
      if (!scanner.SkipWord()) return filled;
      continue;
    }
    if (next == targets.end()) return -1;
    const ScanTarget& target = *next++;
    bool ok = false;
    switch (conv) {
      case 'd':
      case 'i':
        if (auto p = std::get_if<int32_t*>(&target)) ok = scanner.Int(**p); else return -1;
        break;
      case 'f':
        if (auto p = std::get_if<double*>(&target)) ok = scanner.Double(**p); else return -1;
        break;
      case 's':
        if (auto p = std::get_if<std::string*>(&target)) ok = scanner.Word(**p); else return -1;
        break;
      default:
        return -1;
    }
    if (!ok) return filled;
    ++filled;
  }
  return filled;
}

}  // namespace vorel::platform
