// Type registration, instances, reference counting and the polymorphic calls.
#include <PlimBitmapLib/platform/CoreFoundation.h>

#include <gtest/gtest.h>

#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "support/FailingAllocator.h"

namespace {

struct Widget {
    CFRuntimeBase base;
    int value;
    char name[12];
};

std::vector<std::string> gCalls;

void WidgetInit(CFTypeRef cf) {
    gCalls.push_back("init");
    // Fields arrive zeroed.
    EXPECT_EQ(static_cast<const Widget *>(cf)->value, 0);
}
void WidgetFinalize(CFTypeRef) { gCalls.push_back("finalize"); }
Boolean WidgetEqual(CFTypeRef a, CFTypeRef b) {
    return static_cast<const Widget *>(a)->value == static_cast<const Widget *>(b)->value;
}
CFHashCode WidgetHash(CFTypeRef cf) { return static_cast<CFHashCode>(static_cast<const Widget *>(cf)->value * 7); }
CFStringRef WidgetFormatting(CFTypeRef cf, CFDictionaryRef) {
    return CFStringCreateWithFormat(nullptr, nullptr, CFSTR("<Widget %d>"), static_cast<const Widget *>(cf)->value);
}

const CFRuntimeClass kWidgetClass = {0, "Widget", WidgetInit, nullptr, WidgetFinalize, WidgetEqual,
                                     WidgetHash, WidgetFormatting, nullptr};
const CFRuntimeClass kBareClass = {0, "Bare", nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr};

CFTypeID WidgetTypeID() {
    static CFTypeID id = _CFRuntimeRegisterClass(&kWidgetClass);
    return id;
}

Widget *NewWidget(CFAllocatorRef alloc, int value) {
    auto *w = static_cast<Widget *>(const_cast<void *>(
        _CFRuntimeCreateInstance(alloc, WidgetTypeID(), sizeof(Widget) - sizeof(CFRuntimeBase), nullptr)));
    if (w) w->value = value;
    return w;
}

std::string Text(CFStringRef s) { return s ? CFStringGetCStringPtr(s, kCFStringEncodingUTF8) : "<null>"; }

TEST(Runtime, InstanceLifecycleRunsCallbacksInOrder) {
    gCalls.clear();
    Widget *w = NewWidget(nullptr, 5);
    ASSERT_NE(w, nullptr);
    EXPECT_EQ(CFGetTypeID(w), WidgetTypeID());
    EXPECT_NE(WidgetTypeID(), CFStringGetTypeID());
    EXPECT_EQ(CFGetRetainCount(w), 1);
    EXPECT_EQ(CFRetain(w), w);
    EXPECT_EQ(CFGetRetainCount(w), 2);
    CFRelease(w);
    EXPECT_EQ(gCalls, std::vector<std::string>{"init"});
    CFRelease(w);
    EXPECT_EQ(gCalls, (std::vector<std::string>{"init", "finalize"}));
    EXPECT_EQ(_CFRuntimeGetClassWithTypeID(WidgetTypeID()), &kWidgetClass);
}

TEST(Runtime, RegistrationRefusesBadRecordsAndHandsOutFreshIdentifiers) {
    EXPECT_EQ(_CFRuntimeRegisterClass(nullptr), static_cast<CFTypeID>(_kCFRuntimeNotATypeID));
    CFRuntimeClass nameless = kBareClass;
    nameless.className = nullptr;
    EXPECT_EQ(_CFRuntimeRegisterClass(&nameless), static_cast<CFTypeID>(_kCFRuntimeNotATypeID));
    CFTypeID a = _CFRuntimeRegisterClass(&kBareClass);
    CFTypeID b = _CFRuntimeRegisterClass(&kBareClass);
    EXPECT_NE(a, 0u);
    EXPECT_NE(a, b);
    EXPECT_EQ(_CFRuntimeCreateInstance(nullptr, 9999, 0, nullptr), nullptr);
    EXPECT_EQ(_CFRuntimeCreateInstance(nullptr, a, -1, nullptr), nullptr);
}

TEST(Runtime, EqualHashAndDescriptionGoThroughTheClass) {
    Widget *a = NewWidget(nullptr, 3), *b = NewWidget(nullptr, 3), *c = NewWidget(nullptr, 4);
    EXPECT_TRUE(CFEqual(a, b));
    EXPECT_FALSE(CFEqual(a, c));
    EXPECT_FALSE(CFEqual(a, CFSTR("3")));  // different types are never equal
    EXPECT_EQ(CFHash(a), 21u);
    CFStringRef desc = CFCopyDescription(a);
    EXPECT_EQ(Text(desc), "<Widget 3>");
    CFStringRef viaFormat = CFStringCreateWithFormat(nullptr, nullptr, CFSTR("[%@]"), c);
    EXPECT_EQ(Text(viaFormat), "[<Widget 4>]");
    CFRelease(desc);
    CFRelease(viaFormat);

    // Without callbacks: identity, the address as hash, a default description.
    CFTypeID bare = _CFRuntimeRegisterClass(&kBareClass);
    CFTypeRef x = _CFRuntimeCreateInstance(nullptr, bare, 8, nullptr);
    CFTypeRef y = _CFRuntimeCreateInstance(nullptr, bare, 8, nullptr);
    EXPECT_TRUE(CFEqual(x, x));
    EXPECT_FALSE(CFEqual(x, y));
    EXPECT_EQ(CFHash(x), static_cast<CFHashCode>(reinterpret_cast<uintptr_t>(x)));
    CFStringRef bareDesc = CFCopyDescription(x);
    EXPECT_EQ(Text(bareDesc).rfind("<Bare 0x", 0), 0u) << Text(bareDesc);
    CFRelease(bareDesc);
    for (CFTypeRef o : {CFTypeRef(a), CFTypeRef(b), CFTypeRef(c), x, y}) CFRelease(o);
}

TEST(Runtime, RetainAndReleaseAreAtomicAcrossThreads) {
    gCalls.clear();
    Widget *w = NewWidget(nullptr, 1);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([w] {
            for (int i = 0; i < 100000; ++i) {
                CFRetain(w);
                CFRelease(w);
            }
        });
    for (auto &t : threads) t.join();
    EXPECT_EQ(CFGetRetainCount(w), 1);
    CFRelease(w);
    EXPECT_EQ(gCalls.back(), "finalize");
}

TEST(Runtime, ObjectsKeepTheirAllocatorAlive) {
    plim::test::FailingAllocator counting;
    CFAllocatorRef alloc = counting.get();
    EXPECT_EQ(CFGetTypeID(alloc), CFAllocatorGetTypeID());
    EXPECT_EQ(CFGetAllocator(CFSTR("x")), kCFAllocatorSystemDefault);
    Widget *w = NewWidget(alloc, 2);
    ASSERT_NE(w, nullptr);
    EXPECT_EQ(CFGetAllocator(w), alloc);
    EXPECT_EQ(CFGetRetainCount(alloc), 2);
    EXPECT_EQ(counting.live(), 1);
    CFRelease(w);
    EXPECT_EQ(counting.live(), 0);
    EXPECT_EQ(CFGetRetainCount(alloc), 1);

    // The null allocator makes nothing; the heap allocators are never counted.
    EXPECT_EQ(NewWidget(kCFAllocatorNull, 1), nullptr);
    EXPECT_EQ(CFAllocatorAllocate(nullptr, 0, 0), nullptr);
    void *p = CFAllocatorAllocate(kCFAllocatorSystemDefault, 10, 0);
    p = CFAllocatorReallocate(kCFAllocatorSystemDefault, p, 100, 0);
    ASSERT_NE(p, nullptr);
    CFAllocatorDeallocate(kCFAllocatorSystemDefault, p);
    EXPECT_EQ(CFGetRetainCount(kCFAllocatorSystemDefault), CFGetRetainCount(kCFAllocatorMalloc));
}

TEST(Runtime, AllocatorContextInfoIsRetainedAndReleased) {
    static int retains = 0, releases = 0;
    retains = releases = 0;
    CFAllocatorContext context = {};
    int info = 0;
    context.info = &info;
    context.retain = [](const void *i) -> const void * { ++retains; return i; };
    context.release = [](const void *) { ++releases; };
    context.allocate = [](CFIndex size, CFOptionFlags, void *) { return std::malloc(static_cast<size_t>(size)); };
    context.deallocate = [](void *p, void *) { std::free(p); };
    CFAllocatorRef alloc = CFAllocatorCreate(nullptr, &context);
    ASSERT_NE(alloc, nullptr);
    CFAllocatorContext back;
    CFAllocatorGetContext(alloc, &back);
    EXPECT_EQ(back.info, &info);
    EXPECT_EQ(retains, 1);
    CFRelease(alloc);
    EXPECT_EQ(releases, 1);
    CFAllocatorContext noAllocate = {};
    EXPECT_EQ(CFAllocatorCreate(nullptr, &noAllocate), nullptr);
}

TEST(Runtime, EveryCreatorFailsCleanlyWhenMemoryRunsOut) {
    using plim::test::ExhaustFailures;
    char path[] = "/tmp/plim_runtime_failXXXXXX";
    int fd = mkstemp(path);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(write(fd, "hello", 5), 5);
    close(fd);

    auto check = [](const char *what, auto attempt) {
        long failures = ExhaustFailures(attempt);
        EXPECT_GE(failures, 1) << what << ": leaked, or never succeeded, or never allocated";
    };
    auto released = [](CFTypeRef cf) {
        if (!cf) return false;
        CFRelease(cf);
        return true;
    };
    check("instance", [&](CFAllocatorRef a) { return released(NewWidget(a, 1)); });
    check("allocator", [&](CFAllocatorRef a) {
        CFAllocatorContext c = {};
        c.allocate = [](CFIndex s, CFOptionFlags, void *) { return std::malloc(static_cast<size_t>(s)); };
        c.deallocate = [](void *p, void *) { std::free(p); };
        return released(CFAllocatorCreate(a, &c));
    });
    check("string", [&](CFAllocatorRef a) {
        return released(CFStringCreateWithCString(a, "text", kCFStringEncodingUTF8));
    });
    check("format", [&](CFAllocatorRef a) {
        return released(CFStringCreateWithFormat(a, nullptr, CFSTR("%d %@"), 7, CFSTR("x")));
    });
    check("mutable copy", [&](CFAllocatorRef a) { return released(CFStringCreateMutableCopy(a, 0, CFSTR("abc"))); });
    check("data", [&](CFAllocatorRef a) { return released(CFDataCreate(a, reinterpret_cast<const UInt8 *>("abc"), 3)); });
    check("mutable data copy", [&](CFAllocatorRef a) {
        CFDataRef d = CFDataCreate(nullptr, reinterpret_cast<const UInt8 *>("abc"), 3);
        bool ok = released(CFDataCreateMutableCopy(a, 0, d));
        CFRelease(d);
        return ok;
    });
    check("url", [&](CFAllocatorRef a) {
        return released(CFURLCreateWithFileSystemPath(a, CFSTR("/tmp/a.png"), kCFURLPOSIXPathStyle, false));
    });
    check("url extension", [&](CFAllocatorRef a) {
        CFURLRef u = CFURLCreateWithFileSystemPath(a, CFSTR("/tmp/a.png"), kCFURLPOSIXPathStyle, false);
        if (!u) return false;
        bool ok = released(CFURLCopyPathExtension(u));
        CFRelease(u);
        return ok;
    });
    CFStringRef pathString = CFStringCreateWithCString(nullptr, path, kCFStringEncodingUTF8);
    CFURLRef url = CFURLCreateWithFileSystemPath(nullptr, pathString, kCFURLPOSIXPathStyle, false);
    check("read stream", [&](CFAllocatorRef a) {
        CFReadStreamRef s = CFReadStreamCreateWithFile(a, url);
        if (!s) return false;
        bool ok = CFReadStreamOpen(s);
        CFRelease(s);
        return ok;
    });
    check("write stream", [&](CFAllocatorRef a) { return released(CFWriteStreamCreateWithFile(a, url)); });
    CFRelease(url);
    CFRelease(pathString);
    unlink(path);
}

}  // namespace
