#include "atmosphere/atmosphere_text.h"

#include <fmt/format.h>

#include <charconv>
#include <cmath>

namespace vorel::atmosphere {
namespace {

constexpr const char* kCellNames[8] = {"alpha0", "alpha1", "alpha2", "alpha3",
                                       "beta0",  "beta1",  "beta2",  "beta3"};

std::string_view Trim(std::string_view text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) text.remove_suffix(1);
  return text;
}

// Shortest exact form, marked as a floating value for a scenario file ("150.0", not "150").
// A not-a-number is written "nan" whatever its sign bit, so that output does not depend
// on how the platform's root marks it.
std::string FloatText(double value) {
  if (std::isnan(value)) return "nan";
  std::string text = fmt::format("{}", value);
  if (text.find_first_of(".eEn") == std::string::npos) text += ".0";
  return text;
}

}  // namespace

int ParseSettingNumber(std::string_view text, double& value, std::string& error) {
  const std::string_view trimmed = Trim(text);
  std::string_view digits = trimmed;
  if (!digits.empty() && digits.front() == '+') digits.remove_prefix(1);
  if (digits.empty() || (digits.size() < trimmed.size() && digits.front() == '-') ||
      digits.front() == '+') {
    error = fmt::format("'{}' is not a number", trimmed);
    return -1;
  }
  double parsed = 0.0;
  const char* end = digits.data() + digits.size();
  const auto [stop, code] = std::from_chars(digits.data(), end, parsed);
  if (code == std::errc::result_out_of_range) {
    error = fmt::format("'{}' is out of the range of a double", trimmed);
    return -1;
  }
  if (code != std::errc{} || stop != end || !std::isfinite(parsed)) {
    error = fmt::format("'{}' is not a number", trimmed);
    return -1;
  }
  value = parsed;
  return 0;
}

int IonoTableFromCells(std::string_view settingName, std::span<const double> cells,
                       IonoCoefficientTable& table, std::string& error) {
  if (cells.size() != 8) {
    error = fmt::format("{}: expected 8 values (alpha0..alpha3, beta0..beta3), got {}", settingName,
                        cells.size());
    return -1;
  }
  for (std::size_t n = 0; n < 8; ++n) {
    if (!std::isfinite(cells[n])) {
      error = fmt::format("{}: {} is not a finite number", settingName, kCellNames[n]);
      return -1;
    }
  }
  for (std::size_t n = 0; n < 8; ++n) table.cells[n / 4][n % 4] = cells[n];
  return 0;
}

int ParseIonoTable(std::string_view settingName, std::string_view text, IonoCoefficientTable& table,
                   std::string& error) {
  double cells[8] = {};
  std::size_t count = 0;
  std::size_t start = 0;
  // Count the fields first, so that a wrong count is reported as such.
  std::size_t fields = 1;
  for (const char ch : text) fields += ch == ',' ? 1 : 0;
  if (fields != 8) {
    error = fmt::format("{}: expected 8 values (alpha0..alpha3, beta0..beta3), got {}", settingName,
                        Trim(text).empty() ? 0 : fields);
    return -1;
  }
  while (count < 8) {
    std::size_t comma = text.find(',', start);
    if (comma == std::string_view::npos) comma = text.size();
    std::string reason;
    if (ParseSettingNumber(text.substr(start, comma - start), cells[count], reason) != 0) {
      error =
          fmt::format("{}: value {} ({}): {}", settingName, count + 1, kCellNames[count], reason);
      return -1;
    }
    ++count;
    start = comma + 1;
  }
  return IonoTableFromCells(settingName, std::span<const double>(cells, 8), table, error);
}

std::string FormatIonoTable(const IonoCoefficientTable& table) {
  std::string text = "[";
  for (int n = 0; n < 8; ++n) {
    if (n > 0) text += ", ";
    text += FloatText(table.cells[n / 4][n % 4]);
  }
  text += "]";
  return text;
}

int CheckTropoModel(int tropoModel, std::string& error) {
  if (tropoModel >= 1 && tropoModel <= 3) return 0;
  error = fmt::format("tropoModel: {} is not a troposphere model; use 1, 2 or 3", tropoModel);
  return -1;
}

std::string FormatSolarNumbers(const AtmosphereSettings& settings) {
  return fmt::format("solarFlux = {}\nsunspotNumber = {}\n", FloatText(settings.solarFlux),
                     FloatText(settings.sunspotNumber));
}

int RunConvertFlux(AtmosphereSettings& settings, std::string_view valueText, std::string& out,
                   std::string& error) {
  double value = 0.0;
  std::string reason;
  if (ParseSettingNumber(valueText, value, reason) != 0) {
    error = fmt::format("convert-flux: {}", reason);
    return -1;
  }
  settings.solarFlux = value;
  ConvertFluxToSunspot(settings);
  out = FormatSolarNumbers(settings);
  return 0;
}

int RunConvertSunspot(AtmosphereSettings& settings, std::string_view valueText, std::string& out,
                      std::string& error) {
  double value = 0.0;
  std::string reason;
  if (ParseSettingNumber(valueText, value, reason) != 0) {
    error = fmt::format("convert-sunspot: {}", reason);
    return -1;
  }
  settings.sunspotNumber = value;
  ConvertSunspotToFlux(settings);
  out = FormatSolarNumbers(settings);
  return 0;
}

}  // namespace vorel::atmosphere
