// A shortest edit script between two sequences (Myers' O(ND) algorithm in
// linear space), used by the command-line tool to line up texts line by line.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace corvane::cli {

/// One pair of equal elements: a[first] == b[second].
using Match = std::pair<std::size_t, std::size_t>;

/// The matched pairs of a shortest edit script from `a` to `b` (so a longest
/// common subsequence), in increasing order of both indexes. Elements not in
/// a pair are deleted (from `a`) or inserted (from `b`). Memory is linear in
/// the sizes; time is O((N + M) · D) for D differences.
std::vector<Match> diffMatches(const std::vector<std::uint32_t>& a, const std::vector<std::uint32_t>& b);

/// Gives each distinct string a small number, so that sequences of lines can
/// be compared as sequences of numbers. Equal strings get equal numbers.
class LineInterner {
 public:
  std::uint32_t intern(std::u16string_view key);

 private:
  std::unordered_map<std::u16string, std::uint32_t> _ids;
};

/// For each index of a sequence of `count` elements, the index it is paired
/// with in `matches` (first → second, or second → first when `fromSecond`),
/// or npos when it has no partner.
std::vector<std::size_t> partnerIndexes(const std::vector<Match>& matches, std::size_t count, bool fromSecond);

inline constexpr std::size_t npos = static_cast<std::size_t>(-1);

}  // namespace corvane::cli
