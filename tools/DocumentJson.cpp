#include "DocumentJson.h"

namespace corvane::cli {

namespace {

nlohmann::ordered_json jsonString(const YString& string) {
  if (string.isNull()) return nullptr;
  return string.UTF8String();
}

nlohmann::ordered_json elementsJson(const YIniCompositeElement& composite) {
  auto list = nlohmann::ordered_json::array();
  for (const auto& element : *composite.elements()) {
    nlohmann::ordered_json item;
    if (auto section = std::dynamic_pointer_cast<YIniSection>(element)) {
      item["type"] = "section";
      item["name"] = jsonString(section->name());
      item["elements"] = elementsJson(*section);
    } else if (auto option = std::dynamic_pointer_cast<YIniOption>(element)) {
      item["type"] = "option";
      item["name"] = jsonString(option->name());
      item["value"] = jsonString(option->value());
    } else if (auto comment = std::dynamic_pointer_cast<YIniComment>(element)) {
      item["type"] = "comment";
      item["text"] = jsonString(comment->stringValue());
    } else {
      continue;
    }
    list.push_back(std::move(item));
  }
  return list;
}

}  // namespace

nlohmann::ordered_json documentJson(YIniDocument& document) {
  nlohmann::ordered_json root;
  root["elements"] = elementsJson(document);
  return root;
}

}  // namespace corvane::cli
