// Strings: formatting, mutation, comparison, encodings.
#include <PlimBitmapLib/platform/CoreFoundation.h>

#include <gtest/gtest.h>

#include <string>

namespace {

std::string Text(CFStringRef s) { return s ? CFStringGetCStringPtr(s, kCFStringEncodingUTF8) : "<null>"; }

std::string Format(CFStringRef format, ...) {
    va_list ap;
    va_start(ap, format);
    CFStringRef s = CFStringCreateWithFormatAndArguments(nullptr, nullptr, format, ap);
    va_end(ap);
    std::string text = Text(s);
    if (s) CFRelease(s);
    return text;
}

TEST(String, FormatFollowsPrintfConversions) {
    EXPECT_EQ(Format(CFSTR("%d|%5d|%-4d|%05d"), -3, 42, 7, 9), "-3|   42|7   |00009");
    EXPECT_EQ(Format(CFSTR("%u %x %X %o"), 4000000000u, 255u, 255u, 8u), "4000000000 ff FF 10");
    EXPECT_EQ(Format(CFSTR("%ld %lld %zu %hhd %hd"), -5L, 1LL << 40, size_t(12), 300, 70000),
              "-5 1099511627776 12 44 4464");
    EXPECT_EQ(Format(CFSTR("%f %.2f %e %g"), 1.5, 2.345, 1000.0, 0.25), "1.500000 2.35 1.000000e+03 0.25");
    EXPECT_EQ(Format(CFSTR("%s/%.2s/%s"), "abc", "abc", static_cast<const char *>(nullptr)), "abc/ab/(null)");
    EXPECT_EQ(Format(CFSTR("%c%c %% %*d|%.*f"), 'o', 'k', 4, 5, 1, 2.25), "ok %    5|2.2");
    EXPECT_EQ(Format(CFSTR("%p %p"), static_cast<void *>(nullptr), reinterpret_cast<void *>(0x1234)), "0x0 0x1234");
    EXPECT_EQ(Format(CFSTR("%C"), 0xE9), "\xC3\xA9");
    // Formats arriving from data must not write through %n.
    int untouched = 77;
    EXPECT_EQ(Format(CFSTR("a%nb"), &untouched), "ab");
    EXPECT_EQ(untouched, 77);
}

TEST(String, FormatPrintsObjectsThroughTheirDescriptions) {
    CFStringRef inner = CFStringCreateWithFormat(nullptr, nullptr, CFSTR("%@-%@"), CFSTR("a"), nullptr);
    EXPECT_EQ(Text(inner), "a-(null)");
    EXPECT_EQ(Format(CFSTR("<%@>"), inner), "<a-(null)>");
    // The text of an object is never read as a format.
    EXPECT_EQ(Format(CFSTR("%@"), CFSTR("100%d")), "100%d");
    CFRelease(inner);
    CFDataRef data = CFDataCreate(nullptr, reinterpret_cast<const UInt8 *>("xy"), 2);
    EXPECT_NE(Format(CFSTR("%@"), data).find("length = 2"), std::string::npos);
    CFRelease(data);
}

TEST(String, MutableStringsAppend) {
    CFMutableStringRef s = CFStringCreateMutable(nullptr, 0);
    EXPECT_EQ(CFStringGetLength(s), 0);
    EXPECT_EQ(Text(s), "");
    CFStringAppend(s, CFSTR("one"));
    CFStringAppendFormat(s, nullptr, CFSTR(" %d %@"), 2, CFSTR("three"));
    CFStringAppendCString(s, "!", kCFStringEncodingASCII);
    EXPECT_EQ(Text(s), "one 2 three!");
    CFStringAppend(s, s);  // appending itself doubles it
    EXPECT_EQ(Text(s), "one 2 three!one 2 three!");
    std::string big(5000, 'z');
    CFStringAppendCString(s, big.c_str(), kCFStringEncodingUTF8);
    EXPECT_EQ(CFStringGetLength(s), 24 + 5000);
    CFRelease(s);
    // Immutable strings ignore appends.
    CFStringRef fixed = CFStringCreateWithCString(nullptr, "fixed", kCFStringEncodingUTF8);
    CFStringAppend(const_cast<CFMutableStringRef>(fixed), CFSTR("x"));
    EXPECT_EQ(Text(fixed), "fixed");
    CFRelease(fixed);
}

TEST(String, CompareEqualityAndHash) {
    EXPECT_EQ(CFStringCompare(CFSTR("png"), CFSTR("PNG"), 0), kCFCompareGreaterThan);
    EXPECT_EQ(CFStringCompare(CFSTR("png"), CFSTR("PNG"), kCFCompareCaseInsensitive), kCFCompareEqualTo);
    EXPECT_EQ(CFStringCompare(CFSTR("jp"), CFSTR("jpg"), kCFCompareCaseInsensitive), kCFCompareLessThan);
    EXPECT_EQ(CFStringCompare(CFSTR("b"), CFSTR("a"), 0), kCFCompareGreaterThan);
    CFStringRef a = CFStringCreateWithCString(nullptr, "same", kCFStringEncodingUTF8);
    EXPECT_TRUE(CFEqual(a, CFSTR("same")));
    EXPECT_EQ(CFHash(a), CFHash(CFSTR("same")));
    EXPECT_FALSE(CFEqual(a, CFSTR("Same")));
    CFRelease(a);
    // Constant strings are shared and never freed.
    EXPECT_EQ(CFSTR("const"), CFSTR("const"));
    CFRelease(CFSTR("const"));
    EXPECT_EQ(Text(CFSTR("const")), "const");
}

TEST(String, EncodingsAndLengths) {
    // "é" is two UTF-8 bytes, one UTF-16 unit; the emoji is four bytes, two units.
    CFStringRef s = CFStringCreateWithCString(nullptr, "\xC3\xA9\xF0\x9F\x98\x80", kCFStringEncodingUTF8);
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(CFStringGetLength(s), 3);
    char buffer[8];
    EXPECT_FALSE(CFStringGetCString(s, buffer, 6, kCFStringEncodingUTF8));  // needs 7 with the zero
    EXPECT_TRUE(CFStringGetCString(s, buffer, 7, kCFStringEncodingUTF8));
    EXPECT_FALSE(CFStringGetCString(s, buffer, 8, kCFStringEncodingASCII));
    EXPECT_EQ(CFStringGetCStringPtr(s, kCFStringEncodingASCII), nullptr);
    CFRelease(s);
    EXPECT_EQ(CFStringCreateWithCString(nullptr, "\xC3", kCFStringEncodingUTF8), nullptr);      // truncated
    EXPECT_EQ(CFStringCreateWithCString(nullptr, "\xC0\x80", kCFStringEncodingUTF8), nullptr);  // overlong
    EXPECT_EQ(CFStringCreateWithCString(nullptr, "\x80", kCFStringEncodingASCII), nullptr);
    CFStringRef latin = CFStringCreateWithCString(nullptr, "caf\xE9", kCFStringEncodingMacRoman);
    ASSERT_NE(latin, nullptr);
    EXPECT_EQ(Text(latin), "caf\xC3\xA9");
    EXPECT_TRUE(CFStringGetCString(latin, buffer, 8, kCFStringEncodingMacRoman));
    EXPECT_STREQ(buffer, "caf\xE9");
    CFRelease(latin);
}

}  // namespace
