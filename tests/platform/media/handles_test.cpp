// Memory handles.
#include <PlimBitmapLib/platform/MacMemory.h>

#include <gtest/gtest.h>

#include <cstring>

namespace {

TEST(Handles, SizeContentAndErrors) {
    Handle h = NewHandle(0);
    ASSERT_NE(h, nullptr);
    EXPECT_EQ(MemError(), noErr);
    EXPECT_EQ(GetHandleSize(h), 0);
    ASSERT_EQ(PtrAndHand("abc", h, 3), noErr);
    SetHandleSize(h, 100000);
    ASSERT_EQ(MemError(), noErr);
    EXPECT_EQ(std::memcmp(*h, "abc", 3), 0);
    EXPECT_EQ((*h)[99999], 0);  // growth is zero-filled
    SetHandleSize(h, 2);
    EXPECT_EQ(GetHandleSize(h), 2);
    EXPECT_EQ((*h)[1], 'b');
    // Appending the handle's own bytes.
    ASSERT_EQ(PtrAndHand(*h, h, 2), noErr);
    EXPECT_EQ(std::memcmp(*h, "abab", 4), 0);

    // A locked handle keeps its bytes in place: growth past its room fails and changes nothing.
    HLock(h);
    Ptr before = *h;
    SetHandleSize(h, Size(1) << 30);
    EXPECT_EQ(MemError(), memFullErr);
    EXPECT_EQ(*h, before);
    EXPECT_EQ(GetHandleSize(h), 4);
    HUnlock(h);
    DisposeHandle(h);
    EXPECT_EQ(MemError(), noErr);

    EXPECT_EQ(NewHandle(-1), nullptr);
    EXPECT_EQ(MemError(), paramErr);
    EXPECT_EQ(NewHandle(Size(1) << 50), nullptr);
    EXPECT_EQ(MemError(), memFullErr);
    EXPECT_EQ(GetHandleSize(nullptr), 0);
    EXPECT_EQ(MemError(), nilHandleErr);
    DisposeHandle(nullptr);
    EXPECT_EQ(MemError(), nilHandleErr);
}

TEST(Handles, PtrToHandCopies) {
    const char bytes[] = "picture";
    Handle h = nullptr;
    ASSERT_EQ(PtrToHand(bytes, &h, 7), noErr);
    ASSERT_NE(h, nullptr);
    EXPECT_NE(*h, bytes);
    EXPECT_EQ(GetHandleSize(h), 7);
    EXPECT_EQ(std::memcmp(*h, bytes, 7), 0);
    DisposeHandle(h);
    Handle empty = nullptr;
    ASSERT_EQ(PtrToHand(nullptr, &empty, 0), noErr);
    EXPECT_EQ(GetHandleSize(empty), 0);
    DisposeHandle(empty);
    Handle none = reinterpret_cast<Handle>(1);
    EXPECT_EQ(PtrToHand(bytes, &none, Size(1) << 50), memFullErr);
    EXPECT_EQ(none, nullptr);
    EXPECT_EQ(MemError(), memFullErr);
}

}  // namespace
