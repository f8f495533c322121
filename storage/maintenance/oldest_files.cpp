#include "storage/maintenance/oldest_files.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

#include "base/log.h"
#include "base/time_word.h"

namespace record {

OldestFiles::OldestFiles(OldFileInfo_s* head, unsigned maxCount, unsigned count)
    : m_maxCount(maxCount), m_count(count) {
  for (; head != nullptr; head = head->next) m_files.emplace_hint(m_files.end(), FromTimeWord(head->time), head);
}

OldestFiles::~OldestFiles() {
  for (const auto& file : m_files) std::free(file.second);
}

bool OldestFiles::Wants(long long time) const {
  if (m_maxCount == 0) return false;
  return !IsFull() || m_files.empty() || time <= m_files.begin()->first;
}

void OldestFiles::Offer(long long time, const char* directory, const char* name) {
  if (!Wants(time)) return;
  constexpr size_t kRoom = sizeof(OldFileInfo_s::path);
  if (std::strlen(directory) + 1 + std::strlen(name) >= kRoom) {
    RECORD_LOG("path is too long: %s/%s", directory, name);
    return;
  }
  OldFileInfo_s* node = TakeNode();
  if (node == nullptr) return;
  node->time = ToTimeWord(time);
  std::snprintf(node->path, kRoom, "%s/%s", directory, name);
  try {
    Insert(time, node);
  } catch (const std::bad_alloc&) {
    std::free(node);
    --m_count;
  }
}

// A new one, or, when the list is full, the newest of it.
OldFileInfo_s* OldestFiles::TakeNode() {
  if (IsFull() && !m_files.empty()) {
    m_spare = m_files.extract(m_files.begin());
    return m_spare.mapped();
  }
  auto* node = static_cast<OldFileInfo_s*>(std::calloc(1, sizeof(OldFileInfo_s)));
  if (node != nullptr) ++m_count;
  return node;
}

// In front of those of the same time, but never in front of the head.
void OldestFiles::Insert(long long time, OldFileInfo_s* node) {
  auto place = m_files.lower_bound(time);
  if (place == m_files.begin() && place != m_files.end() && place->first == time) ++place;
  if (m_spare.empty()) {
    m_files.emplace_hint(place, time, node);
    return;
  }
  m_spare.key() = time;
  m_files.insert(place, std::move(m_spare));
}

OldFileInfo_s* OldestFiles::Release() {
  OldFileInfo_s* head = nullptr;
  OldFileInfo_s* last = nullptr;
  for (const auto& file : m_files) {
    OldFileInfo_s* node = file.second;
    node->prev = last;
    node->next = nullptr;
    (last != nullptr ? last->next : head) = node;
    last = node;
  }
  m_files.clear();
  return head;
}

}  // namespace record
