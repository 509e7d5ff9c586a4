#include <gtest/gtest.h>

#include <random>

#include "platform/media/PictTestSupport.h"
#include "platform/media/pict/PictCodec.h"

using namespace plim::pict;
using namespace pict_test;

namespace {

// Random bytes with long and short runs mixed in, the shapes PackBits has to get right.
std::vector<uint8_t> RunnyBytes(std::mt19937& rng, size_t n, size_t unit) {
    std::vector<uint8_t> v;
    while (v.size() < n) {
        std::vector<uint8_t> u(unit);
        for (auto& b : u) b = static_cast<uint8_t>(rng() % 4 == 0 ? 0 : rng());
        const size_t repeat = rng() % 3 == 0 ? 1 + rng() % 300 : 1 + rng() % 2;
        for (size_t k = 0; k < repeat && v.size() < n; ++k) v.insert(v.end(), u.begin(), u.end());
    }
    v.resize(n);
    return v;
}

std::vector<uint8_t> Decode(const std::vector<uint8_t>& picture, PictInfo* info,
                            PictStatus expected = PictStatus::Ok) {
    std::vector<uint8_t> argb;
    EXPECT_EQ(DecodePict(picture.data(), picture.size(), &argb, info), expected);
    if (expected == PictStatus::Ok) {
        EXPECT_EQ(argb.size(), static_cast<size_t>(info->width) * info->height * 4);
        PictInfo quick{};
        EXPECT_EQ(ReadPictInfo(picture.data(), picture.size(), &quick), PictStatus::Ok);
        EXPECT_EQ(quick.width, info->width);
        EXPECT_EQ(quick.height, info->height);
        EXPECT_EQ(quick.depth, info->depth);
    }
    return argb;
}

}  // namespace

TEST(PackBits, KnownVectorAndRoundTrips) {
    // The classic example: runs of 3+ become run packets, everything else literal packets.
    const std::vector<uint8_t> raw = {0xAA, 0xAA, 0xAA, 0x80, 0x00, 0x2A, 0xAA, 0xAA,
                                      0xAA, 0xAA, 0x80, 0x00, 0x2A, 0x22, 0xAA, 0xAA,
                                      0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA};
    const std::vector<uint8_t> packed = {0xFE, 0xAA, 0x02, 0x80, 0x00, 0x2A, 0xFD, 0xAA,
                                         0x03, 0x80, 0x00, 0x2A, 0x22, 0xF7, 0xAA};
    std::vector<uint8_t> out;
    PackBitsEncode(raw.data(), raw.size(), 1, &out);
    EXPECT_EQ(out, packed);
    // -128 is a no-op in packed data.
    std::vector<uint8_t> withNop = {0x80};
    withNop.insert(withNop.end(), packed.begin(), packed.end());
    std::vector<uint8_t> back(raw.size());
    EXPECT_EQ(PackBitsDecode(withNop.data(), withNop.size(), back.data(), back.size(), 1),
              raw.size());
    EXPECT_EQ(back, raw);

    std::mt19937 rng(1234);
    for (size_t unit : {size_t{1}, size_t{2}}) {
        for (int trial = 0; trial < 400; ++trial) {
            const size_t n = (rng() % 1200) / unit * unit;
            const std::vector<uint8_t> src = RunnyBytes(rng, n, unit);
            std::vector<uint8_t> enc;
            PackBitsEncode(src.data(), src.size(), unit, &enc);
            // Worst case: one header per 128 units.
            EXPECT_LE(enc.size(), n + (n / unit + 127) / 128);
            std::vector<uint8_t> dec(n + 16, 0xEE);
            ASSERT_EQ(PackBitsDecode(enc.data(), enc.size(), dec.data(), n, unit), n);
            EXPECT_TRUE(std::equal(src.begin(), src.end(), dec.begin())) << "unit " << unit;
            EXPECT_EQ(dec[n], 0xEE);  // nothing written past the requested size
            if (n > 4) {
                // A short destination cuts the output instead of overflowing it.
                std::vector<uint8_t> small(n / 2 + 8, 0xEE);
                EXPECT_EQ(PackBitsDecode(enc.data(), enc.size(), small.data(), n / 2, unit), n / 2);
                EXPECT_TRUE(
                    std::equal(src.begin(), src.begin() + static_cast<long>(n / 2), small.begin()));
                EXPECT_EQ(small[n / 2], 0xEE);
                // Truncated packed input yields a prefix of the data, never more.
                const size_t cut = enc.size() / 2;
                const size_t got = PackBitsDecode(enc.data(), cut, dec.data(), n, unit);
                EXPECT_LE(got, n);
                EXPECT_TRUE(
                    std::equal(src.begin(), src.begin() + static_cast<long>(got), dec.begin()));
            }
        }
    }
}

TEST(PictWriter, RoundTripsThroughTheReader) {
    std::mt19937 rng(99);
    struct Size {
        int w, h;
    };
    for (Size size : {Size{1, 1}, Size{1, 5}, Size{2, 3}, Size{7, 5}, Size{63, 2}, Size{300, 4},
                      Size{4100, 2}}) {
        for (bool withAlpha : {false, true}) {
            const size_t bytesPerRow = static_cast<size_t>(size.w) * 4 + 12;  // padded rows
            std::vector<uint8_t> src(bytesPerRow * static_cast<size_t>(size.h));
            for (int y = 0; y < size.h; ++y) {
                const std::vector<uint8_t> row =
                    RunnyBytes(rng, static_cast<size_t>(size.w) * 4, 4);
                std::copy(row.begin(), row.end(), src.begin() + static_cast<long>(y * bytesPerRow));
            }
            std::vector<uint8_t> file;
            ASSERT_TRUE(EncodePictFile(src.data(), size.w, size.h, bytesPerRow, withAlpha, &file));
            ASSERT_GT(file.size(), 512u + 10u);
            EXPECT_TRUE(
                std::all_of(file.begin(), file.begin() + 512, [](uint8_t b) { return b == 0; }));
            const size_t pictureSize = file.size() - 512;
            EXPECT_EQ(file[512], static_cast<uint8_t>(pictureSize >> 8));
            EXPECT_EQ(file[513], static_cast<uint8_t>(pictureSize));
            EXPECT_EQ(file[file.size() - 2], 0x00);
            EXPECT_EQ(file[file.size() - 1], 0xFF);

            const std::vector<uint8_t> picture(file.begin() + 512, file.end());
            PictInfo info{};
            const std::vector<uint8_t> argb = Decode(picture, &info);
            ASSERT_EQ(info.width, size.w);
            ASSERT_EQ(info.height, size.h);
            EXPECT_EQ(info.depth, withAlpha ? 32 : 24);
            for (int y = 0; y < size.h; ++y) {
                for (int x = 0; x < size.w; ++x) {
                    const uint8_t* s = src.data() + static_cast<size_t>(y) * bytesPerRow +
                                       static_cast<size_t>(x) * 4;
                    const auto p = PixelAt(argb, size.w, x, y);
                    ASSERT_EQ(p, Argb(withAlpha ? s[0] : 255, s[1], s[2], s[3]))
                        << size.w << "x" << size.h << " at " << x << "," << y;
                }
            }
        }
    }

    std::vector<uint8_t> file = {1, 2, 3};
    const uint8_t px[4] = {255, 1, 2, 3};
    EXPECT_FALSE(EncodePictFile(px, 0, 1, 4, false, &file));
    EXPECT_TRUE(file.empty());
    EXPECT_FALSE(EncodePictFile(px, 1, 1, 3, false, &file));  // rows shorter than the width
    EXPECT_FALSE(EncodePictFile(px, 40000, 1, 160000, false, &file));
    EXPECT_FALSE(EncodePictFile(nullptr, 1, 1, 4, false, &file));
}

TEST(PictWriter, WritesTheDocumentedRecords) {
    // Our own reader ignores several fields a strict reader checks, so pin the exact bytes of a
    // small file: frame, version, extended header, clip, one DirectBitsRect with its PixMap.
    const uint8_t px[8] = {255, 1, 2, 3, 255, 4, 5, 6};
    std::vector<uint8_t> file;
    ASSERT_TRUE(EncodePictFile(px, 2, 1, 8, false, &file));
    const std::vector<uint8_t> expected = {
        0x00, 0x86, 0,    0,    0, 0,    0,    1,    0, 2,                    // picSize, frame
        0x00, 0x11, 0x02, 0xFF,                                               // version 2
        0x0C, 0x00, 0xFF, 0xFE, 0, 0,    0,    0x48, 0, 0,    0, 0x48, 0, 0,  // extended header, 72
                                                                              // dpi
        0,    0,    0,    0,    0, 1,    0,    2,    0, 0,    0, 0,  // source rect, reserved
        0x00, 0x01, 0x00, 0x0A, 0, 0,    0,    0,    0, 1,    0, 2,  // clip region
        0x00, 0x9A, 0,    0,    0, 0xFF, 0x80, 0x08,  // DirectBitsRect, base, rowBytes 8
        0,    0,    0,    0,    0, 1,    0,    2,     // bounds
        0,    0,    0,    4,    0, 0,    0,    0,    0, 0x48, 0, 0,    0, 0x48, 0,
        0,                                         // version, packType 4, sizes, res
        0,    16,   0,    32,   0, 3,    0,    8,  // RGBDirect, 32 bits, 3 x 8 bits
        0,    0,    0,    0,    0, 0,    0,    0,    0, 0,    0, 0,  // planeBytes, table, reserved
        0,    0,    0,    0,    0, 1,    0,    2,    0, 0,    0, 0,    0, 1,    0,
        2,                                                  // srcRect, dstRect
        0,    0,                                            // srcCopy
        9,    1,    1,    4,    1, 2,    5,    1,    3, 6,  // one row: R, G, B planes
        0x00, 0xFF};
    ASSERT_EQ(file.size(), 512 + expected.size());
    EXPECT_EQ(std::vector<uint8_t>(file.begin() + 512, file.end()), expected);
}

TEST(PictReader, IndexedBitmapsWithColorTables) {
    std::mt19937 rng(7);
    const int width = 37, height = 4;
    for (int bits : {1, 2, 4, 8}) {
        for (uint32_t op : {0x0098u, 0x0090u, 0x0099u}) {
            const bool device = bits != 4;
            // A table of greys makes a grey picture, a table with one colour in it a colour one.
            const bool greys = op == 0x0090u;
            const int colorCount = 1 << bits;
            std::vector<Rgb> colors;
            std::vector<int> values;
            for (int i = 0; i < colorCount; ++i) {
                const auto r = static_cast<uint8_t>(rng());
                colors.push_back(greys ? Rgb{r, r, r}
                                       : Rgb{r, static_cast<uint8_t>(rng()), static_cast<uint8_t>(rng())});
                values.push_back(i);
            }
            if (!greys) colors.back().g = static_cast<uint8_t>(colors.back().r + 1);
            // A non-device table lists its entries in any order, each naming its pixel value.
            std::shuffle(values.begin(), values.end(), rng);
            const int rowBytes = ((width * bits + 15) / 16) * 2;
            PictBuilder b(2, Rect{0, 0, height, width});
            b.op(op);
            b.u16(0x8000u | static_cast<uint32_t>(rowBytes));
            b.pixMapFields(Rect{0, 0, height, width}, 0, 0, bits, 1, bits);
            b.colorTable(colors, device, values);
            b.rect(Rect{0, 0, height, width});
            b.rect(Rect{0, 0, height, width});
            b.u16(0);
            if (op == 0x0099) {  // mask region: everything but the first row
                b.u16(10);
                b.rect(Rect{1, 0, height, width});
            }
            std::vector<std::vector<int>> pixels(height);
            std::vector<std::vector<uint8_t>> rows;
            for (auto& row : pixels) {
                for (int x = 0; x < width; ++x)
                    row.push_back(x < 10 ? 0 : static_cast<int>(rng() % colorCount));
                rows.push_back(PackIndexedRow(row, bits, rowBytes));
            }
            b.pixData(rows, rowBytes, op != 0x0090 && rowBytes >= 8);
            b.end();

            PictInfo info{};
            const auto argb = Decode(b.data(), &info);
            ASSERT_EQ(info.width, width);
            EXPECT_EQ(info.depth, greys ? 8 : 24) << "bits " << bits << " op " << op;
            for (int y = 0; y < height; ++y) {
                for (int x = 0; x < width; ++x) {
                    const int v = pixels[static_cast<size_t>(y)][static_cast<size_t>(x)];
                    const size_t entry =
                        device ? static_cast<size_t>(v)
                               : static_cast<size_t>(std::find(values.begin(), values.end(), v) -
                                                     values.begin());
                    const Rgb c = colors[entry];
                    const auto expected = (op == 0x0099 && y == 0) ? Argb(255, 255, 255, 255)
                                                                   : Argb(255, c.r, c.g, c.b);
                    ASSERT_EQ(PixelAt(argb, width, x, y), expected)
                        << "bits " << bits << " op " << op;
                }
            }
        }
    }
}

TEST(PictReader, DirectSixteenBitPixels) {
    const int width = 11, height = 3;
    const uint16_t known[] = {0x0000, 0x7FFF, 0x7C00, 0x03E0, 0x001F, 0x4210, 0x8000};
    const uint8_t knownRgb[][3] = {{0, 0, 0},   {255, 255, 255}, {255, 0, 0}, {0, 255, 0},
                                   {0, 0, 255}, {132, 132, 132}, {0, 0, 0}};
    for (int packType : {3, 1, 0}) {
        const int rowBytes = width * 2;
        PictBuilder b(2, Rect{0, 0, height, width});
        b.directOp(0x009A, rowBytes, Rect{0, 0, height, width}, packType, 16, 3,
                   Rect{0, 0, height, width});
        std::vector<std::vector<uint8_t>> rows;
        for (int y = 0; y < height; ++y) {
            std::vector<uint8_t> row;
            for (int x = 0; x < width; ++x) {
                const uint16_t v =
                    x < 7 ? known[x] : static_cast<uint16_t>(y == 1 ? 0x7C00 : 0x001F);
                row.push_back(static_cast<uint8_t>(v >> 8));
                row.push_back(static_cast<uint8_t>(v));
            }
            rows.push_back(row);
        }
        b.pixData(rows, rowBytes, packType != 1, 2);
        b.end();
        PictInfo info{};
        const auto argb = Decode(b.data(), &info);
        EXPECT_EQ(info.depth, 24);
        for (int y = 0; y < height; ++y) {
            for (int x = 0; x < 7; ++x) {
                EXPECT_EQ(PixelAt(argb, width, x, y),
                          Argb(255, knownRgb[x][0], knownRgb[x][1], knownRgb[x][2]));
            }
            EXPECT_EQ(PixelAt(argb, width, 10, y),
                      y == 1 ? Argb(255, 255, 0, 0) : Argb(255, 0, 0, 255));
        }
    }
}

TEST(PictReader, VersionOneMonochromeBitmaps) {
    // 1 bits are black, 0 bits white; version 1 opcodes are single bytes with no alignment.
    const int width = 70, height = 3;
    const int rowBytes = 10;
    std::vector<std::vector<int>> pixels(height);
    std::vector<std::vector<uint8_t>> rows;
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x)
            pixels[static_cast<size_t>(y)].push_back((x * 7 + y) % 3 == 0 || x < 20);
        rows.push_back(PackIndexedRow(pixels[static_cast<size_t>(y)], 1, rowBytes));
    }
    for (uint32_t op : {0x98u, 0x90u}) {
        PictBuilder b(1, Rect{5, 5, 5 + height, 5 + width});
        b.op(0x04);  // text face: one byte of data, which must not be followed by padding
        b.u8(1);
        b.op(0x01);  // clip region
        b.u16(10);
        b.rect(Rect{5, 5, 5 + height, 5 + width});
        b.bitMapOp(op, rowBytes, Rect{0, 0, height, width}, Rect{0, 0, height, width},
                   Rect{5, 5, 5 + height, 5 + width});
        b.pixData(rows, rowBytes, op == 0x98);
        b.end();
        PictInfo info{};
        const auto argb = Decode(b.data(), &info);
        ASSERT_EQ(info.width, width);
        ASSERT_EQ(info.height, height);
        EXPECT_EQ(info.depth, 1);
        for (int y = 0; y < height; ++y) {
            for (int x = 0; x < width; ++x) {
                const uint8_t v = pixels[static_cast<size_t>(y)][static_cast<size_t>(x)] ? 0 : 255;
                ASSERT_EQ(PixelAt(argb, width, x, y), Argb(255, v, v, v)) << x << "," << y;
            }
        }
    }
}

TEST(PictReader, SkipsOtherOpcodesByTheirLengths) {
    const int width = 3, height = 2;
    PictBuilder b(2, Rect{0, 0, height, width});
    b.op(0x001E);  // DefHilite, no data
    b.op(0x0004);  // TxFace: one byte, then a pad byte
    b.u8(1);
    b.op(0x00A1);  // long comment, odd size
    b.u16(100);
    b.u16(5);
    b.fill(5, 0xFF);
    b.op(0x0028);  // long text
    b.u32(0);
    b.u8(3);
    b.fill(3, 0xFF);
    b.op(0x0029);  // DH text
    b.u8(4);
    b.u8(2);
    b.fill(2, 0xFF);
    b.op(0x002C);  // font name: word length
    b.u16(3);
    b.fill(3, 0xFF);
    b.op(0x0070);  // polygon: its size counts itself
    b.u16(14);
    b.fill(12, 0xFF);
    b.op(0x0081);  // paintRgn
    b.u16(12);
    b.fill(10, 0xFF);
    b.op(0x0061);  // paintArc
    b.fill(12, 0xFF);
    b.op(0x0012);  // BkPixPat: a full 8-bit pixel pattern
    b.u16(1);
    b.fill(8, 0xFF);
    b.u16(0x8002);
    b.pixMapFields(Rect{0, 0, 2, 2}, 0, 0, 8, 1, 8);
    b.colorTable({Rgb{1, 2, 3}, Rgb{4, 5, 6}}, true);
    b.fill(4, 1);  // two rows of two bytes, unpacked (rowBytes < 8)
    b.op(0x0013);  // PnPixPat: a dither pattern
    b.u16(2);
    b.fill(8, 0xFF);
    b.fill(6, 0xFF);
    b.op(0x0200);  // reserved: 2 * 2 bytes
    b.fill(4, 0xFF);
    b.op(0x00D5);  // reserved: long length
    b.u32(3);
    b.fill(3, 0xFF);
    b.op(0x8201);  // long length
    b.u32(7);
    b.fill(7, 0xFF);
    b.op(0x8000);  // no data
    b.directOp(0x009A, width * 4, Rect{0, 0, height, width}, 1, 32, 3, Rect{0, 0, height, width});
    b.bytes({0, 10, 20, 30, 0, 40, 50, 60, 0, 70, 80, 90, 9, 1, 2, 3, 9, 4, 5, 6, 9, 7, 8, 9});
    b.end();
    PictInfo info{};
    const auto argb = Decode(b.data(), &info);
    EXPECT_EQ(info.depth, 24);
    EXPECT_EQ(PixelAt(argb, width, 0, 0), Argb(255, 10, 20, 30));
    EXPECT_EQ(PixelAt(argb, width, 2, 0), Argb(255, 70, 80, 90));
    EXPECT_EQ(PixelAt(argb, width, 2, 1), Argb(255, 7, 8, 9));  // pad byte is not alpha
}

TEST(PictReader, BitmapsPaintTheirDestinationsClippedToTheFrame) {
    // Frame with a non-zero origin; one 2x2 bitmap scaled to 4x4 at the top left, one 32-bit
    // bitmap with alpha hanging off the right edge; the rest stays opaque white.
    const Rect frame{10, 20, 18, 30};
    const int width = 10, height = 8;
    PictBuilder b(2, frame);
    b.op(0x0098);
    b.u16(0x8002);
    b.pixMapFields(Rect{0, 0, 2, 2}, 0, 0, 8, 1, 8);
    b.colorTable({Rgb{0, 0, 0}, Rgb{255, 0, 0}, Rgb{0, 255, 0}, Rgb{0, 0, 255}}, true);
    b.rect(Rect{0, 0, 2, 2});
    b.rect(Rect{10, 20, 14, 24});
    b.u16(0);
    b.bytes({0, 1, 2, 3});
    b.directOp(0x009A, 16, Rect{0, 0, 1, 4}, 4, 32, 4, Rect{16, 28, 17, 32});
    b.pixData({{128, 129, 130, 131, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}}, 16, true);
    b.end();
    PictInfo info{};
    const auto argb = Decode(b.data(), &info);
    ASSERT_EQ(info.width, width);
    ASSERT_EQ(info.height, height);
    EXPECT_EQ(info.depth, 32);
    EXPECT_EQ(PixelAt(argb, width, 0, 0), Argb(255, 0, 0, 0));
    EXPECT_EQ(PixelAt(argb, width, 1, 1), Argb(255, 0, 0, 0));
    EXPECT_EQ(PixelAt(argb, width, 3, 0), Argb(255, 255, 0, 0));
    EXPECT_EQ(PixelAt(argb, width, 2, 3), Argb(255, 0, 0, 255));
    EXPECT_EQ(PixelAt(argb, width, 1, 2), Argb(255, 0, 255, 0));
    EXPECT_EQ(PixelAt(argb, width, 4, 0), Argb(255, 255, 255, 255));
    EXPECT_EQ(PixelAt(argb, width, 8, 6), Argb(128, 1, 5, 9));
    EXPECT_EQ(PixelAt(argb, width, 9, 6), Argb(129, 2, 6, 10));
    EXPECT_EQ(PixelAt(argb, width, 7, 6), Argb(255, 255, 255, 255));
    EXPECT_EQ(PixelAt(argb, width, 8, 7), Argb(255, 255, 255, 255));
}

TEST(PictReader, ExtendedHeaderSourceRectangleSetsTheCanvas) {
    // A 144-dpi picture: frame at 72 dpi, drawing in the header's source rectangle.
    const Rect src{0, 0, 4, 6};
    PictBuilder b(2, Rect{0, 0, 2, 3}, &src);
    b.bitMapOp(0x0098, 8, Rect{0, 0, 4, 6}, Rect{0, 0, 4, 6}, Rect{0, 0, 4, 6});
    b.pixData({{0xFC, 0, 0, 0, 0, 0, 0, 0},
               {0, 0, 0, 0, 0, 0, 0, 0},
               {0, 0, 0, 0, 0, 0, 0, 0},
               {0x04, 0, 0, 0, 0, 0, 0, 0}},
              8, true);
    b.end();
    PictInfo info{};
    const auto argb = Decode(b.data(), &info);
    ASSERT_EQ(info.width, 6);
    ASSERT_EQ(info.height, 4);
    EXPECT_EQ(PixelAt(argb, 6, 5, 0), Argb(255, 0, 0, 0));
    EXPECT_EQ(PixelAt(argb, 6, 5, 3), Argb(255, 0, 0, 0));
    EXPECT_EQ(PixelAt(argb, 6, 4, 3), Argb(255, 255, 255, 255));
}

TEST(PictReader, ReportsBadPictures) {
    PictInfo info{};
    std::vector<uint8_t> argb;
    // Not a picture: wrong version opcode.
    PictBuilder good(2, Rect{0, 0, 1, 8});
    good.bitMapOp(0x0090, 2, Rect{0, 0, 1, 8}, Rect{0, 0, 1, 8}, Rect{0, 0, 1, 8});
    good.u16(0xFF00);
    good.end();
    std::vector<uint8_t> data = good.data();
    ASSERT_EQ(DecodePict(data.data(), data.size(), &argb, &info), PictStatus::Ok);
    EXPECT_EQ(info.depth, 1);
    EXPECT_EQ(PixelAt(argb, 8, 0, 0), Argb(255, 0, 0, 0));
    data[13] = 0x01;
    EXPECT_EQ(DecodePict(data.data(), data.size(), &argb, &info), PictStatus::Corrupt);
    EXPECT_TRUE(argb.empty());

    // The data ends before the end opcode: what was drawn is still handed out.
    data = good.data();
    data.resize(data.size() - 2);
    EXPECT_EQ(DecodePict(data.data(), data.size(), &argb, &info), PictStatus::Truncated);
    EXPECT_EQ(argb.size(), 32u);
    EXPECT_EQ(ReadPictInfo(data.data(), data.size(), &info), PictStatus::Truncated);

    // A frame beyond the limits.
    PictBuilder huge(2, Rect{0, 0, 32767, 32767});
    huge.bitMapOp(0x0090, 2, Rect{0, 0, 1, 8}, Rect{0, 0, 1, 8}, Rect{0, 0, 1, 8});
    huge.u16(0);
    huge.end();
    EXPECT_EQ(DecodePict(huge.data().data(), huge.data().size(), &argb, &info),
              PictStatus::TooLarge);

    // No bitmap at all: nothing we could draw.
    PictBuilder empty(2, Rect{0, 0, 4, 4});
    empty.op(0x0031);
    empty.rect(Rect{0, 0, 4, 4});
    empty.end();
    EXPECT_EQ(ReadPictInfo(empty.data().data(), empty.data().size(), &info),
              PictStatus::Unsupported);

    // Row length too short for the bounds.
    PictBuilder shortRows(2, Rect{0, 0, 1, 40});
    shortRows.bitMapOp(0x0090, 2, Rect{0, 0, 1, 40}, Rect{0, 0, 1, 40}, Rect{0, 0, 1, 40});
    shortRows.u16(0);
    shortRows.end();
    EXPECT_EQ(DecodePict(shortRows.data().data(), shortRows.data().size(), &argb, &info),
              PictStatus::Corrupt);

    EXPECT_EQ(DecodePict(nullptr, 0, &argb, &info), PictStatus::Truncated);
}
