// What `get` and `diff` print, in the tool's formats.
#pragma once

#include <string>

#include "CommandLine.h"
#include "IniFile.h"

namespace corvane::cli {

/// `get FILE`: the section names (the head left out), or every section in
/// `format`.
std::string formatFile(IniFile& file, Format format);
/// `get FILE SECTION`: the option names, or the section in `format`.
std::string formatSection(IniFile& file, const SectionEntry& section, Format format);
/// `get FILE SECTION OPTION`: the value, or the option in `format`.
std::string formatOption(IniFile& file, const SectionEntry& section, const OptionEntry& option, Format format);

/// `diff OLD NEW`: the sections and options added, removed and changed, as
/// text or JSON (Format::Json). `differ` tells whether there was any.
std::string formatDiff(IniFile& older, IniFile& newer, Format format, bool& differ);

}  // namespace corvane::cli
