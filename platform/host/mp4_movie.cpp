#include "platform/host/mp4_movie.h"

#include <algorithm>

namespace record {
namespace {

constexpr std::uint32_t kBoxHead = 8;

// A track's place on the movie's time line, in milliseconds.
struct Span {
  std::uint64_t start = 0;
  std::uint64_t length = 0;
  std::uint64_t units = 0;  // the length in units of the track
};

Span SpanOf(const TrackDescription& track, const SampleTable* table) {
  if (table == nullptr || table->IsEmpty()) return {};
  const std::uint64_t scale = track.timeScale;
  const auto start = static_cast<std::uint64_t>(table->Start());
  const std::uint64_t units = static_cast<std::uint64_t>(table->LastTime()) - start + track.lastDuration;
  return {(start * kMovieTimeScale + scale / 2) / scale, (units * kMovieTimeScale + scale - 1) / scale, units};
}

void WriteMatrix(BoxWriter& out) {
  for (const std::uint32_t value : {0x10000u, 0u, 0u, 0u, 0x10000u, 0u, 0u, 0u, 0x40000000u}) out.U32(value);
}

class MovieWriter {
 public:
  // Without tables: the empty movie that announces fragments.
  MovieWriter(BoxWriter& out, const MovieDescription& movie, const SampleTable* tables)
      : m_out(out), m_movie(movie), m_tables(tables) {
    for (unsigned track = 0; track < kMp4Tracks; ++track) {
      m_spans[track] = SpanOf(movie.tracks[track], tables == nullptr ? nullptr : &tables[track]);
      m_length = std::max(m_length, m_spans[track].start + m_spans[track].length);
    }
  }

  void Write() {
    m_out.Box("moov", [&] {
      WriteMovieHeader();
      for (unsigned track = 0; track < kMp4Tracks; ++track) {
        if (Has(track)) WriteTrack(track);
      }
      if (m_tables == nullptr) WriteExtends();
    });
  }

 private:
  // A track that got no sample is left out of the index: players stumble over empty ones.
  bool Has(unsigned track) const {
    return m_movie.tracks[track].timeScale != 0 && (m_tables == nullptr || !m_tables[track].IsEmpty());
  }

  void WriteMovieHeader() {
    const bool is64 = m_length > UINT32_MAX;
    m_out.FullBox("mvhd", is64 ? 1 : 0, 0, [&] {
      m_out.Wide(is64, m_movie.creationTime), m_out.Wide(is64, m_movie.creationTime);
      m_out.U32(kMovieTimeScale);
      m_out.Wide(is64, m_length);
      m_out.U32(0x10000);  // rate
      m_out.U16(0x100);    // volume
      m_out.Zeros(10);
      WriteMatrix(m_out);
      m_out.Zeros(24);
      m_out.U32(kMp4Tracks + 1);  // next track
    });
  }

  void WriteTrack(unsigned track) {
    m_out.Box("trak", [&] {
      WriteTrackHeader(track);
      if (m_spans[track].start > 0) WriteEdits(m_spans[track]);
      m_out.Box("mdia", [&] { WriteMedia(track); });
    });
  }

  void WriteTrackHeader(unsigned track) {
    const TrackDescription& description = m_movie.tracks[track];
    const std::uint64_t length = m_spans[track].start + m_spans[track].length;
    const bool is64 = length > UINT32_MAX;
    m_out.FullBox("tkhd", is64 ? 1 : 0, 3, [&] {  // enabled, in the movie
      m_out.Wide(is64, m_movie.creationTime), m_out.Wide(is64, m_movie.creationTime);
      m_out.U32(track + 1);
      m_out.Zeros(4);
      m_out.Wide(is64, length);
      m_out.Zeros(12);
      m_out.U16(track == kMp4Audio ? 0x100 : 0);  // volume
      m_out.Zeros(2);
      WriteMatrix(m_out);
      m_out.U32(static_cast<std::uint32_t>(description.width) << 16);
      m_out.U32(static_cast<std::uint32_t>(description.height) << 16);
    });
  }

  // A track that begins later than the other one begins with nothing.
  void WriteEdits(const Span& span) {
    m_out.Box("edts", [&] {
      m_out.FullBox("elst", 1, 0, [&] {
        m_out.U32(2);
        m_out.U64(span.start), m_out.U64(UINT64_MAX), m_out.U32(0x10000);
        m_out.U64(span.length), m_out.U64(0), m_out.U32(0x10000);
      });
    });
  }

  void WriteMedia(unsigned track) {
    const TrackDescription& description = m_movie.tracks[track];
    const bool is64 = m_spans[track].units > UINT32_MAX;
    m_out.FullBox("mdhd", is64 ? 1 : 0, 0, [&] {
      m_out.Wide(is64, m_movie.creationTime), m_out.Wide(is64, m_movie.creationTime);
      m_out.U32(description.timeScale);
      m_out.Wide(is64, m_spans[track].units);
      m_out.U16(0x55c4);  // language: undetermined
      m_out.Zeros(2);
    });
    m_out.FullBox("hdlr", 0, 0, [&] {
      m_out.Zeros(4);
      m_out.Type(track == kMp4Video ? "vide" : "soun");
      m_out.Zeros(12 + 1);  // no name
    });
    m_out.Box("minf", [&] {
      if (track == kMp4Video) m_out.FullBox("vmhd", 0, 1, [&] { m_out.Zeros(8); });
      if (track == kMp4Audio) m_out.FullBox("smhd", 0, 0, [&] { m_out.Zeros(4); });
      m_out.Box("dinf", [&] {
        m_out.FullBox("dref", 0, 0, [&] {
          m_out.U32(1);
          m_out.FullBox("url ", 0, 1, [] {});  // in this file
        });
      });
      m_out.Box("stbl", [&] {
        m_out.Raw(description.sampleDescription);
        const SampleTable none;
        (m_tables == nullptr ? none : m_tables[track])
            .Write(m_out, description.lastDuration, track == kMp4Video && m_tables != nullptr);
      });
    });
  }

  void WriteExtends() {
    m_out.Box("mvex", [&] {
      for (unsigned track = 0; track < kMp4Tracks; ++track) {
        if (!Has(track)) continue;
        m_out.FullBox("trex", 0, 0, [&] {
          m_out.U32(track + 1);
          m_out.U32(1);  // the only sample description
          m_out.Zeros(12);
        });
      }
    });
  }

  BoxWriter& m_out;
  const MovieDescription& m_movie;
  const SampleTable* const m_tables;
  Span m_spans[kMp4Tracks];
  std::uint64_t m_length = 0;
};

// One moof; the mdat's content follows right behind the head that FragmentHead adds.
class FragmentWriter {
 public:
  FragmentWriter(BoxWriter& out, const std::vector<FragmentSample>& samples) : m_out(out), m_samples(samples) {}

  void Write(std::uint32_t number) {
    const size_t start = m_out.Position();
    m_out.Box("moof", [&] {
      m_out.FullBox("mfhd", 0, 0, [&] { m_out.U32(number); });
      for (const Mp4Track track : {kMp4Video, kMp4Audio}) WriteTrack(track);
    });
    const auto mediaOffset = static_cast<std::uint32_t>(m_out.Position() - start) + kBoxHead;
    for (const DataOffset& field : m_dataOffsets) m_out.PatchU32(field.position, mediaOffset + field.inMedia);
  }

 private:
  struct DataOffset {
    size_t position;
    std::uint32_t inMedia;
  };
  static constexpr std::uint32_t kKeyFlags = 0x02000000;        // leans on nothing
  static constexpr std::uint32_t kDependentFlags = 0x01010000;  // leans on others, no key frame

  void WriteTrack(Mp4Track track) {
    const auto first = std::find_if(m_samples.begin(), m_samples.end(),
                                    [&](const FragmentSample& sample) { return sample.track == track; });
    if (first == m_samples.end()) return;
    m_out.Box("traf", [&] {
      m_out.FullBox("tfhd", 0, 0x020020, [&] {  // offsets count from the moof; default flags
        m_out.U32(track + 1);
        m_out.U32(track == kMp4Video ? kDependentFlags : kKeyFlags);
      });
      m_out.FullBox("tfdt", 1, 0, [&] { m_out.U64(static_cast<std::uint64_t>(first->time)); });
      WriteRuns(track);
    });
  }

  // A run is a stretch of samples of the same track; a key frame begins one, as only a run's first sample has
  // flags.
  void WriteRuns(Mp4Track track) {
    std::uint32_t inMedia = 0;
    for (size_t begin = 0, end = 0; begin < m_samples.size(); begin = end) {
      std::uint32_t size = 0;
      do {
        size += m_samples[end].size;
      } while (++end < m_samples.size() && m_samples[end].track == m_samples[begin].track &&
               !m_samples[end].isKey);
      if (m_samples[begin].track == track) WriteRun(begin, end, inMedia);
      inMedia += size;
    }
  }

  void WriteRun(size_t begin, size_t end, std::uint32_t inMedia) {
    const bool isKey = m_samples[begin].track == kMp4Video && m_samples[begin].isKey;
    m_out.FullBox("trun", 0, isKey ? 0x305 : 0x301, [&] {  // offset, first sample's flags, durations and sizes
      m_out.U32(static_cast<std::uint32_t>(end - begin));
      m_dataOffsets.push_back({m_out.Position(), inMedia});
      m_out.U32(0);
      if (isKey) m_out.U32(kKeyFlags);
      for (size_t at = begin; at < end; ++at) m_out.U32(m_samples[at].duration), m_out.U32(m_samples[at].size);
    });
  }

  BoxWriter& m_out;
  const std::vector<FragmentSample>& m_samples;
  std::vector<DataOffset> m_dataOffsets;
};

}  // namespace

Bytes FileHead(const MovieDescription& movie) {
  Bytes bytes;
  BoxWriter out(bytes);
  out.Box("ftyp", [&] {
    out.Type("isom");
    out.U32(0x200);
    for (const char* brand : {"isom", "iso2", "iso5", "mp41"}) out.Type(brand);
  });
  out.Raw(UnfinishedSwitch());
  MovieWriter(out, movie, nullptr).Write();
  return bytes;
}

Bytes FragmentHead(const std::vector<FragmentSample>& samples, std::uint32_t number) {
  Bytes bytes;
  BoxWriter out(bytes);
  FragmentWriter(out, samples).Write(number);
  std::uint32_t media = 0;
  for (const FragmentSample& sample : samples) media += sample.size;
  out.U32(kBoxHead + media);
  out.Type("mdat");
  return bytes;
}

Bytes HiddenIndex(const MovieDescription& movie, const SampleTable (&tables)[kMp4Tracks]) {
  Bytes bytes;
  BoxWriter out(bytes);
  out.Box("free", [&] { MovieWriter(out, movie, tables).Write(); });
  return bytes;
}

Bytes FinishingSwitch(std::uint64_t indexOffset) {
  Bytes bytes;
  BoxWriter out(bytes);
  out.U32(1);  // the size stands behind the type
  out.Type("mdat");
  out.U64(indexOffset + kBoxHead - kFileTypeSize);
  return bytes;
}

Bytes UnfinishedSwitch() {
  Bytes bytes;
  BoxWriter out(bytes);
  out.Box("free", [&] { out.Zeros(kSwitchSize - kBoxHead); });
  return bytes;
}

}  // namespace record
