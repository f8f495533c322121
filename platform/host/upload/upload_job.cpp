#include "platform/host/upload/upload_job.h"

#include <cstdlib>

namespace record {
namespace {

constexpr char kMagic[] = "librecord upload 1\n";
constexpr int kAttemptsMax = 1000000000;  // more is damage

// Values are whole lines: what would end one is escaped.
std::string Escaped(const std::string& value) {
  std::string line;
  for (const char c : value) {
    if (c == '\\') line += "\\\\";
    if (c == '\n') line += "\\n";
    if (c != '\\' && c != '\n') line += c;
  }
  return line;
}

std::string Unescaped(const std::string& line) {
  std::string value;
  for (size_t i = 0; i < line.size(); ++i) {
    const bool escape = line[i] == '\\' && i + 1 < line.size();
    if (escape) ++i;
    value += escape && line[i] == 'n' ? '\n' : line[i];
  }
  return value;
}

std::string ToText(const std::string& value) {
  return Escaped(value);
}
std::string ToText(long long value) {
  return std::to_string(value);
}
void FromText(const std::string& line, std::string& value) {
  value = Unescaped(line);
}
void FromText(const std::string& line, int& value) {
  value = static_cast<int>(std::strtol(line.c_str(), nullptr, 10));
}
void FromText(const std::string& line, long long& value) {
  value = std::strtoll(line.c_str(), nullptr, 10);
}

// Every field that is kept, by its name in the file. `Job` is a job to read from or to write to.
template <typename Job, typename Visit>
void EachField(Job& job, const Visit& visit) {
  visit("host", job.host);
  visit("port", job.port);
  visit("flags", job.flags);
  visit("user", job.user);
  visit("password", job.secret);
  visit("directory", job.directory);
  visit("name", job.name);
  visit("remote_directory", job.remoteDirectory);
  visit("remote_name", job.remoteName);
  visit("sender", job.sender);
  visit("recipients", job.recipients);
  visit("text", job.text);
  visit("queued", job.queuedMs);
  visit("next", job.nextMs);
  visit("attempts", job.attempts);
  visit("refusals", job.refusals);
  visit("error", job.error);
}

}  // namespace

std::string UploadJob::Target() const {
  if (service == UploadService::kEmail) return recipients + " by " + host;
  return "ftp " + host + ":" + remoteDirectory + "/" + remoteName;
}

bool UploadJob::MeetsObstacleOf(const UploadJob& other) const {
  if (other.obstacle == Obstacle::kNone || host != other.host || port != other.port) return false;
  if (other.obstacle == Obstacle::kServer) return true;
  if (flags != other.flags) return false;
  return other.obstacle == Obstacle::kSecurity || (user == other.user && secret == other.secret);
}

std::string JobText(const UploadJob& job) {
  std::string text = kMagic;
  EachField(job,
            [&](const char* key, const auto& value) { text += std::string(key) + "=" + ToText(value) + "\n"; });
  return text + "obstacle=" + std::to_string(static_cast<int>(job.obstacle)) + "\nend\n";
}

bool ParseJob(const std::string& text, UploadJob* job) {
  constexpr char kEnd[] = "\nend\n";  // a file that was cut short has none
  const size_t end = text.rfind(kEnd);
  if (text.compare(0, sizeof kMagic - 1, kMagic) != 0 || end == std::string::npos) return false;
  for (size_t begin = sizeof kMagic - 1; begin < end;) {
    const size_t lineEnd = text.find('\n', begin);
    const size_t equals = text.find('=', begin);
    if (equals == std::string::npos || equals > lineEnd) return false;
    const std::string key = text.substr(begin, equals - begin);
    const std::string value = text.substr(equals + 1, lineEnd - equals - 1);
    EachField(*job, [&](const char* name, auto& field) {
      if (key == name) FromText(value, field);
    });
    if (key == "obstacle" && value.size() == 1 && value[0] >= '0' && value[0] <= '3')
      job->obstacle = static_cast<Obstacle>(value[0] - '0');
    begin = lineEnd + 1;
  }
  return !job->host.empty() && !job->name.empty() && job->attempts >= 0 && job->attempts < kAttemptsMax;
}

}  // namespace record
