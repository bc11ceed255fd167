// SPDX-License-Identifier: MIT
// One or two characters, each compared with every character of a text: what nearly all lists are split by.
#pragma once

namespace devsupport {

class CharPair {
 public:
  constexpr CharPair(char cFirst, char cSecond) : cFirst_(cFirst), cSecond_(cSecond) {}

  constexpr bool Has(char c) const { return c == cFirst_ || c == cSecond_; }

  /// First member in p .. pEnd; pEnd or beyond when there is none.
  const char *Find(const char *p, const char *pEnd) const {
    // Four at a time: fields are short, so that the loop around the comparisons costs as much as they do. Searching a
    // machine word at a time was measured, and pays off for fields of fifteen characters and more only.
    for (; pEnd - p >= 4; p += 4) {
      if (Has(p[0])) return p;
      if (Has(p[1])) return p + 1;
      if (Has(p[2])) return p + 2;
      if (Has(p[3])) return p + 3;
    }
    while (p < pEnd && !Has(*p)) ++p;
    return p;
  }

 private:
  char cFirst_;
  char cSecond_;
};

}  // namespace devsupport
