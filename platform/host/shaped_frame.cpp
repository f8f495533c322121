#include "platform/host/shaped_frame.h"

#include <climits>
#include <utility>

namespace record {

bool TakeWhole(AVPacket* packet, ShapedFrame* frame) {
  AvPacketPtr owned(av_packet_alloc());
  if (owned == nullptr || packet->size <= 0 || av_packet_make_refcounted(packet) < 0) return false;
  av_packet_move_ref(owned.get(), packet);
  frame->data = owned->data;
  frame->length = owned->size;
  frame->owner = std::shared_ptr<const AVPacket>(std::move(owned));
  return true;
}

bool TakeWithInsertion(const AVPacket* packet, size_t at, const unsigned char* inserted, size_t insertedLength,
                       ShapedFrame* frame) {
  const size_t size = packet->size > 0 ? static_cast<size_t>(packet->size) : 0;
  if (size == 0 || at > size || insertedLength > INT_MAX - size) return false;
  Bytes bytes;
  bytes.reserve(size + insertedLength);
  bytes.insert(bytes.end(), packet->data, packet->data + at);
  bytes.insert(bytes.end(), inserted, inserted + insertedLength);
  bytes.insert(bytes.end(), packet->data + at, packet->data + size);
  return TakeBytes(std::move(bytes), frame);
}

bool TakeBytes(Bytes bytes, ShapedFrame* frame) {
  if (bytes.empty() || bytes.size() > INT_MAX) return false;
  const auto owner = std::make_shared<const Bytes>(std::move(bytes));
  frame->data = owner->data();
  frame->length = static_cast<int>(owner->size());
  frame->owner = owner;
  return true;
}

}  // namespace record
