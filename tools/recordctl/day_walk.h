// Where playback of a day goes on when its session has come to an end, or to a file that it cannot play.
#ifndef RECORDCTL_DAY_WALK_H
#define RECORDCTL_DAY_WALK_H

#include <string>
#include <vector>

namespace recordctl {

// `time` when something was recorded then, else the start of the next file of the day; -1 when there is none.
long long PlayableFrom(long long time);

// Times in seconds since 1970; files by their paths. Not thread-safe.
class DayWalk {
 public:
  void SoughtByUser(long long time);
  void SeekDone() { m_playing.clear(); }
  void Plays(const std::string& file) { m_playing = file; }
  const std::string& Playing() const { return m_playing; }

  // Where a step back leads: where there is nothing so early, to the begin of the playing file. 0 without one.
  long long BackTo(long long time) const;

  // For a session that idles: where to seek, -1 when all is played. `ended` is the file that it last came to the
  // end of, `unreadable` are those passed over.
  long long GoOn(const std::string& ended, std::vector<std::string>& unreadable);

 private:
  std::string NextFile(const std::string& ended) const;

  long long m_sought = 0;
  long long m_lastSought = 0;  // the day that is played ends no sooner than the latest of these
  std::string m_playing;       // "" from a seek to the first picture behind it
  std::string m_lookedAt;      // up to here no file is looked at again
};

}  // namespace recordctl

#endif
