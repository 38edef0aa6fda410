#include "app/cli.h"

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <functional>
#include <iostream>
#include <memory>
#include <mutex>
#include <thread>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "app/commands.h"
#include "app/session.h"
#include "app/startup.h"

namespace vorel::app {
namespace {

// The one place a signal handler can reach: the session of the running program.
std::atomic<Session*> gSignalSession{nullptr};
std::atomic<int> gInterrupts{0};

void OnInterrupt(int) {
  const int n = gInterrupts.fetch_add(1) + 1;
  if (n >= 2) {
    static const char kAbort[] = "\nvorel: second interrupt, aborting\n";
    (void)!write(2, kAbort, sizeof kAbort - 1);
    _exit(130);
  }
  if (Session* s = gSignalSession.load()) {
    s->stopRequests.fetch_add(1);
    s->RunActive.store(0, std::memory_order_relaxed);
  }
}

const char kUsage[] =
    "usage: vorel [--data-dir DIR] [--settings FILE] [--scenario FILE.toml] [--set Name=value]...\n"
    "             [--yes] [--quiet] COMMAND [ARGS] [COMMAND [ARGS]]...\n"
    "       vorel --version | --help | COMMAND --help\n";

std::string CommandList() {
  std::string out = "\ncommands (run in the order given, in one program start):\n";
  for (const CommandEntry& c : CommandTable())
    out += fmt::format("  {:<34} {}\n", c.name + (c.usage.empty() ? "" : " " + c.usage), c.summary);
  return out;
}

const CommandEntry* FindCommand(const std::string& name) {
  for (const CommandEntry& c : CommandTable())
    if (c.name == name) return &c;
  return nullptr;
}

// Progress of a worker: a bar on a terminal, a line every few seconds otherwise, with the
// time left reckoned from the pace so far once there is a pace to go by.
class ProgressReporter {
 public:
  explicit ProgressReporter(bool quiet) : quiet_(quiet), tty_(isatty(2) != 0) {}
  void Show(const std::string& label, double percent) {
    if (quiet_) return;
    std::lock_guard<std::mutex> lock(mutex_);
    const auto now = std::chrono::steady_clock::now();
    if (percent <= 0.0) {
      if (drawn_ && tty_) fmt::print(stderr, "\n");
      drawn_ = false;
      started_ = false;
      return;
    }
    if (!started_) {
      started_ = true;
      start_ = now;
      startPercent_ = percent;
    }
    const double shown = std::min(percent, 100.0);
    const std::string left = TimeLeft(now, shown);
    if (tty_) {
      const int filled = static_cast<int>(shown / 100.0 * 30);
      fmt::print(stderr, "\r{} [{}{}] {:5.1f}%{}", label, std::string(filled, '#'),
                 std::string(30 - filled, '.'), shown, left);
      drawn_ = true;
    } else if (now - last_ >= std::chrono::seconds(3)) {
      fmt::print(stderr, "{}: {:.1f}%{}\n", label, shown, left);
      last_ = now;
    }
  }

 private:
  std::string TimeLeft(std::chrono::steady_clock::time_point now, double percent) const {
    const double elapsed = std::chrono::duration<double>(now - start_).count();
    const double done = percent - startPercent_;
    if (elapsed < 2.0 || done <= 0.5) return "        ";
    const auto seconds = static_cast<int64_t>(std::lround(elapsed * (100.0 - percent) / done));
    return fmt::format(", {}:{:02d} left", seconds / 60, seconds % 60);
  }

  bool quiet_, tty_;
  bool drawn_ = false;
  bool started_ = false;
  double startPercent_ = 0.0;
  std::mutex mutex_;
  std::chrono::steady_clock::time_point last_{}, start_{};
};

// Runs a worker on its own thread while this thread waits; Ctrl-C stops the run. An
// exception the worker lets through becomes an error message and a failing status
// instead of ending the program.
int RunWorker(const std::function<int()>& work) {
  int status = 0;
  std::thread worker([&] {
    try {
      status = work();
    } catch (const std::exception& e) {
      fmt::print(stderr, "Error message: {}\n", e.what());
      status = 1;
    } catch (...) {
      fmt::print(stderr, "Error message: the run ended on an unexpected error\n");
      status = 1;
    }
  });
  worker.join();
  return status;
}

struct Invocation {
  const CommandEntry* command;
  std::unique_ptr<CLI::App> parser;
  std::function<int(CommandContext&)> action;
};

}  // namespace

int RunCli(const std::vector<std::string>& arguments) {
  // Split at command names: global options first, then one segment per command.
  size_t firstCommand = arguments.size();
  for (size_t i = 0; i < arguments.size(); ++i) {
    if (FindCommand(arguments[i])) {
      firstCommand = i;
      break;
    }
    if (arguments[i] == "--set" || arguments[i] == "--data-dir" || arguments[i] == "--settings" ||
        arguments[i] == "--scenario")
      ++i;  // the option's value is not a command even if it spells one
  }

  GlobalOptions global;
  CLI::App app("Vorel GNSS DIF Signal Simulator", "vorel");
  app.add_option("--data-dir", global.dataDir, "data directory (default ./VLD)");
  app.add_option("--settings", global.settingsFile, "36-line settings file read at start-up");
  app.add_option("--scenario", global.scenarioFile, "TOML scenario file of setting names");
  app.add_option("--set", global.assignments, "Name=value, overrides every other source")
      ->expected(1)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
  app.add_flag("--yes,-y", global.yes, "answer confirmations with yes");
  app.add_flag("--quiet,-q", global.quiet, "no progress and no summary lines");
  bool version = false;
  app.add_flag("--version", version, "print the version and exit");
  app.set_help_flag("--help,-h", "show this help");
  app.footer(CommandList());
  try {
    std::vector<std::string> head(arguments.begin(), arguments.begin() + firstCommand);
    std::reverse(head.begin(), head.end());
    app.parse(head);
  } catch (const CLI::CallForHelp&) {
    fmt::print("{}{}", app.help(), "");
    return 0;
  } catch (const CLI::ParseError& e) {
    fmt::print(stderr, "vorel: {}\n{}{}", e.what(), kUsage, CommandList());
    return 2;
  }
  if (version) {
    fmt::print("vorel {}\n", kVersion);
    return 0;
  }
  if (firstCommand == arguments.size()) {
    fmt::print(stderr, "vorel: no command given\n{}{}", kUsage, CommandList());
    return 2;
  }

  // Parse every command before anything runs: a usage error runs nothing.
  std::vector<Invocation> invocations;
  for (size_t i = firstCommand; i < arguments.size();) {
    size_t end = i + 1;
    while (end < arguments.size() && !FindCommand(arguments[end])) ++end;
    Invocation inv;
    inv.command = FindCommand(arguments[i]);
    inv.parser = std::make_unique<CLI::App>(inv.command->summary, "vorel " + inv.command->name);
    inv.parser->set_help_flag("--help,-h", "show this help");
    inv.action = inv.command->setup(*inv.parser);
    std::vector<std::string> segment(arguments.begin() + i + 1, arguments.begin() + end);
    std::reverse(segment.begin(), segment.end());
    try {
      inv.parser->parse(segment);
    } catch (const CLI::CallForHelp&) {
      fmt::print("{}", inv.parser->help());
      return 0;
    } catch (const CLI::ParseError& e) {
      fmt::print(stderr, "vorel {}: {}\n{}", inv.command->name, e.what(), inv.parser->help());
      return 2;
    }
    invocations.push_back(std::move(inv));
    i = end;
  }

  global.createDataDir = false;
  for (const Invocation& inv : invocations)
    if (!inv.command->writesNothing) global.createDataDir = true;
  std::unique_ptr<Session> session = Session::Create();
  std::string error;
  StartupReport startupReport;
  const int startup = StartUp(*session, global, error, &startupReport);
  if (startup != 0) {
    fmt::print(stderr, "vorel: {}\n", error);
    return 2;
  }

  ProgressReporter progress(global.quiet);
  std::string currentLabel;
  session->messages.progress = [&](double percent) { progress.Show(currentLabel, percent); };
  int errorPopups = 0;
  session->messages.popup = [&](std::string_view title, std::string_view text) {
    ++errorPopups;
    if (title.empty())
      fmt::print(stderr, "{}\n", text);
    else
      fmt::print(stderr, "{}: {}\n", title, text);
  };
  if (global.quiet) session->messages.info = [](std::string_view) {};

  gSignalSession.store(session.get());
  struct sigaction action {};
  action.sa_handler = OnInterrupt;
  sigemptyset(&action.sa_mask);
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);  // a service manager's stop is the first Ctrl-C

  int exitStatus = 0;
  for (Invocation& inv : invocations) {
    CommandContext context{*session, global};
    currentLabel = inv.command->name;
    const int before = errorPopups;
    if (inv.command->needsOrbits && !session->orbitState.OrbitsValid &&
        !startupReport.orbitFileProblem.empty()) {
      session->messages.Warn(startupReport.orbitFileProblem);
      startupReport.orbitFileProblem.clear();
    }
    session->lastOutputs.clear();
    int status = inv.command->worker ? RunWorker([&] { return inv.action(context); })
                                  : inv.action(context);
    if (errorPopups != before && status == 0) status = 1;
    if (gInterrupts.load() > 0 && inv.command->worker && !global.quiet)
      fmt::print(stderr, "vorel {}: stopped by the user; files are closed whole\n", inv.command->name);
    if (status != 0) {
      exitStatus = status;
      break;
    }
    if (gInterrupts.load() > 0) {
      exitStatus = 130;  // stopped by the user: files closed whole, the chain ends
      break;
    }
  }
  gSignalSession.store(nullptr);
  return exitStatus;
}

}  // namespace vorel::app
