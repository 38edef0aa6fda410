#include "app/scint_commands.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <memory>
#include <string>
#include <vector>

#include "app/chart_commands.h"
#include "scintillation/scint_commands.h"

namespace vorel::app {
namespace {

int Finish(CommandContext& c, const scintillation::ScintCommandResult& r) {
  c.session.lastOutputs = r.outputs;
  if (r.status == 0 && !c.global.quiet) fmt::print("{}", r.text);
  return r.status;
}

std::shared_ptr<std::string> PlotOption(CLI::App& p, const char* what) {
  auto plot = std::make_shared<std::string>();
  p.add_option("--plot", *plot, what);
  return plot;
}

}  // namespace

std::function<int(CommandContext&)> ScintLoadCommand(CLI::App& p) {
  auto plot = PlotOption(p, "write the fit graph with the loaded target to this PNG");
  return [plot](CommandContext& c) {
    Session& s = c.session;
    const auto r = scintillation::LoadScintTargetCommand(s.settings.scint, s.dataDir, s.messages);
    const int status = Finish(c, r);
    return status != 0 ? status : PlotLoadedTarget(c, r, *plot);
  };
}

std::function<int(CommandContext&)> ScintFitCommand(CLI::App& p) {
  auto plot = PlotOption(p, "write the fit graph (target, fit, marked target) to this PNG");
  return [plot](CommandContext& c) {
    Session& s = c.session;
    const auto r = scintillation::FitScintFilterCommand(s.settings.scint, s.dataDir, s.messages,
                                                        s.FitPlotColour);
    const int status = Finish(c, r);
    return status != 0 ? status : PlotScintFit(c, r, *plot);
  };
}

std::function<int(CommandContext&)> ScintGenerateCommand(CLI::App& p) {
  auto plot = PlotOption(p, "write the strip chart of amplitude and phase to this PNG");
  return [plot](CommandContext& c) {
    Session& s = c.session;
    const auto r = scintillation::GenerateScintCommand(s.settings.scint, s.dataDir, s.messages);
    const int status = Finish(c, r);
    return status != 0 ? status : PlotScintSeries(c, r, *plot);
  };
}



std::function<int(CommandContext&)> ScintTableCommand(CLI::App& p) {
  auto output = std::make_shared<std::string>();
  auto indices = std::make_shared<std::vector<double>>();
  auto channels = std::make_shared<int>(1);
  p.add_option("OUT", *output, "the table to write (ScintFile of a DIF run)")->required();
  p.add_option("INDEX", *indices, "ScintIndex of bubble classes 1, 2 and 3")
      ->required()
      ->expected(3);
  p.add_option("--channels", *channels,
               "lines per period: the channels of the record the DIF run reads (default 1)");
  return [=](CommandContext& c) {
    Session& s = c.session;
    scintillation::ScintTableArgs args;
    for (int i = 0; i < scintillation::kTableClasses; ++i) args.indices[i] = (*indices)[i];
    args.ScintRate = s.settings.dif.ScintRate;
    args.channels = *channels;
    return Finish(c, scintillation::ScintTableCommand(
                         s.settings.scint, args, s.dataDir.Map(*output), s.dataDir, s.messages));
  };
}

}  // namespace vorel::app
