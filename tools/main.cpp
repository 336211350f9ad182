// quillmar: the command-line host of the channel library.
//
// Each group of subcommands lives in a file of its own and adds itself to the application here.
#include <CLI/CLI.hpp>

#include "tools/ExitStatus.h"
#include "tools/VersionCommand.h"

int main(int argc, char** argv) {
  CLI::App app{"quillmar: embeds, detects and inspects invisible video watermarks"};
  app.require_subcommand(1);
  Quillmar::Tools::AddVersionCommand(app);
  CLI11_PARSE(app, argc, argv);
  return Quillmar::Tools::ExitStatus();
}
