#include "record/query_pin.h"

#include <atomic>
#include <mutex>

#include "base/brief_wait.h"

namespace record {
namespace {

// Queries count themselves into the phase of their time. A waiter turns the phase over, so that the count it
// waits for only falls.
std::atomic<unsigned> g_phase{0};
std::atomic<int> g_inFlight[2];
std::mutex g_waiters;
thread_local int t_pins = 0;  // held by this thread

}  // namespace

QueryPin::QueryPin() {
  ++t_pins;
  while (true) {
    m_phase = g_phase.load() & 1;
    ++g_inFlight[m_phase];
    // Turned over in between, the waiter may have seen the count before this query was in it.
    if ((g_phase.load() & 1) == m_phase) return;
    --g_inFlight[m_phase];
  }
}

QueryPin::~QueryPin() {
  --g_inFlight[m_phase];
  --t_pins;
}

void QueryPin::WaitForQueries() {
  if (t_pins > 0) return;
  const std::lock_guard<std::mutex> lock(g_waiters);
  const unsigned old = g_phase.fetch_add(1) & 1;
  while (g_inFlight[old].load() != 0) BriefWait();
}

}  // namespace record
