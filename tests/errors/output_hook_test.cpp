// The output hook: it receives exactly what the library would have printed, one piece per
// message; without it the text reaches standard output and standard error as before; it can be
// replaced from any thread while messages are being delivered.
#include "errors/ErrorTestSupport.h"
#include "io/IOTestSupport.h"
#include "platform/runtime/CFRef.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <thread>

namespace {

using errortest::HeldOutput;
using plim::CFRef;

// The tracer's log of a small shape with a hole.
void Trace() {
    std::vector<UInt8> argb(7 * 6 * 4, 0);
    for (int y = 1; y < 5; ++y)
        for (int x = 1; x < 6; ++x)
            if (!(y == 2 && x == 3)) argb[(y * 7 + x) * 4] = argb[(y * 7 + x) * 4 + 1] = 255;
    CFRef<PlimCFImage> image(PlimCFImageCreateWithBuffer(nullptr, argb.data(), 7, 6, 8, 32, 28, nullptr,
                                                         kCGImageAlphaPremultipliedFirst));
    CGMutablePathRef path = PlimCFImageCopyAlphaPath(image.get(), 0.5f);
    ASSERT_NE(path, nullptr);
    CGPathRelease(path);
}

// A damaged picture given to the PICT loader.
void LoadDamagedPicture() {
    CFRef<CFDataRef> data(iotest::MakeData(iotest::Random(300, 4)));
    CFRef<PlimCFImageLoader> loader(PlimCFCreatePICTImageLoaderFromData(nullptr, data.get()));
    EXPECT_EQ(loader.get(), nullptr);
}

// Premultiplied pixels with colour above alpha, unpremultiplied by each function that warns.
void UnpremultiplyInvalid() {
    UInt8 argb[8] = {10, 200, 0, 0, 255, 1, 2, 3};
    PlimCFUnpremultiplyARGBBuffer(argb, sizeof argb);
    UInt8 rgba[8] = {200, 0, 0, 10, 1, 2, 3, 255};
    PlimCFUnpremultiplyRGBABuffer(rgba, sizeof rgba);
    UInt8 image[8] = {10, 200, 0, 0, 0, 0, 0, 0};
    CFRef<PlimCFImage> picture(PlimCFImageCreateWithBuffer(nullptr, image, 2, 1, 8, 32, 8, nullptr,
                                                           kCGImageAlphaPremultipliedFirst));
    PlimCFImageRemoveAlphaChannel(picture.get());
}

struct Printed {
    std::string out, err;
};

Printed PrintedBy(const std::function<void()> &source) {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    source();
    Printed printed;
    printed.out = testing::internal::GetCapturedStdout();
    printed.err = testing::internal::GetCapturedStderr();
    return printed;
}

TEST(OutputHook, ReceivesExactlyWhatWouldHaveBeenPrinted) {
    const struct {
        const char *name;
        void (*source)();
        size_t outPieces, errPieces;
    } kSources[] = {
        {"trace", Trace, 1, 0},
        {"PICT loader", LoadDamagedPicture, 0, 1},
        {"unpremultiply", UnpremultiplyInvalid, 0, 3},
    };
    for (const auto &s : kSources) {
        ASSERT_EQ(PlimGetOutputHook(nullptr), nullptr);
        const Printed unhooked = PrintedBy(s.source);
        EXPECT_EQ(unhooked.out.empty(), s.outPieces == 0) << s.name;
        EXPECT_EQ(unhooked.err.empty(), s.errPieces == 0) << s.name;

        Printed hooked;
        size_t outPieces = 0, errPieces = 0;
        std::string out, err;
        {
            HeldOutput held;
            hooked = PrintedBy(s.source);
            for (const auto &piece : held.pieces) ++(piece.first == kPlimOutputStandardOutput ? outPieces : errPieces);
            out = held.All(kPlimOutputStandardOutput);
            err = held.All(kPlimOutputStandardError);
        }
        EXPECT_EQ(hooked.out, "") << s.name;
        EXPECT_EQ(hooked.err, "") << s.name;
        EXPECT_EQ(out, unhooked.out) << s.name;
        EXPECT_EQ(err, unhooked.err) << s.name;
        EXPECT_EQ(outPieces, s.outPieces) << s.name;
        EXPECT_EQ(errPieces, s.errPieces) << s.name;
    }
    // The texts themselves, as printed without a hook.
    EXPECT_EQ(PrintedBy(LoadDamagedPicture).err, "Corrupt PICT data found, cannot load image\n");
    EXPECT_EQ(PrintedBy(UnpremultiplyInvalid).err,
              "PlimCFUnpremultiplyARGBBuffer - invalid unpremultiplication\n"
              "PlimCFUnpremultiplyRGBABuffer - invalid unpremultiplication\n"
              "PlimCFImageRemoveAlphaChannel - invalid unpremultiplication\n");
}

struct Counter {
    std::atomic<long> calls{0};
    std::atomic<long> bytes{0};
};

void Count(void *context, PlimOutputStream, const char *, size_t length) {
    auto *counter = static_cast<Counter *>(context);
    counter->calls.fetch_add(1);
    counter->bytes.fetch_add(static_cast<long>(length));
}

TEST(OutputHook, ReplacedWhileOtherThreadsWriteNoMessageIsLostOrMisdirected) {
    // Writers warn continuously while the main thread swaps two counting hooks; every message
    // reaches one of them whole, and a hook replaced is never called after the swap returns.
    Counter first, second;
    std::atomic<bool> stop{false};
    std::atomic<long> written{0};
    PlimSetOutputHook(Count, &first);
    std::vector<std::thread> writers;
    for (int t = 0; t < 3; ++t)
        writers.emplace_back([&] {
            while (!stop.load()) {
                UInt8 argb[4] = {1, 2, 3, 4};
                PlimCFUnpremultiplyARGBBuffer(argb, sizeof argb);
                written.fetch_add(1);
                std::this_thread::yield();
            }
        });
    for (int swap = 0; swap < 50; ++swap) {
        // Let the writers deliver a few messages to the current hook first.
        for (const long target = written.load() + 3; written.load() < target;) std::this_thread::yield();
        Counter &next = swap % 2 ? first : second;
        Counter &previous = swap % 2 ? second : first;
        PlimSetOutputHook(Count, &next);
        const long settled = previous.calls.load();
        std::this_thread::yield();
        EXPECT_EQ(previous.calls.load(), settled) << "swap " << swap;
        void *context = nullptr;
        EXPECT_EQ(PlimGetOutputHook(&context), &Count);
        EXPECT_EQ(context, &next);
    }
    stop = true;
    for (std::thread &t : writers) t.join();
    PlimSetOutputHook(nullptr, nullptr);
    EXPECT_GT(written.load(), 0);
    EXPECT_EQ(first.calls.load() + second.calls.load(), written.load());
    EXPECT_EQ(first.bytes.load() + second.bytes.load(), 60 * written.load());
}

struct Reentrant {
    int calls = 0;
    PlimOutputHook seenInside = nullptr;
};

void CallsTheLibrary(void *context, PlimOutputStream, const char *, size_t) {
    auto *state = static_cast<Reentrant *>(context);
    if (++state->calls > 1) return;
    // A message of its own comes back to the hook; replacing itself is ignored.
    UInt8 argb[4] = {1, 2, 3, 4};
    PlimCFUnpremultiplyARGBBuffer(argb, sizeof argb);
    PlimSetOutputHook(nullptr, nullptr);
    state->seenInside = PlimGetOutputHook(nullptr);
}

TEST(OutputHook, AHookMayCallTheLibraryButNotReplaceItself) {
    Reentrant state;
    PlimSetOutputHook(CallsTheLibrary, &state);
    const Printed printed = PrintedBy(UnpremultiplyInvalid);
    EXPECT_EQ(PlimGetOutputHook(nullptr), &CallsTheLibrary);
    PlimSetOutputHook(nullptr, nullptr);
    EXPECT_EQ(printed.out + printed.err, "");
    EXPECT_EQ(state.calls, 4);
    EXPECT_EQ(state.seenInside, &CallsTheLibrary);
}

}  // namespace
