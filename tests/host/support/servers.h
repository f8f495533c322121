// Real servers in processes of their own, which tell their port in a line on stdout, and one that never answers.
#ifndef TESTS_HOST_SUPPORT_SERVERS_H
#define TESTS_HOST_SUPPORT_SERVERS_H

#include <sys/types.h>

#include <string>
#include <utility>
#include <vector>

namespace record {

class ServerProcess {
 public:
  virtual ~ServerProcess() { Kill(); }
  ServerProcess(const ServerProcess&) = delete;
  ServerProcess& operator=(const ServerProcess&) = delete;

  // Serves; on the port of last time when there was one.
  bool Start();
  void Kill();
  int Port() const { return m_port; }

 protected:
  ServerProcess() = default;
  virtual std::vector<std::string> Command() const = 0;

 private:
  pid_t m_process = -1;
  int m_port = 0;
};

class RtspCamera : public ServerProcess {
 public:
  explicit RtspCamera(std::string clip) : m_clip(std::move(clip)) {}
  std::string Url() const { return "rtsp://127.0.0.1:" + std::to_string(Port()) + "/camera"; }

 private:
  std::vector<std::string> Command() const override {
    return {RTSP_SERVER_PROGRAM, std::to_string(Port()), m_clip};
  }
  const std::string m_clip;
};

// What upload servers let in.
constexpr char kServerUser[] = "cam";
constexpr char kServerPassword[] = "s3cret-pa55";

class UploadServer : public ServerProcess {
 public:
  // `service` "ftp", "mail" or another of servers.py; what it gets comes into `directory`. Further `options`: see
  // servers.py.
  UploadServer(std::string service, std::string directory, std::vector<std::string> options = {})
      : m_service(std::move(service)), m_directory(std::move(directory)), m_options(std::move(options)) {}

 private:
  std::vector<std::string> Command() const override;

  const std::string m_service;
  const std::string m_directory;
  const std::vector<std::string> m_options;
};

// A key with its own certificate for 127.0.0.1, made once a run.
std::string ServerCertificate();

// A socket that accepts and never answers.
class SilentServer {
 public:
  SilentServer();
  ~SilentServer();
  SilentServer(const SilentServer&) = delete;
  SilentServer& operator=(const SilentServer&) = delete;
  std::string Url() const { return "rtsp://127.0.0.1:" + std::to_string(m_port) + "/x"; }

 private:
  const int m_socket;
  int m_port;
};

}  // namespace record

#endif
