#include "platform/host/stream_hub.h"

#include <cstring>
#include <new>

#include "record_host/host.h"

namespace record {

StreamHub& StreamHub::Get() {
  static auto* hub = new StreamHub;  // record threads may outlive main
  return *hub;
}

HubStream* StreamHub::Stream(int stream) {
  if (stream < 0 || stream >= kStreams) return nullptr;
  if (stream == STREAM_AUDIO) return &m_audio;
  return &m_video[stream < STREAM_AUDIO ? stream : stream - 1];
}

void StreamHub::SetKeyFrameHook(void (*hook)(void*, int), void* context) {
  std::lock_guard<std::mutex> guard(m_hookMutex);
  m_hook = hook;
  m_hookContext = context;
}

int StreamHub::RequestKeyFrame(int stream) {
  if (stream < 0 || stream >= kStreams) return -1;
  m_keyFrameRequests[static_cast<size_t>(stream)].fetch_add(1, std::memory_order_relaxed);
  void (*hook)(void*, int);
  void* context;
  {
    std::lock_guard<std::mutex> guard(m_hookMutex);
    hook = m_hook;
    context = m_hookContext;
  }
  if (hook != nullptr) hook(context, stream);
  return 0;
}

std::int64_t StreamHub::KeyFrameRequests(int stream) const {
  if (stream < 0 || stream >= kStreams) return 0;
  return m_keyFrameRequests[static_cast<size_t>(stream)].load(std::memory_order_relaxed);
}

}  // namespace record

int GetStreamData(int command, int stream, std::uintptr_t readerId, void* arg) {
  record::HubStream* hub = record::StreamHub::Get().Stream(stream);
  if (hub == nullptr) return -1;
  switch (command) {
    case STREAM_REGISTER:
      return hub->Register(readerId, static_cast<double*>(arg));
    case STREAM_UNREGISTER:
      return hub->Unregister(readerId);
    case STREAM_GET_CONFIG:
      return arg != nullptr ? hub->GetConfig(readerId, static_cast<StreamFrame*>(arg)) : -1;
    case STREAM_READ:
      return arg != nullptr ? hub->Read(readerId, static_cast<StreamFrame*>(arg)) : -1;
    case STREAM_RELEASE:
      return hub->Release(readerId);
    default:
      return -1;
  }
}

int SetForceIdr(int stream) {
  return record::StreamHub::Get().RequestKeyFrame(stream);
}

int HostStreamSetConfig(int stream, const unsigned char* data, int length) {
  record::HubStream* hub = record::StreamHub::Get().Stream(stream);
  if (hub == nullptr || length < 0 || (data == nullptr && length > 0)) return -1;
  hub->SetConfig(std::vector<unsigned char>(data, data + length));
  return 0;
}

int HostStreamPublish(int stream, const unsigned char* data, int length, int keyFrame, double timestampMs,
                      int lost) {
  record::HubStream* hub = record::StreamHub::Get().Stream(stream);
  if (hub == nullptr || data == nullptr || length <= 0 || lost < 0) return -1;
  unsigned char* bytes = new (std::nothrow) unsigned char[static_cast<size_t>(length)];
  if (bytes == nullptr) return -1;
  memcpy(bytes, data, static_cast<size_t>(length));
  const std::shared_ptr<const void> owner(bytes, [](const unsigned char* own) { delete[] own; });
  return hub->Publish({bytes, length, keyFrame != 0, timestampMs, lost, owner}) ? 1 : 0;
}

int HostStreamSetLookBack(int stream, double seconds, std::int64_t bytes) {
  record::HubStream* hub = record::StreamHub::Get().Stream(stream);
  if (hub == nullptr || !(seconds > 0) || bytes <= 0) return -1;
  hub->SetLookBack(seconds * 1000.0, bytes);
  return 0;
}

int HostStreamClear(int stream) {
  record::HubStream* hub = record::StreamHub::Get().Stream(stream);
  if (hub == nullptr) return -1;
  hub->Clear();
  return 0;
}

void HostSetKeyFrameHook(void (*hook)(void* context, int stream), void* context) {
  record::StreamHub::Get().SetKeyFrameHook(hook, context);
}

std::int64_t HostKeyFrameRequests(int stream) {
  return record::StreamHub::Get().KeyFrameRequests(stream);
}
