#include "tools/recordctl/prune_rule.h"

#include <algorithm>
#include <ctime>

#include "base/clock.h"
#include "storage/layout.h"
#include "tools/recordctl/free_room.h"

namespace recordctl {
namespace {

class DaysRule : public PruneRule {
 public:
  explicit DaysRule(int days) : m_days(days) {
    struct tm day = record::LocalNow();
    day.tm_mday -= days - 1;
    day.tm_hour = 12;  // no change of the clock at noon
    day.tm_isdst = -1;
    mktime(&day);
    m_first = record::DayName(day.tm_year + 1900, day.tm_mon + 1, day.tm_mday);
  }
  Verdict Judge(const Recording& recording) override {
    return recording.Day() < m_first ? Verdict::kDelete : Verdict::kStop;
  }
  void NoteDeleted(const Recording&) override {}
  std::string Reason() const override {
    return "older than " + std::to_string(m_days) + (m_days == 1 ? " day" : " days");
  }

 private:
  const int m_days;
  std::string m_first;  // day that stays
};

class NewestRule : public PruneRule {
 public:
  NewestRule(RecordingsTree& tree, long long count) : m_count(count), m_surplus(-count) {
    for (const auto& day : tree.Days()) {
      const std::vector<Recording> recordings = tree.ReadDay(day.first);
      m_surplus += std::count_if(recordings.begin(), recordings.end(),
                                 [](const Recording& recording) { return !recording.isPicture; });
    }
  }
  // Pictures do not count, or a series of them would cost every record: they go with the records around them.
  Verdict Judge(const Recording& recording) override {
    const bool goes = m_surplus > 0 || (recording.isPicture && m_count == 0);
    if (!recording.isPicture) --m_surplus;
    return goes ? Verdict::kDelete : Verdict::kStop;
  }
  void NoteDeleted(const Recording&) override {}
  std::string Reason() const override { return "not one of the newest " + std::to_string(m_count); }

 private:
  const long long m_count;
  long long m_surplus;
};

class FreeRule : public PruneRule {
 public:
  FreeRule(const std::vector<std::string>& bases, RecordingsTree& tree, long long megabytes, bool pretend)
      : m_wanted(megabytes), m_pretend(pretend), m_systems(FindRoom(bases, tree, megabytes)) {}
  std::string Refusal() const override {
    for (const auto& each : m_systems) {
      const FreeRoom& room = each.second;
      if (!HasEnough(room) && !room.CanReach(m_wanted)) return room.Refusal(m_wanted) + "; nothing is deleted";
    }
    return "";
  }
  Verdict Judge(const Recording& recording) override {
    const auto system = m_systems.find(recording.device);
    if (system != m_systems.end() && !HasEnough(system->second)) return Verdict::kDelete;
    const auto enough = [this](const auto& each) { return HasEnough(each.second); };
    return std::all_of(m_systems.begin(), m_systems.end(), enough) ? Verdict::kStop : Verdict::kKeep;
  }
  void NoteDeleted(const Recording& recording) override {
    const auto system = m_systems.find(recording.device);
    if (system == m_systems.end()) return;
    if (m_pretend)
      system->second.bytes += recording.bytes;
    else
      system->second.bytes = FreeBytes(system->second.directory);
  }
  std::string Reason() const override { return "less than " + std::to_string(m_wanted) + " MB free"; }
  std::string Complaint() const override {
    for (const auto& each : m_systems) {
      if (HasEnough(each.second)) continue;
      return "only " + std::to_string(Free(each.second)) + " MB are free in " + each.second.directory +
             ", and no recording is left there that could be deleted";
    }
    return "";
  }

 private:
  static long long Free(const FreeRoom& room) { return room.bytes / kMegabyte; }
  // One that cannot tell gives no reason to delete.
  bool HasEnough(const FreeRoom& room) const { return room.bytes < 0 || Free(room) >= m_wanted; }

  const long long m_wanted;
  const bool m_pretend;
  std::map<dev_t, FreeRoom> m_systems;
};

}  // namespace

std::unique_ptr<PruneRule> KeepDays(int days) {
  return std::make_unique<DaysRule>(days);
}

std::unique_ptr<PruneRule> KeepNewest(RecordingsTree& tree, long long count) {
  return std::make_unique<NewestRule>(tree, count);
}

std::unique_ptr<PruneRule> KeepFree(const std::vector<std::string>& bases, RecordingsTree& tree,
                                    long long megabytes, bool pretend) {
  return std::make_unique<FreeRule>(bases, tree, megabytes, pretend);
}

}  // namespace recordctl
