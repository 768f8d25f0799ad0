// The message for a file whose text the library would not write back whole.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "LineMerge.h"

namespace corvane::cli {

/// Says which lines of `lines` (the file's text) would be lost, the first
/// few with their line numbers and what the library did not understand
/// about each. `lost` holds the indexes of the lost lines, ascending (see
/// lostLines). `path` names the file.
std::string describeLostLines(const std::string& path, const Lines& lines, const std::vector<std::size_t>& lost);

}  // namespace corvane::cli
