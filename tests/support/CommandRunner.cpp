#include "tests/support/CommandRunner.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <stdexcept>

#include "tests/support/TempDir.h"

extern char** environ;

namespace tessel::test {

CommandResult RunTessel(const std::vector<std::string>& args) {
  TempDir capture;
  std::string outFile = (capture / "out").string();
  std::string errFile = (capture / "err").string();
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, outFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, errFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  std::vector<std::string> argv{TESSEL_BINARY};
  argv.insert(argv.end(), args.begin(), args.end());
  std::vector<char*> pointers;
  for (std::string& arg : argv) pointers.push_back(arg.data());
  pointers.push_back(nullptr);
  pid_t pid = 0;
  int rc = posix_spawn(&pid, TESSEL_BINARY, &actions, nullptr, pointers.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (rc != 0) throw std::runtime_error("could not start " TESSEL_BINARY);
  int status = 0;
  waitpid(pid, &status, 0);
  CommandResult result;
  result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  result.out = ReadFileText(outFile);
  result.err = ReadFileText(errFile);
  return result;
}

}  // namespace tessel::test
