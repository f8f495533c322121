#include "tests/support/document_image.h"

#include <gtest/gtest.h>

#include <cctype>
#include <fstream>
#include <sstream>

namespace fake {
namespace {

std::string DocumentPath() {
  const std::string here = __FILE__;
  return here.substr(0, here.rfind("tests/support/")) + "docs/formats.md";
}

// One line: decimal offset, bytes in hexadecimal ("x20" repeats the last one), words.
void AppendLine(const std::string& line, std::string& image) {
  std::istringstream words(line);
  std::size_t offset = 0;
  words >> std::dec >> offset;
  EXPECT_EQ(offset, image.size()) << line;
  std::string word;
  while (words >> word) {
    if (word[0] == 'x') {
      image.append(std::stoul(word.substr(1)) - 1, image.back());
    } else if (word.size() == 2 && std::isxdigit(word[0]) && std::isxdigit(word[1])) {
      image.push_back(static_cast<char>(std::stoi(word, nullptr, 16)));
    } else {
      break;
    }
  }
}

}  // namespace

std::string DocumentImage(const std::string& name) {
  std::ifstream document(DocumentPath());
  std::string line;
  while (std::getline(document, line) && line != "<!-- image: " + name + " -->") {
  }
  std::getline(document, line);  // the fence
  std::string image;
  while (std::getline(document, line) && line != "```") AppendLine(line, image);
  return image;
}

}  // namespace fake
