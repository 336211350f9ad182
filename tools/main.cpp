// quillmar: the command-line host of the channel library.
//
// Each group of subcommands lives in a file of its own and registers itself (CommandRegistry).
#include <CLI/CLI.hpp>

#include "tools/CommandRegistry.h"
#include "tools/ExitStatus.h"

int main(int argc, char** argv) {
  CLI::App app{"quillmar: embeds, detects and inspects invisible video watermarks"};
  app.require_subcommand(1);
  for (const auto add : Quillmar::Tools::RegisteredCommands()) add(app);
  CLI11_PARSE(app, argc, argv);
  return Quillmar::Tools::ExitStatus();
}
