// CommandRunner: runs the tessel executable as a user would and captures what
// it prints and its exit code.
#pragma once

#include <string>
#include <vector>

namespace tessel::test {

struct CommandResult {
  int exitCode = -1;
  std::string out;
  std::string err;
};

// Runs the tessel binary of this build with the arguments; the environment is
// the test's own. Standard input is empty.
CommandResult RunTessel(const std::vector<std::string>& args);

}  // namespace tessel::test
