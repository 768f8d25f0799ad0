// What `get` and `diff` print, in the tool's formats.
#pragma once

#include <string>

#include "CommandLine.h"
#include "IniFile.h"

namespace corvane::cli {

/// Whether `name` can name a shell variable: ASCII letters, digits and "_",
/// not beginning with a digit.
bool isShellName(const std::string& name);

/// `get FILE`: the section names (the head left out), or every section in
/// `format`. In Format::Sh every name printed begins with `prefix`.
std::string formatFile(IniFile& file, Format format, const std::string& prefix = {});
/// `get FILE SECTION`: the option names, or the section in `format`.
std::string formatSection(IniFile& file, const SectionEntry& section, Format format, const std::string& prefix = {});
/// `get FILE SECTION OPTION`: the value, or the option in `format`.
std::string formatOption(IniFile& file, const SectionEntry& section, const OptionEntry& option, Format format,
                         const std::string& prefix = {});

/// `diff OLD NEW`: the sections and options added, removed and changed, as
/// text or JSON (Format::Json). `differ` tells whether there was any.
std::string formatDiff(IniFile& older, IniFile& newer, Format format, bool& differ);

}  // namespace corvane::cli
