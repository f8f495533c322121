#include "export/output_name.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace record {
namespace {

// File systems that have nothing to sync say EINVAL.
int Sync(const std::string& path, int flags) {
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC | flags);
  if (file < 0) return errno;
  const int error = fsync(file) != 0 && errno != EINVAL ? errno : 0;
  close(file);
  return error;
}

std::string DirectoryOf(const std::string& path) {
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? "." : path.substr(0, slash + 1);
}

}  // namespace

const std::string& OutputName::Choose() {
  struct stat status;
  const bool exists = stat(m_path.c_str(), &status) == 0;
  const bool inPlace = exists && (!S_ISREG(status.st_mode) || m_old == Old::kWrittenOver);
  m_chosen = inPlace ? m_path : m_path + ".part";
  return m_chosen;
}

int OutputName::Publish() const {
  struct stat status;
  if (stat(m_chosen.c_str(), &status) != 0) return errno;
  if (!S_ISREG(status.st_mode)) return 0;
  const int error = Sync(m_chosen, 0);
  if (error != 0 || !IsTemporary()) return error;
  if (std::rename(m_chosen.c_str(), m_path.c_str()) != 0) return errno;
  // Not every file system syncs directories; the file is there either way.
  Sync(DirectoryOf(m_path), O_DIRECTORY);
  return 0;
}

void OutputName::Abandon() const {
  struct stat status;
  if (IsTemporary() && stat(m_chosen.c_str(), &status) == 0 && status.st_size == 0) unlink(m_chosen.c_str());
}

}  // namespace record
