#include "tests/host/support/servers.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "tests/host/support/clips.h"

extern char** environ;

namespace record {

bool ServerProcess::Start() {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return false;
  std::vector<std::string> command = Command();
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
  const bool ready = error == 0 && fscanf(output, "%d", &m_port) == 1;
  fclose(output);
  if (error != 0) m_process = -1;
  return ready && m_port > 0;
}

void ServerProcess::Kill() {
  if (m_process <= 0) return;
  kill(m_process, SIGKILL);
  waitpid(m_process, nullptr, 0);
  m_process = -1;
}

// The system's own interpreter has the packages, whatever else is in the path.
std::vector<std::string> UploadServer::Command() const {
  std::vector<std::string> words = {"/usr/bin/python3", SERVERS_SCRIPT,        m_service, "--root", m_directory,
                                    "--port",           std::to_string(Port())};
  words.insert(words.end(), m_options.begin(), m_options.end());
  return words;
}

std::string ServerCertificate() {
  static const TempDir directory;
  const std::string path = directory.Path() + "/server.pem";
  if (access(path.c_str(), R_OK) == 0) return path;
  const std::string command =
      "openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 2 -subj /CN=test -addext "
      "subjectAltName=IP:127.0.0.1 -keyout " +
      path + " -out " + path + ".crt 2>/dev/null && cat " + path + ".crt >>" + path;
  return system(command.c_str()) == 0 ? path : "";
}

SilentServer::SilentServer() : m_socket(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  struct sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof(address);
  bind(m_socket, reinterpret_cast<struct sockaddr*>(&address), length);
  listen(m_socket, 4);
  getsockname(m_socket, reinterpret_cast<struct sockaddr*>(&address), &length);
  m_port = ntohs(address.sin_port);
}

SilentServer::~SilentServer() {
  close(m_socket);
}

}  // namespace record
