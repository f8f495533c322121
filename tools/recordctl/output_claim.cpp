#include "tools/recordctl/output_claim.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace recordctl {
namespace {

// False: another run has it, or had it until now and gave it its own name. Where files cannot be locked, nobody
// has it.
bool Lock(int file, const std::string& path) {
  if (flock(file, LOCK_EX | LOCK_NB) != 0) return errno != EWOULDBLOCK;
  struct stat locked = {};
  struct stat named = {};
  return fstat(file, &locked) == 0 && stat(path.c_str(), &named) == 0 && locked.st_ino == named.st_ino &&
         locked.st_dev == named.st_dev;
}

}  // namespace

OutputClaim::OutputClaim(const std::string& path, bool overwrite) : m_complaint(Claim(path, overwrite)) {}

OutputClaim::~OutputClaim() {
  if (m_file >= 0) close(m_file);
}

std::string OutputClaim::Claim(const std::string& path, bool overwrite) {
  struct stat status = {};
  if (stat(path.c_str(), &status) == 0) {
    if (S_ISDIR(status.st_mode)) return path + ": is a directory";
    if (!overwrite) return path + ": is there already (--overwrite replaces it)";
    if (!S_ISREG(status.st_mode)) return path + ": is no regular file";
  }
  const std::string part = path + ".part";
  m_file = open(part.c_str(), O_WRONLY | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0666);
  if (m_file < 0) return path + ": cannot be written: " + std::strerror(errno);
  if (!Lock(m_file, part)) return path + ": is being made by another run";
  if (ftruncate(m_file, 0) != 0) return path + ": cannot be written: " + std::strerror(errno);
  return "";
}

}  // namespace recordctl
