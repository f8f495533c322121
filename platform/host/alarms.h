// Alarms that the host raises by itself.
#ifndef PLATFORM_HOST_ALARMS_H
#define PLATFORM_HOST_ALARMS_H

#include <string>

namespace record {

// `kind` is a HostAlarmKind; now.
void RaiseAlarm(int kind, int code, int arg1, int arg2, const std::string& text);

}  // namespace record

#endif
