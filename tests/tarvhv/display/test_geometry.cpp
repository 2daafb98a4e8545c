#include "tarvhv/display/pointerinput.h"
#include "tarvhv/display/viewgeometry.h"

#include <gtest/gtest.h>

namespace {

TEST(PicturePlacement, showsAPictureOfTheViewsSizePixelForPixel)
{
    for (const qreal ratio : {1.0, 1.25, 1.5, 2.0}) {
        const QSizeF view(1000, 601);
        const QSize guest = device_rect(QRectF(QPointF(), view), ratio).size();
        const PicturePlacement place(guest, view, ratio);
        EXPECT_TRUE(place.isExact());
        EXPECT_EQ(place.target(), QRect(QPoint(), guest));
        EXPECT_EQ(place.toDevice(QRect(5, 6, 7, 8)), QRect(5, 6, 7, 8));
        EXPECT_EQ(place.toGuest({0, 0}), QPoint(0, 0));
        EXPECT_EQ(place.toGuest({5000, 5000}), QPoint(guest.width() - 1, guest.height() - 1));
    }
}

TEST(PicturePlacement, letterboxesAndKeepsTheAspectRatio)
{
    const PicturePlacement wide(QSize(1024, 768), QSizeF(1600, 768), 1);
    EXPECT_EQ(wide.target(), QRect(288, 0, 1024, 768));
    EXPECT_TRUE(wide.isExact());
    const PicturePlacement half(QSize(1024, 768), QSizeF(512, 400), 1);
    EXPECT_EQ(half.target(), QRect(0, 8, 512, 384));
    EXPECT_TRUE(half.isSmooth());
    EXPECT_EQ(half.toGuest({256, 200}), QPoint(512, 384));
    EXPECT_EQ(half.toGuest({10, 0}), QPoint(20, 0));
    EXPECT_FALSE(PicturePlacement(QSize(512, 384), QSizeF(1024, 768), 1).isSmooth());
    EXPECT_TRUE(PicturePlacement(QSize(), QSizeF(10, 10), 1).target().isEmpty());
    EXPECT_TRUE(PicturePlacement(QSize(10, 10), QSizeF(), 1).target().isEmpty());
}

TEST(PicturePlacement, repaintsAllPixelsThatDamageReachesAndFewMore)
{
    const PicturePlacement place(QSize(1920, 1080), QSizeF(1000, 700), 1.5);
    for (const QRect &guest :
         {QRect(0, 0, 1, 1), QRect(1919, 1079, 1, 1), QRect(700, 333, 50, 9)}) {
        const QRect device = place.toDevice(guest);
        const qreal scale = qreal(place.target().width()) / 1920;
        const QRectF exact(place.target().x() + guest.x() * scale,
                           place.target().y() + guest.y() * scale, guest.width() * scale,
                           guest.height() * scale);
        EXPECT_TRUE(QRectF(device).contains(exact));
        EXPECT_LE(device.width(), exact.width() + 4);
        EXPECT_TRUE(QRectF(place.toLogical(device))
                        .contains(QRectF(device.x() / 1.5, device.y() / 1.5, device.width() / 1.5,
                                         device.height() / 1.5)));
    }
}

TEST(PointerInput, leavesTheWheelsButtonsOut)
{
    EXPECT_EQ(pointer_buttons(Qt::LeftButton | Qt::BackButton | Qt::ExtraButton3), 0x21u);
    EXPECT_EQ(pointer_buttons(Qt::MiddleButton | Qt::RightButton | Qt::ForwardButton), 0x46u);
}

TEST(PointerInput, keepsFractionsOfMotionAndWheel)
{
    PointerInput input;
    EXPECT_EQ(input.motion({1, -1}, 1.5), QPoint(1, -1));
    EXPECT_EQ(input.motion({1, -1}, 1.5), QPoint(2, -2));
    QPoint steps;
    for (int i = 0; i < 16; i++)
        steps += input.wheel({0, 15});
    EXPECT_EQ(steps, QPoint(0, -2)) << "two notches up";
    EXPECT_EQ(input.wheel({-120, -240}), QPoint(1, 2));
}

} // namespace
