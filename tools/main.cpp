// quillmar: the command-line host of the channel library.
//
// Each group of subcommands lives in a file of its own and registers itself (CommandRegistry).
// A wrong command line exits with kExitUsage and CLI11's message; everything else with the status
// the subcommand decided (ExitStatus.h).
#include <CLI/CLI.hpp>
#include <iostream>

#include "framework/platform/StopRequests.h"
#include "tools/ChannelLibrary.h"
#include "tools/CommandRegistry.h"
#include "tools/ExitStatus.h"

namespace {

constexpr char kExitStatuses[] =
    "Exit statuses of embed: 0 marked and closed; 1 the input or output cannot be used; 2 a wrong\n"
    "command line; 3 the configuration or program cannot be used; 4 no time slot; 5 the licence "
    "is\n"
    "not valid; 6 nothing was marked; 7 the input failed during the session; 8 the output failed\n"
    "during the session; 128+N stopped by signal N (130 Ctrl-C, 143 SIGTERM, 129 SIGHUP). After\n"
    "1 to 5 nothing was reserved; after 6, 7, 8 and 128+N the session was closed: the record\n"
    "written, the slot finalised.\n"
    "Exit statuses of detect: 0 a watermark was decoded, 1 none was, 2 an error.";

std::string BuildInformation() {
  try {
    const Quillmar::Tools::ChannelLibrary library;
    return library.Version() + "\nloaded from " + library.Path();
  } catch (const std::exception& error) {
    return std::string("quillmar: ") + error.what();
  }
}

}  // namespace

int main(int argc, char** argv) {
  Framework::StopRequests::EnsureStandardDescriptors();
  CLI::App app{"quillmar: embeds, detects and inspects invisible video watermarks"};
  app.require_subcommand(0, 1);
  app.option_defaults()->always_capture_default();
  app.footer(kExitStatuses);
  app.set_version_flag("--version", BuildInformation);
  for (const auto add : Quillmar::Tools::RegisteredCommands()) add(app);
  try {
    app.parse(argc, argv);
  } catch (const CLI::Success& done) {
    return app.exit(done);
  } catch (const CLI::ParseError& error) {
    app.exit(error);
    return Quillmar::Tools::kExitUsage;
  }
  if (app.get_subcommands().empty()) {
    std::cerr << "quillmar: a command is required\nRun with --help for more information."
              << std::endl;
    return Quillmar::Tools::kExitUsage;
  }
  return Quillmar::Tools::ExitStatus();
}
