// Writes small record files for the fuzz targets to start from: make_seeds DIRECTORY fills a directory for each
// target below it.
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>
#include <utility>

#include "record/platform.h"
#include "storage/record_info.h"
#include "storage/type_index.h"
#include "tests/format/avi_bytes.h"
#include "tests/format/kmv_bytes.h"
#include "tests/support/fake_mp4.h"

namespace {

void Save(const std::filesystem::path& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}

kmvtest::File AudioOnly() {
  kmvtest::Options options;
  options.video = false;
  kmvtest::File file(options);
  for (std::uint32_t n = 0; n < 10; ++n) file.Audio(1000 + n * 500, "sound");
  return file;
}

kmvtest::File Scrambled() {
  kmvtest::Options options;
  options.scramble = 1;
  options.step = 4;
  kmvtest::File file(options);
  file.FillTwoSeconds();
  return file;
}

void MakeKmvSeeds(const std::filesystem::path& directory) {
  kmvtest::File usual;
  Save(directory / "empty.kmv", usual.Bytes());
  usual.FillTwoSeconds();
  Save(directory / "cut.kmv", usual.Bytes());
  Save(directory / "torn.kmv", usual.Bytes().substr(0, usual.Bytes().size() - 5));
  usual.Finish(2000);
  Save(directory / "finished.kmv", usual.Bytes());
  std::string damaged = usual.Bytes();
  kmvtest::SetU32(damaged, usual.Packets()[3].offset, 0);
  Save(directory / "damaged.kmv", damaged);
  Save(directory / "garbage-behind.kmv", usual.Bytes() + std::string(500, 'g'));
  kmvtest::File audio = AudioOnly();
  audio.Finish(5000);
  Save(directory / "audio.kmv", audio.Bytes());
  kmvtest::File scrambled = Scrambled();
  Save(directory / "scrambled-cut.kmv", scrambled.Bytes());
  scrambled.Finish(2000);
  Save(directory / "scrambled.kmv", scrambled.Bytes());
}

void MakeAviSeeds(const std::filesystem::path& directory) {
  for (const int codec : {VIDEO_CODEC_MPEG4, VIDEO_CODEC_H264, VIDEO_CODEC_H265}) {
    avitest::File file(codec != VIDEO_CODEC_H265, codec);
    file.FillSeconds(2, 3);
    const std::string name = std::to_string(codec);
    Save(directory / ("cut" + name + ".avi"), file.Bytes());
    Save(directory / ("torn" + name + ".avi"), file.Bytes().substr(0, file.Bytes().size() - 5));
    file.Finish();
    Save(directory / ("finished" + name + ".avi"), file.Bytes());
    std::string damaged = file.Bytes();
    avitest::SetU32(damaged, file.Packets()[2].offset, 0);
    avitest::SetU32(damaged, file.IndexOffset(), 0);
    Save(directory / ("damaged" + name + ".avi"), damaged);
  }
}

// What the library's own functions write; the catalogue's fuzzer looks at the 31st of January 2024.
void MakeInfoSeeds(const std::filesystem::path& directory) {
  RecordInfoStruct info = {};
  info.startSeconds = 1706688000;
  info.endSeconds = 1706688060;
  info.videoFrames = 1500;
  record::WriteRecordInfo(directory / "usual", info);
  info.endSeconds += 7200;  // runs into the next file
  record::WriteRecordInfo(directory / "long", info);
  info.endSeconds = info.startSeconds + 5;  // too short for its frames
  record::WriteRecordInfo(directory / "untrusted", info);
  info.audioFrames = 3000;
  record::WriteRecordInfo(directory / "untrusted-audio", info);
  Save(directory / "short", std::string(303, '\xff'));
}

void MakeTypeIndexSeeds(const std::filesystem::path& directory) {
  std::string minutes(record::kTypeIndexMinutes, record::kNoRecording);
  record::StoreTypeIndexMinute(directory / "empty", minutes.data(), 0);
  minutes.replace(600, 60, 60, 'M');
  record::StoreTypeIndexMinute(directory / "usual", minutes.data(), 0);
  Save(directory / "short", minutes.substr(0, 700));
}

// A file of the card as the catalogue's fuzz target takes it.
std::string CardFile(unsigned place, const std::string& name, const std::string& content) {
  const std::string head = {static_cast<char>(place), static_cast<char>(name.size()),
                            static_cast<char>(content.size() / 8), static_cast<char>(content.size() % 8)};
  return head + name + content;
}

void MakeCatalogueSeeds(const std::filesystem::path& directory) {
  RecordInfoStruct info = {};
  info.startSeconds = 1706688000;
  info.endSeconds = 1706688600;
  const std::string side(reinterpret_cast<const char*>(&info), sizeof info);
  std::string card;
  for (const char* name : {"075900-av-1.kmv", "081500-vv-2.avi", "090000-av-2.mp4", "100000-sv-6.mp4"})
    card += CardFile(0, name, "") + CardFile(0, std::string(name) + ".info", side);
  Save(directory / "usual", card + CardFile(0, "rec_type.idx", std::string(record::kTypeIndexMinutes, 'A')));
  std::string hostile =
      CardFile(0x80, "1 2 3;id", "") + CardFile(0x81, "$(reboot)", "") + CardFile(0x41, "20230101", "");
  hostile +=
      CardFile(0x42, "alarm", "") + CardFile(0x81, "21000101", "") + CardFile(2, "20240101_120000_1.jpg", "x");
  Save(directory / "hostile",
       hostile + CardFile(0, "995959-av-99999999.kmv.info", side) + CardFile(0, "x.mp4.info", ""));
}

// A byte that chooses the container, then the file.
void MakeExportSeeds(const std::filesystem::path& directory) {
  kmvtest::File usual;
  usual.FillTwoSeconds();
  Save(directory / "kmv-cut", std::string(1, '\0') + usual.Bytes());
  usual.Finish(2000);
  Save(directory / "kmv", std::string(1, '\0') + usual.Bytes());
  Save(directory / "kmv-late", std::string(1, '\x81') + usual.Bytes());  // the span begins behind the file's begin
  fake::Mp4Clip clip;
  clip.video.codec = 1;
  for (unsigned ms = 0; ms < 3000; ms += 500)
    clip.frames.push_back({ms % 1000 == 0, true, ms, std::to_string(ms)});
  Save(directory / "mp4", std::string(1, '\2') + fake::Mp4Bytes(clip));
  Save(directory / "avi", std::string("\1RIFF....AVI LIST"));
}

// Two groups of pictures that no decoder has to like, with sound: finished, and as they stand while the file
// grows.
void MakeMp4Seed(const std::filesystem::path& directory, const std::string& name, std::int32_t audioCodec) {
  const Emp4VideoParams video = {1, 64, 48, 25, 3, 0, {}};
  const Emp4AudioParams audio = {1, audioCodec, 320, 8000, 1, {}};
  const Emp4ExtraParams extra = {60, 0};
  const std::string path = directory / (name + ".mp4");
  const std::string sets(
      "\0\0\0\1\x67\x42\xc0\x0b\xda\x0a\x11\xf9\x70\x11\0\0\3\0\1\0\0\3\0\x32\x0f\x14\x2a\xa0"
      "\0\0\0\1\x68\xce\x0f\x2c\x80",
      37);
  const std::string slice("\0\0\0\1\x65 a picture", 15);
  const std::string sound =
      audioCodec == 10 ? std::string("\xff\xf1\x6c\x40\x01\x9f\xfc tone", 12) : std::string(40, 's');
  void* muxer = Emp4MuxerOpen(path.c_str(), &video, &audio, &extra);
  for (unsigned n = 0; n < 9; ++n) {
    const std::string frame = n % 3 == 0 ? sets + slice : slice;
    Emp4MuxerWriteVideoNALU(muxer, n % 3 == 0 ? 1 : 0, reinterpret_cast<const unsigned char*>(frame.data()),
                            static_cast<int>(frame.size()), n * 40);
    Emp4MuxerWriteAudio(muxer, reinterpret_cast<const unsigned char*>(sound.data()),
                        static_cast<int>(sound.size()), n * 40);
    Emp4MuxerCommit(muxer);
  }
  std::filesystem::copy_file(path, directory / (name + "-growing.mp4"),
                             std::filesystem::copy_options::overwrite_existing);
  Emp4MuxerClose(muxer);
}

void MakeMp4Seeds(const std::filesystem::path& directory) {
  MakeMp4Seed(directory, "aac", 10);
  MakeMp4Seed(directory, "ulaw", 11);
  MakeMp4Seed(directory, "alaw", 12);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: make_seeds DIRECTORY\n";
    return 2;
  }
  const std::filesystem::path seeds = argv[1];
  const std::pair<const char*, void (*)(const std::filesystem::path&)> targets[] = {
      {"kmv_reader_fuzz", MakeKmvSeeds},         {"session_fuzz", MakeKmvSeeds},
      {"avi_reader_fuzz", MakeAviSeeds},         {"info_file_fuzz", MakeInfoSeeds},
      {"catalogue_fuzz", MakeCatalogueSeeds},    {"export_fuzz", MakeExportSeeds},
      {"rec_type_idx_fuzz", MakeTypeIndexSeeds}, {"mp4_reader_fuzz", MakeMp4Seeds},
  };
  for (const auto& [name, make] : targets) {
    std::filesystem::create_directories(seeds / name);
    make(seeds / name);
  }
  return 0;
}
