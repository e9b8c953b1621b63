// SPDX-License-Identifier: Apache-2.0
//
// The program refragment: parses its arguments and runs one sub-command.

#include <cstdio>
#include <exception>
#include <new>
#include <string>
#include <vector>

#include "host/CommandLine.hpp"
#include "host/ImportCommand.hpp"
#include "host/InfoCommand.hpp"
#include "host/LinkCommand.hpp"
#include "host/ShowCommand.hpp"
#include "host/Signals.hpp"
#include "host/SplitCommand.hpp"
#include "host/SynthCommand.hpp"
#include "host/VerifyCommand.hpp"
#include "host/export/ExportCommand.hpp"

namespace {

using Host::ExitCode;

/// Picks the sub-command by the type of its options.
struct Runner {
  Host::Session& session;

  ExitCode operator()(const Host::InfoOptions& options) { return runInfo(options, session); }
  ExitCode operator()(const Host::SplitOptions& options) { return runSplit(options, session); }
  ExitCode operator()(const Host::LinkOptions& options) { return runLink(options, session); }
  ExitCode operator()(const Host::VerifyOptions& options) { return runVerify(options, session); }
  ExitCode operator()(const Host::ShowOptions& options) { return runShow(options, session); }
  ExitCode operator()(const Host::ImportOptions& options) { return runImport(options, session); }
  ExitCode operator()(const Host::ExportOptions& options) { return runExport(options, session); }
  ExitCode operator()(const Host::SynthOptions& options) { return runSynth(options, session); }
};

/// Help goes to standard output, a complaint to standard error.
ExitCode leaveEarly(const Host::EarlyExit& exit) {
  if (exit.code == ExitCode::Done) {
    std::fputs(exit.text.c_str(), stdout);
  } else {
    std::fprintf(stderr, "refragment: %s\n", exit.text.c_str());
  }
  return exit.code;
}

ExitCode run(const std::vector<std::string>& arguments) {
  const auto parsed = Host::parseCommandLine(arguments);
  if (const auto* exit = std::get_if<Host::EarlyExit>(&parsed)) return leaveEarly(*exit);
  const auto& command = std::get<Host::ParsedCommand>(parsed);
  const Host::Terminal terminal = Host::inspectTerminal();
  const auto messages =
      Host::Messages::make(command.common, terminal, Host::Messages::standardError());
  if (!messages.ok()) return leaveEarly({ExitCode::Failed, messages.error()});
  Host::noteStopSignals();
  Host::Session session(command.common, terminal, **messages);
  return std::visit(Runner{session}, command.command);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return static_cast<int>(run({argv + (argc > 0 ? 1 : 0), argv + argc}));
  } catch (const std::bad_alloc&) {
    std::fputs("refragment: not enough memory\n", stderr);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "refragment: %s\n", error.what());
  }
  return static_cast<int>(ExitCode::Failed);
}
