#pragma once

#include <QRect>
#include <QSize>
#include <QString>

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>

struct SwsContext;

namespace sorv {

// A video frame of 8-bit YUV 4:2:0 (BT.709, limited range) in one block of
// memory: the luma plane, then blue and red chroma at half the size each
// way. Rows and planes start on 64-byte boundaries, as the scaler's and the
// encoder's vector code like them.
struct Yuv420Layout {
    QSize size;
    std::array<int, 3> linesize{};
    std::array<std::size_t, 3> offset{};
    std::size_t bytes = 0;

    static Yuv420Layout forSize(QSize size);
    std::array<std::uint8_t*, 3> planes(std::uint8_t* frame) const;
};

// Paints `size` of the three planes black (Y 16, Cb and Cr 128).
void fillBlack(const std::array<std::uint8_t*, 3>& planes, const std::array<int, 3>& linesize,
               QSize size);

// Converts 32-bit RGB screen pictures (full range) into a YUV 4:2:0 frame,
// scaled into a rectangle of it: by its own loop when the rectangle is the
// picture's size, else by FFmpeg's scaler, kept between calls (one converter
// per thread; a new set-up only when sizes or formats change).
class RgbToYuv {
public:
    enum class Order { Bgr0, Rgb0 }; // the colours' order in memory

    RgbToYuv();
    ~RgbToYuv();
    RgbToYuv(const RgbToYuv&) = delete;
    RgbToYuv& operator=(const RgbToYuv&) = delete;

    // `picture`: `size` pixels, `stride` bytes a row. `destination` lies
    // inside the frame whose planes are given; what is outside it is not
    // touched.
    bool convert(const std::uint8_t* picture, QSize size, int stride, Order order,
                 const std::array<std::uint8_t*, 3>& planes, const std::array<int, 3>& linesize,
                 QRect destination, QString* error);

private:
    struct SwsDeleter {
        void operator()(SwsContext* s) const;
    };
    std::unique_ptr<SwsContext, SwsDeleter> m_sws;
};

} // namespace sorv
