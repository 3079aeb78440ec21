#include "packaging/icon_render/svg_icon_render.h"

#include <gtest/gtest.h>

#include <QColor>

namespace {

QByteArray filledDrawing(int width, int height) {
    return QStringLiteral(R"(<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 %1 %2">)"
                          R"(<rect width="%1" height="%2" fill="#ff0000"/></svg>)")
        .arg(width)
        .arg(height)
        .toUtf8();
}

bool isOpaqueRed(const QImage& image, int x, int y) {
    const QColor pixel = image.pixelColor(x, y);
    return pixel.alpha() == 255 && pixel.red() == 255 && pixel.green() == 0 && pixel.blue() == 0;
}

bool isClear(const QImage& image, int x, int y) {
    return image.pixelColor(x, y).alpha() == 0;
}

TEST(SvgIconRender, SquareDrawingFillsTheWholeImage) {
    const std::optional<QImage> image = RenderSvgIcon(filledDrawing(10, 10), 48);
    ASSERT_TRUE(image);
    EXPECT_EQ(image->size(), QSize(48, 48));
    EXPECT_TRUE(isOpaqueRed(*image, 0, 0));
    EXPECT_TRUE(isOpaqueRed(*image, 47, 47));
}

TEST(SvgIconRender, WideDrawingKeepsItsProportionsAndIsCentred) {
    // 20 x 10 in 64 x 64: 64 x 32, with 16 transparent rows above and below.
    const std::optional<QImage> image = RenderSvgIcon(filledDrawing(20, 10), 64);
    ASSERT_TRUE(image);
    EXPECT_EQ(image->size(), QSize(64, 64));
    EXPECT_TRUE(isClear(*image, 32, 15));
    EXPECT_TRUE(isOpaqueRed(*image, 0, 16));
    EXPECT_TRUE(isOpaqueRed(*image, 63, 47));
    EXPECT_TRUE(isClear(*image, 32, 48));
}

TEST(SvgIconRender, TallDrawingIsCentredSideways) {
    const std::optional<QImage> image = RenderSvgIcon(filledDrawing(10, 20), 64);
    ASSERT_TRUE(image);
    EXPECT_TRUE(isClear(*image, 15, 32));
    EXPECT_TRUE(isOpaqueRed(*image, 16, 0));
    EXPECT_TRUE(isOpaqueRed(*image, 47, 63));
    EXPECT_TRUE(isClear(*image, 48, 32));
}

TEST(SvgIconRender, BackgroundStaysTransparent) {
    const QByteArray dot = R"(<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 10 10">)"
                           R"(<circle cx="5" cy="5" r="2" fill="#ff0000"/></svg>)";
    const std::optional<QImage> image = RenderSvgIcon(dot, 64);
    ASSERT_TRUE(image);
    EXPECT_TRUE(image->hasAlphaChannel());
    EXPECT_TRUE(isClear(*image, 0, 0));
    EXPECT_TRUE(isOpaqueRed(*image, 32, 32));
}

TEST(SvgIconRender, SizeLimits) {
    const QByteArray drawing = filledDrawing(10, 10);
    EXPECT_FALSE(RenderSvgIcon(drawing, 0));
    EXPECT_FALSE(RenderSvgIcon(drawing, -48));
    EXPECT_FALSE(RenderSvgIcon(drawing, kLargestIconSize + 1));
    const std::optional<QImage> smallest = RenderSvgIcon(drawing, 1);
    ASSERT_TRUE(smallest);
    EXPECT_EQ(smallest->size(), QSize(1, 1));
    const std::optional<QImage> largest = RenderSvgIcon(drawing, kLargestIconSize);
    ASSERT_TRUE(largest);
    EXPECT_EQ(largest->width(), kLargestIconSize);
}

TEST(SvgIconRender, RefusesWhatIsNotADrawing) {
    EXPECT_FALSE(RenderSvgIcon(QByteArray(), 48));
    EXPECT_FALSE(RenderSvgIcon("\x89PNG\r\n\x1a\n", 48));
    EXPECT_FALSE(RenderSvgIcon("<svg xmlns=\"http://www.w3.org/2000/svg\"", 48));
    // Well-formed, but nothing to scale: no view box and no size.
    EXPECT_FALSE(RenderSvgIcon(R"(<svg xmlns="http://www.w3.org/2000/svg"/>)", 48));
}

}  // namespace
