// Strings: UTF-8 text in memory from the string's allocator; constant strings are interned.
#include "RuntimeInternal.h"
#include "StringInternal.h"
#include "NoThrow.h"

#include <atomic>
#include <cstring>
#include <iterator>
#include <map>
#include <mutex>
#include <new>
#include <string>
#include <string_view>

struct __CFString {
    CFRuntimeBase base;
    char *bytes;        // zero-terminated UTF-8; null while empty
    CFIndex byteCount;  // without the terminator
    CFIndex capacity;   // bytes allocated, terminator included
    CFIndex maxLength;  // mutable strings: 0 = unlimited
    bool isMutable;
};

namespace plim::runtime {
namespace {

char gEmpty[1] = {0};

// Length in bytes of a valid UTF-8 sequence starting at `s`, or 0.
size_t SequenceLength(const unsigned char *s, size_t available, uint32_t *codePoint) {
    unsigned char c = s[0];
    size_t n;
    uint32_t cp;
    if (c < 0x80) {
        *codePoint = c;
        return 1;
    } else if ((c & 0xE0) == 0xC0) {
        n = 2, cp = c & 0x1F;
    } else if ((c & 0xF0) == 0xE0) {
        n = 3, cp = c & 0x0F;
    } else if ((c & 0xF8) == 0xF0) {
        n = 4, cp = c & 0x07;
    } else {
        return 0;
    }
    if (n > available) return 0;
    for (size_t i = 1; i < n; ++i) {
        if ((s[i] & 0xC0) != 0x80) return 0;
        cp = (cp << 6) | (s[i] & 0x3F);
    }
    static const uint32_t kMin[5] = {0, 0, 0x80, 0x800, 0x10000};
    if (cp < kMin[n] || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return 0;
    *codePoint = cp;
    return n;
}

bool IsValidUTF8(const char *s, size_t count) {
    const auto *u = reinterpret_cast<const unsigned char *>(s);
    for (size_t i = 0; i < count;) {
        uint32_t cp;
        size_t n = SequenceLength(u + i, count - i, &cp);
        if (n == 0 || cp == 0) return false;
        i += n;
    }
    return true;
}

// Converts bytes in `encoding` to UTF-8; false when they are not valid in it.
bool ToUTF8(const char *s, size_t count, CFStringEncoding encoding, std::string &out) {
    switch (encoding) {
        case kCFStringEncodingUTF8:
            if (!IsValidUTF8(s, count)) return false;
            out.assign(s, count);
            return true;
        case kCFStringEncodingASCII:
            for (size_t i = 0; i < count; ++i)
                if (static_cast<unsigned char>(s[i]) >= 0x80 || s[i] == 0) return false;
            out.assign(s, count);
            return true;
        case kCFStringEncodingMacRoman:
            // Only the ASCII half is shared with the Unicode repertoire byte for byte; the upper
            // half is taken as Latin-1, which is what the files this library meets use.
            for (size_t i = 0; i < count; ++i) {
                auto c = static_cast<unsigned char>(s[i]);
                if (c == 0) return false;
                if (c < 0x80) {
                    out.push_back(static_cast<char>(c));
                } else {
                    out.push_back(static_cast<char>(0xC0 | (c >> 6)));
                    out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
                }
            }
            return true;
        default:
            return false;
    }
}

__CFString *NewString(CFAllocatorRef alloc, bool isMutable) {
    auto *str = static_cast<__CFString *>(const_cast<void *>(_CFRuntimeCreateInstance(
        alloc, kStringTypeID, sizeof(__CFString) - sizeof(CFRuntimeBase), nullptr)));
    if (str) str->isMutable = isMutable;
    return str;
}

// Makes room for `byteCount` bytes plus the terminator; false (string unchanged) when memory
// runs out.
bool Reserve(__CFString *str, CFIndex byteCount) {
    if (byteCount + 1 <= str->capacity) return true;
    CFIndex capacity = str->capacity > 0 ? str->capacity : 16;
    while (capacity < byteCount + 1) capacity = capacity > (CFIndex(1) << 61) ? byteCount + 1 : capacity * 2;
    CFAllocatorRef alloc = CFGetAllocator(str);
    auto *bytes = static_cast<char *>(CFAllocatorAllocate(alloc, capacity, 0));
    if (!bytes) return false;
    if (str->bytes) {
        std::memcpy(bytes, str->bytes, static_cast<size_t>(str->byteCount) + 1);
        CFAllocatorDeallocate(alloc, str->bytes);
    } else {
        bytes[0] = 0;
    }
    str->bytes = bytes;
    str->capacity = capacity;
    return true;
}

bool Append(__CFString *str, const char *bytes, size_t count) {
    if (count == 0) return true;
    CFIndex total = str->byteCount + static_cast<CFIndex>(count);
    if (!Reserve(str, total)) return false;
    std::memcpy(str->bytes + str->byteCount, bytes, count);
    str->byteCount = total;
    str->bytes[total] = 0;
    return true;
}

CFStringRef CreateFromUTF8(CFAllocatorRef alloc, const char *bytes, size_t count) {
    __CFString *str = NewString(alloc, false);
    if (!str) return nullptr;
    if (count > 0) {
        // Exact size for immutable strings.
        str->bytes = static_cast<char *>(CFAllocatorAllocate(CFGetAllocator(str),
                                                            static_cast<CFIndex>(count) + 1, 0));
        if (!str->bytes) {
            CFRelease(str);
            return nullptr;
        }
        std::memcpy(str->bytes, bytes, count);
        str->bytes[count] = 0;
        str->byteCount = static_cast<CFIndex>(count);
        str->capacity = static_cast<CFIndex>(count) + 1;
    }
    return str;
}

// Expands a format into `text`; false when it is malformed or memory runs out.
bool Expand(std::string &text, CFDictionaryRef formatOptions, CFStringRef format, va_list arguments) {
    va_list ap;
    va_copy(ap, arguments);
    CFIndex n;
    bool ok = AppendFormatted(text, formatOptions, StringBytes(format, &n), &ap);
    va_end(ap);
    return ok;
}

void StringFinalize(CFTypeRef cf) {
    auto *str = static_cast<__CFString *>(const_cast<void *>(cf));
    if (str->bytes && !(str->base._flags & kImmortal)) CFAllocatorDeallocate(CFGetAllocator(cf), str->bytes);
    str->bytes = nullptr;
}

Boolean StringEqual(CFTypeRef a, CFTypeRef b) {
    CFIndex na, nb;
    const char *sa = StringBytes(static_cast<CFStringRef>(a), &na);
    const char *sb = StringBytes(static_cast<CFStringRef>(b), &nb);
    return na == nb && std::memcmp(sa, sb, static_cast<size_t>(na)) == 0;
}

CFHashCode StringHash(CFTypeRef cf) {
    CFIndex n;
    const char *s = StringBytes(static_cast<CFStringRef>(cf), &n);
    uint32_t h = 2166136261u;  // FNV-1a
    for (CFIndex i = 0; i < n; ++i) h = (h ^ static_cast<unsigned char>(s[i])) * 16777619u;
    return h;
}

// A string describes itself as its own text.
CFStringRef StringCopyFormattingDesc(CFTypeRef cf, CFDictionaryRef) {
    return CFStringCreateCopy(CFGetAllocator(cf), static_cast<CFStringRef>(cf));
}
CFStringRef StringCopyDebugDesc(CFTypeRef cf) { return StringCopyFormattingDesc(cf, nullptr); }

}  // namespace

const CFRuntimeClass kStringClass = {0, "CFString", nullptr, nullptr, StringFinalize, StringEqual,
                                     StringHash, StringCopyFormattingDesc, StringCopyDebugDesc};

const char *StringBytes(CFStringRef str, CFIndex *byteCount) {
    *byteCount = str->byteCount;
    return str->bytes ? str->bytes : gEmpty;
}

}  // namespace plim::runtime

using namespace plim::runtime;

extern "C" {

CFTypeID CFStringGetTypeID(void) { return kStringTypeID; }

CFStringRef __CFStringMakeConstantString(const char *cStr) {
    // Interned by content for the life of the process. CFSTR passes only literals, so the
    // strings point at the caller's text and a lookup allocates nothing. Should memory for a
    // new entry run out, the text still gets a string, from a few set aside for that.
    struct Table {
        std::mutex mutex;
        std::map<std::string_view, __CFString *, std::less<>> strings;
    };
    static Table *table = new (std::nothrow) Table;  // lives for the process
    static __CFString spare[16];
    static std::atomic<size_t> spareUsed{0};
    static __CFString empty{CFRuntimeBase{kStringTypeID, nullptr, 1, kImmortal}, gEmpty, 0, 1, 0, false};
    auto make = [cStr](__CFString *str) {
        *str = __CFString{};
        str->base = CFRuntimeBase{kStringTypeID, nullptr, 1, kImmortal};
        str->bytes = const_cast<char *>(cStr);
        str->byteCount = static_cast<CFIndex>(std::strlen(cStr));
        str->capacity = str->byteCount + 1;
        return str;
    };
    const std::string_view text(cStr);
    if (table) {
        std::lock_guard<std::mutex> lock(table->mutex);
        auto found = table->strings.find(text);
        if (found != table->strings.end()) return found->second;
        if (auto *str = new (std::nothrow) __CFString) {
            try {
                table->strings.emplace(text, make(str));
                return str;
            } catch (const std::bad_alloc &) {
                delete str;
            }
        }
    }
    const size_t slot = spareUsed.fetch_add(1, std::memory_order_relaxed);
    return slot < std::size(spare) ? make(&spare[slot]) : &empty;
}

CFStringRef CFStringCreateWithBytes(CFAllocatorRef alloc, const UInt8 *bytes, CFIndex numBytes,
                                    CFStringEncoding encoding, Boolean) {
    if (numBytes < 0 || (!bytes && numBytes > 0)) return nullptr;
    try {
        std::string text;
        if (!ToUTF8(reinterpret_cast<const char *>(bytes), static_cast<size_t>(numBytes), encoding, text))
            return nullptr;
        return CreateFromUTF8(alloc, text.data(), text.size());
    } catch (const std::bad_alloc &) {
        return nullptr;
    }
}

CFStringRef CFStringCreateWithCString(CFAllocatorRef alloc, const char *cStr, CFStringEncoding encoding) {
    if (!cStr) return nullptr;
    return CFStringCreateWithBytes(alloc, reinterpret_cast<const UInt8 *>(cStr),
                                   static_cast<CFIndex>(std::strlen(cStr)), encoding, false);
}

CFStringRef CFStringCreateCopy(CFAllocatorRef alloc, CFStringRef str) {
    CFIndex n;
    const char *bytes = StringBytes(str, &n);
    return CreateFromUTF8(alloc, bytes, static_cast<size_t>(n));
}

CFStringRef CFStringCreateWithFormatAndArguments(CFAllocatorRef alloc, CFDictionaryRef formatOptions,
                                                 CFStringRef format, va_list arguments) {
    std::string text;
    if (!format || !Expand(text, formatOptions, format, arguments)) return nullptr;
    return CreateFromUTF8(alloc, text.data(), text.size());
}

CFStringRef CFStringCreateWithFormat(CFAllocatorRef alloc, CFDictionaryRef formatOptions,
                                     CFStringRef format, ...) {
    va_list ap;
    va_start(ap, format);
    CFStringRef result = CFStringCreateWithFormatAndArguments(alloc, formatOptions, format, ap);
    va_end(ap);
    return result;
}

CFIndex CFStringGetLength(CFStringRef str) {
    CFIndex n;
    const auto *s = reinterpret_cast<const unsigned char *>(StringBytes(str, &n));
    CFIndex units = 0;
    for (CFIndex i = 0; i < n; ++i) {
        if ((s[i] & 0xC0) != 0x80) units += s[i] >= 0xF0 ? 2 : 1;
    }
    return units;
}

Boolean CFStringGetCString(CFStringRef str, char *buffer, CFIndex bufferSize, CFStringEncoding encoding) {
    if (!buffer || bufferSize <= 0) return false;
    CFIndex n;
    const char *s = StringBytes(str, &n);
    const auto *u = reinterpret_cast<const unsigned char *>(s);
    switch (encoding) {
        case kCFStringEncodingUTF8:
            if (n + 1 > bufferSize) return false;
            std::memcpy(buffer, s, static_cast<size_t>(n) + 1);
            return true;
        case kCFStringEncodingASCII:
            for (CFIndex i = 0; i < n; ++i)
                if (u[i] >= 0x80) return false;
            if (n + 1 > bufferSize) return false;
            std::memcpy(buffer, s, static_cast<size_t>(n) + 1);
            return true;
        case kCFStringEncodingMacRoman: {
            CFIndex out = 0;
            for (CFIndex i = 0; i < n;) {
                uint32_t cp;
                size_t len = SequenceLength(u + i, static_cast<size_t>(n - i), &cp);
                if (len == 0 || cp > 0xFF || out + 1 >= bufferSize) return false;
                buffer[out++] = static_cast<char>(cp);
                i += static_cast<CFIndex>(len);
            }
            buffer[out] = 0;
            return true;
        }
        default:
            return false;
    }
}

const char *CFStringGetCStringPtr(CFStringRef str, CFStringEncoding encoding) {
    CFIndex n;
    const char *s = StringBytes(str, &n);
    if (encoding == kCFStringEncodingUTF8) return s;
    if (encoding == kCFStringEncodingASCII) {
        for (CFIndex i = 0; i < n; ++i)
            if (static_cast<unsigned char>(s[i]) >= 0x80) return nullptr;
        return s;
    }
    return nullptr;
}

CFIndex CFStringGetMaximumSizeForEncoding(CFIndex length, CFStringEncoding encoding) {
    if (length < 0) return kCFNotFound;
    if (encoding == kCFStringEncodingUTF8) return length > (CFIndex(1) << 60) ? static_cast<CFIndex>(kCFNotFound) : length * 3;
    return length;
}

CFComparisonResult CFStringCompare(CFStringRef a, CFStringRef b, CFStringCompareFlags options) {
    CFIndex na, nb;
    const auto *sa = reinterpret_cast<const unsigned char *>(StringBytes(a, &na));
    const auto *sb = reinterpret_cast<const unsigned char *>(StringBytes(b, &nb));
    bool fold = (options & kCFCompareCaseInsensitive) != 0;
    // Byte order of UTF-8 is code point order.
    CFIndex n = na < nb ? na : nb;
    for (CFIndex i = 0; i < n; ++i) {
        unsigned ca = sa[i], cb = sb[i];
        if (fold) {
            if (ca >= 'A' && ca <= 'Z') ca += 'a' - 'A';
            if (cb >= 'A' && cb <= 'Z') cb += 'a' - 'A';
        }
        if (ca != cb) return ca < cb ? kCFCompareLessThan : kCFCompareGreaterThan;
    }
    if (na == nb) return kCFCompareEqualTo;
    return na < nb ? kCFCompareLessThan : kCFCompareGreaterThan;
}

CFMutableStringRef CFStringCreateMutable(CFAllocatorRef alloc, CFIndex maxLength) {
    __CFString *str = NewString(alloc, true);
    if (str) str->maxLength = maxLength > 0 ? maxLength : 0;
    return str;
}

CFMutableStringRef CFStringCreateMutableCopy(CFAllocatorRef alloc, CFIndex maxLength, CFStringRef source) {
    CFMutableStringRef str = CFStringCreateMutable(alloc, maxLength);
    if (!str) return nullptr;
    CFIndex n;
    const char *bytes = StringBytes(source, &n);
    if (!Append(str, bytes, static_cast<size_t>(n))) {
        CFRelease(str);
        return nullptr;
    }
    return str;
}

void CFStringAppend(CFMutableStringRef str, CFStringRef appended) {
    if (!str->isMutable || !appended) return;
    CFIndex n;
    const char *bytes = StringBytes(appended, &n);
    plim::NoThrow([&] {
        std::string copy(bytes, static_cast<size_t>(n));  // the two may be the same string
        Append(str, copy.data(), copy.size());
    });
}

void CFStringAppendCString(CFMutableStringRef str, const char *cStr, CFStringEncoding encoding) {
    if (!str->isMutable || !cStr) return;
    try {
        std::string text;
        if (ToUTF8(cStr, std::strlen(cStr), encoding, text)) Append(str, text.data(), text.size());
    } catch (const std::bad_alloc &) {
    }
}

void CFStringAppendFormatAndArguments(CFMutableStringRef str, CFDictionaryRef formatOptions,
                                      CFStringRef format, va_list arguments) {
    std::string text;
    if (str->isMutable && format && Expand(text, formatOptions, format, arguments))
        Append(str, text.data(), text.size());
}

void CFStringAppendFormat(CFMutableStringRef str, CFDictionaryRef formatOptions, CFStringRef format, ...) {
    va_list ap;
    va_start(ap, format);
    CFStringAppendFormatAndArguments(str, formatOptions, format, ap);
    va_end(ap);
}

}  // extern "C"
