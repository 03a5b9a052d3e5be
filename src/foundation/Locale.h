// The locale of the process: taken once, first thing at start.
#pragma once

#include "platform/zlc.h"

// Result of ZLC2_GetLocale; null until setApplicationLocale (UTF8String then takes it by itself).
extern ZLC2_Locale applicationLocale;

// The application's locale, taking it at the first call if nobody has.
ZLC2_Locale getApplicationLocale();
