#include "TextFile.h"

#include <string_view>

namespace corvane::cli {

namespace {

bool startsWith(std::string_view bytes, std::string_view prefix) { return bytes.substr(0, prefix.size()) == prefix; }

std::string describe(const std::shared_ptr<YError>& error, const std::string& fallback) {
  return error ? error->localizedDescription().UTF8String() : fallback;
}

// The byte-order mark at the start of `bytes` that the decoder took for
// `detected`, with the converter that writes the rest in the same byte order.
TextEncoding encodingAsRead(std::string_view bytes, YStringEncoding detected) {
  switch (detected) {
    case YUTF8StringEncoding:
      if (startsWith(bytes, "\xEF\xBB\xBF")) return {YUTF8StringEncoding, "\xEF\xBB\xBF"};
      break;
    case YUnicodeStringEncoding:
      if (startsWith(bytes, "\xFF\xFE")) return {YUTF16LittleEndianStringEncoding, "\xFF\xFE"};
      if (startsWith(bytes, "\xFE\xFF")) return {YUTF16BigEndianStringEncoding, "\xFE\xFF"};
      return {YUTF16BigEndianStringEncoding, ""};
    case YUTF32StringEncoding: {
      using namespace std::string_view_literals;
      if (startsWith(bytes, "\xFF\xFE\x00\x00"sv)) return {YUTF32LittleEndianStringEncoding, std::string(bytes.substr(0, 4))};
      if (startsWith(bytes, "\x00\x00\xFE\xFF"sv)) return {YUTF32BigEndianStringEncoding, std::string(bytes.substr(0, 4))};
      return {YUTF32BigEndianStringEncoding, ""};
    }
    default:
      break;
  }
  return {detected, ""};
}

}  // namespace

std::string TextEncoding::name() const {
  std::string result = YStringEncodingName(encoding);
  if (!byteOrderMark.empty()) result += " with BOM";
  return result;
}

std::optional<TextFile> readTextFile(const std::string& path, FileProblem& problem) {
  std::shared_ptr<YError> error;
  std::optional<std::string> bytes = YReadFile(YString(path), &error);
  if (!bytes) {
    problem.message = describe(error, path + ": cannot read the file");
    return std::nullopt;
  }
  YStringEncoding detected = YUTF8StringEncoding;
  YString text = YDecodeBytesDetectingEncoding(*bytes, &detected, &error);
  if (text.isNull()) {
    problem.message = path + ": cannot decode the text: " + describe(error, "unknown encoding");
    return std::nullopt;
  }
  return TextFile{text, encodingAsRead(*bytes, detected)};
}

std::optional<TextEncoding> textEncodingNamed(const std::string& name) {
  std::optional<YStringEncoding> encoding = YStringEncodingFromName(name);
  if (!encoding || !YStringEncodingIsSupported(*encoding)) return std::nullopt;
  return TextEncoding{*encoding, ""};
}

std::optional<std::string> encodeText(const YString& text, const TextEncoding& encoding, const std::string& path,
                                      FileProblem& problem) {
  std::shared_ptr<YError> error;
  std::optional<std::string> bytes = YEncodeString(text, encoding.encoding, &error);
  if (!bytes) {
    problem.message = path + ": cannot encode the text in " + encoding.name() + ": " +
                      describe(error, "a character has no representation");
    return std::nullopt;
  }
  return encoding.byteOrderMark + *bytes;
}

bool writeFileAtomically(const std::string& path, const std::string& bytes, FileProblem& problem) {
  std::shared_ptr<YError> error;
  if (YWriteFile(YString(path), bytes, true, &error)) return true;
  problem.message = describe(error, path + ": cannot write the file");
  return false;
}

}  // namespace corvane::cli
