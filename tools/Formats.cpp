#include "Formats.h"

#include <algorithm>
#include <unordered_map>

#include <nlohmann/json.hpp>

namespace corvane::cli {

namespace {

using Json = nlohmann::ordered_json;

std::string utf8(const YString& string) { return string.UTF8String(); }
std::string utf8(std::u16string_view text) { return YString(text).UTF8String(); }

// Single quotes keep everything literal in sh; a quote itself is closed,
// escaped and reopened.
std::string shellQuoted(const std::string& value) {
  std::string quoted = "'";
  for (char c : value) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return quoted + "'";
}

}  // namespace

bool isShellName(const std::string& name) {
  if (name.empty() || (name[0] >= '0' && name[0] <= '9')) return false;
  return std::all_of(name.begin(), name.end(), [](char c) {
    return c == '_' || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
  });
}

namespace {

// A value on one line: its line breaks as \n, and so that a backslash and
// "n" cannot pass for a line break, its backslashes as \\.
std::string oneLine(const YString& value) {
  std::string text;
  for (char c : utf8(value)) {
    if (c == '\n') text += "\\n";
    else if (c == '\\') text += "\\\\";
    else text += c;
  }
  return text;
}

std::string linesEntry(const SectionEntry& section, const OptionEntry& option) {
  return "[" + utf8(section.name) + "] " + utf8(option.name) + " = " + oneLine(option.value) + "\n";
}

std::string shEntry(IniFile& file, const std::string& prefix, const std::string& name, const YString& value) {
  if (!isShellName(prefix + name)) {
    warn(file.label(), "'" + prefix + name + "' is not a shell variable name; left out");
    return "";
  }
  return prefix + name + "=" + shellQuoted(utf8(value)) + "\n";
}

Json sectionJson(const SectionEntry& section) {
  Json object = Json::object();
  for (const OptionEntry& option : section.options) object[utf8(option.name)] = utf8(option.value);
  return object;
}

std::string sectionText(IniFile& file, const SectionEntry& section) {
  auto [first, last] = section.head ? file.headLines() : file.sectionLines(*file.section(section.name));
  return utf8(file.textOfLines(first, last));
}

}  // namespace

std::string formatFile(IniFile& file, Format format, const std::string& prefix) {
  const std::vector<SectionEntry> sections = file.sections();
  std::string out;
  // Whole-file names join section and option with "_": [a] b_c and [a_b] c
  // make the same one, of which the shell keeps the later value.
  std::unordered_map<std::string, std::string> printed;  // name -> "[section] option"
  switch (format) {
    case Format::Plain:
      for (const SectionEntry& section : sections)
        if (!section.head) out += utf8(section.name) + "\n";
      return out;
    case Format::Ini:
      return utf8(file.file().text);
    case Format::Json: {
      Json object = Json::object();
      for (const SectionEntry& section : sections) object[utf8(section.name)] = sectionJson(section);
      return object.dump(2) + "\n";
    }
    case Format::Sh:
    case Format::Lines:
      for (const SectionEntry& section : sections) {
        if (format == Format::Lines && section.options.empty()) out += "[" + utf8(section.name) + "]\n";
        for (const OptionEntry& option : section.options) {
          if (format == Format::Lines) {
            out += linesEntry(section, option);
            continue;
          }
          const std::string name = section.head ? utf8(option.name) : utf8(section.name) + "_" + utf8(option.name);
          const std::string entry = shEntry(file, prefix, name, option.value);
          if (entry.empty()) continue;
          const std::string place = "[" + utf8(section.name) + "] " + utf8(option.name);
          if (auto [first, isNew] = printed.emplace(name, place); !isNew)
            warn(file.label(), "'" + prefix + name + "' stands for both " + first->second + " and " + place +
                                   "; the shell keeps the latter");
          out += entry;
        }
      }
      return out;
  }
  return out;
}

std::string formatSection(IniFile& file, const SectionEntry& section, Format format, const std::string& prefix) {
  std::string out;
  switch (format) {
    case Format::Plain:
      for (const OptionEntry& option : section.options) out += utf8(option.name) + "\n";
      return out;
    case Format::Ini:
      return sectionText(file, section);
    case Format::Json:
      return sectionJson(section).dump(2) + "\n";
    case Format::Sh:
      for (const OptionEntry& option : section.options) out += shEntry(file, prefix, utf8(option.name), option.value);
      return out;
    case Format::Lines:
      if (section.options.empty()) out += "[" + utf8(section.name) + "]\n";
      for (const OptionEntry& option : section.options) out += linesEntry(section, option);
      return out;
  }
  return out;
}

std::string formatOption(IniFile& file, const SectionEntry& section, const OptionEntry& option, Format format,
                         const std::string& prefix) {
  switch (format) {
    case Format::Plain:
      return utf8(option.value) + "\n";
    case Format::Ini: {
      const std::u16string_view value = option.value.view();
      const auto continuations = static_cast<std::size_t>(std::count(value.begin(), value.end(), u'\n'));
      return utf8(file.textOfLines(option.line, option.line + continuations));
    }
    case Format::Json:
      return Json(utf8(option.value)).dump() + "\n";
    case Format::Sh:
      return shEntry(file, prefix, utf8(option.name), option.value);
    case Format::Lines:
      return linesEntry(section, option);
  }
  return {};
}

std::string formatDiff(IniFile& older, IniFile& newer, Format format, bool& differ) {
  std::vector<SectionEntry> before = older.sections(), after = newer.sections();
  // The head is there in both when it is in either: its options differ.
  auto hasHead = [](const std::vector<SectionEntry>& sections) { return !sections.empty() && sections[0].head; };
  if (hasHead(before) && !hasHead(after)) after.insert(after.begin(), *newer.sectionEntry(YString(u"")));
  if (hasHead(after) && !hasHead(before)) before.insert(before.begin(), *older.sectionEntry(YString(u"")));
  // Lookups by name, each list indexed once.
  using SectionIndex = std::unordered_map<std::u16string, const SectionEntry*>;
  auto indexed = [](const std::vector<SectionEntry>& sections) {
    SectionIndex index;
    for (const SectionEntry& section : sections) index.emplace(section.name.view(), &section);
    return index;
  };
  const SectionIndex beforeIndex = indexed(before), afterIndex = indexed(after);
  auto find = [](const SectionIndex& index, const YString& name) -> const SectionEntry* {
    auto it = index.find(std::u16string(name.view()));
    return it == index.end() ? nullptr : it->second;
  };
  auto options = [](const SectionEntry& section) {
    std::unordered_map<std::u16string, const OptionEntry*> index;
    for (const OptionEntry& option : section.options) index.emplace(option.name.view(), &option);
    return index;
  };
  std::string text;
  Json changes = Json::array();
  auto change = [&](const char* kind, const SectionEntry& section, const OptionEntry* option, const YString* old) {
    Json entry{{"change", kind}, {"section", utf8(section.name)}};
    if (option) {
      entry["option"] = utf8(option->name);
      if (old) {
        entry["old"] = utf8(*old);
        entry["new"] = utf8(option->value);
      } else {
        entry["value"] = utf8(option->value);
      }
    }
    changes.push_back(std::move(entry));
    const std::string sign = old ? "~" : kind == std::string("added") ? "+" : "-";
    text += sign + " [" + utf8(section.name) + "]";
    if (option) {
      text += " " + utf8(option->name) + " = ";
      if (old) text += oneLine(*old) + " -> ";
      text += oneLine(option->value);
    }
    text += "\n";
  };
  for (const SectionEntry& section : before) {
    const SectionEntry* other = find(afterIndex, section.name);
    if (!other) {
      change("removed", section, nullptr, nullptr);
      continue;
    }
    const auto was = options(section), now = options(*other);
    for (const OptionEntry& option : section.options) {
      auto it = now.find(std::u16string(option.name.view()));
      if (it == now.end()) change("removed", section, &option, nullptr);
      else if (!it->second->value.isEqualToString(option.value)) change("changed", section, it->second, &option.value);
    }
    for (const OptionEntry& option : other->options)
      if (!was.count(std::u16string(option.name.view()))) change("added", section, &option, nullptr);
  }
  for (const SectionEntry& section : after) {
    if (find(beforeIndex, section.name)) continue;
    change("added", section, nullptr, nullptr);
    for (const OptionEntry& option : section.options) change("added", section, &option, nullptr);
  }
  differ = !changes.empty();
  return format == Format::Json ? changes.dump(2) + "\n" : text;
}

}  // namespace corvane::cli
