#include "record/video_file.h"

#include <cstring>

#include "base/log.h"
#include "base/no_throw.h"
#include "format/media_file.h"

CVideoFile::~CVideoFile() = default;

namespace {

bool Holds(const char* path, const char* lower, const char* upper) {
  return std::strstr(path, lower) || std::strstr(path, upper);
}

}  // namespace

std::unique_ptr<CVideoFile> record::NewVideoFile(const char* path) {
  if (path && Holds(path, ".kmv", ".KMV")) return std::make_unique<CKmvFile>();
  if (path && Holds(path, ".mp4", ".MP4")) return std::make_unique<CMp4File>();
  if (!path || !Holds(path, ".avi", ".AVI")) return nullptr;
  auto avi = std::make_unique<CAviFile>();
  avi->TakeLongFrames();
  return avi;
}

std::unique_ptr<CVideoFile> CreateVideoFile(const char* path) try {
  std::unique_ptr<CVideoFile> reader = record::NewVideoFile(path);
  if (!reader) RECORD_LOG("not support %s\n\n", path ? path : "");
  return reader;
}
RECORD_NO_THROW(nullptr)
