// Keeps the tasks that a registry query looks at alive, without a lock: whoever has taken a task out of its
// slot waits until every query that began before that is over, then the task may go.
#ifndef RECORD_QUERY_PIN_H
#define RECORD_QUERY_PIN_H

namespace record {

class QueryPin {
 public:
  QueryPin();
  ~QueryPin();
  QueryPin(const QueryPin&) = delete;
  QueryPin& operator=(const QueryPin&) = delete;

  // Returns when the queries that hold a pin now have let it go; later ones do not delay it. Returns at once on
  // a thread that holds a pin itself: there a task leaves the registry from within its own Stop().
  static void WaitForQueries();

 private:
  unsigned m_phase;
};

}  // namespace record

#endif
