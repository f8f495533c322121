#include "tests/host/support/server_process.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>

extern char** environ;

namespace record {

int ServerProcess::Start(std::vector<std::string> command) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return 0;
  std::vector<char*> arguments;
  for (std::string& word : command) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  posix_spawn_file_actions_adddup2(&files, ends[1], STDOUT_FILENO);
  const int error = posix_spawnp(&m_process, arguments[0], &files, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&files);
  close(ends[1]);
  FILE* output = fdopen(ends[0], "r");
  int port = 0;
  const bool ready = error == 0 && fscanf(output, "%d", &port) == 1;
  fclose(output);
  if (error != 0) m_process = -1;
  return ready ? port : 0;
}

void ServerProcess::Kill() {
  if (m_process <= 0) return;
  kill(m_process, SIGKILL);
  waitpid(m_process, nullptr, 0);
  m_process = -1;
}

}  // namespace record
