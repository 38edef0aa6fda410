#pragma once
// One table of settings per module: each entry names a member of the module's input
// struct, its type, unit, range and meaning. The application reads `--set`, TOML and the
// settings file through these tables, shows the values and writes the reference from them.

#include <array>
#include <cmath>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace vorel::platform {

inline constexpr int kSettingArraySize = 4;  // the four reference stations

// A range bound that is not there.
inline constexpr double kNoBound = HUGE_VAL;

template <typename S>
struct Setting {
  using Member = std::variant<std::monostate, int32_t S::*, double S::*, std::string S::*,
                              std::array<double, kSettingArraySize> S::*,
                              std::array<std::string, kSettingArraySize> S::*>;

  std::string_view name;
  Member member;
  // Shown in the reference; empty: derived from the member ("int", "double", "text",
  // "4 x double", "4 x path").
  std::string_view type = {};
  std::string_view unit = {};
  double min = -kNoBound;  // inclusive; numbers and each value of a number array
  double max = kNoBound;
  std::string_view meaning = {};
  // A text setting that takes one of these words alone.
  std::span<const std::string_view> choices = {};
  // Kinds the generic reader does not know: the module reads and shows them itself.
  // `read` returns false with the reason in `error` (the caller names source and setting).
  std::string (*show)(const S&) = nullptr;
  bool (*read)(S&, std::string_view text, std::string& error) = nullptr;

  bool HasRange() const { return min != -kNoBound || max != kNoBound; }
};

template <typename S>
using SettingTable = std::vector<Setting<S>>;

// The text forms every setting shares.
std::string_view TrimSetting(std::string_view text);
bool ParseSettingInt(std::string_view text, int32_t& value, std::string& error);
bool ParseSettingDouble(std::string_view text, double& value, std::string& error);
std::vector<std::string_view> SplitSettingList(std::string_view text, char separator = ',');
std::string ShowSettingDouble(double value);
// "1 to 12", "at least 0", "at most 5"; empty without a range.
std::string SettingRangeText(double min, double max);
// False with "13 is outside 1 to 12" (or "... below ..."/"... above ...") in `error`.
bool CheckSettingRange(double value, double min, double max, std::string& error);

namespace setting_detail {
std::string ShowText(const std::string& value);
std::string ShowDoubles(const std::array<double, kSettingArraySize>& values);
std::string ShowTexts(const std::array<std::string, kSettingArraySize>& values);
bool ReadInt(std::string_view text, double min, double max, int32_t& value, std::string& error);
bool ReadDouble(std::string_view text, double min, double max, double& value, std::string& error);
bool ReadText(std::string_view text, std::span<const std::string_view> choices, std::string& value,
              std::string& error);
bool ReadDoubles(std::string_view text, double min, double max,
                 std::array<double, kSettingArraySize>& values, std::string& error);
bool ReadTexts(std::string_view text, std::array<std::string, kSettingArraySize>& values,
               std::string& error);
template <class... F>
struct Overload : F... {
  using F::operator()...;
};
}  // namespace setting_detail

template <typename S>
std::string_view SettingType(const Setting<S>& setting) {
  if (!setting.type.empty()) return setting.type;
  switch (setting.member.index()) {
    case 1:
      return "int";
    case 2:
      return "double";
    case 3:
      return "text";
    case 4:
      return "4 x double";
    case 5:
      return "4 x path";
    default:
      return "";
  }
}

// The value as show-settings prints it.
template <typename S>
std::string ShowSetting(const Setting<S>& setting, const S& values) {
  namespace d = setting_detail;
  if (setting.show) return setting.show(values);
  return std::visit(d::Overload{[](std::monostate) { return std::string(); },
                                [&](int32_t S::*m) { return std::to_string(values.*m); },
                                [&](double S::*m) { return ShowSettingDouble(values.*m); },
                                [&](std::string S::*m) { return d::ShowText(values.*m); },
                                [&](std::array<double, kSettingArraySize> S::*m) {
                                  return d::ShowDoubles(values.*m);
                                },
                                [&](std::array<std::string, kSettingArraySize> S::*m) {
                                  return d::ShowTexts(values.*m);
                                }},
                    setting.member);
}

// Reads `text` into the member, checking the kind and the range. Returns false with the
// reason in `error`; the member is then unchanged.
template <typename S>
bool ReadSetting(const Setting<S>& setting, S& values, std::string_view text, std::string& error) {
  namespace d = setting_detail;
  if (setting.read) return setting.read(values, text, error);
  const double lo = setting.min, hi = setting.max;
  return std::visit(
      d::Overload{
          [&](std::monostate) { return false; },
          [&](int32_t S::*m) { return d::ReadInt(text, lo, hi, values.*m, error); },
          [&](double S::*m) { return d::ReadDouble(text, lo, hi, values.*m, error); },
          [&](std::string S::*m) { return d::ReadText(text, setting.choices, values.*m, error); },
          [&](std::array<double, kSettingArraySize> S::*m) {
            return d::ReadDoubles(text, lo, hi, values.*m, error);
          },
          [&](std::array<std::string, kSettingArraySize> S::*m) {
            return d::ReadTexts(text, values.*m, error);
          }},
      setting.member);
}

}  // namespace vorel::platform
