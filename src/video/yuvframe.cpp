#include "yuvframe.h"

#include <cstring>

extern "C" {
#include <libswscale/swscale.h>
}

namespace sorv {

namespace {
constexpr int kAlign = 64;

constexpr std::size_t aligned(std::size_t n)
{
    return (n + kAlign - 1) / kAlign * kAlign;
}
} // namespace

Yuv420Layout Yuv420Layout::forSize(QSize size)
{
    Yuv420Layout l;
    if (size.isEmpty())
        return l;
    l.size = size;
    const int chromaWidth = (size.width() + 1) / 2;
    const int chromaHeight = (size.height() + 1) / 2;
    l.linesize = {int(aligned(std::size_t(size.width()))), int(aligned(std::size_t(chromaWidth))),
                  int(aligned(std::size_t(chromaWidth)))};
    const std::size_t luma = std::size_t(l.linesize[0]) * std::size_t(size.height());
    const std::size_t chroma = std::size_t(l.linesize[1]) * std::size_t(chromaHeight);
    l.offset = {0, aligned(luma), aligned(luma) + aligned(chroma)};
    l.bytes = l.offset[2] + aligned(chroma);
    return l;
}

std::array<std::uint8_t*, 3> Yuv420Layout::planes(std::uint8_t* frame) const
{
    return {frame + offset[0], frame + offset[1], frame + offset[2]};
}

void fillBlack(const std::array<std::uint8_t*, 3>& planes, const std::array<int, 3>& linesize,
               QSize size)
{
    for (int y = 0; y < size.height(); ++y)
        std::memset(planes[0] + std::ptrdiff_t(y) * linesize[0], 16, std::size_t(size.width()));
    for (std::size_t p = 1; p < 3; ++p)
        for (int y = 0; y < (size.height() + 1) / 2; ++y)
            std::memset(planes[p] + std::ptrdiff_t(y) * linesize[p], 128,
                        std::size_t((size.width() + 1) / 2));
}

void RgbToYuv::SwsDeleter::operator()(SwsContext* s) const
{
    sws_freeContext(s);
}

RgbToYuv::RgbToYuv() = default;
RgbToYuv::~RgbToYuv() = default;

bool RgbToYuv::convert(const std::uint8_t* picture, QSize size, int stride, Order order,
                       const std::array<std::uint8_t*, 3>& planes,
                       const std::array<int, 3>& linesize, QRect destination, QString* error)
{
    m_sws.reset(sws_getCachedContext(m_sws.release(), size.width(), size.height(),
                                     order == Order::Bgr0 ? AV_PIX_FMT_BGR0 : AV_PIX_FMT_RGB0,
                                     destination.width(), destination.height(), AV_PIX_FMT_YUV420P,
                                     SWS_BILINEAR, nullptr, nullptr, nullptr));
    if (!m_sws) {
        if (error)
            *error = QStringLiteral("cannot convert %1×%2 pictures")
                         .arg(size.width())
                         .arg(size.height());
        return false;
    }
    // The screen is full-range RGB; the video is BT.709 limited range.
    const int* bt709 = sws_getCoefficients(SWS_CS_ITU709);
    int* inv = nullptr;
    int* table = nullptr;
    int srcRange = 0;
    int dstRange = 0;
    int brightness = 0;
    int contrast = 0;
    int saturation = 0;
    if (sws_getColorspaceDetails(m_sws.get(), &inv, &srcRange, &table, &dstRange, &brightness,
                                 &contrast, &saturation) >= 0 &&
        table != bt709)
        sws_setColorspaceDetails(m_sws.get(), bt709, 1, bt709, 0, brightness, contrast, saturation);
    const int x = destination.x();
    const int y = destination.y();
    std::uint8_t* const out[3] = {
        planes[0] + std::ptrdiff_t(y) * linesize[0] + x,
        planes[1] + std::ptrdiff_t(y / 2) * linesize[1] + x / 2,
        planes[2] + std::ptrdiff_t(y / 2) * linesize[2] + x / 2,
    };
    const std::uint8_t* const in[1] = {picture};
    const int inStride[1] = {stride};
    sws_scale(m_sws.get(), in, inStride, 0, size.height(), out, linesize.data());
    return true;
}

} // namespace sorv
