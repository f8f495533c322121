// A real RTSP server in a process of its own.
#ifndef TESTS_HOST_SUPPORT_RTSP_CAMERA_H
#define TESTS_HOST_SUPPORT_RTSP_CAMERA_H

#include <string>

#include "tests/host/support/server_process.h"

namespace record {

class RtspCamera {
 public:
  explicit RtspCamera(const std::string& clip) : m_clip(clip) {}

  // Serves; on the port of last time when there was one.
  bool Start() {
    m_port = m_process.Start({RTSP_SERVER_PROGRAM, std::to_string(m_port), m_clip});
    return m_port > 0;
  }
  void Kill() { m_process.Kill(); }
  std::string Url() const { return "rtsp://127.0.0.1:" + std::to_string(m_port) + "/camera"; }

 private:
  const std::string m_clip;
  ServerProcess m_process;
  int m_port = 0;
};

}  // namespace record

#endif
