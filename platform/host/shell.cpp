#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <string>

#include "base/log.h"
#include "record/platform.h"

extern char** environ;

namespace {

// What a command must not inherit: blocked and ignored signals, and any descriptor but the standard three.
// Its output goes to stderr, because stdout is the program's own.
class SpawnRules {
 public:
  SpawnRules() {
    posix_spawn_file_actions_init(&m_files);
    posix_spawn_file_actions_addopen(&m_files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&m_files, STDERR_FILENO, STDOUT_FILENO);
#if defined(__GLIBC__) && __GLIBC_PREREQ(2, 34)
    posix_spawn_file_actions_addclosefrom_np(&m_files, STDERR_FILENO + 1);
#endif
    posix_spawnattr_init(&m_attributes);
    sigset_t signals;
    sigemptyset(&signals);
    posix_spawnattr_setsigmask(&m_attributes, &signals);
    sigaddset(&signals, SIGPIPE);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGCHLD);
    posix_spawnattr_setsigdefault(&m_attributes, &signals);
    posix_spawnattr_setflags(&m_attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
  }
  ~SpawnRules() {
    posix_spawn_file_actions_destroy(&m_files);
    posix_spawnattr_destroy(&m_attributes);
  }
  SpawnRules(const SpawnRules&) = delete;
  SpawnRules& operator=(const SpawnRules&) = delete;

  int Spawn(const char* command, pid_t* child) const {
    char shell[] = "sh";
    char option[] = "-c";
    std::string line(command);
    char* arguments[] = {shell, option, line.data(), nullptr};
    return posix_spawn(child, "/bin/sh", &m_files, &m_attributes, arguments, environ);
  }

 private:
  posix_spawn_file_actions_t m_files;
  posix_spawnattr_t m_attributes;
};

}  // namespace

// 0 when the command succeeded, else the negative of its exit code (-1 also when it did not run or was
// killed). The shell itself returns at once from a line that ends in '&'.
int mysystem(const char* command) {
  if (command == nullptr) return -1;
  pid_t child;
  const int error = SpawnRules().Spawn(command, &child);
  if (error != 0) {
    RECORD_LOG("cannot run \"%s\", err=%d\n", command, error);
    return -1;
  }
  int status = 0;
  pid_t waited;
  do {
    waited = waitpid(child, &status, 0);
  } while (waited < 0 && errno == EINTR);
  if (waited < 0 || !WIFEXITED(status)) return -1;
  return -WEXITSTATUS(status);
}

int mysystem_with_param(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  va_list again;
  va_copy(again, arguments);
  const int length = vsnprintf(nullptr, 0, format, arguments);
  va_end(arguments);
  std::string command(length > 0 ? static_cast<size_t>(length) : 0, '\0');
  if (length >= 0) vsnprintf(command.data(), command.size() + 1, format, again);
  va_end(again);
  return length >= 0 ? mysystem(command.c_str()) : -1;
}
