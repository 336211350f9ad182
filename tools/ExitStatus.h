// The exit status that the chosen subcommand decided.
#pragma once

namespace Quillmar::Tools {

// Records the status the program ends with.
void SetExitStatus(int status);

// The recorded status; 0 when none was recorded.
int ExitStatus();

}  // namespace Quillmar::Tools
