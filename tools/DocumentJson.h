// The element tree of a document as JSON, for `corvane dump`.
#pragma once

#include <nlohmann/json.hpp>

#include "YIniDocument.h"

namespace corvane::cli {

/// {"elements": [...]}: each comment as {"type": "comment", "text": T}, each
/// option as {"type": "option", "name": N, "value": V} and each section as
/// {"type": "section", "name": N, "elements": [...]}, in list order. Null
/// strings become JSON null; elements of other kinds are left out.
nlohmann::ordered_json documentJson(YIniDocument& document);

}  // namespace corvane::cli
