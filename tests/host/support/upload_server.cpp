#include "tests/host/support/upload_server.h"

#include <unistd.h>

#include <cstdlib>
#include <utility>

#include "tests/host/support/clips.h"

namespace record {

UploadServer::UploadServer(std::string service, std::string directory, std::vector<std::string> options)
    : m_service(std::move(service)), m_directory(std::move(directory)), m_options(std::move(options)) {}

// The system's own interpreter has the packages, whatever else is in the path.
bool UploadServer::Start() {
  std::vector<std::string> words = {"/usr/bin/python3", SERVERS_SCRIPT,        m_service, "--root", m_directory,
                                    "--port",           std::to_string(m_port)};
  words.insert(words.end(), m_options.begin(), m_options.end());
  m_port = m_process.Start(words);
  return m_port > 0;
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

}  // namespace record
