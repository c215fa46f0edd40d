// SPDX-License-Identifier: Apache-2.0
// Spawning and waiting.
#include "benchmarks/programs.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "benchmarks/measure.h"

namespace vrxbench {

void runProgram(const std::vector<std::string>& arguments) {
  std::vector<char*> pointers;
  for (const std::string& argument : arguments)
    pointers.push_back(const_cast<char*>(argument.c_str()));
  pointers.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  require(posix_spawn_file_actions_init(&actions) == 0, "no memory");
  require(posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0) == 0,
          "no memory");
  pid_t child = 0;
  const int rc = posix_spawnp(&child, pointers[0], &actions, nullptr, pointers.data(), environ);
  (void)posix_spawn_file_actions_destroy(&actions);  // cannot fail once initialised
  require(rc == 0, arguments[0] + " cannot be started");
  int status = 0;
  require(waitpid(child, &status, 0) == child, "no child");
  require(WIFEXITED(status) && WEXITSTATUS(status) == 0, arguments[0] + " failed");
}

}  // namespace vrxbench
