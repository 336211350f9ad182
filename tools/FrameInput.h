// The frame input and output of the host commands: a Y4M file, standard input or the synthetic
// source in; a Y4M file or standard output out.
#pragma once

#include <CLI/CLI.hpp>
#include <memory>
#include <string>

#include "tools/FrameSource.h"

namespace Quillmar::Tools {

struct FrameInputOptions {
  std::string path;       // a Y4M file, or "-" for standard input
  std::string synthetic;  // WIDTHxHEIGHT@RATE
  double seconds = 10.0;  // length of the synthetic source

  // "synthetic 1920x1080@25, 10 s", "standard input" or the path.
  std::string Describe() const;
};

// Adds -i/--input, --synthetic and --seconds to `command`; exactly one of -i and --synthetic.
void AddFrameInputOptions(CLI::App& command, FrameInputOptions& options);

// Opens the input the options name and reads its header. Throws std::runtime_error when it
// cannot be opened or its header is not one a channel can take.
std::unique_ptr<FrameSource> OpenFrameInput(const FrameInputOptions& options);

}  // namespace Quillmar::Tools
