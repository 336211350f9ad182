#include "tools/CommandRegistry.h"

namespace Quillmar::Tools {
namespace {

std::vector<AddCommands>& Commands() {
  static std::vector<AddCommands> commands;
  return commands;
}

}  // namespace

bool RegisterCommands(AddCommands add) {
  Commands().push_back(add);
  return true;
}

const std::vector<AddCommands>& RegisteredCommands() { return Commands(); }

}  // namespace Quillmar::Tools
