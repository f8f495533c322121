// Names that people write for kinds.
#ifndef RECORDCTL_MEDIA_KINDS_H
#define RECORDCTL_MEDIA_KINDS_H

#include <string>

#include "record/types.h"

namespace recordctl {

struct Kind {
  const char* name;  // also its directory on a medium
  RecordKind code;
  unsigned char minuteType;  // what its minutes get in the day's type index
};

const Kind* FindKind(const std::string& name);  // null: no such kind

}  // namespace recordctl

#endif
