// The preserving save on configuration files as packages ship them: no edit
// gives the file back, one changed value changes one line, one removed
// option takes exactly its lines.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "FileFaultSupport.h"
#include "ElementTestSupport.h"
#include "PreservingProperty.h"
#include "ReadingSupport.h"

#ifndef CORVANE_REALWORLD_DIR
#define CORVANE_REALWORLD_DIR "tests/corvane/realworld"
#endif

namespace {

namespace fs = std::filesystem;

using filefault::readBytes;

using preservingproperty::splitLines;

std::vector<fs::path> corpus() { return filesUnder(CORVANE_REALWORLD_DIR); }

// Every option of the document with its section, in order.
std::vector<std::pair<std::shared_ptr<YIniSection>, std::shared_ptr<YIniOption>>> options(YIniDocument& document) {
  std::vector<std::pair<std::shared_ptr<YIniSection>, std::shared_ptr<YIniOption>>> out;
  const auto sections = document.sections();
  for (const auto& section : *sections) {
    const auto options = section->options();
    for (const auto& option : *options) out.emplace_back(section, option);
  }
  return out;
}

TEST(RealWorldCorpus, UneditedFilesComeBackByteForByteOneChangedValueChangesOneLineAndARemovedOptionItsLines) {
  LogCapture quiet;
  std::size_t edited = 0, removed = 0;
  for (const fs::path& file : corpus()) {
    SCOPED_TRACE(file.filename().string());
    const auto before = splitLines(readBytes(file));
    auto document = loadFile(file);
    EXPECT_EQ(preservedBytes(*document), readBytes(file));  // unedited
    // The last option, with continuation lines when it has any, is removed: exactly its lines go.
    auto all = options(*document);
    if (all.empty()) continue;
    const auto& [section, last] = all.back();
    std::size_t line = document->lineNumberForElement(*last);
    const std::size_t count = 1 + std::count(last->value().view().begin(), last->value().view().end(), u'\n');
    section->removeElement(last);
    auto expected = before;
    expected.erase(expected.begin() + static_cast<std::ptrdiff_t>(line - 1),
                   expected.begin() + static_cast<std::ptrdiff_t>(line - 1 + count));
    EXPECT_EQ(splitLines(preservedBytes(*document)), expected);
    ++removed;

    // In the file as loaded, the first option with a single-line value is changed.
    document = loadFile(file);
    all = options(*document);
    const auto found = std::find_if(all.begin(), all.end(), [](const auto& o) {
      return o.second->value().view().find(u'\n') == std::u16string_view::npos;
    });
    if (found == all.end()) continue;
    const auto option = found->second;
    const std::string oldValue = utf8(option->value());
    line = document->lineNumberForElement(*option);
    option->setValue(S("corvane-edited"));
    const auto after = splitLines(preservedBytes(*document));
    ASSERT_EQ(after.size(), before.size());
    ASSERT_TRUE(line > 0 && line <= before.size()) << line;
    // Every other line is as it was; the edited one is the old one with its value replaced (an empty old
    // value may gain one space after "=").
    expected = before;
    std::string& changed = expected[line - 1];
    const std::size_t equals = changed.find('=');
    ASSERT_NE(equals, std::string::npos);
    const std::size_t at = oldValue.empty() ? std::string::npos : changed.find(oldValue, equals + 1);
    if (at != std::string::npos) {
      changed.replace(at, oldValue.size(), "corvane-edited");
    } else {
      EXPECT_NE(after[line - 1].find("corvane-edited"), std::string::npos);
      EXPECT_EQ(after[line - 1].substr(0, equals + 1), changed.substr(0, equals + 1));
      changed = after[line - 1];
    }
    EXPECT_EQ(after, expected);
    ++edited;
  }
  EXPECT_GE(edited, 100u);
  EXPECT_GE(removed, 100u);
}

}  // namespace
