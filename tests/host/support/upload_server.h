// A real FTP or mail server in a process of its own.
#ifndef TESTS_HOST_SUPPORT_UPLOAD_SERVER_H
#define TESTS_HOST_SUPPORT_UPLOAD_SERVER_H

#include <string>
#include <vector>

#include "tests/host/support/server_process.h"

namespace record {

// What it lets in.
constexpr char kServerUser[] = "cam";
constexpr char kServerPassword[] = "s3cret-pa55";

class UploadServer {
 public:
  // `service` "ftp", "mail" or another of servers.py; what it gets comes into `directory`. Further `options`: see
  // servers.py.
  UploadServer(std::string service, std::string directory, std::vector<std::string> options = {});

  // Serves; on the port of last time when there was one.
  bool Start();
  void Kill() { m_process.Kill(); }
  int Port() const { return m_port; }

 private:
  const std::string m_service;
  const std::string m_directory;
  const std::vector<std::string> m_options;
  ServerProcess m_process;
  int m_port = 0;
};

// A key with its own certificate for 127.0.0.1, made once a run.
std::string ServerCertificate();

}  // namespace record

#endif
