#include "tools/ExitStatus.h"

namespace Quillmar::Tools {
namespace {

int status = 0;

}  // namespace

void SetExitStatus(int newStatus) { status = newStatus; }

int ExitStatus() { return status; }

}  // namespace Quillmar::Tools
