// The sources that an application has opened, one a stream.
#include <memory>
#include <mutex>

#include "platform/host/media_source.h"
#include "record_host/host.h"

namespace {

using record::MediaSource;

constexpr int kSources = 2;  // main and sub

struct Slot {
  std::mutex mutex;
  std::shared_ptr<MediaSource> source;  // null: closed
  HostStreamInfoRecord last = {};       // what is known of the source that was closed or not opened
};

Slot* SlotOf(int stream) {
  static auto* slots = new Slot[kSources];  // threads may outlive main
  return stream >= 0 && stream < kSources ? &slots[stream] : nullptr;
}

// libavformat would write to stderr by itself, URLs with passwords included.
void SilenceLibavformat() {
  static std::once_flag once;
  std::call_once(once, [] { av_log_set_level(AV_LOG_QUIET); });
}

void Forget(Slot* slot, const std::shared_ptr<MediaSource>& source, int state) {
  std::lock_guard<std::mutex> guard(slot->mutex);
  if (slot->source == source) slot->source = nullptr;
  slot->last = source->Info();
  slot->last.state = state;
}

}  // namespace

int HostStreamOpenWith(int stream, const char* url, const HostStreamOptions* options) {
  Slot* slot = SlotOf(stream);
  if (slot == nullptr || url == nullptr || url[0] == '\0') return -1;
  SilenceLibavformat();
  std::shared_ptr<MediaSource> source;
  {
    std::lock_guard<std::mutex> guard(slot->mutex);
    if (slot->source != nullptr) return -1;
    source = std::make_shared<MediaSource>(stream, url, options != nullptr ? *options : HostStreamOptions{});
    slot->source = source;
  }
  if (source->Start()) return 0;
  Forget(slot, source, HOST_STREAM_FAILED);
  return -1;
}

int HostStreamOpen(int stream, const char* url) {
  return HostStreamOpenWith(stream, url, nullptr);
}

int HostStreamClose(int stream) {
  Slot* slot = SlotOf(stream);
  if (slot == nullptr) return -1;
  std::shared_ptr<MediaSource> source;
  {
    std::lock_guard<std::mutex> guard(slot->mutex);
    source = slot->source;
  }
  if (source == nullptr) return -1;
  source->Stop();
  Forget(slot, source, HOST_STREAM_CLOSED);
  return 0;
}

int HostStreamInfo(int stream, HostStreamInfoRecord* info) {
  Slot* slot = SlotOf(stream);
  if (slot == nullptr || info == nullptr) return -1;
  std::lock_guard<std::mutex> guard(slot->mutex);
  *info = slot->source != nullptr ? slot->source->Info() : slot->last;
  return 0;
}
