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

TEST(RealWorldCorpus, UneditedFilesComeBackByteForByteAndOneChangedValueChangesOneLineOnlyInItsValue) {
  LogCapture quiet;
  std::size_t edited = 0;
  for (const fs::path& file : corpus()) {
    SCOPED_TRACE(file.filename().string());
    auto document = loadFile(file);
    EXPECT_EQ(preservedBytes(*document), readBytes(file));
    const auto all = options(*document);  // the first with a single-line value is edited
    const auto found = std::find_if(all.begin(), all.end(), [](const auto& o) {
      return o.second->value().view().find(u'\n') == std::u16string_view::npos;
    });
    if (found == all.end()) continue;
    const auto option = found->second;
    const std::string oldValue = utf8(option->value());
    const std::size_t line = document->lineNumberForElement(*option);
    option->setValue(S("corvane-edited"));
    const auto before = splitLines(readBytes(file)), after = splitLines(preservedBytes(*document));
    ASSERT_EQ(after.size(), before.size());
    ASSERT_TRUE(line > 0 && line <= before.size()) << line;
    // Every other line is as it was; the edited one is the old one with its value replaced (an empty old
    // value may gain one space after "=").
    auto expected = before;
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
}

TEST(RealWorldCorpus, ARemovedOptionTakesExactlyItsLines) {
  LogCapture quiet;
  std::size_t edited = 0;
  for (const fs::path& file : corpus()) {
    SCOPED_TRACE(file.filename().string());
    auto document = loadFile(file);
    const auto all = options(*document);  // the last, with continuation lines when it has any
    if (all.empty()) continue;
    const auto& [section, option] = all.back();
    const std::size_t line = document->lineNumberForElement(*option);
    const std::size_t count = 1 + std::count(option->value().view().begin(), option->value().view().end(), u'\n');
    section->removeElement(option);
    auto expected = splitLines(readBytes(file));
    expected.erase(expected.begin() + static_cast<std::ptrdiff_t>(line - 1),
                   expected.begin() + static_cast<std::ptrdiff_t>(line - 1 + count));
    EXPECT_EQ(splitLines(preservedBytes(*document)), expected);
    ++edited;
  }
  EXPECT_GE(edited, 100u);
}

}  // namespace
