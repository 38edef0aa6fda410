#include "scintillation/scint_commands.h"

#include <fmt/format.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <optional>

#include "scintillation/filter_fit.h"
#include "scintillation/scint_generator.h"

namespace vorel::scintillation {
namespace {

constexpr char kErrorTitle[] = "Error message";

ScintCommandResult Fail(const platform::Messages& messages, std::string_view text,
                        std::string_view title = kErrorTitle) {
  messages.Popup(title, text);
  ScintCommandResult r;
  r.status = 1;
  return r;
}

// Writes `text` through a temporary file beside `path`, renamed when whole.
bool WriteWhole(const std::filesystem::path& path, std::string_view text, std::string& error) {
  const std::filesystem::path temp = path.string() + ".part";
  std::FILE* f = std::fopen(temp.c_str(), "wb");
  if (!f) {
    error = fmt::format("{}: cannot be created ({})", path.string(), std::strerror(errno));
    return false;
  }
  const bool written = std::fwrite(text.data(), 1, text.size(), f) == text.size();
  const bool closed = std::fclose(f) == 0;
  std::error_code ec;
  if (!written || !closed) {
    error = fmt::format("{}: could not be written whole", path.string());
    std::filesystem::remove(temp, ec);
    return false;
  }
  std::filesystem::rename(temp, path, ec);
  if (ec) {
    error = fmt::format("{}: cannot be written ({})", path.string(), ec.message());
    std::filesystem::remove(temp, ec);
    return false;
  }
  return true;
}

// Reads the shaping filters the settings switch on, with the gains of their series.
bool ReadSwitchedFilters(const ScintSettings& s, const platform::DataDirectory& dataDir,
                         std::optional<ScintFilter>& amp, std::optional<ScintFilter>& phase,
                         std::string& text, std::string& error) {
  auto read = [&](int32_t on, const std::string& setting, const char* name, double gain,
                  std::optional<ScintFilter>& filter) {
    if (on != 1) return true;
    const std::filesystem::path path = dataDir.Map(setting);
    filter.emplace();
    if (ReadScintFilterFile(path, gain, *filter, error) != 0) {
      error = fmt::format("{}: {}", name, error);
      return false;
    }
    text += fmt::format("read {}: na {}, nb {} (b times {})\n", path.string(), filter->na,
                        filter->nb, gain);
    return true;
  };
  return read(s.AmpFilterOn, s.AmpFilterFile, "AmpFilterFile", kAmpFilterGain, amp) &&
         read(s.PhaseFilterOn, s.PhaseFilterFile, "PhaseFilterFile", kPhaseFilterGain, phase);
}

std::string StatisticsLine(const char* name, const std::vector<double>& values, bool withS4) {
  const SeriesStatistics st = ComputeStatistics(values);
  if (withS4)
    return fmt::format("{}: mean {:.4f}, standard deviation {:.4f}, S4 {:.4f}\n", name, st.mean,
                       st.deviation, st.s4);
  return fmt::format("{}: mean {:.4f}, standard deviation {:.4f}\n", name, st.mean, st.deviation);
}

// An unstable shaping filter lets a series run away; the file then holds inf (or the
// amplitude floor where the value became NaN).
void WarnNotFinite(const platform::Messages& messages, const char* name,
                   const std::vector<double>& values) {
  int32_t count = 0, first = -1;
  for (size_t i = 0; i < values.size(); ++i)
    if (!std::isfinite(values[i]) || std::fabs(values[i]) > 1e9) {
      if (first < 0) first = static_cast<int32_t>(i);
      ++count;
    }
  if (count > 0)
    messages.Warn(fmt::format(
        "{}: {} of {} samples are beyond 1e9 or not finite, from sample {} on; its shaping "
        "filter is unstable",
        name, count, values.size(), first));
}

}  // namespace

SeriesStatistics ComputeStatistics(const std::vector<double>& values) {
  SeriesStatistics st;
  if (values.empty()) return st;
  const double n = static_cast<double>(values.size());
  double sum = 0.0, intensity = 0.0, intensity2 = 0.0;
  for (double v : values) {
    sum += v;
    intensity += v * v;
    intensity2 += v * v * v * v;
  }
  st.mean = sum / n;
  double squares = 0.0;
  for (double v : values) squares += (v - st.mean) * (v - st.mean);
  st.deviation = std::sqrt(squares / n);
  const double meanI = intensity / n;
  const double varI = intensity2 / n - meanI * meanI;
  st.s4 = meanI > 0.0 ? std::sqrt(std::max(0.0, varI)) / meanI : 0.0;
  return st;
}

ScintCommandResult LoadScintTargetCommand(ScintSettings& s, const platform::DataDirectory& dataDir,
                                          const platform::Messages& messages) {
  const std::filesystem::path path = dataDir.Map(s.ScintTargetFile);
  TargetResponse target;
  std::string error;
  if (ReadTargetResponse(path, true, target, error) != 0)
    return Fail(messages, fmt::format("ScintTargetFile: {}", error));
  s.FilterPoles = target.na;
  s.FilterZeros = target.N - target.na - 1;
  ScintCommandResult r;
  double lowest = target.x[0], highest = target.x[0];
  for (double x : target.x) {
    lowest = std::min(lowest, x);
    highest = std::max(highest, x);
  }
  r.text = fmt::format(
      "read {}: N {}, na {}; frequencies {} to {} (log10 {:.4f} to {:.4f})\n"
      "FilterPoles = {}, FilterZeros = {}\n",
      path.string(), target.N, target.na, lowest, highest, std::log10(lowest), std::log10(highest),
      s.FilterPoles, s.FilterZeros);
  if (s.FilterZeros < 0)
    messages.Warn(fmt::format("{}: na {} leaves FilterZeros negative ({}); a fit refuses it",
                              path.string(), target.na, s.FilterZeros));
  r.target = std::move(target);
  return r;
}

ScintCommandResult FitScintFilterCommand(const ScintSettings& s,
                                         const platform::DataDirectory& dataDir,
                                         const platform::Messages& messages,
                                         int32_t& FitPlotColour) {
  const std::filesystem::path path = dataDir.Map(s.ScintTargetFile);
  TargetResponse target;
  std::string error;
  if (ReadTargetResponse(path, false, target, error) != 0)
    return Fail(messages, fmt::format("ScintTargetFile: {}", error));
  FitResult fit;
  if (FitScintFilter(target, s.FilterPoles, s.FilterZeros, fit, error) != 0)
    return Fail(messages, fmt::format("{}: {}", path.string(), error));
  if (fit.singular)
    messages.Warn(
        fmt::format("{}: the design matrix as the solver reads it has no full column rank; the "
                    "coefficients are written as 0",
                    path.string()));
  FitPlotColour += kFitPlotColourStep;
  const std::filesystem::path dump = dataDir / "temp.txt";
  const std::filesystem::path out = dataDir.Map(s.ScintFilterOutFile);
  if (!WriteWhole(dump, FormatDesignDump(fit, s.FilterPoles, s.FilterZeros), error) ||
      !WriteWhole(out, FormatScintFilterFile(fit.theta, s.FilterPoles, s.FilterZeros), error))
    return Fail(messages, error);
  double rms = 0.0;
  for (int32_t r = 0; r < fit.M; ++r) rms += (fit.fit[r] - fit.y[r]) * (fit.fit[r] - fit.y[r]);
  rms = std::sqrt(rms / fit.M);
  ScintCommandResult r;
  r.text = fmt::format(
      "read {}: N {}; na {}, nb {}: {} rows, {} coefficients\n"
      "fitted curve: rms difference from the target {:.4f}; target marked in colour 0x{:06X}\n"
      "wrote {}\nwrote {}\n",
      path.string(), target.N, s.FilterPoles, s.FilterZeros, fit.M, fit.C, rms, FitPlotColour,
      dump.string(), out.string());
  r.outputs = {dump.string(), out.string()};
  r.fit = std::move(fit);
  return r;
}

ScintCommandResult GenerateScintCommand(const ScintSettings& s,
                                        const platform::DataDirectory& dataDir,
                                        const platform::Messages& messages) {
  std::optional<ScintFilter> amp, phase;
  std::string text, error;
  if (!ReadSwitchedFilters(s, dataDir, amp, phase, text, error)) return Fail(messages, error);
  ScintSeries series;
  const int status =
      GenerateScint(s, amp ? &*amp : nullptr, phase ? &*phase : nullptr, series, error);
  if (status == -2) return Fail(messages, error, "Warning");
  if (status != 0) return Fail(messages, error);
  WarnNotFinite(messages, "amplitude", series.ampOut);
  WarnNotFinite(messages, "phase", series.phaseOut);
  const std::filesystem::path out = dataDir / "scintGenData.dat";
  if (!WriteWhole(out, FormatScintGenData(series), error)) return Fail(messages, error);
  ScintCommandResult r;
  r.text = text +
           fmt::format(
               "{} samples at {} per second, ScintIndex {}, ScintCorrelation {}, "
               "PhaseSigma {}\n",
               kScintSamples, kScintSampleRate, s.ScintIndex, s.ScintCorrelation, s.PhaseSigma) +
           StatisticsLine("amplitude", series.ampOut, true) +
           StatisticsLine("phase", series.phaseOut, false) +
           fmt::format("wrote {}\n", out.string());
  r.outputs = {out.string()};
  r.series = std::move(series);
  return r;
}

ScintCommandResult ScintTableCommand(const ScintSettings& s, const ScintTableArgs& args,
                                     const std::filesystem::path& output,
                                     const platform::DataDirectory& dataDir,
                                     const platform::Messages& messages) {
  std::optional<ScintFilter> amp, phase;
  std::string text, error;
  if (!ReadSwitchedFilters(s, dataDir, amp, phase, text, error)) return Fail(messages, error);
  ScintTable table;
  const int status =
      MakeScintTable(s, amp ? &*amp : nullptr, phase ? &*phase : nullptr, args, table, error);
  if (status == -2) return Fail(messages, error, "Warning");
  if (status != 0) return Fail(messages, error);
  if (!WriteWhole(output, table.text, error)) return Fail(messages, error);
  ScintCommandResult r;
  r.text = text;
  for (int c = 0; c < kTableClasses; ++c) {
    const std::string name =
        fmt::format("class {} (ScintIndex {}) amplitude", c + 1, args.indices[c]);
    r.text += StatisticsLine(name.c_str(), table.series[c].ampOut, true);
  }
  r.text += fmt::format(
      "{} periods of {} ms, {} line(s) each (one per channel), columns: phase and amplitude of "
      "bubble classes 1 to 5\nwrote {}\n",
      table.periods, table.periodMs, args.channels, output.string());
  r.outputs = {output.string()};
  return r;
}

}  // namespace vorel::scintillation
