// PlimCFContext: row lengths, buffer ownership, refusals, equality and descriptions.
#include <PlimBitmapLib/PlimBitmapLib.h>

#include "core/PlimCFContextInternal.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

std::string Text(CFStringRef s) {
    char buffer[512] = {};
    if (!s || !CFStringGetCString(s, buffer, sizeof buffer, kCFStringEncodingUTF8)) return "<null>";
    return buffer;
}

// An allocator over malloc that counts its blocks and can be told to fail.
struct CountingHeap {
    int live = 0;
    bool fail = false;
};

void *HeapAllocate(CFIndex size, CFOptionFlags, void *info) {
    auto *heap = static_cast<CountingHeap *>(info);
    if (heap->fail) return nullptr;
    ++heap->live;
    return std::malloc(static_cast<size_t>(size));
}

void HeapDeallocate(void *ptr, void *info) {
    --static_cast<CountingHeap *>(info)->live;
    std::free(ptr);
}

CFAllocatorRef MakeAllocator(CountingHeap *heap) {
    CFAllocatorContext context = {0,       heap,           nullptr, nullptr, nullptr, HeapAllocate,
                                  nullptr, HeapDeallocate, nullptr};
    return CFAllocatorCreate(nullptr, &context);
}

// Meaningful when run in a process of its own, as ctest runs each test.
TEST(Context, TypeIDIsZeroUntilTheFirstContext) {
    if (gPlimCFContextInited) GTEST_SKIP() << "a context was made earlier in this process";
    EXPECT_EQ(PlimCFContextGetTypeID(), 0u);
    PlimCFContext ctx =
        PlimCFContextCreate(nullptr, 1, 1, nullptr, 8, 0, nullptr, kCGImageAlphaPremultipliedFirst);
    ASSERT_NE(ctx, nullptr);
    EXPECT_NE(PlimCFContextGetTypeID(), 0u);
    EXPECT_EQ(CFGetTypeID(ctx), PlimCFContextGetTypeID());
    CFRelease(ctx);
}

TEST(Context, DefaultRowLengths) {
    CGColorSpaceRef rgb = CGColorSpaceCreateWithName(kCGColorSpaceGenericRGB);
    CGColorSpaceRef grey = CGColorSpaceCreateWithName(kCGColorSpaceGenericGray);
    // RGB counts four samples a pixel even without alpha; grey one; 1-bit rounds up.
    EXPECT_EQ(PlimCFContextDefaultBytesPerRow(rgb, 10, 8), 40u);
    EXPECT_EQ(PlimCFContextDefaultBytesPerRow(grey, 10, 8), 10u);
    EXPECT_EQ(PlimCFContextDefaultBytesPerRow(grey, 10, 1), 2u);
    // Counted past 32 bits (a 32-bit count of bits wraps this row to 4 bytes); rows whose
    // length does not fit 32 bits have none.
    EXPECT_EQ(PlimCFContextDefaultBytesPerRow(rgb, 0x20000001u, 8), 0x80000004u);
    EXPECT_EQ(PlimCFContextDefaultBytesPerRow(rgb, 0x3FFFFFFFu, 8), 0xFFFFFFFCu);
    EXPECT_EQ(PlimCFContextDefaultBytesPerRow(rgb, 0x40000000u, 8), 0u);
    EXPECT_EQ(PlimCFContextDefaultBytesPerRow(grey, 0xFFFFFFFFu, 0xFFFFFFFFu), 0u);

    PlimCFContext a =
        PlimCFContextCreate(nullptr, 10, 3, nullptr, 8, 0, rgb, kCGImageAlphaNoneSkipFirst);
    ASSERT_NE(a, nullptr);
    EXPECT_EQ(CGBitmapContextGetBytesPerRow(PlimCFContextGetCGContext(a)), 40u);
    PlimCFContext b = PlimCFContextCreate(nullptr, 10, 3, nullptr, 8, 0, grey, kCGImageAlphaNone);
    ASSERT_NE(b, nullptr);
    EXPECT_EQ(CGBitmapContextGetBytesPerRow(PlimCFContextGetCGContext(b)), 10u);
    // A null colour space is the main display's, for the row length too.
    PlimCFContext c = PlimCFContextCreate(nullptr, 10, 3, nullptr, 8, 0, nullptr,
                                          kCGImageAlphaPremultipliedFirst);
    ASSERT_NE(c, nullptr);
    CGContextRef cg = PlimCFContextGetCGContext(c);
    EXPECT_EQ(CGBitmapContextGetBytesPerRow(cg), 40u);
    CGColorSpaceRef display = PlimCGColorSpaceCreateMainDisplay();
    EXPECT_TRUE(CFEqual(CGBitmapContextGetColorSpace(cg), display));
    CFRelease(a);
    CFRelease(b);
    CFRelease(c);
    CGColorSpaceRelease(display);
    CGColorSpaceRelease(rgb);
    CGColorSpaceRelease(grey);
}

TEST(Context, TemporaryDisplaySpaceIsReleasedEitherWay) {
    CGColorSpaceRef display = PlimCGColorSpaceCreateMainDisplay();
    CFIndex before = CFGetRetainCount(display);
    PlimCFContext ok =
        PlimCFContextCreate(nullptr, 4, 4, nullptr, 8, 0, nullptr, kCGImageAlphaPremultipliedFirst);
    ASSERT_NE(ok, nullptr);
    EXPECT_EQ(CFGetRetainCount(display), before + 1);  // the drawing context's own reference
    CFRelease(ok);
    EXPECT_EQ(CFGetRetainCount(display), before);
    EXPECT_EQ(PlimCFContextCreate(nullptr, 4, 4, nullptr, 8, 0, nullptr, kCGImageAlphaLast),
              nullptr);
    EXPECT_EQ(CFGetRetainCount(display), before);
    CGColorSpaceRelease(display);
}

TEST(Context, OwnBufferIsZeroedAndCallerBufferIsNeverTouched) {
    CGColorSpaceRef rgb = CGColorSpaceCreateWithName(kCGColorSpaceGenericRGB);
    PlimCFContext own =
        PlimCFContextCreate(nullptr, 5, 3, nullptr, 8, 0, rgb, kCGImageAlphaPremultipliedFirst);
    ASSERT_NE(own, nullptr);
    auto *bytes = static_cast<uint8_t *>(PlimCFContextGetBuffer(own));
    ASSERT_NE(bytes, nullptr);
    for (int i = 0; i < 5 * 3 * 4; ++i) ASSERT_EQ(bytes[i], 0) << i;
    EXPECT_EQ(CGBitmapContextGetData(PlimCFContextGetCGContext(own)), bytes);
    CFRelease(own);  // frees the buffer (the sanitizer build checks)

    std::vector<uint8_t> mine(5 * 3 * 4, 0xC3);
    // Straight alpha is refused: null, and the caller's memory is left as it was.
    EXPECT_EQ(PlimCFContextCreate(nullptr, 5, 3, mine.data(), 8, 0, rgb, kCGImageAlphaFirst),
              nullptr);
    EXPECT_EQ(PlimCFContextCreate(nullptr, 5, 3, mine.data(), 8, 19, rgb,
                                  kCGImageAlphaPremultipliedFirst),
              nullptr);  // row too short
    EXPECT_EQ(mine, std::vector<uint8_t>(5 * 3 * 4, 0xC3));
    PlimCFContext borrowed =
        PlimCFContextCreate(nullptr, 5, 3, mine.data(), 8, 0, rgb, kCGImageAlphaPremultipliedFirst);
    ASSERT_NE(borrowed, nullptr);
    EXPECT_EQ(PlimCFContextGetBuffer(borrowed), mine.data());
    CFRelease(borrowed);  // must not free the caller's memory
    EXPECT_EQ(mine[0], 0xC3);

    // A buffer that would pass the 32-bit size is refused before anything is allocated.
    EXPECT_EQ(PlimCFContextCreate(nullptr, 65536, 65536, nullptr, 8, 0, rgb,
                                  kCGImageAlphaPremultipliedFirst),
              nullptr);
    CGColorSpaceRelease(rgb);
}

TEST(Context, FailingAllocatorLeavesNothingBehind) {
    CountingHeap heap;
    CFAllocatorRef allocator = MakeAllocator(&heap);
    heap.fail = true;
    EXPECT_EQ(PlimCFContextCreate(allocator, 4, 4, nullptr, 8, 0, nullptr,
                                  kCGImageAlphaPremultipliedFirst),
              nullptr);
    heap.fail = false;
    PlimCFContext ctx =
        PlimCFContextCreate(allocator, 4, 4, nullptr, 8, 0, nullptr, kCGImageAlphaLast);
    EXPECT_EQ(ctx, nullptr);  // refused by the platform: object and buffer both gone
    EXPECT_EQ(heap.live, 0);
    CFRelease(allocator);
}

TEST(Context, EqualityHashAndDescriptions) {
    PlimCFContext a =
        PlimCFContextCreate(nullptr, 2, 2, nullptr, 8, 0, nullptr, kCGImageAlphaPremultipliedFirst);
    PlimCFContext b =
        PlimCFContextCreate(nullptr, 2, 2, nullptr, 8, 0, nullptr, kCGImageAlphaPremultipliedFirst);
    ASSERT_TRUE(a && b);
    EXPECT_TRUE(CFEqual(a, a));
    EXPECT_FALSE(CFEqual(a, b));
    EXPECT_EQ(CFHash(a), CFHash(PlimCFContextGetCGContext(a)));

    // The copy callback shares the drawing context and gets a buffer of its own.
    CountingHeap heap;
    CFAllocatorRef allocator = MakeAllocator(&heap);
    auto copy = static_cast<PlimCFContext>(const_cast<void *>(PlimCFContextCopy(allocator, a)));
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(PlimCFContextGetCGContext(copy), PlimCFContextGetCGContext(a));
    EXPECT_NE(PlimCFContextGetBuffer(copy), PlimCFContextGetBuffer(a));
    EXPECT_TRUE(CFEqual(copy, a));
    EXPECT_EQ(PlimCFContextCopy(allocator, nullptr), nullptr);
    CFRelease(copy);
    EXPECT_EQ(heap.live, 0);  // the copy's buffer went back to the allocator it came from
    heap.fail = true;
    EXPECT_EQ(PlimCFContextCopy(allocator, a), nullptr);
    heap.fail = false;
    CFRelease(allocator);

    CFStringRef inner = CFCopyDescription(PlimCFContextGetCGContext(a));
    CFStringRef outer = CFCopyDescription(a);
    EXPECT_EQ(Text(outer), Text(inner));
    CFRelease(inner);
    CFRelease(outer);

    // Without a drawing context the description is "(NULL)", and contexts without one are
    // equal only to themselves.
    PlimCFContext bare = PlimCFContextCreatePrivate(nullptr);
    ASSERT_NE(bare, nullptr);
    CFStringRef text = PlimCFContextCopyFormattingDesc(bare, nullptr);
    EXPECT_EQ(Text(text), "(NULL)");
    CFRelease(text);
    PlimCFContext bare2 = PlimCFContextCreatePrivate(nullptr);
    EXPECT_FALSE(CFEqual(bare, bare2));
    CFRelease(bare);
    CFRelease(bare2);
    CFRelease(a);
    CFRelease(b);
}

TEST(Context, DrawsIntoTheCallersMemory) {
    // A 2 x 1 grey image drawn into an XRGB context over caller memory.
    const uint8_t grey[2] = {10, 200};
    CGDataProviderRef provider = CGDataProviderCreateWithData(nullptr, grey, 2, nullptr);
    CGColorSpaceRef g = CGColorSpaceCreateWithName(kCGColorSpaceGenericGray);
    CGImageRef image = CGImageCreate(2, 1, 8, 8, 2, g, kCGImageAlphaNone, provider, nullptr, true,
                                     kCGRenderingIntentDefault);
    std::vector<uint8_t> out(8, 0);
    PlimCFContext ctx =
        PlimCFContextCreate(nullptr, 2, 1, out.data(), 8, 0, nullptr, kCGImageAlphaNoneSkipFirst);
    ASSERT_NE(ctx, nullptr);
    CGContextDrawImage(PlimCFContextGetCGContext(ctx), CGRectMake(0, 0, 2, 1), image);
    EXPECT_EQ(out, (std::vector<uint8_t>{255, 10, 10, 10, 255, 200, 200, 200}));
    CFRelease(ctx);
    CGImageRelease(image);
    CGDataProviderRelease(provider);
    CGColorSpaceRelease(g);
}

}  // namespace
