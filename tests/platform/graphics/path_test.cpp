// Paths: building, walking and measuring.
#include <PlimBitmapLib/platform/CoreGraphics.h>

#include <gtest/gtest.h>

#include <vector>

namespace {

struct Seen {
    CGPathElementType type;
    float x, y;
};

void Collect(void *info, const CGPathElement *element) {
    static_cast<std::vector<Seen> *>(info)->push_back(
        {element->type, element->points[0].x, element->points[0].y});
}

std::vector<Seen> Elements(CGPathRef path) {
    std::vector<Seen> seen;
    CGPathApply(path, &seen, Collect);
    return seen;
}

TEST(Path, ElementsInOrderWithCloseAtOrigin) {
    CGMutablePathRef path = CGPathCreateMutable();
    EXPECT_TRUE(CGPathIsEmpty(path));
    EXPECT_TRUE(CGRectIsNull(CGPathGetBoundingBox(path)));
    CGPathAddLineToPoint(path, nullptr, 5, 5);  // no current point: ignored
    EXPECT_TRUE(CGPathIsEmpty(path));

    CGPathMoveToPoint(path, nullptr, 1, 2);
    CGPathAddLineToPoint(path, nullptr, 4, 2);
    CGPathAddLineToPoint(path, nullptr, 4, -3);
    CGPathCloseSubpath(path);
    CGPathCloseSubpath(path);  // nothing open: ignored
    CGPathMoveToPoint(path, nullptr, 10, 10);
    CGPathAddLineToPoint(path, nullptr, 11, 10);

    std::vector<Seen> seen = Elements(path);
    ASSERT_EQ(seen.size(), 6u);
    const CGPathElementType types[] = {kCGPathElementMoveToPoint,    kCGPathElementAddLineToPoint,
                                       kCGPathElementAddLineToPoint, kCGPathElementCloseSubpath,
                                       kCGPathElementMoveToPoint,    kCGPathElementAddLineToPoint};
    for (size_t i = 0; i < seen.size(); ++i) EXPECT_EQ(seen[i].type, types[i]) << i;
    EXPECT_EQ(seen[2].x, 4);
    EXPECT_EQ(seen[2].y, -3);
    EXPECT_EQ(seen[3].x, 0);
    EXPECT_EQ(seen[3].y, 0);
    EXPECT_EQ(static_cast<int>(kCGPathElementCloseSubpath), 4);

    CGRect box = CGPathGetBoundingBox(path);
    EXPECT_EQ(box.origin.x, 1);
    EXPECT_EQ(box.origin.y, -3);
    EXPECT_EQ(box.size.width, 10);
    EXPECT_EQ(box.size.height, 13);
    CGPathRelease(path);
    CGPathRelease(nullptr);
}

TEST(Path, LineAfterCloseRestartsAtSubpathStart) {
    CGMutablePathRef path = CGPathCreateMutable();
    CGPathMoveToPoint(path, nullptr, 2, 3);
    CGPathAddLineToPoint(path, nullptr, 5, 3);
    CGPathCloseSubpath(path);
    CGPathAddLineToPoint(path, nullptr, 7, 7);
    std::vector<Seen> seen = Elements(path);
    ASSERT_EQ(seen.size(), 5u);
    EXPECT_EQ(seen[3].type, kCGPathElementMoveToPoint);
    EXPECT_EQ(seen[3].x, 2);
    EXPECT_EQ(seen[3].y, 3);

    CGMutablePathRef copy = CGPathCreateMutableCopy(path);
    EXPECT_TRUE(CFEqual(copy, path));
    CGPathAddLineToPoint(copy, nullptr, 1, 1);
    EXPECT_FALSE(CGPathEqualToPath(copy, path));
    CGPathRelease(copy);
    CGPathRelease(path);
}

}  // namespace
