/// \file YFoundation.h
/// The foundation in one include.
#pragma once

#include "YArray.h"
#include "YAssertionHandler.h"
#include "YCharacterSet.h"
#include "YError.h"
#include "YException.h"
#include "YFile.h"
#include "YLog.h"
#include "YObject.h"
#include "YString.h"
#include "YStringEncoding.h"
