// A directory to work in, on tmpfs or on disk, that is gone afterwards.
#ifndef BENCH_PLACE_H
#define BENCH_PLACE_H

#include <string>
#include <vector>

#include "bench/options.h"

namespace bench {

class Place {
 public:
  // `kind` is what the table says. REQUIRES: `parent` exists and can be written.
  Place(const std::string& kind, const std::string& parent);
  ~Place();
  Place(const Place&) = delete;
  Place& operator=(const Place&) = delete;

  const std::string& Kind() const { return m_kind; }
  std::string File(const std::string& name) const { return m_directory + "/" + name; }
  const std::string& Directory() const { return m_directory; }
  // Makes it the device root, with the first medium and the RAM directory below it.
  void BecomeDevice() const;
  // Before a cold pass: the page cache forgets what has been written to the medium. False without the right.
  static bool DropCaches();

 private:
  std::string m_kind;
  std::string m_directory;
};

}  // namespace bench

#endif
