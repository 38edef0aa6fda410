#include "platform/setting_table.h"

#include <fmt/format.h>

#include <cctype>
#include <charconv>
#include <climits>

namespace vorel::platform {

std::string_view TrimSetting(std::string_view s) {
  while (!s.empty() && std::isspace(static_cast<unsigned char>(s.front()))) s.remove_prefix(1);
  while (!s.empty() && std::isspace(static_cast<unsigned char>(s.back()))) s.remove_suffix(1);
  return s;
}

bool ParseSettingInt(std::string_view text, int32_t& value, std::string& error) {
  text = TrimSetting(text);
  if (!text.empty() && text.front() == '+') text.remove_prefix(1);
  int64_t v = 0;
  auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), v);
  if (text.empty() || ec != std::errc() || end != text.data() + text.size() || v < INT32_MIN ||
      v > INT32_MAX) {
    error = fmt::format("expected a whole number, got \"{}\"", text);
    return false;
  }
  value = static_cast<int32_t>(v);
  return true;
}

bool ParseSettingDouble(std::string_view text, double& value, std::string& error) {
  const std::string_view trimmed = TrimSetting(text);
  std::string_view digits = trimmed;
  if (!digits.empty() && digits.front() == '+') digits.remove_prefix(1);
  if (digits.empty() || (digits.size() < trimmed.size() && digits.front() == '-') ||
      digits.front() == '+') {
    error = fmt::format("'{}' is not a number", trimmed);
    return false;
  }
  double parsed = 0.0;
  const char* end = digits.data() + digits.size();
  const auto [stop, code] = std::from_chars(digits.data(), end, parsed);
  if (code == std::errc::result_out_of_range) {
    error = fmt::format("'{}' is out of the range of a double", trimmed);
    return false;
  }
  if (code != std::errc{} || stop != end || !std::isfinite(parsed)) {
    error = fmt::format("'{}' is not a number", trimmed);
    return false;
  }
  value = parsed;
  return true;
}

std::vector<std::string_view> SplitSettingList(std::string_view text, char separator) {
  std::vector<std::string_view> parts;
  size_t start = 0;
  for (;;) {
    const size_t at = text.find(separator, start);
    parts.push_back(
        TrimSetting(text.substr(start, at == std::string_view::npos ? text.npos : at - start)));
    if (at == std::string_view::npos) break;
    start = at + 1;
  }
  return parts;
}

std::string ShowSettingDouble(double value) { return fmt::format("{}", value); }

std::string SettingRangeText(double min, double max) {
  const bool low = min != -kNoBound, high = max != kNoBound;
  if (low && high) return fmt::format("{} to {}", min, max);
  if (low) return fmt::format("at least {}", min);
  if (high) return fmt::format("at most {}", max);
  return "";
}

bool CheckSettingRange(double value, double min, double max, std::string& error) {
  if (value >= min && value <= max) return true;
  if (min != -kNoBound && max != kNoBound)
    error = fmt::format("{} is outside {} to {}", value, min, max);
  else if (value < min)
    error = fmt::format("{} is below {}, the least allowed", value, min);
  else
    error = fmt::format("{} is above {}, the most allowed", value, max);
  return false;
}

namespace setting_detail {

std::string ShowText(const std::string& value) { return "\"" + value + "\""; }

std::string ShowDoubles(const std::array<double, kSettingArraySize>& a) {
  return fmt::format("[{}, {}, {}, {}]", ShowSettingDouble(a[0]), ShowSettingDouble(a[1]),
                     ShowSettingDouble(a[2]), ShowSettingDouble(a[3]));
}

std::string ShowTexts(const std::array<std::string, kSettingArraySize>& a) {
  return fmt::format("[\"{}\", \"{}\", \"{}\", \"{}\"]", a[0], a[1], a[2], a[3]);
}

bool ReadInt(std::string_view text, double min, double max, int32_t& value, std::string& error) {
  int32_t v = 0;
  if (!ParseSettingInt(text, v, error) || !CheckSettingRange(v, min, max, error)) return false;
  value = v;
  return true;
}

bool ReadDouble(std::string_view text, double min, double max, double& value, std::string& error) {
  double v = 0.0;
  if (!ParseSettingDouble(text, v, error) || !CheckSettingRange(v, min, max, error)) return false;
  value = v;
  return true;
}

bool ReadText(std::string_view text, std::span<const std::string_view> choices, std::string& value,
              std::string& error) {
  text = TrimSetting(text);
  if (choices.empty()) {
    value = std::string(text);
    return true;
  }
  for (std::string_view c : choices) {
    if (c == text) {
      value = std::string(c);
      return true;
    }
  }
  error = fmt::format("expected one of {}, got \"{}\"", fmt::join(choices, ", "), text);
  return false;
}

bool ReadDoubles(std::string_view text, double min, double max,
                 std::array<double, kSettingArraySize>& values, std::string& error) {
  const auto parts = SplitSettingList(text);
  if (parts.size() != kSettingArraySize) {
    error = fmt::format("expected {} values (stations 1 to 4), got {}", kSettingArraySize,
                        parts.size());
    return false;
  }
  std::array<double, kSettingArraySize> v{};
  for (int i = 0; i < kSettingArraySize; ++i) {
    if (!ParseSettingDouble(parts[i], v[i], error) || !CheckSettingRange(v[i], min, max, error)) {
      error = fmt::format("station {}: {}", i + 1, error);
      return false;
    }
  }
  values = v;
  return true;
}

bool ReadTexts(std::string_view text, std::array<std::string, kSettingArraySize>& values,
               std::string& error) {
  const auto parts = SplitSettingList(text);
  if (parts.size() != kSettingArraySize) {
    error =
        fmt::format("expected {} paths (stations 1 to 4), got {}", kSettingArraySize, parts.size());
    return false;
  }
  for (int i = 0; i < kSettingArraySize; ++i) values[i] = std::string(parts[i]);
  return true;
}

}  // namespace setting_detail
}  // namespace vorel::platform
