// A clock that the test owns: a day passes as fast as the code under test can sleep through it.
//
// Every thread that asks for the time or sleeps takes part. Time moves only when all threads that take part
// sleep, and then straight to the earliest wake-up, so that several threads run in step and no real time is
// spent waiting.
#ifndef TESTS_SUPPORT_FAKE_CLOCK_H
#define TESTS_SUPPORT_FAKE_CLOCK_H

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <set>

#include "base/clock.h"

namespace fake {

class Clock {
 public:
  static Clock& Get();

  // Local wall time at which the next test begins; run time starts at 1000 s.
  void Reset(int year, int month, int day, int hour, int minute, int second);

  long long WallMs();           // since 1970
  long long RunUs();            // since the device was started
  void StepWall(long long ms);  // somebody sets the wall clock

  void SleepUs(long long us);
  // From here on time passes by itself, that much faster than real time, whoever sleeps or waits: for tests whose
  // threads wait for each other at random. Until the next Reset().
  void RunFree(int factor);

  void Sleep(int ms) { SleepUs(ms * 1000LL); }
  // Sleeps in small steps until `done` holds or `limitMs` of fake time are over. Returns whether it holds.
  bool SleepUntil(const std::function<bool()>& done, long long limitMs);

  // Takes no part while the other threads do, until `done` holds or they have come to `limitMs` of fake time:
  // much faster than sleeping beside them. Returns whether it holds.
  bool WatchUntil(const std::function<bool()>& done, long long limitMs);

  // Called before each sleep of any thread, on that thread.
  void OnSleep(std::function<void()> hook);

  // Starts a thread by `start` and blocks, in real time, until it takes part. False when `start` says that
  // there is none.
  bool StartThread(const std::function<bool()>& start);

  // The calling thread waits for something else than time while this lives.
  class Pause {
   public:
    Pause();
    ~Pause();
  };

 private:
  struct Membership {
    bool joined = false;
    unsigned generation = 0;
    ~Membership();
  };
  static thread_local Membership t_membership;

  void Join(std::unique_lock<std::mutex>& lock);
  void Leave();
  void AdvanceIfAllSleep();
  long long NowUs() const;  // under the mutex

  std::mutex m_mutex;
  std::condition_variable m_changed;
  unsigned m_generation = 1;
  int m_participants = 0;
  int m_joins = 0;                     // ever, within this generation
  std::multiset<long long> m_wakeUps;  // run time, us
  long long m_runUs = 0;
  long long m_wallOffsetUs = 0;
  int m_freeFactor = 0;  // 0: time moves only when all sleep
  std::chrono::steady_clock::time_point m_freeSince;
  std::function<void()> m_onSleep;
};

void InstallClock();  // puts the clock behind base/clock

}  // namespace fake

#endif
