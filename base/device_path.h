// The device's fixed absolute paths, and the device root that can be put in front of all of them. No other
// file of the library knows them.
#ifndef BASE_DEVICE_PATH_H
#define BASE_DEVICE_PATH_H

#include <array>
#include <string>

#include "record/storage.h"

namespace record {

// The media table, in the order in which media are examined. The index is a medium's number everywhere.
enum Medium : int { kFirstCard = 0, kSecondCard = 1, kUsb = 2, kNetworkShare = 3 };
constexpr int kLocalMediumCount = 3;
constexpr std::array<const char*, 4> kMediumRoots = {"/mnt/mmc0", "/mnt/mmc1", "/mnt/usb", "/tmp/network"};

// The record-type directories below a medium, in the order in which they are examined.
constexpr std::array<const char*, 4> kKindNames = {"manual", "schedule", "motion", "alarm"};

constexpr const char kTmpDirectory[] = "/tmp";
constexpr const char kRamRecordDirectory[] = "/tmp/record";
// Tells the device that a directory of a medium cannot be read.
constexpr const char kOpenFailedFlag[] = "/mnt/nand/opendirfail.flag";
constexpr const char kRecordStatusFile[] = "/tmp/record_status.flag";

// Switches of the device: the file's existence alone counts.
namespace flag {
constexpr const char kIpcServer[] = "/opt/zq/ostrum_ipc_server";
constexpr const char kPreRecord[] = "/opt/zq/flag.pre.record";
constexpr const char kRecordInRam[] = "/opt/zq/flag.suport.record_in_ram";
constexpr const char kDualSensor[] = "/opt/zq/dual_sensor.flag";
constexpr const char kPn210[] = "/opt/zq/pn210.flag";
constexpr const char kPn330[] = "/opt/zq/pn330.flag";
constexpr const char kLessMemory[] = "/opt/zq/less_mem.flag";
}  // namespace flag

bool HasFlag(const char* flagFile);

// A path as a word of a shell line: as it stands when no shell could read it otherwise, else quoted.
std::string ShellWord(const std::string& path);

}  // namespace record

#endif
