#include "platform/host/upload/upload_secret.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace record {
namespace {

constexpr char kFile[] = "file:";
constexpr char kEnvironment[] = "env:";
constexpr size_t kLongest = 1024;

bool BeginsWith(const std::string& text, const std::string& begin) {
  return text.size() > begin.size() && text.compare(0, begin.size(), begin) == 0;
}

}  // namespace

bool IsSecretReference(const std::string& reference) {
  return reference.empty() || BeginsWith(reference, kFile) || BeginsWith(reference, kEnvironment);
}

std::string ReadSecret(const std::string& reference, std::string* secret) {
  secret->clear();
  if (reference.empty()) return "";
  if (BeginsWith(reference, kEnvironment)) {
    const std::string name = reference.substr(std::strlen(kEnvironment));
    const char* value = std::getenv(name.c_str());
    if (value == nullptr) return "the environment has no password " + name;
    *secret = value;
    return "";
  }
  if (!BeginsWith(reference, kFile)) return "a password has to be told as file:PATH or env:NAME";
  const std::string path = reference.substr(std::strlen(kFile));
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  char text[kLongest + 1];
  const ssize_t length = file >= 0 ? read(file, text, kLongest) : -1;
  const int error = errno;
  if (file >= 0) close(file);
  if (length < 0) return "the password file " + path + " cannot be read: " + std::strerror(error);
  secret->assign(text, static_cast<size_t>(length));
  secret->resize(std::min(secret->size(), secret->find_first_of("\r\n")));
  return "";
}

}  // namespace record
