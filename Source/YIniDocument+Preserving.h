/// \file YIniDocument+Preserving.h
/// The preserving save of YIniDocument: writing a loaded document back with
/// every byte that its edits do not touch.
///
/// Declared as members of YIniDocument in YIniDocument.h (a C++ class cannot
/// be reopened, and the operations read the source record the document keeps
/// privately) and defined in YIniDocument+Preserving.cpp. This header
/// declares nothing of its own: it brings in YIniDocument.h and the encodings
/// (YStringEncoding.h) that preservedDataUsingEncodingError takes.
///
/// The group: hasSource, readingStopped, readingStopLineNumber,
/// readingStopLineText, lineNumberForElement, headOptions,
/// preservedStringValueWithError, preservedDataWithError,
/// preservedDataUsingEncodingError and writePreservedToFileError, with their
/// error domain YIniErrorDomain.
#pragma once

#include "YIniDocument.h"
#include "YStringEncoding.h"
