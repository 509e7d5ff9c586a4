// Rectangle helpers.
#include <PlimBitmapLib/platform/CoreGraphics.h>

#include <gtest/gtest.h>

namespace {

void ExpectRect(CGRect r, float x, float y, float w, float h) {
    EXPECT_EQ(r.origin.x, x);
    EXPECT_EQ(r.origin.y, y);
    EXPECT_EQ(r.size.width, w);
    EXPECT_EQ(r.size.height, h);
}

TEST(Geometry, StandardizeAndIntegral) {
    ExpectRect(CGRectStandardize(CGRectMake(10, 20, -4, -6)), 6, 14, 4, 6);
    ExpectRect(CGRectStandardize(CGRectMake(1, 2, 3, 4)), 1, 2, 3, 4);
    // Origin rounded down, far edges rounded up.
    ExpectRect(CGRectIntegral(CGRectMake(10.2f, 10.7f, 20.1f, 20.1f)), 10, 10, 21, 21);
    ExpectRect(CGRectIntegral(CGRectMake(-0.5f, -1.5f, 1.0f, 1.0f)), -1, -2, 2, 2);
    ExpectRect(CGRectIntegral(CGRectMake(5, 5, -2.5f, 0)), 2, 5, 3, 0);
    EXPECT_TRUE(CGRectIsNull(CGRectIntegral(CGRectNull)));
    EXPECT_FALSE(CGRectIsNull(CGRectZero));
}

TEST(Geometry, GettersReadTheStandardizedRect) {
    CGRect r = CGRectMake(10, 20, -4, 6);
    EXPECT_EQ(CGRectGetMinX(r), 6);
    EXPECT_EQ(CGRectGetMaxX(r), 10);
    EXPECT_EQ(CGRectGetWidth(r), 4);
    EXPECT_EQ(CGRectGetMinY(r), 20);
    EXPECT_EQ(CGRectGetMaxY(r), 26);
    EXPECT_EQ(CGRectGetHeight(CGRectMake(0, 0, 1, -7)), 7);
    EXPECT_TRUE(CGSizeEqualToSize(CGSizeMake(1, 2), CGSizeMake(1, 2)));
    EXPECT_FALSE(CGSizeEqualToSize(CGSizeMake(1, 2), CGSizeMake(2, 1)));
    EXPECT_TRUE(CGRectEqualToRect(CGRectMake(10, 0, -4, 1), CGRectMake(6, 0, 4, 1)));
    EXPECT_EQ(CGPointZero.x, 0);
    EXPECT_EQ(CGPointZero.y, 0);
}

TEST(Geometry, AffineTransforms) {
    CGAffineTransform t = CGAffineTransformConcat(CGAffineTransformMakeScale(1, -1),
                                                  CGAffineTransformMakeTranslation(0, 10));
    CGPoint p = CGPointApplyAffineTransform(CGPointMake(3, 2), t);
    EXPECT_EQ(p.x, 3);
    EXPECT_EQ(p.y, 8);
    EXPECT_TRUE(CGAffineTransformIsIdentity(CGAffineTransformIdentity));
    EXPECT_FALSE(CGAffineTransformIsIdentity(t));
}

}  // namespace
