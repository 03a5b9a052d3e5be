// Locale and conversion to UTF-8.
#pragma once

struct ZLC2_LocaleData;
typedef const ZLC2_LocaleData* ZLC2_Locale;  // lives as long as the process

enum ZLC2_Status {
    ZLC2_OK = 0,
    ZLC2_ILLEGAL = 1,    // the input is no text of the locale's character set, or ends inside a character
    ZLC2_NO_ROOM = 2,    // the output holds the whole characters that fitted
    ZLC2_NO_LOCALE = 3,  // a null locale, or one whose character set cannot be converted
};

// The locale of the process by its environment (LC_ALL, LC_CTYPE, LANG). LC_NUMERIC stays at "C".
ZLC2_Locale ZLC2_GetLocale();

// The name of the locale's character set, "UTF-8" or "ISO-8859-1" for instance.
const char* ZLC2_CharacterSet(ZLC2_Locale locale);

// A locale of the given character set (for texts that come in another one); null if it is not known.
ZLC2_Locale ZLC2_LocaleFor(const char* characterSet);

// Converts `inLength` bytes to UTF-8. Writes at most `outSize` bytes, whole characters only, no terminator of
// its own; `*outLength` is the number of bytes written. Text that is UTF-8 already is checked, not only copied.
int ZLC2_toUTF8(ZLC2_Locale locale, const char* in, int inLength, char* out, int outSize, int* outLength);

// A malloc'd, terminated UTF-8 copy of a message text; the caller frees it. Null only for a null text.
char* ZLC2_TranslateString(ZLC2_Locale locale, const char* text);
