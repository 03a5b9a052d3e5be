#include "foundation/UTF8String.h"

#include <atomic>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "foundation/Ebcdic037.inc"
#include "foundation/Locale.h"
#include "foundation/Trace.h"

namespace {

constexpr const char* kNull = "<NULL>";
constexpr const char* kNoText = "<UNABLE TO CONVERT TO UTF8>";
constexpr unsigned char kQuestionMark037 = 0x6f;
constexpr int kBytesPerCharacter = 3;
constexpr int kOnStack = 1024;  // longest source that is converted without a heap buffer
constexpr int kLongest = INT_MAX / kBytesPerCharacter - 1;

int boundedLength(const char* text) { return static_cast<int>(strnlen(text, kLongest)); }

char* newText(std::size_t length) {
    char* text = static_cast<char*>(std::malloc(length + 1));
    if (!text) std::abort();
    text[length] = '\0';
    return text;
}

char* duplicate(const char* bytes, std::size_t length) {
    char* text = newText(length);
    if (length > 0) std::memcpy(text, bytes, length);
    return text;
}

bool isAscii(const char* text, int length) {
    unsigned char high = 0;
    for (int i = 0; i < length; ++i) high = static_cast<unsigned char>(high | static_cast<unsigned char>(text[i]));
    return high < 0x80;
}

// Whether the locale's character set has ASCII as its lower half, so that such texts need no conversion.
bool leavesAsciiAlone(ZLC2_Locale locale) {
    static constinit std::atomic<ZLC2_Locale> known{nullptr};
    static constinit std::atomic<ZLC2_Locale> knownOther{nullptr};
    if (!locale || knownOther.load(std::memory_order_relaxed) == locale) return false;
    if (known.load(std::memory_order_relaxed) == locale) return true;
    char in[127];
    char out[127 * kBytesPerCharacter];
    for (int i = 0; i < 127; ++i) in[i] = static_cast<char>(i + 1);
    int written = 0;
    const bool answer = ZLC2_toUTF8(locale, in, 127, out, sizeof out, &written) == ZLC2_OK && written == 127 &&
                        std::memcmp(in, out, 127) == 0;
    (answer ? known : knownOther).store(locale, std::memory_order_relaxed);
    return answer;
}

// The Latin-1 byte of the next UTF-8 character; -1 for a character beyond, or for bytes that are none.
int nextLatin1(const unsigned char*& at, const unsigned char* end) {
    const unsigned first = *at++;
    if (first < 0x80) return static_cast<int>(first);
    int trailing = 0;
    while (at < end && (*at & 0xc0) == 0x80 && trailing < 3) {
        ++at;
        ++trailing;
    }
    if ((first == 0xc2 || first == 0xc3) && trailing == 1) return static_cast<int>((first & 0x03) << 6 | (at[-1] & 0x3f));
    return -1;
}

}  // namespace

struct UTF8String::Extra {
    char* source = nullptr;
    char* ebcdic = nullptr;
    int ebcdicLength = 0;

    Extra() = default;
    Extra(const Extra&) = delete;
    Extra& operator=(const Extra&) = delete;
    ~Extra() {
        std::free(source);
        std::free(ebcdic);
    }
};

UTF8String::~UTF8String() { discard(); }

void UTF8String::discard() {
    if (!isInline_) {
        std::free(heap_.value);
        delete heap_.extra;
    }
    heap_ = Heap{nullptr, nullptr, 0};
    valueIsSource_ = isInline_ = false;
}

// Moves a short value out of the object, which has no room for both.
UTF8String::Extra& UTF8String::extra() {
    if (isInline_) {
        const int length = inlineLength_;
        char* value = duplicate(inline_, static_cast<std::size_t>(length));
        heap_ = Heap{value, nullptr, length};
        isInline_ = false;
    }
    if (!heap_.extra) heap_.extra = new Extra;
    return *heap_.extra;
}

// Only into a discarded object.
void UTF8String::store(const char* bytes, int length) {
    isInline_ = length < kInlineSize;
    if (isInline_) {
        inlineLength_ = static_cast<unsigned char>(length) & 0x1f;
        if (length > 0) std::memcpy(inline_, bytes, static_cast<std::size_t>(length));
        inline_[length] = '\0';
    } else {
        heap_ = Heap{duplicate(bytes, static_cast<std::size_t>(length)), nullptr, length};
    }
}

// Called once the value is there; a source that equals it takes no room of its own.
void UTF8String::keepSource(const char* text) {
    const std::size_t length = std::strlen(text);
    valueIsSource_ =
        static_cast<std::size_t>(getLength()) == length && std::memcmp(getUTF8Value(), text, length) == 0;
    if (!valueIsSource_) extra().source = duplicate(text, length);
}

// Gives the source room of its own and leaves a short value behind, for the caller to set another.
void UTF8String::beforeNewValue() {
    char* source = valueIsSource_ ? duplicate(getUTF8Value(), static_cast<std::size_t>(getLength())) : nullptr;
    if (isInline_) {
        heap_ = Heap{nullptr, nullptr, 0};
        isInline_ = false;
    }
    if (source) extra().source = source;
    valueIsSource_ = false;
    if (!heap_.extra) return;
    std::free(heap_.extra->ebcdic);
    heap_.extra->ebcdic = nullptr;
    heap_.extra->ebcdicLength = 0;
}

int UTF8String::initFromASCIIString(const char* text) {
    if (!text) return initFromUTF8String(kNull);
    TRACE_MESSAGES();
    discard();
    const int length = boundedLength(text);
    ZLC2_Locale locale = getApplicationLocale();
    if (isAscii(text, length) && leavesAsciiAlone(locale)) {
        store(text, length);
        valueIsSource_ = true;
        return 0;
    }
    char onStack[kOnStack * kBytesPerCharacter + 1];
    std::unique_ptr<char[]> onHeap;
    char* out = onStack;
    const int room = kBytesPerCharacter * length + 1;
    if (length > kOnStack) {
        onHeap.reset(new char[static_cast<std::size_t>(room)]);
        out = onHeap.get();
    }
    int written = 0;
    const int error = ZLC2_toUTF8(locale, text, length, out, room, &written);
    if (error != ZLC2_OK) {
        trace_error("Error in ZLC2_toUTF8.  Error is %d", error);
        store(kNoText, static_cast<int>(std::strlen(kNoText)));
    } else {
        store(out, written);
    }
    keepSource(text);
    return 0;
}

int UTF8String::initFromEBCDICString(const char* text) {
    if (!text) return initFromUTF8String(kNull);
    discard();
    const int length = boundedLength(text);
    std::unique_ptr<char[]> out(new char[static_cast<std::size_t>(length) * 2 + 1]);
    int written = 0;
    for (int i = 0; i < length; ++i) {
        const unsigned latin1 = kLatin1From037[static_cast<unsigned char>(text[i])];
        if (latin1 >= 0x80) out[static_cast<std::size_t>(written++)] = static_cast<char>(0xc0 | latin1 >> 6);
        out[static_cast<std::size_t>(written++)] = static_cast<char>(latin1 < 0x80 ? latin1 : 0x80 | (latin1 & 0x3f));
    }
    store(out.get(), written);
    keepSource(text);
    return 0;
}

int UTF8String::initFromUTF8String(const char* text) {
    if (!text) text = "NULL";
    return initFromUTF8String(text, boundedLength(text));
}

int UTF8String::initFromUTF8String(const char* text, int length) {
    discard();
    if (!text) {
        text = "NULL";
        length = 4;
    }
    store(text, length > 0 ? length : 0);
    valueIsSource_ = true;
    return 0;
}

const char* UTF8String::getSource() const {
    if (valueIsSource_) return getUTF8Value();
    const Extra* kept = extraIfAny();
    return kept ? kept->source : nullptr;
}

int UTF8String::getEBCDICLength() { return getEBCDICValue() ? extra().ebcdicLength : 0; }

const char* UTF8String::getEBCDICValue() {
    if (!getUTF8Value()) return nullptr;
    Extra& made = extra();
    if (made.ebcdic) return made.ebcdic;
    made.ebcdic = newText(static_cast<std::size_t>(getLength()));
    const unsigned char* at = reinterpret_cast<const unsigned char*>(heap_.value);
    const unsigned char* end = at + getLength();
    int n = 0;
    while (at < end) {
        const int latin1 = nextLatin1(at, end);
        made.ebcdic[n++] = static_cast<char>(latin1 < 0 ? kQuestionMark037 : k037FromLatin1[latin1]);
    }
    made.ebcdic[n] = '\0';
    made.ebcdicLength = n;
    return made.ebcdic;
}

bool UTF8String::isEqual(const UTF8String* other) const {
    if (!other || getLength() != other->getLength()) return false;
    return getLength() == 0 || std::memcmp(getUTF8Value(), other->getUTF8Value(), static_cast<std::size_t>(getLength())) == 0;
}

void UTF8String::concat(const UTF8String* other) {
    if (!other || !other->getUTF8Value() || other->getLength() > INT_MAX - 1 - getLength()) return;
    const std::size_t mine = static_cast<std::size_t>(getLength());
    const std::size_t more = static_cast<std::size_t>(other->getLength());
    char* both = newText(mine + more);
    if (mine > 0) std::memcpy(both, getUTF8Value(), mine);
    std::memcpy(both + mine, other->getUTF8Value(), more);
    beforeNewValue();
    std::free(heap_.value);
    heap_.value = both;
    heap_.length = static_cast<int>(mine + more);
}

UTF8String* UTF8String::getDeepCopy() const {
    auto* copy = new UTF8String;
    if (getUTF8Value()) {
        copy->store(getUTF8Value(), getLength());
    } else {
        copy->store(kNull, static_cast<int>(std::strlen(kNull)));
    }
    return copy;
}

void UTF8String::setUTF8Value(char* value, int length) {
    beforeNewValue();
    heap_.value = value;
    heap_.length = value ? length : 0;
}
