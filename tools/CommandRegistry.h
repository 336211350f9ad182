// The subcommands of quillmar. Each group of subcommands registers itself from its own file:
//   QUILLMAR_TOOL_COMMAND(AddConfigCommands);
#pragma once

#include <CLI/CLI.hpp>
#include <vector>

namespace Quillmar::Tools {

// Adds a group of subcommands to the application.
using AddCommands = void (*)(CLI::App& app);

// Registers `add`; called during static initialisation. Always true.
bool RegisterCommands(AddCommands add);

// Every registered group, in registration order.
const std::vector<AddCommands>& RegisteredCommands();

}  // namespace Quillmar::Tools

#define QUILLMAR_TOOL_COMMAND(AddFunction) \
  namespace {                              \
  const bool kRegistered##AddFunction = ::Quillmar::Tools::RegisterCommands(AddFunction); \
  }
