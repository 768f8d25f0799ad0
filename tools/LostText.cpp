#include "LostText.h"

#include <algorithm>

#include "YString.h"

namespace corvane::cli {

namespace {

constexpr std::size_t kListed = 5;
constexpr std::size_t kQuoted = 60;

std::string quoted(std::u16string_view line) {
  std::u16string_view content = withoutLineEnd(line);
  bool cut = content.size() > kQuoted;
  std::string text = YString(content.substr(0, kQuoted)).UTF8String();
  return "\"" + text + (cut ? "...\"" : "\"");
}

// An indented line is read as a continuation only directly after an option;
// anywhere else it ends the reading.
bool isIndented(std::u16string_view line) { return !line.empty() && line.front() == u' '; }

// "[name] text": the section is read, the text after its "]" is not.
bool isHeaderWithTrailingText(std::u16string_view line) {
  std::u16string_view content = withoutLineEnd(line);
  if (content.empty() || content.front() != u'[') return false;
  std::size_t close = content.rfind(u']');
  return close != std::u16string_view::npos && close > 1 && !isBlank(content.substr(close + 1));
}

bool isHeader(std::u16string_view line) {
  std::u16string_view content = withoutLineEnd(line);
  return !content.empty() && content.front() == u'[';
}

}  // namespace

std::string describeLostLines(const std::string& path, const Lines& lines, const std::vector<std::size_t>& lost) {
  std::vector<bool> isLost(lines.size(), false);
  for (std::size_t i : lost) isLost[i] = true;

  // The lost lines after the last line that survives: if one of them stops
  // the reading, everything after it is lost for that one reason.
  std::size_t lastKept = lines.size();
  std::size_t firstHeader = lines.size();
  for (std::size_t i = 0; i < lines.size(); ++i) {
    if (isLost[i] || isBlank(lines[i])) continue;
    lastKept = i;
    if (firstHeader == lines.size() && isHeader(lines[i])) firstHeader = i;
  }
  std::size_t stop = lines.size();
  for (std::size_t i : lost) {
    if (lastKept != lines.size() && i < lastKept) continue;
    if (isIndented(lines[i]) || isHeaderWithTrailingText(lines[i])) {
      stop = i;
      break;
    }
  }

  std::string message = path + ": writing the file back would lose " + std::to_string(lost.size()) +
                        (lost.size() == 1 ? " line" : " lines") +
                        " that the library does not read; nothing was written (--force writes anyway):";
  std::size_t listed = 0;
  for (std::size_t i : lost) {
    if (listed == kListed) {
      message += "\n  ... and " + std::to_string(lost.size() - listed) + " more";
      break;
    }
    std::string reason;
    if (i == stop) {
      std::size_t after = static_cast<std::size_t>(std::count_if(lost.begin(), lost.end(), [&](std::size_t j) { return j > i; }));
      reason = isIndented(lines[i]) ? "an indented line that continues no option"
                                    : "text after the \"]\" of a section header";
      reason += ": reading stopped here";
      if (after > 0) reason += ", so the " + std::to_string(after) + (after == 1 ? " line" : " lines") + " after it";
      reason += after == 1 ? " was not loaded" : (after > 1 ? " were not loaded" : "");
    } else if (withoutLineEnd(lines[i]).starts_with(u";")) {
      reason = "a \";\" comment: only \"#\" comments are read";
    } else if (i < firstHeader && withoutLineEnd(lines[i]).find(u'=') != std::u16string_view::npos) {
      reason = "an option before the first section header";
    } else {
      reason = "not understood: neither a \"#\" comment, a [section] header, a name=value option nor "
               "an indented continuation line";
    }
    message += "\n  line " + std::to_string(i + 1) + ": " + quoted(lines[i]) + " - " + reason;
    ++listed;
    if (i == stop) break;
  }
  return message;
}

}  // namespace corvane::cli
