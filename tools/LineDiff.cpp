#include "LineDiff.h"

#include <algorithm>
#include <cstdint>

namespace corvane::cli {

namespace {

// The middle snake of the region a[aLo, aHi) × b[bLo, bHi): the stretch of
// equal elements half-way along a shortest edit path, found by running the
// greedy search from both ends until the two fronts overlap.
struct Snake {
  std::ptrdiff_t xStart, yStart, xEnd, yEnd;  // relative to aLo, bLo
};

class Differ {
 public:
  Differ(const std::vector<std::uint32_t>& a, const std::vector<std::uint32_t>& b) : _a(a), _b(b) {}

  std::vector<Match> run() {
    compare(0, _a.size(), 0, _b.size());
    return std::move(_matches);
  }

 private:
  void compare(std::size_t aLo, std::size_t aHi, std::size_t bLo, std::size_t bHi) {
    // Common prefix and suffix cost nothing to match and shrink the search.
    while (aLo < aHi && bLo < bHi && _a[aLo] == _b[bLo]) _matches.emplace_back(aLo++, bLo++);
    std::size_t suffix = 0;
    while (aLo < aHi && bLo < bHi && _a[aHi - 1] == _b[bHi - 1]) --aHi, --bHi, ++suffix;
    // With one side empty only deletions or insertions remain. This also
    // covers every region of at most one difference, so the search below
    // always splits a region into two with fewer differences each.
    if (aLo < aHi && bLo < bHi) {
      Snake s = middleSnake(aLo, aHi, bLo, bHi);
      compare(aLo, aLo + s.xStart, bLo, bLo + s.yStart);
      for (std::ptrdiff_t x = s.xStart, y = s.yStart; x < s.xEnd; ++x, ++y) _matches.emplace_back(aLo + x, bLo + y);
      compare(aLo + s.xEnd, aHi, bLo + s.yEnd, bHi);
    }
    for (std::size_t i = 0; i < suffix; ++i) _matches.emplace_back(aHi + i, bHi + i);
  }

  Snake middleSnake(std::size_t aLo, std::size_t aHi, std::size_t bLo, std::size_t bHi) {
    const auto n = static_cast<std::ptrdiff_t>(aHi - aLo);
    const auto m = static_cast<std::ptrdiff_t>(bHi - bLo);
    const std::ptrdiff_t delta = n - m;
    const bool odd = (delta & 1) != 0;
    const std::ptrdiff_t maxD = (n + m + 1) / 2;
    const std::ptrdiff_t offset = maxD + 1;
    // forward[k]: furthest x on diagonal k = x - y from the start;
    // backward[k]: furthest distance travelled from the end on the reversed
    // diagonal k, which is the forward diagonal delta - k.
    _forward.assign(static_cast<std::size_t>(2 * offset + 1), 0);
    _backward.assign(static_cast<std::size_t>(2 * offset + 1), 0);
    auto fwd = [&](std::ptrdiff_t k) -> std::ptrdiff_t& { return _forward[static_cast<std::size_t>(k + offset)]; };
    auto bwd = [&](std::ptrdiff_t k) -> std::ptrdiff_t& { return _backward[static_cast<std::size_t>(k + offset)]; };
    auto a = [&](std::ptrdiff_t i) { return _a[aLo + static_cast<std::size_t>(i)]; };
    auto b = [&](std::ptrdiff_t j) { return _b[bLo + static_cast<std::size_t>(j)]; };

    for (std::ptrdiff_t d = 0; d <= maxD; ++d) {
      for (std::ptrdiff_t k = -d; k <= d; k += 2) {
        std::ptrdiff_t x = (k == -d || (k != d && fwd(k - 1) < fwd(k + 1))) ? fwd(k + 1) : fwd(k - 1) + 1;
        std::ptrdiff_t y = x - k;
        const std::ptrdiff_t x0 = x, y0 = y;
        while (x < n && y < m && a(x) == b(y)) ++x, ++y;
        fwd(k) = x;
        const std::ptrdiff_t rk = delta - k;
        if (odd && rk >= -(d - 1) && rk <= d - 1 && x + bwd(rk) >= n) return Snake{x0, y0, x, y};
      }
      for (std::ptrdiff_t k = -d; k <= d; k += 2) {
        std::ptrdiff_t x = (k == -d || (k != d && bwd(k - 1) < bwd(k + 1))) ? bwd(k + 1) : bwd(k - 1) + 1;
        std::ptrdiff_t y = x - k;
        const std::ptrdiff_t x0 = x, y0 = y;
        while (x < n && y < m && a(n - 1 - x) == b(m - 1 - y)) ++x, ++y;
        bwd(k) = x;
        const std::ptrdiff_t fk = delta - k;
        if (!odd && fk >= -d && fk <= d && x + fwd(fk) >= n) return Snake{n - x, m - y, n - x0, m - y0};
      }
    }
    // Unreachable: the fronts always meet by maxD. Fall back to "no match".
    return Snake{n, 0, n, 0};
  }

  const std::vector<std::uint32_t>& _a;
  const std::vector<std::uint32_t>& _b;
  std::vector<Match> _matches;
  std::vector<std::ptrdiff_t> _forward;
  std::vector<std::ptrdiff_t> _backward;
};

}  // namespace

std::vector<Match> diffMatches(const std::vector<std::uint32_t>& a, const std::vector<std::uint32_t>& b) {
  return Differ(a, b).run();
}

std::uint32_t LineInterner::intern(std::u16string_view key) {
  auto [it, inserted] = _ids.try_emplace(std::u16string(key), static_cast<std::uint32_t>(_ids.size()));
  return it->second;
}

std::vector<std::size_t> partnerIndexes(const std::vector<Match>& matches, std::size_t count, bool fromSecond) {
  std::vector<std::size_t> partner(count, npos);
  for (const Match& match : matches) {
    if (fromSecond) partner[match.second] = match.first;
    else partner[match.first] = match.second;
  }
  return partner;
}

}  // namespace corvane::cli
