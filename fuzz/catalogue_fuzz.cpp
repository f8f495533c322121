// A card that anybody may have written: names, side files and a type index made of arbitrary bytes, asked by every
// lookup and cleaned up. The input is a list of records: a byte that tells where the file lies, one for the length
// of its name, two for the length of its content, then both.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <list>
#include <string>

#include "fuzz/fuzz_device.h"
#include "record/catalogue.h"
#include "record/lookups.h"
#include "record/maintenance.h"

namespace {

namespace fs = std::filesystem;
using fuzz::Require;

constexpr const char* kPlaces[] = {"/mnt/mmc0/schedule/20240131", "/mnt/mmc0/schedule", "/mnt/mmc0",
                                   "/mnt/mmc0/motion/20240130"};
constexpr size_t kMostFiles = 12;
constexpr size_t kMinutes = 1440;
constexpr char kOutside[] = "/outside/20240101/000000-av-1.kmv";

// A name of the tree: anything but a path.
std::string Name(std::string bytes) {
  for (char& c : bytes) {
    if (c == '/' || c == '\0') c = '_';
  }
  return bytes == "." || bytes == ".." ? "dots" : bytes;
}

class Input {
 public:
  Input(const std::uint8_t* data, size_t size) : m_data(data), m_size(size) {}
  bool IsEmpty() const { return m_at >= m_size; }
  unsigned Byte() { return IsEmpty() ? 0 : m_data[m_at++]; }
  std::string Bytes(size_t count) {
    count = std::min(count, m_size - std::min(m_at, m_size));
    std::string bytes(reinterpret_cast<const char*>(m_data) + std::min(m_at, m_size), count);
    m_at += count;
    return bytes;
  }

 private:
  const std::uint8_t* m_data;
  size_t m_size;
  size_t m_at = 0;
};

void MakeCard(const fuzz::Device& device, Input& input) {
  auto& records = fake::Platform::Get().records;
  records.clear();
  for (size_t files = 0; files < kMostFiles && !input.IsEmpty(); ++files) {
    const unsigned head = input.Byte();
    const char* place = kPlaces[head % 4];
    const size_t nameLength = input.Byte();
    const size_t contentEights = input.Byte();
    const size_t contentLength = contentEights * 8 + input.Byte() % 8;
    const std::string name = Name(input.Bytes(nameLength));
    const std::string path = record::JoinPath(device.Path(place), name);
    const std::string content = input.Bytes(contentLength);
    if (name.empty() || fs::exists(fs::symlink_status(path))) continue;
    fs::create_directories(device.Path(place));
    if ((head & 0x40) != 0) {
      symlink(device.Path("/outside").c_str(), path.c_str());
    } else if ((head & 0x80) != 0) {
      mkdir(path.c_str(), 0755);
    } else {
      fake::WriteFile(path, content);
      const size_t infoAt = path.rfind(".info");
      if (head % 4 == 0 && infoAt != std::string::npos)
        records.push_back({"/mnt/mmc0/schedule", "20240131/" + name.substr(0, name.rfind(".info"))});
    }
  }
}

void Ask() {
  for (const unsigned hour : {0u, 8u, 23u}) {
    std::string path;
    unsigned offset = 0;
    if (GetRecordFileAndOffset_by_streamIdx(2024, 1, 31, static_cast<int>(hour), 0, 0, path, offset, 1) == 0)
      Require(!path.empty() && offset <= hour * 3600);
    GetRecordFileAndOffsetBySensorId(2024, 1, 31, static_cast<int>(hour), 0, 0, 0, path, offset);
    GetRecordFileAndOffset(2024, 1, 31, static_cast<int>(hour), 0, 0, path, offset);
  }
  std::string map(kMinutes, 'x');
  Require(GetRecordDistribute(2024, 1, 31, map.data()) == 0);
  std::list<long> dates;
  GetHasRecordDateList(dates);
}

void CleanUp(const fuzz::Device& device) {
  std::string card = device.Path("/mnt/mmc0");
  std::list<_VrRecordFileInfo> files;
  GetOldFileList(card.c_str(), files, 5);
  Require(files.size() <= 6);
  size_t count = 0;
  for (OldFileInfo_s* file = FindOldFiles(card.data(), 7, nullptr); file != nullptr; ++count) {
    Require(std::strncmp(file->path, card.c_str(), card.size()) == 0);
    if (count == 0) DeleteFreeFile(file->path);
    OldFileInfo_s* next = file->next;
    std::free(file);
    file = next;
  }
  Require(count <= 7);
  std::string kind = device.Path("/mnt/mmc0/schedule");
  DelOldDayDirs(kind.data(), 0, nullptr);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const fuzz::Device device([](const fuzz::Device& made) {
    fake::Platform::Get().mounted = {"/mnt/mmc0"};
    fake::WriteFile(made.Path(kOutside), "precious");
    Require(std::freopen("/dev/null", "w", stdout) != nullptr);  // the lookups tell what they find
  });
  fs::remove_all(device.Path("/mnt"));
  fs::create_directories(device.Path("/mnt/mmc0"));
  Input input(data, size);
  MakeCard(device, input);
  Ask();
  CleanUp(device);
  Require(fs::exists(device.Path(kOutside)));
  return 0;
}
