// How a device names itself in alarms and mails.
#ifndef RECORD_LOG_PREFIX_H
#define RECORD_LOG_PREFIX_H

#include <string>

namespace record {

// "[serial]" or "[serial][device name]", less than 220 bytes; a '^' in the name ends what is shown of it.
std::string LogPrefix();

}  // namespace record

#endif
