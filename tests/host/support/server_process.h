// A server in a process of its own, which tells its port in a line on stdout.
#ifndef TESTS_HOST_SUPPORT_SERVER_PROCESS_H
#define TESTS_HOST_SUPPORT_SERVER_PROCESS_H

#include <sys/types.h>

#include <string>
#include <vector>

namespace record {

class ServerProcess {
 public:
  ServerProcess() = default;
  ~ServerProcess() { Kill(); }
  ServerProcess(const ServerProcess&) = delete;
  ServerProcess& operator=(const ServerProcess&) = delete;

  // Runs the command until it has told its port: that, or 0.
  int Start(std::vector<std::string> command);
  void Kill();

 private:
  pid_t m_process = -1;
};

}  // namespace record

#endif
