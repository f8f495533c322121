// The minutes of a day as a picture.
#ifndef RECORDCTL_MINUTE_PICTURE_H
#define RECORDCTL_MINUTE_PICTURE_H

#include <array>
#include <cstdint>
#include <string>

namespace recordctl {

constexpr int kMinutesAQuarter = 15;  // of an hour: rows have a gap after each

using Colour = std::array<std::uint8_t, 3>;  // red, green, blue
Colour ColourOf(char minute);                // 'A', 'B', 'C' or another letter of a minute map

// 24 rows of 60 cells into a PNG file. "" or why it could not be written.
std::string WriteMinutePicture(const std::string& path, const std::string& minutes);

}  // namespace recordctl

#endif
