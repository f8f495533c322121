// The cameras and files that feed the streams while a recording runs.
#ifndef RECORDCTL_SOURCES_H
#define RECORDCTL_SOURCES_H

#include <cstdint>
#include <string>

#include "record/types.h"
#include "record_host/host.h"
#include "tools/recordctl/options.h"

namespace recordctl {

class Sources {
 public:
  Sources() = default;
  ~Sources();
  Sources(const Sources&) = delete;
  Sources& operator=(const Sources&) = delete;

  // Blocks until the source is understood. False with a message.
  bool Open(const Options& options, int stream, const std::string& url, bool loop, bool noAudio);
  void Close();

  // What a task has to know of the stream, audio as it comes with the main stream.
  void Describe(int stream, RECORD_TASK_PARAM& param) const;

  enum class Health { kFlows, kEnded, kFailed };
  // Tells, once each time, that a camera went away or came back.
  Health Check(int stream);

  // Time stamp of the newest frame of a stream, milliseconds modulo 2^32. False: there is none.
  static bool NewestStamp(int stream, std::uint32_t& stamp);

 private:
  static constexpr int kStreams = 2;
  bool m_open[kStreams] = {};
  bool m_lost[kStreams] = {};
};

}  // namespace recordctl

#endif
