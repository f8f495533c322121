#include "tests/support/fake_streams.h"

#include <algorithm>
#include <cmath>

#include "tests/support/fake_clock.h"

namespace fake {

Streams& Streams::Get() {
  static Streams* streams = new Streams;
  return *streams;
}

void Streams::Reset() {
  std::lock_guard<std::mutex> lock(m_mutex);
  m_plans.clear();
  m_readers.clear();
  m_violations.clear();
}

StreamPlan& Streams::Plan(int stream) {
  std::lock_guard<std::mutex> lock(m_mutex);
  return m_plans[stream];
}

void Streams::Remove(int stream) {
  std::lock_guard<std::mutex> lock(m_mutex);
  m_plans.erase(stream);
}

int Streams::ReaderCount() {
  std::lock_guard<std::mutex> lock(m_mutex);
  return static_cast<int>(m_readers.size());
}

std::vector<std::string> Streams::Violations() {
  std::lock_guard<std::mutex> lock(m_mutex);
  return m_violations;
}

std::string Streams::Payload(int stream, std::int64_t index, int bytes) {
  std::string data =
      (stream == STREAM_AUDIO ? "a" : "v") + std::to_string(stream) + ":" + std::to_string(index) + ":";
  while (static_cast<int>(data.size()) < bytes) data += static_cast<char>('A' + (data.size() + index) % 26);
  data.resize(static_cast<size_t>(bytes));
  return data;
}

bool Streams::IsKey(const StreamPlan& plan, std::int64_t index) {
  return plan.video && index % plan.framesPerGroup == 0;
}

double Streams::Stamp(const StreamPlan& plan, std::int64_t index) {
  return plan.startMs + std::floor(static_cast<double>(index) * 1000.0 / plan.framesPerSecond);
}

int Streams::Register(int stream, std::uintptr_t reader, double* lookBackMs) {
  StreamPlan& plan = m_plans[stream];
  if (plan.registrationsToRefuse > 0) {
    --plan.registrationsToRefuse;
    return -1;
  }
  const double now = static_cast<double>(Clock::Get().WallMs());
  const double wanted = now - *lookBackMs;
  auto index = static_cast<std::int64_t>(std::floor((wanted - plan.startMs) * plan.framesPerSecond / 1000));
  index = std::max<std::int64_t>(index, 0);
  if (plan.video) index -= index % plan.framesPerGroup;
  m_readers[{stream, reader}] = Reader{index, false, "", 0};
  *lookBackMs = std::max(0.0, now - (plan.startMs + static_cast<double>(index) * 1000.0 / plan.framesPerSecond));
  return 0;
}

int Streams::Read(int stream, std::uintptr_t id, StreamFrame* frame) {
  const auto found = m_readers.find({stream, id});
  if (found == m_readers.end()) {
    m_violations.push_back("read without a registration");
    return -1;
  }
  Reader& reader = found->second;
  const StreamPlan& plan = m_plans[stream];
  if (reader.holds) m_violations.push_back("read before the last frame was released");
  if (plan.readsToFail.count(++reader.reads) != 0) return -1;
  while (plan.lost.count(reader.next) != 0) ++reader.next;
  const std::int64_t index = reader.next;
  const double due = plan.startMs + static_cast<double>(index) * 1000.0 / plan.framesPerSecond +
                     (plan.delayMs ? plan.delayMs(index) : 0);
  if (static_cast<double>(Clock::Get().WallMs()) < due) return 0;
  reader.data = Payload(stream, index, plan.bytesOf ? plan.bytesOf(index) : plan.frameBytes);
  reader.holds = true;
  ++reader.next;
  frame->data = reinterpret_cast<unsigned char*>(reader.data.data());
  frame->length = static_cast<int>(reader.data.size());
  frame->keyFrame = IsKey(plan, index) ? 1 : 0;
  frame->timestampMs = Stamp(plan, index);
  const bool renumbered = plan.renumberedFrom >= 0 && index >= plan.renumberedFrom;
  frame->frameIndex = renumbered ? index - plan.renumberedFrom : index;
  frame->keyframeIndex = plan.video ? frame->frameIndex / plan.framesPerGroup : 0;
  return 1;
}

int Streams::Call(int command, int stream, std::uintptr_t id, void* arg) {
  std::lock_guard<std::mutex> lock(m_mutex);
  const auto plan = m_plans.find(stream);
  const auto reader = m_readers.find({stream, id});
  switch (command) {
    case STREAM_REGISTER:
      return plan == m_plans.end() ? -1 : Register(stream, id, static_cast<double*>(arg));
    case STREAM_UNREGISTER:
      if (reader == m_readers.end()) return -1;
      m_readers.erase(reader);
      return 0;
    case STREAM_GET_CONFIG: {
      if (plan == m_plans.end() || !plan->second.configKnown) return -1;
      auto* frame = static_cast<StreamFrame*>(arg);
      frame->data = reinterpret_cast<unsigned char*>(plan->second.config.data());
      frame->length = static_cast<int>(plan->second.config.size());
      return 0;
    }
    case STREAM_READ:
      return Read(stream, id, static_cast<StreamFrame*>(arg));
    case STREAM_RELEASE:
      if (reader == m_readers.end() || !reader->second.holds) {
        m_violations.push_back("release of no frame");
        return -1;
      }
      reader->second.holds = false;
      reader->second.data.assign(reader->second.data.size(), '\xee');  // what is used after release shows
      return 0;
    default:
      m_violations.push_back("unknown stream command " + std::to_string(command));
      return -1;
  }
}

int Streams::ForceKey(int stream) {
  std::lock_guard<std::mutex> lock(m_mutex);
  ++m_plans[stream].forcedKeys;
  return 0;
}

}  // namespace fake
