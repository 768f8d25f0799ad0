// Writing into the library's own text writers without a virtual call.
// Private to the library: not installed.
#pragma once

#include <initializer_list>
#include <string_view>

#include "YObject.h"
#include "YStringWriter.h"
#include "YUTF8Writer.h"

namespace ydetail {

/// Whether `target` is exactly a YStringWriter or YUTF8Writer: writing into
/// it runs nobody's code.
inline bool isLibraryTextWriter(const YTextWriter& target) noexcept {
  return isExactly<YStringWriter>(target) || isExactly<YUTF8Writer>(target);
}

/// Writes `pieces` into exactly a YStringWriter or YUTF8Writer, as one
/// write() of their concatenation would; false (nothing written) for any
/// other writer.
inline bool writePiecesExactly(YTextWriter& target, std::initializer_list<std::u16string_view> pieces) {
  if (isExactly<YStringWriter>(target)) {
    static_cast<YStringWriter&>(target).writePieces(pieces);
    return true;
  }
  if (isExactly<YUTF8Writer>(target)) {
    static_cast<YUTF8Writer&>(target).writePieces(pieces);
    return true;
  }
  return false;
}

}  // namespace ydetail
