// Looks at every sync of the process (the program is linked with --wrap for them), and can make them slow.
#ifndef TESTS_TRUST_SYNC_WATCH_H
#define TESTS_TRUST_SYNC_WATCH_H

#include "tests/trust/journal.h"

namespace trust {

// From now on a sync of a file in the journal that succeeds is noted there.
void WatchSyncs(Journal* journal);

// Every background sync of a record file takes so much longer, as on a card that stalls.
void StallSyncs(int milliseconds);

}  // namespace trust

#endif
