// Line-level text operations of the command-line tool: splitting text into
// lines, finding the lines that a rewrite would lose, and carrying an edit of
// the library's text over to the original file (a three-way merge of lines).
//
// A line here includes its line end: LF, or CR LF; a lone CR is an ordinary
// character, as it is for the library's reader. The last line may have none.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace corvane::cli {

using Lines = std::vector<std::u16string>;

/// Splits `text` after each LF. Joining the result gives `text` back.
Lines splitLines(std::u16string_view text);
/// The lines one after the other.
std::u16string joinLines(const Lines& lines);

/// The line without its line end (LF or CR LF).
std::u16string_view withoutLineEnd(std::u16string_view line);
/// The line's content with every white-space character removed (spaces,
/// tabs, the other Unicode space separators and line ends).
std::u16string withoutWhiteSpace(std::u16string_view line);
/// True for a line that holds only white space.
bool isBlank(std::u16string_view line);
/// The line end most lines of `lines` use: CR LF when more lines end in CR LF
/// than in a bare LF, else LF.
std::u16string dominantLineEnd(const Lines& lines);

/// The indexes of the non-blank lines of `original` whose content does not
/// come back in `rewritten`: both sides are compared with white space
/// removed and blank lines ignored, in order (a line that reappears
/// elsewhere does not count as kept if the order cannot hold it).
std::vector<std::size_t> lostLines(const Lines& original, const Lines& rewritten);

struct MergeOptions {
  /// Line end given to lines that come from the edit and to a line that
  /// gains a successor while it has no line end.
  std::u16string lineEnd = u"\n";
  /// Set when the edit removes whole sections: the original's lines that
  /// the base does not show (blank lines after an option) right after a
  /// removed stretch go with it, since they belonged to what was removed.
  bool dropHiddenLinesAfterRemovals = false;
};

/// Carries an edit over to the original text.
///
/// `base` is the library's text of the unedited document, `ours` the
/// original file, `theirs` the library's text after the edit. Lines of base
/// and ours are paired by their content without white space, so each
/// difference between them is the library's normalisation; lines of base and
/// theirs are paired exactly (line ends aside), so each difference between
/// them is the edit. The result is ours with the edit applied: every line
/// that the edit keeps comes from ours byte for byte, lines that the edit
/// removes or replaces are gone (their formatting in ours with them), and
/// lines that the edit adds come from theirs with `lineEnd`. Where the edit
/// adds lines at a place where ours has lines that base does not show, the
/// edit's lines come first, and a line equal to one of ours there (white
/// space aside) is taken from ours instead of being added twice. No line runs
/// into the next; when ours ends without a line end, so does the result.
Lines mergeEdit(const Lines& base, const Lines& ours, const Lines& theirs, const MergeOptions& options = {});

}  // namespace corvane::cli
