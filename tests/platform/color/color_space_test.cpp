// Colour spaces, colour profiles and the main display's space.
#include <PlimBitmapLib/PlimMainDisplay.h>
#include <PlimBitmapLib/platform/CoreFoundation.h>
#include <PlimBitmapLib/platform/CoreGraphics.h>
#include <PlimBitmapLib/platform/MacMemory.h>

#include <gtest/gtest.h>

namespace {

TEST(ColorSpace, NamedAndDeviceSpaces) {
    CGColorSpaceRef grey = CGColorSpaceCreateWithName(kCGColorSpaceGenericGray);
    CGColorSpaceRef rgb = CGColorSpaceCreateWithName(kCGColorSpaceGenericRGB);
    CGColorSpaceRef deviceRGB = CGColorSpaceCreateDeviceRGB();
    CGColorSpaceRef deviceGrey = CGColorSpaceCreateDeviceGray();
    ASSERT_TRUE(grey && rgb && deviceRGB && deviceGrey);
    EXPECT_EQ(CGColorSpaceGetNumberOfComponents(grey), 1u);
    EXPECT_EQ(CGColorSpaceGetNumberOfComponents(rgb), 3u);
    EXPECT_EQ(CGColorSpaceGetNumberOfComponents(nullptr), 0u);
    // Grey types are 0 (device) and 3 (calibrated); colour types are neither.
    EXPECT_EQ(CGColorSpaceGetType(deviceGrey), 0);
    EXPECT_EQ(CGColorSpaceGetType(grey), 3);
    EXPECT_NE(CGColorSpaceGetType(rgb), 0);
    EXPECT_NE(CGColorSpaceGetType(rgb), 3);
    EXPECT_EQ(CGColorSpaceGetModel(grey), kCGColorSpaceModelMonochrome);
    EXPECT_FALSE(CFEqual(grey, rgb));
    EXPECT_TRUE(CFEqual(rgb, deviceRGB));  // the same profile
    EXPECT_EQ(CGColorSpaceCreateWithName(CFSTR("no such space")), nullptr);
    EXPECT_EQ(CGColorSpaceRetain(nullptr), nullptr);
    CGColorSpaceRelease(nullptr);
    for (CGColorSpaceRef s : {grey, rgb, deviceRGB, deviceGrey}) CGColorSpaceRelease(s);
}

TEST(ColorSpace, ProfilesFromMemory) {
    CGColorSpaceRef grey = CGColorSpaceCreateWithName(kCGColorSpaceGenericGray);
    CFDataRef icc = CGColorSpaceCopyICCProfile(grey);
    ASSERT_NE(icc, nullptr);

    // A handle holding the bytes, as the decoders hand them over.
    Handle h = nullptr;
    ASSERT_EQ(PtrToHand(CFDataGetBytePtr(icc), &h, CFDataGetLength(icc)), noErr);
    CMProfileLocation location;
    location.locType = cmHandleBasedProfile;
    location.u.handleLoc.h = h;
    CMProfileRef profile = nullptr;
    ASSERT_EQ(CMOpenProfile(&profile, &location), noErr);
    DisposeHandle(h);  // the profile keeps its own copy
    Boolean valid = false, noCMM = true;
    EXPECT_EQ(CMValidateProfile(profile, &valid, &noCMM), noErr);
    EXPECT_TRUE(valid);
    EXPECT_FALSE(noCMM);
    CGColorSpaceRef fromProfile = CGColorSpaceCreateWithPlatformColorSpace(profile);
    CMCloseProfile(profile);
    ASSERT_NE(fromProfile, nullptr);
    EXPECT_TRUE(CFEqual(fromProfile, grey));
    EXPECT_EQ(CFHash(fromProfile), CFHash(grey));
    EXPECT_EQ(CGColorSpaceGetType(fromProfile), 3);
    CGColorSpaceRelease(fromProfile);

    // Bytes that are no profile are refused.
    UInt8 junk[200] = {1, 2, 3};
    location.locType = cmBufferBasedProfile;
    location.u.bufferLoc.buffer = junk;
    location.u.bufferLoc.size = sizeof junk;
    profile = reinterpret_cast<CMProfileRef>(1);
    EXPECT_NE(CMOpenProfile(&profile, &location), noErr);
    EXPECT_EQ(profile, nullptr);
    location.locType = 1;  // a location kind that is not supported
    EXPECT_NE(CMOpenProfile(&profile, &location), noErr);
    CFDataRef junkData = CFDataCreate(nullptr, junk, sizeof junk);
    EXPECT_EQ(CGColorSpaceCreateWithICCProfile(junkData), nullptr);
    CFRelease(junkData);
    CFRelease(icc);
    CGColorSpaceRelease(grey);
}

TEST(MainDisplay, OneSharedRGBSpaceAndANewReferenceEachCall) {
    CGColorSpaceRef a = PlimCGColorSpaceCreateMainDisplay();
    ASSERT_NE(a, nullptr);
    CFIndex count = CFGetRetainCount(a);
    CGColorSpaceRef b = PlimCGColorSpaceCreateMainDisplay();
    EXPECT_EQ(a, b);
    EXPECT_EQ(CFGetRetainCount(a), count + 1);
    EXPECT_EQ(CGColorSpaceGetNumberOfComponents(a), 3u);

    CMProfileRef system = nullptr;
    ASSERT_EQ(CMGetSystemProfile(&system), noErr);
    CGColorSpaceRef fromSystem = CGColorSpaceCreateWithPlatformColorSpace(system);
    CMCloseProfile(system);
    EXPECT_TRUE(CFEqual(fromSystem, a));
    CGColorSpaceRelease(fromSystem);
    CGColorSpaceRelease(b);
    CGColorSpaceRelease(a);
}

}  // namespace
