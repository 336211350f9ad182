// quillmar version: loads the channel library as a host does and prints its build information.
#pragma once

#include <CLI/CLI.hpp>

namespace Quillmar::Tools {

void AddVersionCommand(CLI::App& app);

}  // namespace Quillmar::Tools
