// One upload: what goes where, and how it stands. Its file in the queue holds the same as lines of text.
#ifndef PLATFORM_HOST_UPLOAD_UPLOAD_JOB_H
#define PLATFORM_HOST_UPLOAD_UPLOAD_JOB_H

#include <string>

namespace record {

enum class UploadService { kFtp = 0, kEmail = 1 };
constexpr int kUploadServices = 2;

// What an attempt failed at, as far as other uploads would meet the same.
enum class Obstacle {  // in the queue's files, never renumber
  kNone = 0,           // this file alone
  kServer = 1,         // nobody can reach the server
  kSecurity = 2,       // its certificate, or that it offers no TLS: those that ask for the same
  kLogin = 3,          // a user's name or password
};

struct UploadJob {
  std::string id;  // its name in the queue; ids sort by time
  UploadService service = UploadService::kFtp;

  std::string host;
  int port = 0;
  int flags = 0;  // UploadFlag
  std::string user;
  std::string secret;  // where the password is

  std::string directory;
  std::string name;

  std::string remoteDirectory;  // FTP: with '/' in front from the server's root, else from the login's directory
  std::string remoteName;
  std::string sender;  // e-mail
  std::string recipients;
  std::string text;

  long long queuedMs = 0;               // wall clock
  long long nextMs = 0;                 // of the next attempt; once it ended, of the end
  int attempts = 0;                     // that failed
  int refusals = 0;                     // of them those that the server refused for good
  Obstacle obstacle = Obstacle::kNone;  // of the last one
  std::string error;                    // likewise

  std::string Path() const { return directory + "/" + name; }
  std::string Target() const;  // for people
  // Whether it would fail now at what `other` failed at.
  bool MeetsObstacleOf(const UploadJob& other) const;
};

std::string JobText(const UploadJob& job);
// False when the text is not one of a job.
bool ParseJob(const std::string& text, UploadJob* job);

}  // namespace record

#endif
