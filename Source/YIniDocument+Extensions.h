/// \file YIniDocument+Extensions.h
/// The YExtensions group of YIniDocument: loading, merging and saving.
///
/// Declared as members of YIniDocument in YIniDocument.h (a C++ class cannot
/// be reopened, and loading fills the document's private state) and defined
/// in YIniDocument+Extensions.cpp. This header declares nothing of its own:
/// it brings in what the group's callers use, YIniDocument.h, the reader
/// (YIniDocumentEnumerator.h) and the encodings (YStringEncoding.h).
///
/// The group: initWithStringFactory, initWithContentsOfFileFactory,
/// initWithDataFactory, documentFromStringFactory,
/// documentWithContentsOfFileFactory, documentWithDataFactory,
/// addCommentsToObject, stringValueMergedWith,
/// writeOptionsWithNamesForSectionNameToWriter and
/// writeToFileAtomicallyEncodingError. Loading never commits: a freshly
/// loaded document reports itself modified until the host commits it.
#pragma once

#include "YIniDocument.h"
#include "YIniDocumentEnumerator.h"
#include "YStringEncoding.h"
