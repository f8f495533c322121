#include "tools/recordctl/media_kinds.h"

namespace recordctl {
namespace {

constexpr Kind kKinds[] = {
    {"schedule", RECORD_KIND_SCHEDULE, 'A'},
    {"manual", RECORD_KIND_MANUAL, 'A'},
    {"motion", RECORD_KIND_MOTION, 'B'},
    {"alarm", RECORD_KIND_ALARM, 'B'},
};

}  // namespace

const Kind* FindKind(const std::string& name) {
  for (const Kind& kind : kKinds) {
    if (name == kind.name) return &kind;
  }
  return nullptr;
}

}  // namespace recordctl
