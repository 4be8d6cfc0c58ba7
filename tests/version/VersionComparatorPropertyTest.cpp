// Laws of the ordering over random version strings. The generator is seeded,
// so a failure names a string pair that reproduces it.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "version/WFVersionComparator.h"

namespace wf {
namespace {

constexpr unsigned kSeed = 20261122;

// Pieces chosen to hit every rule: digits (ASCII and others), periods,
// letters of both cases, punctuation, a composed and a decomposed letter
// (equal under the string comparison), and a broken byte.
const std::vector<std::string> kPieces = {"0",      "1",  "2", "9", "10",     "007",     "\u0663",
                                          "\uFF11", ".",  ".", ".", "a",      "b",       "B",
                                          "beta",   "rc", "-", " ", "\u00E9", "e\u0301", "\xff"};

std::string randomVersion(std::mt19937& rng) {
  std::uniform_int_distribution<std::size_t> length(0, 6);
  std::uniform_int_distribution<std::size_t> piece(0, kPieces.size() - 1);
  std::string v;
  for (std::size_t n = length(rng); n > 0; --n) v += kPieces[piece(rng)];
  return v;
}

int compare(const std::string& a, const std::string& b) {
  return WFVersionComparator::defaultComparator()->compareVersion(a, b);
}

TEST(VersionComparatorProperty, ReflexiveAndAntisymmetric) {
  std::mt19937 rng(kSeed);
  for (int i = 0; i < 20000; ++i) {
    std::string a = randomVersion(rng), b = randomVersion(rng);
    int ab = compare(a, b);
    ASSERT_TRUE(ab == -1 || ab == 0 || ab == 1) << "'" << a << "' vs '" << b << "'";
    ASSERT_EQ(compare(a, a), 0) << "'" << a << "'";
    ASSERT_EQ(ab, -compare(b, a)) << "'" << a << "' vs '" << b << "'";
  }
}

// The rules make a lexicographic order over the parts in which letters come
// before the end of a version, the end before a period and a period before a
// number; so the ordering is transitive, equal versions included.
TEST(VersionComparatorProperty, Transitive) {
  std::mt19937 rng(kSeed + 1);
  for (int i = 0; i < 20000; ++i) {
    std::string a = randomVersion(rng), b = randomVersion(rng), c = randomVersion(rng);
    int ab = compare(a, b), bc = compare(b, c);
    if (ab == bc || ab == 0 || bc == 0) {
      int expected = ab != 0 ? ab : bc;
      ASSERT_EQ(compare(a, c), expected) << "'" << a << "', '" << b << "', '" << c << "'";
    }
  }
}

TEST(VersionComparatorProperty, SplittingLosesNothing) {
  std::mt19937 rng(kSeed + 2);
  for (int i = 0; i < 20000; ++i) {
    std::string v = randomVersion(rng);
    std::string joined;
    for (const std::string& part :
         WFVersionComparator::defaultComparator()->splitVersionString(v)) {
      ASSERT_FALSE(part.empty()) << "'" << v << "'";
      joined += part;
    }
    ASSERT_EQ(joined, v);
  }
}

}  // namespace
}  // namespace wf
