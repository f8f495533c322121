// Writing MP4 boxes (ISO 14496-12): big-endian fields, sizes filled in when a box ends.
#ifndef PLATFORM_HOST_MP4_BOXES_H
#define PLATFORM_HOST_MP4_BOXES_H

#include <cstdint>

#include "platform/host/annexb.h"

namespace record {

class BoxWriter {
 public:
  explicit BoxWriter(Bytes& out) : m_out(out) {}

  void U8(unsigned value) { m_out.push_back(static_cast<unsigned char>(value)); }
  void U16(unsigned value) { U8(value >> 8), U8(value); }
  void U32(std::uint32_t value) { U16(value >> 16), U16(value & 0xffff); }
  void U64(std::uint64_t value) {
    U32(static_cast<std::uint32_t>(value >> 32)), U32(static_cast<std::uint32_t>(value));
  }
  void Zeros(size_t count) { m_out.insert(m_out.end(), count, 0); }
  void Type(const char* four) { m_out.insert(m_out.end(), four, four + 4); }
  void Raw(const Bytes& bytes) { m_out.insert(m_out.end(), bytes.begin(), bytes.end()); }
  // A field whose value is 64 bits wide in version 1 of a box, else 32.
  void Wide(bool is64, std::uint64_t value) {
    if (is64) return U64(value);
    U32(static_cast<std::uint32_t>(value));
  }

  size_t Position() const { return m_out.size(); }
  void PatchU32(size_t at, std::uint32_t value) {
    for (size_t i = 0; i < 4; ++i) m_out[at + i] = static_cast<unsigned char>(value >> (24 - 8 * i));
  }

  template <typename Content>
  void Box(const char* type, const Content& content) {
    const size_t start = Position();
    U32(0);
    Type(type);
    content();
    PatchU32(start, static_cast<std::uint32_t>(Position() - start));
  }
  template <typename Content>
  void FullBox(const char* type, unsigned version, std::uint32_t flags, const Content& content) {
    Box(type, [&] {
      U32(version << 24 | flags);
      content();
    });
  }

 private:
  Bytes& m_out;
};

}  // namespace record

#endif
