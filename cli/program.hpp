// What all commands share.
#pragma once

#include "output.hpp"
#include "terminal.hpp"

#include <unistd.h>

#include <functional>
#include <string>

namespace CLI {
class App;
}

namespace varro2::cli {

struct Program {
  Output out{STDOUT_FILENO};
  Style style;       // of the standard output stream
  Style error_style; // of the standard error stream
  ColourChoice colour = ColourChoice::automatic;
  bool verbose = false;
  std::function<int()> command; // what the command line asks for
};

} // namespace varro2::cli
