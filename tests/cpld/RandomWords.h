// SPDX-License-Identifier: MIT
// Random command lines for cpld: similar to real ones, so that they pass the first check, with unusual words.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <random>
#include <string>
#include <vector>

namespace cpld_test {

class RandomWords {
 public:
  explicit RandomWords(std::uint64_t seed) : engine_(seed) {}

  /// The words after the program's name: a command with the right number of words, or any words.
  std::vector<std::string> Line() {
    const int command = Below(6);
    std::vector<std::string> line{OneIn(4) ? Word() : std::to_string(command)};
    const int usual = command == 4 ? 1 : 2 + command % 2;
    const int further = OneIn(4) ? Below(8) : usual;
    for (int word = 0; word < further; ++word) line.push_back(Word());
    if (OneIn(100)) line.clear();
    return line;
  }

 private:
  int Below(int limit) { return static_cast<int>(engine_() % static_cast<unsigned>(limit)); }
  bool OneIn(int chances) { return Below(chances) == 0; }

  std::string Word() {
    switch (Below(4)) {
      case 0:
        return std::to_string(Below(100));
      case 1:
        return Oddity();
      case 2:
        return std::to_string(static_cast<std::int64_t>(engine_()) >> Below(64));
      default:
        return Rubbish();
    }
  }

  std::string Oddity() {
    static constexpr const char *kOddities[] = {"",           " ",           "-",   "+",   "--help",     "0x30",
                                                "0x",         "060",         "089", "1e9", "0xffffffff", "2147483647",
                                                "2147483648", "-2147483648", "%s",  "%n",  "\n\t7",      "-0",
                                                "4294967296", "0b1",         "1 2"};
    return kOddities[Below(static_cast<int>(std::size(kOddities)))];
  }

  /// Any bytes except NUL; sometimes very many of them.
  std::string Rubbish() {
    std::string text(static_cast<std::size_t>(Below(OneIn(50) ? 5000 : 12)), '?');
    for (char &character : text) character = static_cast<char>(1 + Below(255));
    return text;
  }

  std::mt19937_64 engine_;
};

}  // namespace cpld_test
