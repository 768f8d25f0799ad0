// Corpus generator and output check for the comparison run.
//
//   compare_corpus generate <bytes> <full.ini> <flat.ini>
//     Writes makeIniCorpus(bytes) to full.ini and the same text without its
//     continuation lines to flat.ini (a form every peer can read), and
//     prints "<section> <key>": the first option of the middle section, the
//     option that every program edits.
//   compare_corpus check <input> <unedited> <edited> <section> <key> <value>
//     Checks Corvane's output: the unedited write-back equals the input
//     rewritten by the writing rules below, and the edited write-back differs
//     from it in exactly one line, "<key>=<value>", inside [<section>].
//
// Writing rules that apply to this corpus: an option line is written as the
// trimmed name, "=", the trimmed value; a continuation line as one space and
// its trimmed text; the line end after an option (or its continuation lines)
// is supplied by a blank line that follows it, so that blank line disappears,
// except after the text's last option, whose trailing blank lines belong to
// the document and are written after it. Everything else is kept byte for
// byte.
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "IniCorpus.h"

namespace {

std::vector<std::string> splitLines(const std::string& text) {
  std::vector<std::string> lines;
  std::size_t start = 0;
  while (start < text.size()) {
    std::size_t end = text.find('\n', start);
    if (end == std::string::npos) end = text.size();
    lines.push_back(text.substr(start, end - start));
    start = end + 1;
  }
  return lines;
}

std::string trim(const std::string& s) {
  std::size_t b = s.find_first_not_of(" \t");
  if (b == std::string::npos) return {};
  std::size_t e = s.find_last_not_of(" \t");
  return s.substr(b, e - b + 1);
}

std::string readFile(const char* path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    std::fprintf(stderr, "cannot read %s\n", path);
    std::exit(2);
  }
  std::ostringstream buffer;
  buffer << in.rdbuf();
  return buffer.str();
}

void writeFile(const char* path, const std::string& text) {
  std::ofstream out(path, std::ios::binary);
  out << text;
  if (!out) {
    std::fprintf(stderr, "cannot write %s\n", path);
    std::exit(2);
  }
}

bool isOptionLine(const std::string& line) {
  return !line.empty() && line[0] != ' ' && line[0] != '#' && line[0] != '[' && line.find('=') != std::string::npos;
}

int generate(std::size_t bytes, const char* fullPath, const char* flatPath) {
  const std::string text = makeIniCorpus(bytes);
  writeFile(fullPath, text);
  std::vector<std::string> lines = splitLines(text);
  std::string flat;
  flat.reserve(text.size());
  std::vector<std::size_t> headers;
  for (std::size_t i = 0; i < lines.size(); ++i) {
    if (!lines[i].empty() && lines[i][0] == ' ') continue;
    if (!lines[i].empty() && lines[i][0] == '[') headers.push_back(i);
    flat += lines[i];
    flat += '\n';
  }
  writeFile(flatPath, flat);
  if (headers.empty()) return 1;
  std::size_t header = headers[headers.size() / 2];
  const std::string& h = lines[header];
  for (std::size_t i = header + 1; i < lines.size(); ++i) {
    if (isOptionLine(lines[i])) {
      std::printf("%s %s\n", h.substr(1, h.size() - 2).c_str(), trim(lines[i].substr(0, lines[i].find('='))).c_str());
      return 0;
    }
  }
  return 1;
}

std::string normalise(const std::string& input) {
  std::vector<std::string> lines = splitLines(input);
  std::size_t lastOption = 0;
  for (std::size_t i = 0; i < lines.size(); ++i)
    if (isOptionLine(lines[i]) || (!lines[i].empty() && lines[i][0] == ' ')) lastOption = i;
  std::string out;
  bool afterOption = false;
  for (std::size_t i = 0; i < lines.size(); ++i) {
    const std::string& line = lines[i];
    if (line.empty()) {
      if (afterOption && i < lastOption) {
        afterOption = false;
        continue;
      }
      afterOption = false;
      out += '\n';
    } else if (line[0] == ' ' && afterOption) {
      out += ' ';
      out += trim(line) + "\n";
    } else if (isOptionLine(line)) {
      std::size_t eq = line.find('=');
      out += trim(line.substr(0, eq)) + "=" + trim(line.substr(eq + 1)) + "\n";
      afterOption = true;
    } else {
      out += line + "\n";
      afterOption = false;
    }
  }
  if (!input.empty() && input.back() != '\n') out.pop_back();
  return out;
}

int check(const char* inputPath, const char* uneditedPath, const char* editedPath, const std::string& section,
          const std::string& key, const std::string& value) {
  const std::string input = readFile(inputPath);
  const std::string unedited = readFile(uneditedPath);
  const std::string edited = readFile(editedPath);
  const std::string expected = normalise(input);
  if (expected != unedited) {
    std::vector<std::string> a = splitLines(expected), b = splitLines(unedited);
    std::size_t i = 0;
    while (i < a.size() && i < b.size() && a[i] == b[i]) ++i;
    std::printf("FAIL: unedited output departs from the writing rules at line %zu: expected \"%s\", got \"%s\"\n",
                i + 1, i < a.size() ? a[i].c_str() : "<end>", i < b.size() ? b[i].c_str() : "<end>");
    return 1;
  }
  std::vector<std::string> before = splitLines(unedited), after = splitLines(edited);
  if (before.size() != after.size()) {
    std::printf("FAIL: the edit changed the number of lines (%zu -> %zu)\n", before.size(), after.size());
    return 1;
  }
  std::vector<std::size_t> changed;
  for (std::size_t i = 0; i < before.size(); ++i)
    if (before[i] != after[i]) changed.push_back(i);
  if (changed.size() != 1) {
    std::printf("FAIL: the edit changed %zu lines, expected 1\n", changed.size());
    return 1;
  }
  std::size_t line = changed.front();
  std::string header;
  for (std::size_t i = line; i-- > 0;)
    if (!before[i].empty() && before[i][0] == '[') {
      header = before[i];
      break;
    }
  if (after[line] != key + "=" + value || before[line].rfind(key + "=", 0) != 0 || header != "[" + section + "]") {
    std::printf("FAIL: line %zu changed from \"%s\" to \"%s\" under \"%s\"\n", line + 1, before[line].c_str(),
                after[line].c_str(), header.c_str());
    return 1;
  }
  std::printf("ok: unedited output (%zu lines from %zu input lines) follows the writing rules; "
              "the edit changed only line %zu (\"%s\" -> \"%s\")\n",
              before.size(), splitLines(input).size(), line + 1, before[line].c_str(), after[line].c_str());
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  std::string mode = argc > 1 ? argv[1] : "";
  if (mode == "generate" && argc == 5) return generate(std::strtoull(argv[2], nullptr, 10), argv[3], argv[4]);
  if (mode == "check" && argc == 8) return check(argv[2], argv[3], argv[4], argv[5], argv[6], argv[7]);
  std::fprintf(stderr,
               "usage: %s generate <bytes> <full.ini> <flat.ini>\n"
               "       %s check <input> <unedited> <edited> <section> <key> <value>\n",
               argv[0], argv[0]);
  return 2;
}
