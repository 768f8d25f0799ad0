#include "LineMerge.h"

#include <algorithm>

#include "LineDiff.h"

namespace corvane::cli {

namespace {

// White space as the library's reader trims it: the Unicode space separators
// and tab, plus the line-end characters.
bool isWhiteSpace(char16_t c) {
  switch (c) {
    case u' ': case u'\t': case u'\n': case 0x0B: case 0x0C: case u'\r': case 0x85: case 0xA0: case 0x1680:
    case 0x2028: case 0x2029: case 0x202F: case 0x205F: case 0x3000:
      return true;
    default:
      return c >= 0x2000 && c <= 0x200A;
  }
}

bool hasLineEnd(std::u16string_view line) { return !line.empty() && line.back() == u'\n'; }

std::u16string withLineEnd(std::u16string_view line, const std::u16string& lineEnd) {
  std::u16string result(withoutLineEnd(line));
  if (hasLineEnd(line)) result += lineEnd;
  return result;
}

// For each line of `side` that has no partner in the base, the gap of the
// base it stands in: gap g lies just before base line g (gap base.size() is
// the end). Lines without a partner are placed before the next paired one,
// so that an edit's replacement lines follow the lines they replace.
std::vector<std::vector<std::size_t>> unpairedByGap(const std::vector<Match>& matches, std::size_t baseCount,
                                                    std::size_t sideCount) {
  std::vector<std::size_t> baseOf = partnerIndexes(matches, sideCount, true);
  std::vector<std::vector<std::size_t>> gaps(baseCount + 1);
  std::size_t gap = baseCount;
  for (std::size_t j = sideCount; j-- > 0;) {
    if (baseOf[j] != npos) gap = baseOf[j];
    else gaps[gap].push_back(j);
  }
  for (auto& lines : gaps) std::reverse(lines.begin(), lines.end());
  return gaps;
}

}  // namespace

Lines splitLines(std::u16string_view text) {
  Lines lines;
  std::size_t start = 0;
  while (start < text.size()) {
    std::size_t end = text.find(u'\n', start);
    end = end == std::u16string_view::npos ? text.size() : end + 1;
    lines.emplace_back(text.substr(start, end - start));
    start = end;
  }
  return lines;
}

std::u16string joinLines(const Lines& lines) {
  std::u16string text;
  for (const auto& line : lines) text += line;
  return text;
}

std::u16string_view withoutLineEnd(std::u16string_view line) {
  if (hasLineEnd(line)) line.remove_suffix(1);
  else return line;
  if (!line.empty() && line.back() == u'\r') line.remove_suffix(1);
  return line;
}

std::u16string withoutWhiteSpace(std::u16string_view line) {
  std::u16string result;
  result.reserve(line.size());
  for (char16_t c : line)
    if (!isWhiteSpace(c)) result.push_back(c);
  return result;
}

bool isBlank(std::u16string_view line) { return std::all_of(line.begin(), line.end(), isWhiteSpace); }

std::u16string dominantLineEnd(const Lines& lines) {
  std::size_t crlf = 0, lf = 0;
  for (const auto& line : lines) {
    if (!hasLineEnd(line)) continue;
    if (line.size() >= 2 && line[line.size() - 2] == u'\r') ++crlf;
    else ++lf;
  }
  return crlf > lf ? u"\r\n" : u"\n";
}

std::vector<std::size_t> lostLines(const Lines& original, const Lines& rewritten) {
  LineInterner keys;
  std::vector<std::size_t> originalIndex;
  std::vector<std::uint32_t> a, b;
  for (std::size_t i = 0; i < original.size(); ++i) {
    std::u16string key = withoutWhiteSpace(original[i]);
    if (key.empty()) continue;
    originalIndex.push_back(i);
    a.push_back(keys.intern(key));
  }
  for (const auto& line : rewritten) {
    std::u16string key = withoutWhiteSpace(line);
    if (!key.empty()) b.push_back(keys.intern(key));
  }
  std::vector<std::size_t> kept = partnerIndexes(diffMatches(a, b), a.size(), false);
  std::vector<std::size_t> lost;
  for (std::size_t i = 0; i < a.size(); ++i)
    if (kept[i] == npos) lost.push_back(originalIndex[i]);
  return lost;
}

Lines mergeEdit(const Lines& base, const Lines& ours, const Lines& theirs, const MergeOptions& options) {
  // Base and ours differ in formatting only: pair their lines by content
  // without white space. Base and theirs are both the library's text: pair
  // them exactly, line ends aside (an edit may give a last line its end).
  LineInterner contentKeys, exactKeys;
  auto keyed = [](const Lines& lines, LineInterner& interner, auto key) {
    std::vector<std::uint32_t> ids;
    ids.reserve(lines.size());
    for (const auto& line : lines) ids.push_back(interner.intern(key(line)));
    return ids;
  };
  auto content = [](const std::u16string& line) { return withoutWhiteSpace(line); };
  auto exact = [](const std::u16string& line) { return std::u16string(withoutLineEnd(line)); };
  const std::vector<Match> baseOurs = diffMatches(keyed(base, contentKeys, content), keyed(ours, contentKeys, content));
  const std::vector<Match> baseTheirs = diffMatches(keyed(base, exactKeys, exact), keyed(theirs, exactKeys, exact));

  const std::size_t n = base.size();
  const std::vector<std::size_t> oursOf = partnerIndexes(baseOurs, n, false);
  const std::vector<std::size_t> theirsOf = partnerIndexes(baseTheirs, n, false);
  const auto oursAt = unpairedByGap(baseOurs, n, ours.size());
  const auto theirsAt = unpairedByGap(baseTheirs, n, theirs.size());
  auto removed = [&](std::size_t i) { return theirsOf[i] == npos; };

  Lines out;
  for (std::size_t gap = 0; gap <= n; ++gap) {
    // Lines of ours that base does not show, inside a stretch that the edit
    // removes, belonged to it and go too.
    const bool afterRemoval = gap > 0 && removed(gap - 1);
    const bool beforeRemoval = gap < n && removed(gap);
    const bool dropOurs = afterRemoval && (beforeRemoval || options.dropHiddenLinesAfterRemovals);
    static const std::vector<std::size_t> none;
    const std::vector<std::size_t>& oursHere = dropOurs ? none : oursAt[gap];
    const std::vector<std::size_t>& theirsHere = theirsAt[gap];

    // The edit's new lines first; where one equals a line of ours here it is
    // that line, revealed by the edit (a blank line after a removed option).
    std::vector<std::uint32_t> t, o;
    for (std::size_t j : theirsHere) t.push_back(contentKeys.intern(withoutWhiteSpace(theirs[j])));
    for (std::size_t j : oursHere) o.push_back(contentKeys.intern(withoutWhiteSpace(ours[j])));
    std::size_t ti = 0, oi = 0;
    auto emitUntil = [&](std::size_t tEnd, std::size_t oEnd) {
      for (; ti < tEnd; ++ti) out.push_back(withLineEnd(theirs[theirsHere[ti]], options.lineEnd));
      for (; oi < oEnd; ++oi) out.push_back(ours[oursHere[oi]]);
    };
    for (const Match& m : (t.empty() || o.empty()) ? std::vector<Match>{} : diffMatches(t, o)) {
      emitUntil(m.first, m.second);
      out.push_back(ours[oursHere[m.second]]);
      ++ti, ++oi;
    }
    emitUntil(t.size(), o.size());

    if (gap < n && !removed(gap) && oursOf[gap] != npos) out.push_back(ours[oursOf[gap]]);
  }

  // No line may run into the next one; the end of the text stays as it was.
  for (std::size_t i = 0; i + 1 < out.size(); ++i)
    if (!hasLineEnd(out[i])) out[i] += options.lineEnd;
  if (!ours.empty() && !hasLineEnd(ours.back()) && !out.empty()) out.back() = std::u16string(withoutLineEnd(out.back()));
  return out;
}

}  // namespace corvane::cli
