#include "tools/recordctl/record_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "format/kmv/kmv_format.h"
#include "tools/recordctl/output.h"
#include "tools/recordctl/root.h"

namespace recordctl {
namespace {

constexpr char kRecordFiles[] = "a KMV, AVI or MP4 file";

bool Recognize(int file, Container& container) {
  char head[12] = {};
  if (pread(file, head, sizeof head, 0) < 4) return false;
  std::uint32_t magic = 0;
  std::memcpy(&magic, head, sizeof magic);
  const auto holds = [&](std::size_t at, const char* word) { return std::memcmp(head + at, word, 4) == 0; };
  if (magic == record::KMV_HEAD_MAGIC)
    container = Container::kKmv;
  else if (holds(0, "RIFF") && holds(8, "AVI "))
    container = Container::kAvi;
  else if (holds(4, "ftyp") || holds(4, "moov"))
    container = Container::kMp4;
  else
    return false;
  return true;
}

std::string Complaint(int file, Container& container) {
  struct stat status;
  if (fstat(file, &status) != 0) return std::strerror(errno);
  if (S_ISDIR(status.st_mode)) return std::string("is a directory, not ") + kRecordFiles;
  if (!S_ISREG(status.st_mode) || !Recognize(file, container)) return std::string("not ") + kRecordFiles;
  const bool isTooShort = container == Container::kKmv && status.st_size < record::kKmvHeadSize;
  return isTooShort ? "too short for a KMV file" : "";
}

}  // namespace

bool FindRecordFile(const Options& options, const std::string& name, RecordFile& file) {
  if (!UseRoot(options)) return false;
  file.path = FindFile(options, name);
  const int descriptor = open(file.path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (descriptor < 0) {
    Say(name + ": " + (errno == ENOENT ? "no such file" : std::strerror(errno)));
    return false;
  }
  const std::string complaint = Complaint(descriptor, file.container);
  close(descriptor);
  if (!complaint.empty()) Say(name + ": " + complaint);
  return complaint.empty();
}

std::unique_ptr<CVideoFile> OpenRecord(const RecordFile& file, const std::string& name) {
  std::unique_ptr<CVideoFile> reader = NewReader(file.container);
  if (reader != nullptr && reader->Open(file.path.c_str()) > 0) return reader;
  Say(name + ": cannot be read as " + NameOf(file.container).label);
  return nullptr;
}

bool RecognizeContainer(const std::string& path, Container& container) {
  const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (descriptor < 0) return false;
  const bool known = Recognize(descriptor, container);
  close(descriptor);
  return known;
}

}  // namespace recordctl
