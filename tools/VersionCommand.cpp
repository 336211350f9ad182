// quillmar version: loads the channel library as a host does and prints its build information.
#include <iostream>

#include "tools/ChannelLibrary.h"
#include "tools/CommandRegistry.h"
#include "tools/ExitStatus.h"

namespace Quillmar::Tools {
namespace {

void AddVersionCommand(CLI::App& app) {
  CLI::App* command = app.add_subcommand("version", "Print the channel library's build information");
  command->callback([] {
    try {
      ChannelLibrary library;
      std::cout << library.Version() << '\n' << "loaded from " << library.Path() << std::endl;
    } catch (const std::exception& error) {
      std::cerr << "quillmar version: " << error.what() << std::endl;
      SetExitStatus(1);
    }
  });
}

}  // namespace

QUILLMAR_TOOL_COMMAND(AddVersionCommand)

}  // namespace Quillmar::Tools
