// Loading, merging and saving of documents (the YExtensions group of YIniDocument).
//
// The operations are members of YIniDocument, declared in YIniDocument.h and
// defined in YIniDocument+Extensions.cpp:
//   initWithStringFactory, initWithContentsOfFileFactory,
//   documentFromStringFactory, documentWithContentsOfFileFactory,
//   addCommentsToObject, stringValueMergedWith,
//   writeOptionsWithNamesForSectionNameToWriter, writeToFileAtomicallyEncodingError.
#pragma once

#include "YIniDocument.h"
#include "YIniDocumentEnumerator.h"
#include "YStringEncoding.h"
