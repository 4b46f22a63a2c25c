#include "mp4writer.h"

#include "core/monotonicclock.h"
#include "video/videolog.h"
#include "video/yuvframe.h"

#include <QFile>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libavutil/imgutils.h>
#include <libavutil/opt.h>
#include <libswresample/swresample.h>
}

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstring>
#include <mutex>
#include <optional>

namespace sorv {

namespace {

// x264 speed. The recording runs beside the call it records, on machines
// with as few as two cores, so the encoder must leave most of the CPU to the
// call: "superfast" is the fastest preset that still codes High profile
// (ultrafast drops the 8×8 transform and CABAC, which makes the stream
// Constrained Baseline), and "zerolatency" turns off frame threads, B-frames
// and the lookahead — about a third less CPU again at 1080p30, no frames held
// inside the encoder (so a kill loses less and memory stays flat), at a small
// cost in compression that 4 Mbit/s absorbs for screen content.
// Figures: bench/video_cpu.sh and the README.
constexpr const char* kVideoPreset = "superfast";
constexpr const char* kVideoTune = "zerolatency";

constexpr AVRational kVideoTimeBase{1, 90000};

struct FormatContextDeleter {
    void operator()(AVFormatContext* f) const
    {
        if (f->pb && !(f->oformat && (f->oformat->flags & AVFMT_NOFILE)))
            avio_closep(&f->pb);
        avformat_free_context(f);
    }
};
struct InputContextDeleter {
    void operator()(AVFormatContext* f) const { avformat_close_input(&f); }
};
struct CodecContextDeleter {
    void operator()(AVCodecContext* c) const { avcodec_free_context(&c); }
};
struct FrameDeleter {
    void operator()(AVFrame* f) const { av_frame_free(&f); }
};
struct PacketDeleter {
    void operator()(AVPacket* p) const { av_packet_free(&p); }
};
struct SwrDeleter {
    void operator()(SwrContext* s) const { swr_free(&s); }
};
struct DictionaryDeleter {
    void operator()(AVDictionary* d) const { av_dict_free(&d); }
};

using FormatContext = std::unique_ptr<AVFormatContext, FormatContextDeleter>;
using InputContext = std::unique_ptr<AVFormatContext, InputContextDeleter>;
using CodecContext = std::unique_ptr<AVCodecContext, CodecContextDeleter>;
using Frame = std::unique_ptr<AVFrame, FrameDeleter>;
using Packet = std::unique_ptr<AVPacket, PacketDeleter>;

// An AVDictionary* owned for the length of a call that may consume entries.
class Options {
public:
    ~Options() { av_dict_free(&m_dict); }
    void set(const char* key, const char* value) { av_dict_set(&m_dict, key, value, 0); }
    void set(const char* key, std::int64_t value) { av_dict_set_int(&m_dict, key, value, 0); }
    AVDictionary** get() { return &m_dict; }

private:
    AVDictionary* m_dict = nullptr;
};

QByteArray encodedPath(const QString& path)
{
    return QFile::encodeName(path);
}

std::array<std::uint8_t*, 3> planesOf(const AVFrame* f)
{
    return {f->data[0], f->data[1], f->data[2]};
}

std::array<int, 3> linesizesOf(const AVFrame* f)
{
    return {f->linesize[0], f->linesize[1], f->linesize[2]};
}

} // namespace

namespace {

// FFmpeg's own messages go to our log category: warnings and errors only
// (its informational lines, e.g. libx264's statistics, are not for users).
void forwardFfmpegLog(void* avcl, int level, const char* format, va_list args)
{
    if (level > AV_LOG_WARNING)
        return;
    char line[1024];
    int prefix = 1;
    av_log_format_line2(avcl, level, format, args, line, sizeof line, &prefix);
    QString text = QString::fromLocal8Bit(line).trimmed();
    if (text.isEmpty())
        return;
    if (level <= AV_LOG_ERROR)
        qCWarning(lcVideo, "FFmpeg: %s", qPrintable(text));
    else
        qCInfo(lcVideo, "FFmpeg: %s", qPrintable(text));
}

void routeFfmpegLog()
{
    static std::once_flag once;
    std::call_once(once, [] { av_log_set_callback(forwardFfmpegLog); });
}

} // namespace

QString ffmpegErrorText(int code)
{
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, text, sizeof text);
    return QString::fromLocal8Bit(text);
}

struct Mp4Writer::Impl {
    FormatContext format;
    CodecContext video;
    CodecContext audio;
    AVStream* videoStream = nullptr;
    AVStream* audioStream = nullptr;
    Frame videoFrame;
    Frame lentFrame; // a caller's YUV frame, read where it lies (writeVideoYuv)
    Frame audioFrame;
    Packet packet;
    RgbToYuv converter;
    std::unique_ptr<SwrContext, SwrDeleter> swr;
    Settings settings;

    std::int64_t lastVideoPts = AV_NOPTS_VALUE;
    QRect lastDestination;
    bool audioStarted = false;
    // Resampled samples waiting to fill an AAC frame, and the output-rate
    // position of the first of them.
    std::vector<float> pending;
    std::int64_t pendingPts = 0;
    std::int64_t skipResampled = 0; // resampled samples still to leave out (see writeAudio)
    std::vector<float> resampled;
    bool finished = false;

    bool drain(AVCodecContext* codec, AVStream* stream, Statistics& stats, QString* error);
    bool encodeAudioFrames(bool flush, Statistics& stats, QString* error);
    // The stream's pts for a picture at `ptsNs`; none when it is not later
    // than the last one written (such a picture is skipped).
    std::optional<std::int64_t> nextVideoPts(std::int64_t ptsNs) const
    {
        const std::int64_t pts = av_rescale(ptsNs, kVideoTimeBase.den, kNsPerSecond);
        if (lastVideoPts != AV_NOPTS_VALUE && pts <= lastVideoPts)
            return std::nullopt;
        return pts;
    }
    bool encodeVideo(AVFrame* frame, std::int64_t pts, Statistics& stats, QString* error);
    void fillBlack();
};

Mp4Writer::Mp4Writer() = default;

Mp4Writer::~Mp4Writer()
{
    cancel();
}

Mp4Writer::Settings Mp4Writer::defaultSettings(QSize videoSize)
{
    Settings s;
    s.videoSize = videoSize;
    s.preset = QString::fromLatin1(kVideoPreset);
    s.tune = QString::fromLatin1(kVideoTune);
    return s;
}

bool Mp4Writer::isOpen() const
{
    return d && !d->finished;
}

bool Mp4Writer::open(const QString& path, const Settings& settings, QString* error)
{
    routeFfmpegLog();
    cancel();
    auto impl = std::make_unique<Impl>();
    impl->settings = settings;
    const auto fail = [&](const QString& message) {
        if (error)
            *error = message;
        return false;
    };
    AVFormatContext* format = nullptr;
    const QByteArray file = encodedPath(path);
    int rc = avformat_alloc_output_context2(&format, nullptr, "mp4", file.constData());
    if (rc < 0 || !format)
        return fail(ffmpegErrorText(rc));
    impl->format.reset(format);

    // Video: libx264, High profile, average bit rate, key frame every 60.
    const AVCodec* h264 = avcodec_find_encoder_by_name("libx264");
    if (h264) {
        impl->video.reset(avcodec_alloc_context3(h264));
        AVCodecContext* v = impl->video.get();
        v->width = settings.videoSize.width();
        v->height = settings.videoSize.height();
        v->pix_fmt = AV_PIX_FMT_YUV420P;
        v->time_base = kVideoTimeBase;
        v->framerate = AVRational{settings.frameRate, 1};
        v->bit_rate = settings.videoBitRate;
        v->gop_size = settings.keyFrameInterval;
        v->color_range = AVCOL_RANGE_MPEG;
        v->colorspace = AVCOL_SPC_BT709;
        v->color_primaries = AVCOL_PRI_BT709;
        v->color_trc = AVCOL_TRC_BT709;
        if (impl->format->oformat->flags & AVFMT_GLOBALHEADER)
            v->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
        Options o;
        o.set("preset", settings.preset.toLatin1().constData());
        if (!settings.tune.isEmpty())
            o.set("tune", settings.tune.toLatin1().constData());
        o.set("profile", "high");
        rc = avcodec_open2(v, h264, o.get());
        if (rc < 0)
            qCWarning(lcVideo, "libx264 refused its settings: %s", qPrintable(ffmpegErrorText(rc)));
    }
    if (!h264 || rc < 0 || !(impl->videoStream = avformat_new_stream(format, nullptr)) ||
        avcodec_parameters_from_context(impl->videoStream->codecpar, impl->video.get()) < 0)
        return fail(QStringLiteral("writer rejected video input"));
    impl->videoStream->time_base = kVideoTimeBase;

    // Audio: FFmpeg's own AAC encoder, mono, 44.1 kHz, 128 kbit/s.
    const AVCodec* aac = avcodec_find_encoder(AV_CODEC_ID_AAC);
    if (aac) {
        impl->audio.reset(avcodec_alloc_context3(aac));
        AVCodecContext* a = impl->audio.get();
        a->sample_fmt = AV_SAMPLE_FMT_FLTP;
        a->sample_rate = settings.audioSampleRate;
        av_channel_layout_default(&a->ch_layout, 1);
        a->bit_rate = settings.audioBitRate;
        a->time_base = AVRational{1, settings.audioSampleRate};
        if (impl->format->oformat->flags & AVFMT_GLOBALHEADER)
            a->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
        rc = avcodec_open2(a, aac, nullptr);
        if (rc < 0)
            qCWarning(lcVideo, "AAC encoder refused its settings: %s",
                      qPrintable(ffmpegErrorText(rc)));
    }
    if (!aac || rc < 0 || !(impl->audioStream = avformat_new_stream(format, nullptr)) ||
        avcodec_parameters_from_context(impl->audioStream->codecpar, impl->audio.get()) < 0)
        return fail(QStringLiteral("writer rejected audio input"));
    impl->audioStream->time_base = impl->audio->time_base;

    // 48 kHz float from the mixer → 44.1 kHz planar float for AAC. Timestamps
    // that drift from the sample count by more than 20 ms are followed by
    // stretching (at most 0.5 %, over a second) — the audio clock and
    // CLOCK_MONOTONIC are not the same clock; a jump of more than 80 ms (a
    // buffer lost, the microphone restarted) by filling or trimming at once.
    AVChannelLayout mono;
    av_channel_layout_default(&mono, 1);
    SwrContext* swr = nullptr;
    rc = swr_alloc_set_opts2(&swr, &mono, AV_SAMPLE_FMT_FLTP, settings.audioSampleRate, &mono,
                             AV_SAMPLE_FMT_FLT, settings.inputSampleRate, 0, nullptr);
    impl->swr.reset(swr);
    if (rc >= 0) {
        av_opt_set_double(swr, "min_comp", 0.02, 0);
        av_opt_set_double(swr, "min_hard_comp", 0.08, 0);
        av_opt_set_double(swr, "max_soft_comp", 0.005, 0);
        av_opt_set_double(swr, "comp_duration", 1.0, 0);
        rc = swr_init(swr);
    }
    if (rc < 0)
        return fail(QStringLiteral("writer rejected audio input"));

    rc = avio_open(&impl->format->pb, file.constData(), AVIO_FLAG_WRITE);
    if (rc < 0)
        return fail(ffmpegErrorText(rc));
    Options muxer;
    // Fragments: a moof+mdat at every key frame and at least twice a second
    // (what a kill can lose; each costs about 0.5 KiB).
    muxer.set("movflags", "+frag_keyframe+empty_moov+default_base_moof");
    muxer.set("frag_duration", std::int64_t{500'000});
    // Each fragment goes to the file as soon as it is complete, not when
    // FFmpeg's 32 KiB write buffer happens to fill.
    muxer.set("flush_packets", std::int64_t{1});
    // The interleaver holds packets until every stream has some; without
    // audio for a while (none forwarded, the engine restarting) the picture
    // must still reach the file, not wait the default 10 s in memory.
    format->max_interleave_delta = 500'000;
    rc = avformat_write_header(format, muxer.get());
    if (rc < 0)
        return fail(ffmpegErrorText(rc));
    avio_flush(format->pb); // the header (and its empty moov) on disk at once

    impl->videoFrame.reset(av_frame_alloc());
    impl->videoFrame->format = AV_PIX_FMT_YUV420P;
    impl->videoFrame->width = settings.videoSize.width();
    impl->videoFrame->height = settings.videoSize.height();
    impl->lentFrame.reset(av_frame_alloc());
    impl->audioFrame.reset(av_frame_alloc());
    impl->audioFrame->format = AV_SAMPLE_FMT_FLTP;
    impl->audioFrame->sample_rate = settings.audioSampleRate;
    av_channel_layout_default(&impl->audioFrame->ch_layout, 1);
    impl->audioFrame->nb_samples = impl->audio->frame_size;
    impl->packet.reset(av_packet_alloc());
    if (!impl->lentFrame || av_frame_get_buffer(impl->videoFrame.get(), 0) < 0 ||
        av_frame_get_buffer(impl->audioFrame.get(), 0) < 0 || !impl->packet)
        return fail(QStringLiteral("out of memory"));
    impl->fillBlack();

    d = std::move(impl);
    m_stats = {};
    return true;
}

void Mp4Writer::Impl::fillBlack()
{
    AVFrame* f = videoFrame.get();
    sorv::fillBlack(planesOf(f), linesizesOf(f), QSize(f->width, f->height));
}

bool Mp4Writer::Impl::drain(AVCodecContext* codec, AVStream* stream, Statistics& stats,
                            QString* error)
{
    for (;;) {
        int rc = avcodec_receive_packet(codec, packet.get());
        if (rc == AVERROR(EAGAIN) || rc == AVERROR_EOF)
            return true;
        if (rc < 0) {
            if (error)
                *error = ffmpegErrorText(rc);
            return false;
        }
        // A variable frame rate leaves a video packet's duration open until the
        // next one; the nominal frame time stands in (the last packet of a
        // fragment, the last of the file).
        if (packet->duration == 0 && stream == videoStream)
            packet->duration = av_rescale_q(1, AVRational{1, settings.frameRate}, codec->time_base);
        av_packet_rescale_ts(packet.get(), codec->time_base, stream->time_base);
        packet->stream_index = stream->index;
        (stream == videoStream ? stats.videoPackets : stats.audioPackets)++;
        rc = av_interleaved_write_frame(format.get(), packet.get());
        if (rc < 0) {
            if (error)
                *error = ffmpegErrorText(rc);
            return false;
        }
    }
}

bool Mp4Writer::writeVideo(const std::uint8_t* bgr0, QSize size, int stride, QRect destination,
                           std::int64_t ptsNs, QString* error)
{
    if (!isOpen())
        return false;
    Impl& w = *d;
    const std::optional<std::int64_t> pts = w.nextVideoPts(ptsNs);
    if (!pts)
        return true;
    AVFrame* f = w.videoFrame.get();
    int rc = av_frame_make_writable(f);
    if (rc < 0) {
        if (error)
            *error = ffmpegErrorText(rc);
        return false;
    }
    const QRect full(QPoint(0, 0), w.settings.videoSize);
    destination = destination.intersected(full);
    if (destination != full && destination != w.lastDestination)
        w.fillBlack();
    w.lastDestination = destination;
    if (bgr0 && !size.isEmpty() && !destination.isEmpty()) {
        if (!w.converter.convert(bgr0, size, stride, RgbToYuv::Order::Bgr0, planesOf(f),
                                 linesizesOf(f), destination, error))
            return false;
    } else if (destination.isEmpty() && w.lastDestination.isEmpty()) {
        w.fillBlack();
    }
    return w.encodeVideo(f, *pts, m_stats, error);
}

bool Mp4Writer::writeVideoYuv(const std::uint8_t* frame, const Yuv420Layout& layout,
                              std::int64_t ptsNs, QString* error)
{
    if (!isOpen())
        return false;
    Impl& w = *d;
    if (layout.size != w.settings.videoSize || !frame) {
        if (error)
            *error = QStringLiteral("a %1×%2 frame for a %3×%4 video")
                         .arg(layout.size.width())
                         .arg(layout.size.height())
                         .arg(w.settings.videoSize.width())
                         .arg(w.settings.videoSize.height());
        return false;
    }
    const std::optional<std::int64_t> pts = w.nextVideoPts(ptsNs);
    if (!pts)
        return true;
    // Lent, not copied: libx264 copies the picture into its own frames before
    // avcodec_send_frame returns, and the drain that follows takes the frame
    // out of libavcodec's hands, so nothing refers to `frame` once this
    // returns (tst_mp4writer overwrites it to make sure).
    AVFrame* f = w.lentFrame.get();
    f->buf[0] = av_buffer_create(
        const_cast<std::uint8_t*>(frame), layout.bytes, [](void*, std::uint8_t*) {}, nullptr,
        AV_BUFFER_FLAG_READONLY);
    if (!f->buf[0]) {
        if (error)
            *error = QStringLiteral("out of memory");
        return false;
    }
    f->format = AV_PIX_FMT_YUV420P;
    f->width = layout.size.width();
    f->height = layout.size.height();
    for (std::size_t p = 0; p < 3; ++p) {
        f->data[p] = const_cast<std::uint8_t*>(frame) + layout.offset[p];
        f->linesize[p] = layout.linesize[p];
    }
    const bool ok = w.encodeVideo(f, *pts, m_stats, error);
    av_frame_unref(f);
    return ok;
}

bool Mp4Writer::Impl::encodeVideo(AVFrame* frame, std::int64_t pts, Statistics& stats,
                                  QString* error)
{
    frame->pts = pts;
    const int rc = avcodec_send_frame(video.get(), frame);
    if (rc < 0) {
        if (error)
            *error = ffmpegErrorText(rc);
        return false;
    }
    lastVideoPts = pts;
    ++stats.videoFrames;
    return drain(video.get(), videoStream, stats, error);
}

bool Mp4Writer::writeBlackVideo(std::int64_t ptsNs, QString* error)
{
    return writeVideo(nullptr, {}, 0, {}, ptsNs, error);
}

bool Mp4Writer::writeAudio(const float* samples, int count, std::int64_t ptsNs, QString* error)
{
    if (!isOpen() || count <= 0)
        return isOpen();
    Impl& w = *d;
    const std::int64_t inRate = w.settings.inputSampleRate;
    const std::int64_t outRate = w.settings.audioSampleRate;
    // swr_next_pts counts in 1/(in × out) second units.
    const std::int64_t pts = av_rescale(ptsNs, inRate * outRate, kNsPerSecond);
    if (!w.audioStarted) {
        // The audio track starts with the video at zero: silence up to the
        // first buffer. AAC puts its encoder delay (1 024 samples of priming)
        // in front of what it is given, and a fragmented file has no edit
        // list to skip it, so that much less silence goes in (or, with the
        // first buffer that early, its first samples are left out).
        const std::int64_t lead =
            av_rescale(ptsNs, outRate, kNsPerSecond) - w.audio->initial_padding;
        w.pendingPts = 0;
        w.pending.assign(static_cast<size_t>(std::max<std::int64_t>(lead, 0)), 0.0f);
        w.skipResampled = std::max<std::int64_t>(-lead, 0);
        w.audioStarted = true;
        m_stats.audioSamples += static_cast<std::int64_t>(w.pending.size());
    }
    swr_next_pts(w.swr.get(), pts);
    const int capacity = swr_get_out_samples(w.swr.get(), count);
    w.resampled.resize(static_cast<size_t>(std::max(capacity, 0)) + 16);
    std::uint8_t* out[1] = {reinterpret_cast<std::uint8_t*>(w.resampled.data())};
    const std::uint8_t* in[1] = {reinterpret_cast<const std::uint8_t*>(samples)};
    const int produced =
        swr_convert(w.swr.get(), out, static_cast<int>(w.resampled.size()), in, count);
    if (produced < 0) {
        if (error)
            *error = ffmpegErrorText(produced);
        return false;
    }
    const auto skipped = static_cast<int>(std::min<std::int64_t>(w.skipResampled, produced));
    w.skipResampled -= skipped;
    w.pending.insert(w.pending.end(), w.resampled.begin() + skipped,
                     w.resampled.begin() + produced);
    m_stats.audioSamples += produced - skipped;
    return w.encodeAudioFrames(false, m_stats, error);
}

bool Mp4Writer::Impl::encodeAudioFrames(bool flush, Statistics& stats, QString* error)
{
    const auto frameSize = static_cast<size_t>(audio->frame_size);
    size_t used = 0;
    while (pending.size() - used >= frameSize || (flush && pending.size() > used)) {
        const size_t n = std::min(frameSize, pending.size() - used);
        AVFrame* f = audioFrame.get();
        int rc = av_frame_make_writable(f);
        if (rc < 0) {
            if (error)
                *error = ffmpegErrorText(rc);
            return false;
        }
        f->nb_samples = static_cast<int>(n);
        std::memcpy(f->data[0], pending.data() + used, n * sizeof(float));
        // Ahead by the encoder delay, so that the first packet comes out at
        // zero: a negative start would make the muxer shift the streams apart.
        f->pts = pendingPts + audio->initial_padding;
        pendingPts += static_cast<std::int64_t>(n);
        used += n;
        rc = avcodec_send_frame(audio.get(), f);
        if (rc < 0) {
            if (error)
                *error = ffmpegErrorText(rc);
            return false;
        }
        if (!drain(audio.get(), audioStream, stats, error))
            return false;
    }
    pending.erase(pending.begin(), pending.begin() + static_cast<std::ptrdiff_t>(used));
    audioFrame->nb_samples = audio->frame_size;
    return true;
}

bool Mp4Writer::finish(QString* error)
{
    if (!isOpen()) {
        if (error)
            *error = QStringLiteral("the writer is not open");
        return false;
    }
    Impl& w = *d;
    bool ok = true;
    QString why;
    if (w.audioStarted) {
        // What the resampler still holds, then a short last AAC frame.
        w.resampled.resize(4096);
        std::uint8_t* out[1] = {reinterpret_cast<std::uint8_t*>(w.resampled.data())};
        const int produced = swr_convert(w.swr.get(), out, 4096, nullptr, 0);
        if (produced > 0)
            w.pending.insert(w.pending.end(), w.resampled.begin(), w.resampled.begin() + produced);
        ok = w.encodeAudioFrames(true, m_stats, &why);
    }
    for (auto [codec, stream] :
         {std::pair{w.video.get(), w.videoStream}, std::pair{w.audio.get(), w.audioStream}}) {
        if (ok && avcodec_send_frame(codec, nullptr) >= 0)
            ok = w.drain(codec, stream, m_stats, &why);
    }
    int rc = 0;
    if (ok) {
        rc = av_write_trailer(w.format.get());
        ok = rc >= 0;
        if (!ok)
            why = ffmpegErrorText(rc);
    }
    if (w.format->pb) {
        rc = avio_closep(&w.format->pb);
        if (ok && rc < 0) {
            ok = false;
            why = ffmpegErrorText(rc);
        }
    }
    w.finished = true;
    d.reset();
    if (!ok && error)
        *error = why;
    return ok;
}

void Mp4Writer::cancel()
{
    // Freeing the contexts closes the file as it is: complete fragments only.
    d.reset();
}

bool Mp4Writer::remuxWithIndexFirst(const QString& from, const QString& to, std::int64_t packets,
                                    QString* error, std::int64_t videoEndNs)
{
    const auto fail = [&](const QString& message) {
        if (error)
            *error = message;
        QFile::remove(to);
        return false;
    };
    const QByteArray inPath = encodedPath(from);
    const QByteArray outPath = encodedPath(to);

    const auto copy = [&](bool reserveIndex, QString* why) -> bool {
        AVFormatContext* raw = nullptr;
        int rc = avformat_open_input(&raw, inPath.constData(), nullptr, nullptr);
        if (rc < 0) {
            *why = ffmpegErrorText(rc);
            return false;
        }
        InputContext in(raw);
        AVFormatContext* outRaw = nullptr;
        rc = avformat_alloc_output_context2(&outRaw, nullptr, "mp4", outPath.constData());
        if (rc < 0 || !outRaw) {
            *why = ffmpegErrorText(rc);
            return false;
        }
        FormatContext out(outRaw);
        for (unsigned i = 0; i < in->nb_streams; ++i) {
            AVStream* s = avformat_new_stream(outRaw, nullptr);
            if (!s || avcodec_parameters_copy(s->codecpar, in->streams[i]->codecpar) < 0) {
                *why = QStringLiteral("cannot copy stream %1").arg(i);
                return false;
            }
            s->codecpar->codec_tag = 0;
            // The demuxer leaves AAC's frame size out; the muxer wants it.
            if (s->codecpar->codec_id == AV_CODEC_ID_AAC && s->codecpar->frame_size == 0)
                s->codecpar->frame_size = 1024;
            s->time_base = in->streams[i]->time_base;
        }
        rc = avio_open(&outRaw->pb, outPath.constData(), AVIO_FLAG_WRITE);
        if (rc < 0) {
            *why = ffmpegErrorText(rc);
            return false;
        }
        Options o;
        if (reserveIndex) {
            // stsz, stts, stco/stsc and stss take well under 32 bytes a
            // sample; the rest of the moov is a few kilobytes.
            o.set("moov_size", 16384 + 32 * packets);
        } else {
            o.set("movflags", "+faststart");
        }
        rc = avformat_write_header(outRaw, o.get());
        if (rc < 0) {
            *why = ffmpegErrorText(rc);
            return false;
        }
        Packet packet(av_packet_alloc());
        bool videoSeen = false;
        while ((rc = av_read_frame(in.get(), packet.get())) >= 0) {
            const int index = packet->stream_index;
            const AVStream* stream = in->streams[index];
            if (stream->codecpar->codec_type == AVMEDIA_TYPE_VIDEO) {
                // No B-frames: a packet's pts is its place in time and
                // nothing before it refers to it.
                if (videoSeen && packet->pts != AV_NOPTS_VALUE &&
                    av_rescale_q(packet->pts, stream->time_base,
                                 AVRational{1, int(kNsPerSecond)}) >= videoEndNs) {
                    av_packet_unref(packet.get());
                    continue;
                }
                videoSeen = true;
            }
            av_packet_rescale_ts(packet.get(), in->streams[index]->time_base,
                                 outRaw->streams[index]->time_base);
            packet->pos = -1;
            rc = av_interleaved_write_frame(outRaw, packet.get());
            if (rc < 0) {
                *why = ffmpegErrorText(rc);
                return false;
            }
        }
        if (rc != AVERROR_EOF) {
            *why = ffmpegErrorText(rc);
            return false;
        }
        rc = av_write_trailer(outRaw);
        if (rc < 0) {
            *why = ffmpegErrorText(rc);
            return false;
        }
        rc = avio_closep(&outRaw->pb);
        if (rc < 0) {
            *why = ffmpegErrorText(rc);
            return false;
        }
        return true;
    };

    QString why;
    if (packets > 0 && copy(true, &why))
        return true;
    if (packets > 0)
        qCInfo(lcVideo, "Reserved index space did not suffice (%s); rewriting with faststart",
               qPrintable(why));
    if (copy(false, &why))
        return true;
    return fail(why);
}

} // namespace sorv
