// Data objects, file URLs and file streams.
#include <PlimBitmapLib/platform/CoreFoundation.h>

#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <random>
#include <string>
#include <vector>

namespace {

std::string Text(CFStringRef s) { return s ? CFStringGetCStringPtr(s, kCFStringEncodingUTF8) : "<null>"; }

CFURLRef FileURL(const std::string &path) {
    CFStringRef s = CFStringCreateWithCString(nullptr, path.c_str(), kCFStringEncodingUTF8);
    CFURLRef url = CFURLCreateWithFileSystemPath(nullptr, s, kCFURLPOSIXPathStyle, false);
    CFRelease(s);
    return url;
}

std::string Extension(const char *path) {
    CFURLRef url = FileURL(path);
    CFStringRef ext = CFURLCopyPathExtension(url);
    std::string text = Text(ext);
    if (ext) CFRelease(ext);
    CFRelease(url);
    return text;
}

TEST(Data, CreateGrowAndAppend) {
    const UInt8 bytes[] = {1, 2, 3};
    CFDataRef fixed = CFDataCreate(nullptr, bytes, 3);
    EXPECT_EQ(CFDataGetLength(fixed), 3);
    EXPECT_NE(CFDataGetBytePtr(fixed), bytes);  // a copy
    EXPECT_EQ(CFDataGetBytePtr(fixed)[2], 3);

    CFMutableDataRef data = CFDataCreateMutable(nullptr, 0);
    EXPECT_EQ(CFDataGetLength(data), 0);
    EXPECT_NE(CFDataGetBytePtr(data), nullptr);
    CFDataIncreaseLength(data, 512);
    CFDataAppendBytes(data, bytes, 3);
    ASSERT_EQ(CFDataGetLength(data), 515);
    EXPECT_EQ(CFDataGetBytePtr(data)[0], 0);
    EXPECT_EQ(CFDataGetBytePtr(data)[511], 0);
    EXPECT_EQ(CFDataGetBytePtr(data)[514], 3);
    // Appending the data's own bytes survives the storage moving.
    for (int i = 0; i < 6; ++i) CFDataAppendBytes(data, CFDataGetBytePtr(data), CFDataGetLength(data));
    ASSERT_EQ(CFDataGetLength(data), 515 * 64);
    EXPECT_EQ(CFDataGetBytePtr(data)[515 * 63 + 514], 3);
    EXPECT_FALSE(CFEqual(data, fixed));

    CFMutableDataRef copy = CFDataCreateMutableCopy(nullptr, 0, fixed);
    EXPECT_TRUE(CFEqual(copy, fixed));
    EXPECT_EQ(CFHash(copy), CFHash(fixed));
    CFDataSetLength(copy, 1);
    EXPECT_EQ(CFDataGetLength(copy), 1);

    // A bounded data object refuses to pass its capacity and stays as it was.
    CFMutableDataRef bounded = CFDataCreateMutable(nullptr, 4);
    CFDataAppendBytes(bounded, bytes, 3);
    CFDataAppendBytes(bounded, bytes, 3);
    EXPECT_EQ(CFDataGetLength(bounded), 3);
    for (CFTypeRef o : {CFTypeRef(fixed), CFTypeRef(data), CFTypeRef(copy), CFTypeRef(bounded)}) CFRelease(o);
}

TEST(Data, NoCopyBytesGoBackToTheirDeallocator) {
    auto *owned = static_cast<UInt8 *>(CFAllocatorAllocate(nullptr, 16, 0));
    CFDataRef taken = CFDataCreateWithBytesNoCopy(nullptr, owned, 16, nullptr);
    EXPECT_EQ(CFDataGetBytePtr(taken), owned);
    CFRelease(taken);  // frees `owned`; the sanitizer build would report a leak otherwise
    UInt8 stack[4] = {9, 9, 9, 9};
    CFDataRef borrowed = CFDataCreateWithBytesNoCopy(nullptr, stack, 4, kCFAllocatorNull);
    EXPECT_EQ(CFDataGetBytePtr(borrowed)[3], 9);
    CFRelease(borrowed);
}

TEST(URL, PathsExtensionsAndText) {
    EXPECT_EQ(Extension("/tmp/image.PNG"), "PNG");
    EXPECT_EQ(Extension("/tmp/archive.tar.gz"), "gz");
    EXPECT_EQ(Extension("/tmp/noext"), "<null>");
    EXPECT_EQ(Extension("/tmp/.hidden"), "<null>");
    EXPECT_EQ(Extension("/tmp/dots.d/file"), "<null>");
    EXPECT_EQ(Extension("/tmp/trailing."), "<null>");
    EXPECT_EQ(Extension("relative/pic.pct"), "pct");

    CFURLRef url = FileURL("/tmp/a b/x.png/");
    CFStringRef path = CFURLCopyFileSystemPath(url, kCFURLPOSIXPathStyle);
    EXPECT_EQ(Text(path), "/tmp/a b/x.png");
    EXPECT_EQ(Text(CFURLGetString(url)), "file:///tmp/a%20b/x.png");
    CFStringRef desc = CFCopyDescription(url);
    EXPECT_EQ(Text(desc), "file:///tmp/a%20b/x.png");
    CFStringRef last = CFURLCopyLastPathComponent(url);
    EXPECT_EQ(Text(last), "x.png");
    UInt8 buffer[64];
    EXPECT_TRUE(CFURLGetFileSystemRepresentation(url, true, buffer, sizeof buffer));
    EXPECT_STREQ(reinterpret_cast<char *>(buffer), "/tmp/a b/x.png");
    EXPECT_FALSE(CFURLGetFileSystemRepresentation(url, true, buffer, 5));
    CFURLRef same = FileURL("/tmp/a b/x.png");
    EXPECT_TRUE(CFEqual(url, same));
    for (CFTypeRef o : {CFTypeRef(path), CFTypeRef(desc), CFTypeRef(last), CFTypeRef(url), CFTypeRef(same)}) CFRelease(o);

    EXPECT_EQ(CFURLCreateWithFileSystemPath(nullptr, CFSTR(""), kCFURLPOSIXPathStyle, false), nullptr);
    EXPECT_EQ(CFURLCreateWithFileSystemPath(nullptr, CFSTR("C:\\x"), kCFURLWindowsPathStyle, false), nullptr);
    CFURLRef relative = FileURL("pic.png");
    EXPECT_EQ(Text(CFURLGetString(relative)).rfind("file:///", 0), 0u);
    CFRelease(relative);
}

TEST(Stream, ReadHandsOutTheWholeFileInBlocks) {
    std::string path = ::testing::TempDir() + "plim_stream_read.bin";
    std::vector<UInt8> content(200000);
    std::mt19937 rng(1);
    for (auto &b : content) b = static_cast<UInt8>(rng());
    FILE *f = std::fopen(path.c_str(), "wb");
    ASSERT_NE(f, nullptr);
    std::fwrite(content.data(), 1, content.size(), f);
    std::fclose(f);

    CFURLRef url = FileURL(path);
    CFReadStreamRef stream = CFReadStreamCreateWithFile(nullptr, url);
    CFIndex n = 0;
    EXPECT_EQ(CFReadStreamGetBuffer(stream, 0, &n), nullptr);  // not open yet
    EXPECT_EQ(n, -1);
    ASSERT_TRUE(CFReadStreamOpen(stream));
    EXPECT_EQ(CFReadStreamGetStatus(stream), kCFStreamStatusOpen);
    std::vector<UInt8> collected;
    int blocks = 0;
    while (const UInt8 *block = CFReadStreamGetBuffer(stream, 0, &n)) {
        ASSERT_GT(n, 0);
        collected.insert(collected.end(), block, block + n);
        ++blocks;
    }
    EXPECT_EQ(n, 0);
    EXPECT_GT(blocks, 1);
    EXPECT_EQ(collected, content);
    EXPECT_EQ(CFReadStreamGetStatus(stream), kCFStreamStatusAtEnd);
    CFReadStreamClose(stream);
    EXPECT_EQ(CFReadStreamGetStatus(stream), kCFStreamStatusClosed);
    CFRelease(stream);

    // Read() and a bounded GetBuffer mix.
    stream = CFReadStreamCreateWithFile(nullptr, url);
    ASSERT_TRUE(CFReadStreamOpen(stream));
    UInt8 head[10];
    EXPECT_EQ(CFReadStreamRead(stream, head, 10), 10);
    EXPECT_EQ(head[9], content[9]);
    const UInt8 *block = CFReadStreamGetBuffer(stream, 5, &n);
    ASSERT_EQ(n, 5);
    EXPECT_EQ(block[0], content[10]);
    CFRelease(stream);  // releasing an open stream closes it
    CFRelease(url);
    unlink(path.c_str());

    CFURLRef missing = FileURL("/nonexistent/dir/file");
    stream = CFReadStreamCreateWithFile(nullptr, missing);
    EXPECT_FALSE(CFReadStreamOpen(stream));
    EXPECT_EQ(CFReadStreamGetStatus(stream), kCFStreamStatusError);
    CFRelease(stream);
    CFRelease(missing);
}

TEST(Stream, WriteCreatesTheFileAndReportsStatus) {
    std::string path = ::testing::TempDir() + "plim_stream_write.bin";
    CFURLRef url = FileURL(path);
    CFWriteStreamRef stream = CFWriteStreamCreateWithFile(nullptr, url);
    EXPECT_EQ(CFWriteStreamGetStatus(stream), kCFStreamStatusNotOpen);
    EXPECT_EQ(CFWriteStreamWrite(stream, reinterpret_cast<const UInt8 *>("x"), 1), -1);
    ASSERT_TRUE(CFWriteStreamOpen(stream));
    EXPECT_EQ(CFWriteStreamGetStatus(stream), kCFStreamStatusOpen);
    EXPECT_EQ(CFWriteStreamWrite(stream, reinterpret_cast<const UInt8 *>("hello"), 5), 5);
    EXPECT_EQ(CFWriteStreamGetStatus(stream), kCFStreamStatusOpen);
    CFWriteStreamClose(stream);
    EXPECT_EQ(CFWriteStreamGetStatus(stream), kCFStreamStatusClosed);
    CFRelease(stream);
    FILE *f = std::fopen(path.c_str(), "rb");
    char back[8] = {};
    ASSERT_NE(f, nullptr);
    EXPECT_EQ(std::fread(back, 1, sizeof back, f), 5u);
    std::fclose(f);
    EXPECT_STREQ(back, "hello");
    unlink(path.c_str());
    CFRelease(url);

    CFURLRef bad = FileURL("/nonexistent/dir/out.png");
    stream = CFWriteStreamCreateWithFile(nullptr, bad);
    EXPECT_FALSE(CFWriteStreamOpen(stream));
    EXPECT_EQ(CFWriteStreamGetStatus(stream), kCFStreamStatusError);
    CFRelease(stream);
    CFRelease(bad);
}

}  // namespace
