// Screen pictures into the video's YUV 4:2:0 frames, per 1080p picture: our
// own loop for a picture the video's size (what nearly every frame is), and
// libswscale, which does the rest (a window fitted in), for comparison.

#include "video/yuvframe.h"

#include <benchmark/benchmark.h>

extern "C" {
#include <libswscale/swscale.h>
}

#include <random>
#include <vector>

namespace {

using namespace sorv;

const QSize kPicture(1920, 1080);

std::vector<std::uint8_t> screen()
{
    // A desktop is mostly flat areas and text; noise is the worst case.
    std::vector<std::uint8_t> pixels(std::size_t(kPicture.width()) * kPicture.height() * 4);
    std::mt19937 rng(7);
    for (auto& p : pixels)
        p = std::uint8_t(rng());
    return pixels;
}

void convert(benchmark::State& state, QSize videoSize)
{
    const auto pixels = screen();
    const Yuv420Layout layout = Yuv420Layout::forSize(videoSize);
    std::vector<std::uint8_t> frame(layout.bytes);
    RgbToYuv converter;
    QString error;
    for (auto _ : state)
        converter.convert(pixels.data(), kPicture, kPicture.width() * 4, RgbToYuv::Order::Bgr0,
                          layout.planes(frame.data()), layout.linesize,
                          QRect(QPoint(0, 0), videoSize), &error);
}

void BM_Unscaled(benchmark::State& state)
{
    convert(state, kPicture);
}
BENCHMARK(BM_Unscaled)->Unit(benchmark::kMillisecond);

void BM_ScaledTo720p(benchmark::State& state)
{
    convert(state, QSize(1280, 720));
}
BENCHMARK(BM_ScaledTo720p)->Unit(benchmark::kMillisecond);

// libswscale on the unscaled picture, set up as RgbToYuv sets it up for the
// scaled ones.
void BM_SwscaleUnscaled(benchmark::State& state)
{
    const auto pixels = screen();
    const Yuv420Layout layout = Yuv420Layout::forSize(kPicture);
    std::vector<std::uint8_t> frame(layout.bytes);
    SwsContext* sws = sws_getContext(kPicture.width(), kPicture.height(), AV_PIX_FMT_BGR0,
                                     kPicture.width(), kPicture.height(), AV_PIX_FMT_YUV420P,
                                     SWS_BILINEAR, nullptr, nullptr, nullptr);
    const int* bt709 = sws_getCoefficients(SWS_CS_ITU709);
    sws_setColorspaceDetails(sws, bt709, 1, bt709, 0, 0, 1 << 16, 1 << 16);
    const std::uint8_t* const in[1] = {pixels.data()};
    const int inStride[1] = {kPicture.width() * 4};
    const auto planes = layout.planes(frame.data());
    for (auto _ : state)
        sws_scale(sws, in, inStride, 0, kPicture.height(), planes.data(), layout.linesize.data());
    sws_freeContext(sws);
}
BENCHMARK(BM_SwscaleUnscaled)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
