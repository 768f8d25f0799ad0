// Helpers for the reading, loading and merging suites.
#pragma once

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "YFoundation.h"
#include "YIniComment.h"
#include "YIniDocument+Extensions.h"
#include "YIniOption.h"
#include "YIniSection.h"
#include "YIniStandardElementFactory.h"

/// Text with control characters spelled out, for readable failures.
inline std::string visible(const YString& s) {
  if (s.isNull()) return "(null)";
  std::string out;
  for (char c : s.UTF8String()) {
    if (c == '\n') out += "\\n";
    else if (c == '\r') out += "\\r";
    else if (c == '\t') out += "\\t";
    else out += c;
  }
  return out;
}

/// One line per element: "S:name", "O:name=value", "C:text"; a section's
/// children follow indented when `deep`.
inline void describeElement(const std::shared_ptr<YIniElement>& e, std::vector<std::string>& out, bool deep,
                            const std::string& indent = "") {
  if (auto s = std::dynamic_pointer_cast<YIniSection>(e)) {
    out.push_back(indent + "S:" + visible(s->name()));
    if (deep)
      for (const auto& child : s->elements()->vector()) describeElement(child, out, deep, indent + "  ");
  } else if (auto o = std::dynamic_pointer_cast<YIniOption>(e)) {
    out.push_back(indent + "O:" + visible(o->name()) + "=" + visible(o->value()));
  } else if (auto c = std::dynamic_pointer_cast<YIniComment>(e)) {
    out.push_back(indent + "C:" + visible(c->stringValue()));
  }
}

inline std::vector<std::string> describeAll(const std::shared_ptr<YArray<YIniElement>>& elements, bool deep) {
  std::vector<std::string> out;
  for (const auto& e : elements->vector()) describeElement(e, out, deep);
  return out;
}

/// Collects log lines while installed.
class LogCapture {
 public:
  LogCapture() {
    _previous = YSetLogSink([this](const YString& m) { lines.push_back(m.UTF8String()); });
  }
  ~LogCapture() { YSetLogSink(_previous); }
  std::vector<std::string> lines;

 private:
  YLogSink _previous;
};

inline std::shared_ptr<YIniDocument> load(const std::string& text) {
  return YIniDocument::documentFromStringFactory(YString(text), YIniStandardElementFactory::standardFactory());
}
/// The document read from `bytes`: as they are when plain ASCII, else decoded.
inline std::shared_ptr<YIniDocument> loadBytes(const std::string& bytes) {
  return YIniDocument::documentWithDataFactory(bytes, YIniStandardElementFactory::standardFactory());
}
inline std::shared_ptr<YIniDocument> loadFile(const std::string& path) {
  return YIniDocument::documentWithContentsOfFileFactory(YString(path), YIniStandardElementFactory::standardFactory());
}

/// The preserving save's bytes, or "ERROR: " and its error.
inline std::string preservedBytes(YIniDocument& document) {
  std::shared_ptr<YError> error;
  auto bytes = document.preservedDataWithError(&error);
  return bytes ? *bytes : "ERROR: " + error->description().UTF8String();
}

/// Every file under `folder` but its README.md, in a fixed order.
inline std::vector<std::filesystem::path> filesUnder(const std::filesystem::path& folder) {
  std::vector<std::filesystem::path> files;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder))
    if (entry.is_regular_file() && entry.path().filename() != "README.md") files.push_back(entry.path());
  std::sort(files.begin(), files.end());
  return files;
}
