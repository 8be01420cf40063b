// Cases that a test reads from a text file in tests/cases:
//
//   NAME = words     words that have a name, which other words may be
//   a heading
//       field | field | field   # a case under that heading
//
// Words are bytes in hexadecimal (FFD8), a text ("GET /\r\n"), or a colon and bits, filled up with ones and with a 00
// behind each FF (:010); - is nothing, and word*3 is three of them.
#pragma once

#include <map>
#include <string>
#include <vector>

class Cases {
  public:
    explicit Cases(const std::string &strFile);
    // The bytes that words stand for.
    std::string Bytes(const std::string &strWords) const;
    // The cases whose heading begins like this: the heading and its fields, empty ones at the end.
    std::vector<std::vector<std::string>> Under(const std::string &strHeading = "") const;

    std::map<std::string, std::string> names{{"-", ""}};

  private:
    std::string Word(const std::string &strWord) const;

    std::vector<std::vector<std::string>> _rows;
};
