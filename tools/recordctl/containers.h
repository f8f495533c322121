// The containers by name, and which media each of them takes.
#ifndef RECORDCTL_CONTAINERS_H
#define RECORDCTL_CONTAINERS_H

#include <memory>
#include <string>

#include "record/types.h"
#include "record/video_file.h"

namespace recordctl {

enum class Container { kKmv, kAvi, kMp4 };

struct ContainerName {
  Container container;
  const char* name;       // "kmv", what people write
  const char* label;      // "KMV", what they read
  const char* extension;  // ".kmv"
};

const ContainerName& NameOf(Container container);
const ContainerName* FindContainer(const std::string& name);    // null: there is none of that name
const ContainerName* ContainerOfFile(const std::string& path);  // by its extension; null: another or none

std::unique_ptr<CVideoFile> NewReader(Container container);

// Makes the media fit the container: sound that it does not take is left out, with one line. False, with one line:
// its video does not fit.
bool FitMedia(Container container, RECORD_TASK_PARAM& param);

}  // namespace recordctl

#endif
