// The format engine behind CFStringCreateWithFormat: printf conversions, each handed to the C
// library with its own argument, plus %@ for objects.
#include "StringInternal.h"

#include "RuntimeInternal.h"
#include "CFRef.h"

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <new>

namespace plim::runtime {
namespace {

enum class Length { None, HH, H, L, LL, LongDouble, Size, PtrDiff, Max };

void AppendUTF8(std::string &out, uint32_t cp) {
    if (cp < 0x80) {
        out.push_back(static_cast<char>(cp));
    } else if (cp < 0x800) {
        out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else if (cp < 0x10000) {
        out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else {
        out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    }
}

// Formats one conversion through the C library.
template <typename T>
void AppendOne(std::string &out, const std::string &pattern, T value) {
    char small[128];
    int n = std::snprintf(small, sizeof small, pattern.c_str(), value);
    if (n < 0) return;
    if (static_cast<size_t>(n) < sizeof small) {
        out.append(small, static_cast<size_t>(n));
        return;
    }
    std::string big(static_cast<size_t>(n) + 1, '\0');
    std::snprintf(big.data(), big.size(), pattern.c_str(), value);
    out.append(big.data(), static_cast<size_t>(n));
}

// Pads `text` to the field width, honouring the '-' flag, for the conversions formatted here.
void AppendPadded(std::string &out, const std::string &text, int width, bool leftAlign) {
    size_t pad = width > 0 && static_cast<size_t>(width) > text.size()
                     ? static_cast<size_t>(width) - text.size()
                     : 0;
    if (!leftAlign) out.append(pad, ' ');
    out += text;
    if (leftAlign) out.append(pad, ' ');
}

bool AppendObject(std::string &out, CFDictionaryRef formatOptions, CFTypeRef object) {
    if (!object) {
        out += "(null)";
        return true;
    }
    const CFRuntimeClass *cls = _CFRuntimeGetClassWithTypeID(CFGetTypeID(object));
    // Held so that the description goes back even when appending runs out of memory.
    CFRef<CFStringRef> text(cls && cls->copyFormattingDesc ? cls->copyFormattingDesc(object, formatOptions)
                                                           : nullptr);
    if (!text) text.reset(CFCopyDescription(object));
    if (!text) return false;
    CFIndex count = 0;
    const char *bytes = StringBytes(text.get(), &count);
    out.append(bytes, static_cast<size_t>(count));
    return true;
}

}  // namespace

bool AppendFormatted(std::string &out, CFDictionaryRef formatOptions, const char *format,
                     va_list *ap) {
    try {
        const char *p = format;
        while (*p) {
            if (*p != '%') {
                const char *next = std::strchr(p, '%');
                size_t run = next ? static_cast<size_t>(next - p) : std::strlen(p);
                out.append(p, run);
                p += run;
                continue;
            }
            const char *start = p++;
            if (*p == '%') {
                out.push_back('%');
                ++p;
                continue;
            }
            std::string pattern = "%";
            bool leftAlign = false;
            while (*p && std::strchr("-+ #0'", *p)) {
                if (*p == '-') leftAlign = true;
                pattern.push_back(*p++);
            }
            int width = 0;
            if (*p == '*') {
                width = va_arg(*ap, int);
                if (width < 0) {
                    leftAlign = true;
                    width = -width;
                    pattern.push_back('-');
                }
                pattern += std::to_string(width);
                ++p;
            } else {
                while (*p >= '0' && *p <= '9') {
                    width = width * 10 + (*p - '0');
                    pattern.push_back(*p++);
                }
            }
            if (*p == '.') {
                pattern.push_back(*p++);
                if (*p == '*') {
                    int precision = va_arg(*ap, int);
                    pattern += std::to_string(precision < 0 ? 0 : precision);
                    if (precision < 0) pattern.pop_back(), pattern.pop_back();  // negative: as if absent
                    ++p;
                } else {
                    while (*p >= '0' && *p <= '9') pattern.push_back(*p++);
                }
            }
            Length length = Length::None;
            switch (*p) {
                case 'h':
                    ++p;
                    if (*p == 'h') ++p, length = Length::HH;
                    else length = Length::H;
                    break;
                case 'l':
                    ++p;
                    if (*p == 'l') ++p, length = Length::LL;
                    else length = Length::L;
                    break;
                case 'q': ++p, length = Length::LL; break;
                case 'L': ++p, length = Length::LongDouble; break;
                case 'z': ++p, length = Length::Size; break;
                case 't': ++p, length = Length::PtrDiff; break;
                case 'j': ++p, length = Length::Max; break;
                default: break;
            }
            char conversion = *p;
            if (!conversion) return false;
            ++p;
            switch (conversion) {
                case '@':
                    if (!AppendObject(out, formatOptions, va_arg(*ap, CFTypeRef))) return false;
                    break;
                case 'd': case 'i': case 'o': case 'u': case 'x': case 'X': case 'D': case 'U':
                case 'O': {
                    if (conversion == 'D' || conversion == 'U' || conversion == 'O') {
                        length = Length::L;
                        conversion = static_cast<char>(conversion - 'A' + 'a');
                    }
                    bool isSigned = conversion == 'd' || conversion == 'i';
                    switch (length) {
                        case Length::L: pattern += "l"; break;
                        case Length::LL: case Length::Max: pattern += "ll"; break;
                        case Length::Size: case Length::PtrDiff: pattern += "z"; break;
                        default: break;
                    }
                    pattern.push_back(conversion);
                    if (isSigned) {
                        switch (length) {
                            case Length::HH: AppendOne(out, pattern, static_cast<int>(static_cast<signed char>(va_arg(*ap, int)))); break;
                            case Length::H: AppendOne(out, pattern, static_cast<int>(static_cast<short>(va_arg(*ap, int)))); break;
                            case Length::L: AppendOne(out, pattern, va_arg(*ap, long)); break;
                            case Length::LL: AppendOne(out, pattern, va_arg(*ap, long long)); break;
                            case Length::Max: AppendOne(out, pattern, static_cast<long long>(va_arg(*ap, intmax_t))); break;
                            case Length::Size: case Length::PtrDiff: AppendOne(out, pattern, va_arg(*ap, ptrdiff_t)); break;
                            default: AppendOne(out, pattern, va_arg(*ap, int)); break;
                        }
                    } else {
                        switch (length) {
                            case Length::HH: AppendOne(out, pattern, static_cast<unsigned>(static_cast<unsigned char>(va_arg(*ap, unsigned)))); break;
                            case Length::H: AppendOne(out, pattern, static_cast<unsigned>(static_cast<unsigned short>(va_arg(*ap, unsigned)))); break;
                            case Length::L: AppendOne(out, pattern, va_arg(*ap, unsigned long)); break;
                            case Length::LL: AppendOne(out, pattern, va_arg(*ap, unsigned long long)); break;
                            case Length::Max: AppendOne(out, pattern, static_cast<unsigned long long>(va_arg(*ap, uintmax_t))); break;
                            case Length::Size: case Length::PtrDiff: AppendOne(out, pattern, va_arg(*ap, size_t)); break;
                            default: AppendOne(out, pattern, va_arg(*ap, unsigned)); break;
                        }
                    }
                    break;
                }
                case 'f': case 'F': case 'e': case 'E': case 'g': case 'G': case 'a': case 'A':
                    if (length == Length::LongDouble) {
                        pattern.push_back('L');
                        pattern.push_back(conversion);
                        AppendOne(out, pattern, va_arg(*ap, long double));
                    } else {
                        pattern.push_back(conversion);
                        AppendOne(out, pattern, va_arg(*ap, double));
                    }
                    break;
                case 'c':
                    if (length == Length::L) {
                        std::string text;
                        AppendUTF8(text, static_cast<uint32_t>(va_arg(*ap, wint_t)));
                        AppendPadded(out, text, width, leftAlign);
                    } else {
                        pattern.push_back('c');
                        AppendOne(out, pattern, va_arg(*ap, int));
                    }
                    break;
                case 'C': {
                    std::string text;
                    AppendUTF8(text, static_cast<uint16_t>(va_arg(*ap, unsigned)));
                    AppendPadded(out, text, width, leftAlign);
                    break;
                }
                case 's': {
                    const char *text = va_arg(*ap, const char *);
                    pattern.push_back('s');
                    AppendOne(out, pattern, text ? text : "(null)");
                    break;
                }
                case 'p': {
                    const void *pointer = va_arg(*ap, const void *);
                    char text[32];
                    std::snprintf(text, sizeof text, "0x%llx",
                                  static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(pointer)));
                    AppendPadded(out, text, width, leftAlign);
                    break;
                }
                case 'n':
                    (void)va_arg(*ap, void *);  // never written: formats may come from data
                    break;
                default:
                    // Unknown conversion: keep the text as written.
                    out.append(start, static_cast<size_t>(p - start));
                    break;
            }
        }
        return true;
    } catch (const std::bad_alloc &) {
        return false;
    }
}

}  // namespace plim::runtime
