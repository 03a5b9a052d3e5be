// The locale of the process and conversion to UTF-8 (zlc.h) on iconv(3), with a path of its own for text that
// is UTF-8 or ASCII already.
#include <iconv.h>
#include <langinfo.h>

#include <algorithm>
#include <cerrno>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "host/base/Utf8.h"
#include "platform/zlc.h"
#include "platform/zsb.h"

struct ZLC2_LocaleData {
    std::string characterSet;
    bool utf8 = false;
    bool convertible = false;  // iconv knows the way to UTF-8
    bool ascii = false;        // the bytes 0 to 127 stand for themselves
    iconv_t resident = reinterpret_cast<iconv_t>(-1);  // never used nor closed: keeps the set's module loaded
};

namespace almanac::host {
namespace {

constexpr std::size_t kDescriptorsPerThread = 8;

// Opening and closing descriptors loads and unloads modules of the C library, one at a time.
std::mutex& descriptors() {
    static std::mutex* const lock = new std::mutex;
    return *lock;
}

iconv_t openDescriptor(const char* characterSet) {
    const std::lock_guard<std::mutex> hold(descriptors());
    return iconv_open("UTF-8", characterSet);
}

class Converter {
  public:
    explicit Converter(const char* characterSet) : descriptor_(openDescriptor(characterSet)) {}
    ~Converter() {
        const std::lock_guard<std::mutex> hold(descriptors());
        if (usable()) iconv_close(descriptor_);
    }
    Converter(const Converter&) = delete;
    Converter& operator=(const Converter&) = delete;
    bool usable() const { return descriptor_ != reinterpret_cast<iconv_t>(-1); }
    iconv_t get() const { return descriptor_; }

  private:
    iconv_t descriptor_;
};

// A descriptor carries state and belongs to one thread; each thread keeps its last few.
iconv_t converterFor(ZLC2_Locale locale) {
    thread_local std::vector<std::pair<ZLC2_Locale, std::unique_ptr<Converter>>> kept;
    const auto found =
        std::find_if(kept.begin(), kept.end(), [&](const auto& entry) { return entry.first == locale; });
    if (found != kept.end()) return found->second->get();
    auto made = std::make_unique<Converter>(locale->characterSet.c_str());
    if (!made->usable()) return made->get();
    if (kept.size() >= kDescriptorsPerThread) kept.erase(kept.begin());
    kept.emplace_back(locale, std::move(made));
    return kept.back().second->get();
}

struct Outcome {
    int status = ZLC2_OK;
    std::size_t consumed = 0;
    std::size_t written = 0;
};

// Copies what is UTF-8 already: `valid` bytes of the input are whole characters.
Outcome copyChecked(std::string_view in, std::size_t valid, char* out, std::size_t outSize) {
    Outcome result;
    result.status = valid == in.size() ? ZLC2_OK : ZLC2_ILLEGAL;
    std::size_t length = valid;
    if (length > outSize) {
        result.status = ZLC2_NO_ROOM;
        length = outSize;
        while (length > 0 && (static_cast<unsigned char>(in[length]) & 0xC0) == 0x80) --length;
    }
    if (length > 0) std::memcpy(out, in.data(), length);
    result.consumed = result.written = length;
    return result;
}

Outcome convertWithIconv(ZLC2_Locale locale, std::string_view in, char* out, std::size_t outSize) {
    Outcome result;
    const iconv_t converter = converterFor(locale);
    if (converter == reinterpret_cast<iconv_t>(-1)) {
        result.status = ZLC2_NO_LOCALE;
        return result;
    }
    iconv(converter, nullptr, nullptr, nullptr, nullptr);  // back to the initial shift state
    char* from = const_cast<char*>(in.data());             // iconv only reads it
    std::size_t fromLeft = in.size();
    char* to = out;
    std::size_t toLeft = outSize;
    constexpr auto kFailed = static_cast<std::size_t>(-1);
    std::size_t done = iconv(converter, &from, &fromLeft, &to, &toLeft);
    if (done != kFailed)
        done = iconv(converter, nullptr, nullptr, &to, &toLeft);  // what a stateful set holds back
    if (done == kFailed) result.status = errno == E2BIG ? ZLC2_NO_ROOM : ZLC2_ILLEGAL;
    result.consumed = in.size() - fromLeft;
    result.written = outSize - toLeft;
    return result;
}

Outcome convert(ZLC2_Locale locale, std::string_view in, char* out, std::size_t outSize) {
    if (!locale->convertible) return {ZLC2_NO_LOCALE, 0, 0};
    if (locale->utf8) return copyChecked(in, validUtf8Prefix(in), out, outSize);
    if (locale->ascii && asciiPrefix(in) == in.size()) return copyChecked(in, in.size(), out, outSize);
    return convertWithIconv(locale, in, out, outSize);
}

bool isUtf8Name(std::string name) {
    ZSV1_ToUpper(name.data());
    return name == "UTF-8" || name == "UTF8";
}

// Sets whose shift sequences are made of ASCII bytes: text that looks like ASCII may be none.
bool hasAsciiShifts(std::string name) {
    ZSV1_ToUpper(name.data());
    return name.find("2022") != std::string::npos || name.find("UTF-7") != std::string::npos ||
           name.find("UTF7") != std::string::npos || name.rfind("HZ", 0) == 0;
}

std::unique_ptr<const ZLC2_LocaleData> makeLocale(const std::string& characterSet) {
    auto made = std::make_unique<ZLC2_LocaleData>();
    made->utf8 = isUtf8Name(characterSet);
    made->characterSet = made->utf8 ? "UTF-8" : characterSet;
    made->convertible = made->utf8;
    if (!made->utf8) made->resident = openDescriptor(characterSet.c_str());
    if (made->resident != reinterpret_cast<iconv_t>(-1)) {
        made->convertible = true;
        std::string ascii;
        for (int c = 0; c < 128; ++c) ascii += static_cast<char>(c);
        char out[512];
        const Outcome result = convertWithIconv(made.get(), ascii, out, sizeof out);
        made->ascii = result.status == ZLC2_OK && std::string_view(out, result.written) == ascii &&
                      !hasAsciiShifts(characterSet);
    }
    return made;
}

struct Locales {
    std::mutex mutex;
    std::map<std::string, std::unique_ptr<const ZLC2_LocaleData>> bySet;
};

// Never destroyed: locales live as long as the process.
ZLC2_Locale localeOf(const std::string& characterSet) {
    static Locales* const all = new Locales;
    const std::lock_guard<std::mutex> hold(all->mutex);
    auto& entry = all->bySet[characterSet];
    if (!entry) entry = makeLocale(characterSet);
    return entry.get();
}

// The character set of the environment's locale. A machine that lacks the locale's data (usual in small
// installations) still says by the name what its texts are; where nothing is said, UTF-8 is meant.
std::string environmentCharacterSet() {
    const char* name = nullptr;
    for (const char* variable : {"LC_ALL", "LC_CTYPE", "LANG"}) {
        name = ZSV1_GetProcessEnv(variable);
        if (name && *name) break;
        name = nullptr;
    }
    if (!name) return "UTF-8";
    if (std::setlocale(LC_CTYPE, "")) return nl_langinfo(CODESET);
    const char* const dot = std::strchr(name, '.');
    if (!dot) return "UTF-8";
    const std::string set(dot + 1, std::strcspn(dot + 1, "@"));
    return set.empty() ? "UTF-8" : set;
}

}  // namespace
}  // namespace almanac::host

using namespace almanac::host;

ZLC2_Locale ZLC2_GetLocale() {
    try {
        static const ZLC2_Locale locale = localeOf(environmentCharacterSet());
        return locale;
    } catch (...) {
        return nullptr;
    }
}

const char* ZLC2_CharacterSet(ZLC2_Locale locale) { return locale ? locale->characterSet.c_str() : ""; }

ZLC2_Locale ZLC2_LocaleFor(const char* characterSet) {
    try {
        // A slash would hand options to iconv_open.
        if (!characterSet || !*characterSet || std::strchr(characterSet, '/')) return nullptr;
        std::string name(characterSet);
        ZSV1_ToUpper(name.data());
        if (isUtf8Name(name)) return localeOf("UTF-8");
        if (!Converter(name.c_str()).usable()) return nullptr;
        return localeOf(name);
    } catch (...) {
        return nullptr;
    }
}

int ZLC2_toUTF8(ZLC2_Locale locale, const char* in, int inLength, char* out, int outSize, int* outLength) {
    if (outLength) *outLength = 0;
    if (!locale) return ZLC2_NO_LOCALE;
    if ((!in && inLength > 0) || inLength < 0 || !out || outSize < 0)
        return inLength < 0 ? ZLC2_ILLEGAL : ZLC2_NO_ROOM;
    try {
        const Outcome result = convert(locale, {in ? in : "", static_cast<std::size_t>(inLength)}, out,
                                       static_cast<std::size_t>(outSize));
        if (outLength) *outLength = static_cast<int>(result.written);
        return result.status;
    } catch (...) {
        return ZLC2_NO_LOCALE;
    }
}

char* ZLC2_TranslateString(ZLC2_Locale locale, const char* text) {
    if (!text) return nullptr;
    try {
        std::string result;
        std::string_view rest(text);
        std::vector<char> buffer(4 * rest.size() + 16);
        while (locale && !rest.empty()) {
            const Outcome part = convert(locale, rest, buffer.data(), buffer.size());
            result.append(buffer.data(), part.written);
            rest.remove_prefix(part.consumed);
            if (part.status == ZLC2_OK || part.status == ZLC2_NO_LOCALE) break;
            if (part.status == ZLC2_ILLEGAL && !rest.empty()) {
                result += '?';
                rest.remove_prefix(1);
            }
            if (part.status == ZLC2_NO_ROOM && part.consumed == 0) break;
        }
        if (!locale || !locale->convertible) {
            for (const char c : rest) result += static_cast<unsigned char>(c) < 0x80 ? c : '?';
        }
        return ::strdup(result.c_str());
    } catch (...) {
        return ::strdup("");
    }
}
