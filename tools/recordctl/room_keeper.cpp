#include "tools/recordctl/room_keeper.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <vector>

#include "base/device_path.h"
#include "record/storage.h"
#include "storage/media.h"
#include "tools/recordctl/free_room.h"
#include "tools/recordctl/output.h"
#include "tools/recordctl/root.h"
#include "tools/recordctl/signals.h"

namespace recordctl {
namespace {

constexpr std::chrono::milliseconds kLookEvery{200};
constexpr std::chrono::seconds kTryAgain{10};
constexpr long long kReserveMB = 64;  // the file that is growing gets this, however much is free elsewhere

std::vector<std::string> LocalBases() {
  std::vector<std::string> bases;
  for (int medium = 0; medium < record::kLocalMediumCount; ++medium) {
    if (record::IsMounted(medium)) bases.push_back(record::MediumBase(medium));
  }
  return bases;
}

std::vector<std::string> BasesBeside(const std::string& path) {
  struct stat own;
  if (stat(path.c_str(), &own) != 0) return {};
  std::vector<std::string> bases = LocalBases();
  const auto isElsewhere = [&own](const std::string& base) {
    struct stat status;
    return stat(base.c_str(), &status) != 0 || status.st_dev != own.st_dev;
  };
  bases.erase(std::remove_if(bases.begin(), bases.end(), isElsewhere), bases.end());
  return bases;
}

// Of the local medium that has most.
long long MostFreeMB() {
  long long most = -1;
  for (const std::string& base : LocalBases()) most = std::max(most, FreeMB(base));
  return most;
}

}  // namespace

RoomKeeper::RoomKeeper(const Options& options, int freeMB) : m_options(options), m_freeMB(freeMB) {}

bool RoomKeeper::CanMakeRoom() const {
  if (MostFreeMB() >= m_freeMB) return true;
  const std::vector<std::string> bases = LocalBases();
  RecordingsTree tree(bases);
  const FreeRoom* best = nullptr;
  const std::map<dev_t, FreeRoom> rooms = FindRoom(bases, tree, m_freeMB);
  for (const auto& [device, room] : rooms) {
    if (best == nullptr || room.reachable > best->reachable) best = &room;
  }
  if (best == nullptr || best->CanReach(m_freeMB)) return true;
  Say(best->Refusal(m_freeMB) + ", and no other local medium more; nothing is deleted");
  return false;
}

void RoomKeeper::MakeRoom() {
  End();
  for (const long long goal : {m_freeMB, static_cast<long long>(kLeastFreeMB)}) {
    if (MostFreeMB() >= goal) return;
    if (!Begin(LocalBases(), goal)) continue;
    while (MostFreeMB() < goal && !WasInterrupted() && DeleteOldest()) continue;
    return End();
  }
}

void RoomKeeper::Tend(const std::string& path) {
  if (path.empty() || (m_tree == nullptr && Clock::now() < m_next)) return;
  const std::string directory = path.substr(0, path.rfind('/'));
  const long long here = FreeMB(directory);
  const long long goal = m_tree != nullptr ? m_goalMB : m_freeMB;
  // The next file goes to another medium as long as that has room.
  const bool isEnough = here < 0 || here >= goal || (here >= kReserveMB && MostFreeMB() >= m_freeMB);
  m_next = Clock::now() + kLookEvery;
  if (!isEnough) {
    if (BeginBeside(directory, here) && DeleteOldest()) return;
    m_next = Clock::now() + kTryAgain;
  }
  End();
}

bool RoomKeeper::BeginBeside(const std::string& directory, long long hereMB) {
  if (m_tree != nullptr) return true;
  const std::vector<std::string> bases = BasesBeside(directory);
  const bool isNextSafe = MostFreeMB() >= m_freeMB;
  if (!isNextSafe && Begin(bases, m_freeMB)) return true;
  return hereMB < kReserveMB && Begin(bases, kReserveMB);
}

bool RoomKeeper::Begin(const std::vector<std::string>& bases, long long goalMB) {
  RecordingsTree tree(bases);
  const std::map<dev_t, FreeRoom> rooms = FindRoom(bases, tree, goalMB);
  std::vector<std::string> able;
  for (const std::string& base : bases) {
    struct stat status;
    const auto room = stat(base.c_str(), &status) == 0 ? rooms.find(status.st_dev) : rooms.end();
    if (room != rooms.end() && room->second.CanReach(goalMB)) able.push_back(base);
  }
  if (able.empty()) {
    Complain(goalMB, "and deleting every recording would not make as many: none is deleted for it");
    return false;
  }
  m_goalMB = goalMB;
  m_tree = std::make_unique<RecordingsTree>(able);
  m_oldest = std::make_unique<OldestFirst>(*m_tree);
  return true;
}

void RoomKeeper::End() {
  m_pruner.Settle();
  m_oldest.reset();
  m_tree.reset();
}

bool RoomKeeper::DeleteOldest() {
  while (const Recording* recording = m_oldest->Next()) {
    const DeleteResult result = m_pruner.Delete(*recording);
    if (result == DELETE_IN_USE) continue;
    const std::string path = ShownFile(m_options, recording->Path());
    if (result == DELETE_FAILED) {
      if (!m_hasComplained) Say("cannot delete " + path + ": " + std::strerror(errno));
      m_hasComplained = true;
      continue;
    }
    Say("less than " + std::to_string(m_goalMB) + " MB free: deleted " + path);
    m_hasComplained = false;
    return true;
  }
  Complain(m_goalMB, "and no recording is left that could be deleted");
  return false;
}

// Once, until something could be deleted again.
void RoomKeeper::Complain(long long goalMB, const char* why) {
  if (!m_hasComplained) Say("less than " + std::to_string(goalMB) + " MB free, " + why);
  m_hasComplained = true;
}

}  // namespace recordctl
