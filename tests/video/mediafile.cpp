#include "mediafile.h"

#include <QFile>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

#include <cmath>
#include <memory>

namespace sorv::test {

namespace {

struct InputCloser {
    void operator()(AVFormatContext* f) const { avformat_close_input(&f); }
};
struct CodecFree {
    void operator()(AVCodecContext* c) const { avcodec_free_context(&c); }
};
struct FrameFree {
    void operator()(AVFrame* f) const { av_frame_free(&f); }
};
struct PacketFree {
    void operator()(AVPacket* p) const { av_packet_free(&p); }
};

std::vector<QString> topLevelBoxes(const QString& path)
{
    std::vector<QString> boxes;
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly))
        return boxes;
    qint64 at = 0;
    while (at + 8 <= f.size()) {
        f.seek(at);
        const QByteArray h = f.read(16);
        if (h.size() < 8)
            break;
        quint64 size = (quint64(quint8(h[0])) << 24) | (quint64(quint8(h[1])) << 16) |
                       (quint64(quint8(h[2])) << 8) | quint64(quint8(h[3]));
        boxes.push_back(QString::fromLatin1(h.mid(4, 4)));
        if (size == 1 && h.size() >= 16) {
            size = 0;
            for (int i = 8; i < 16; ++i)
                size = (size << 8) | quint8(h[i]);
        } else if (size == 0) {
            break; // to the end of the file
        }
        if (size < 8)
            break;
        at += qint64(size);
    }
    return boxes;
}

} // namespace

MediaFile MediaFile::read(const QString& path, bool decode, QRect lumaRegion, double startAt,
                          const std::vector<QRect>& moreRegions)
{
    MediaFile m;
    m.boxes = topLevelBoxes(path);
    AVFormatContext* raw = nullptr;
    if (avformat_open_input(&raw, QFile::encodeName(path).constData(), nullptr, nullptr) < 0) {
        m.error = QStringLiteral("cannot open");
        return m;
    }
    std::unique_ptr<AVFormatContext, InputCloser> in(raw);
    if (avformat_find_stream_info(raw, nullptr) < 0) {
        m.error = QStringLiteral("no stream info");
        return m;
    }
    m.opened = true;
    if (raw->duration > 0)
        m.duration = double(raw->duration) / AV_TIME_BASE;
    const int vi = av_find_best_stream(raw, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    const int ai = av_find_best_stream(raw, AVMEDIA_TYPE_AUDIO, -1, -1, nullptr, 0);
    std::unique_ptr<AVCodecContext, CodecFree> vdec, adec;
    if (vi >= 0) {
        const AVCodecParameters* p = raw->streams[vi]->codecpar;
        m.videoCodec = QString::fromLatin1(avcodec_get_name(p->codec_id));
        m.videoProfile = p->profile;
        m.videoSize = QSize(p->width, p->height);
        const AVCodec* codec = avcodec_find_decoder(p->codec_id);
        vdec.reset(avcodec_alloc_context3(codec));
        avcodec_parameters_to_context(vdec.get(), p);
        vdec->pkt_timebase = raw->streams[vi]->time_base;
        avcodec_open2(vdec.get(), codec, nullptr);
    }
    if (ai >= 0) {
        const AVCodecParameters* p = raw->streams[ai]->codecpar;
        m.audioCodec = QString::fromLatin1(avcodec_get_name(p->codec_id));
        m.audioChannels = p->ch_layout.nb_channels;
        m.audioSampleRate = p->sample_rate;
        const AVCodec* codec = avcodec_find_decoder(p->codec_id);
        adec.reset(avcodec_alloc_context3(codec));
        avcodec_parameters_to_context(adec.get(), p);
        adec->pkt_timebase = raw->streams[ai]->time_base;
        avcodec_open2(adec.get(), codec, nullptr);
    }
    if (!decode)
        return m;
    if (startAt > 0.0)
        av_seek_frame(raw, -1, std::int64_t(startAt * AV_TIME_BASE), AVSEEK_FLAG_BACKWARD);

    std::unique_ptr<AVPacket, PacketFree> packet(av_packet_alloc());
    std::unique_ptr<AVFrame, FrameFree> frame(av_frame_alloc());
    bool audioSeen = false;
    const auto receive = [&](AVCodecContext* dec, int index) {
        const AVRational tb = raw->streams[index]->time_base;
        for (;;) {
            const int rc = avcodec_receive_frame(dec, frame.get());
            if (rc == AVERROR(EAGAIN) || rc == AVERROR_EOF)
                return;
            if (rc < 0) {
                ++m.decodeErrors;
                return;
            }
            const double pts = frame->best_effort_timestamp * av_q2d(tb);
            if (index == vi) {
                m.framePts.push_back(pts);
                m.videoEnd = pts + frame->pkt_duration * av_q2d(tb);
                const auto meanLuma = [&](const QRect& r) {
                    double sum = 0;
                    for (int y = r.top(); y <= r.bottom(); ++y)
                        for (int x = r.left(); x <= r.right(); ++x)
                            sum += frame->data[0][y * frame->linesize[0] + x];
                    return sum / double(r.width() * r.height());
                };
                m.frameLuma.push_back(meanLuma(
                    lumaRegion.isEmpty() ? QRect(0, 0, frame->width, frame->height) : lumaRegion));
                std::vector<double> more;
                more.reserve(moreRegions.size());
                for (const QRect& r : moreRegions)
                    more.push_back(meanLuma(r));
                m.moreLuma.push_back(std::move(more));
            } else {
                if (!audioSeen) {
                    m.audioStart = pts;
                    audioSeen = true;
                }
                const auto* samples = reinterpret_cast<const float*>(frame->extended_data[0]);
                m.audio.insert(m.audio.end(), samples, samples + frame->nb_samples);
                m.audioEnd = pts + double(frame->nb_samples) / frame->sample_rate;
            }
            av_frame_unref(frame.get());
        }
    };
    int rc = 0;
    while ((rc = av_read_frame(raw, packet.get())) >= 0) {
        AVCodecContext* dec = packet->stream_index == vi   ? vdec.get()
                              : packet->stream_index == ai ? adec.get()
                                                           : nullptr;
        if (dec) {
            if (avcodec_send_packet(dec, packet.get()) < 0)
                ++m.decodeErrors;
            receive(dec, packet->stream_index);
        }
        av_packet_unref(packet.get());
    }
    if (rc != AVERROR_EOF)
        ++m.readErrors;
    for (auto [dec, index] : {std::pair{vdec.get(), vi}, std::pair{adec.get(), ai}}) {
        if (!dec)
            continue;
        avcodec_send_packet(dec, nullptr);
        receive(dec, index);
    }
    return m;
}

std::vector<double> MediaFile::clickTimes(float threshold, double quiet) const
{
    std::vector<double> times;
    double last = -1.0;
    for (size_t i = 0; i < audio.size(); ++i) {
        if (std::fabs(audio[i]) < threshold)
            continue;
        const double t = audioStart + double(i) / audioSampleRate;
        if (last < 0 || t - last > quiet)
            times.push_back(t);
        last = t;
    }
    return times;
}

std::vector<double> MediaFile::flashTimes(int region) const
{
    std::vector<double> times;
    bool bright = false;
    for (size_t i = 0; i < framePts.size(); ++i) {
        const double luma = region < 0 ? frameLuma[i] : moreLuma[i][size_t(region)];
        if (luma > 128.0 && !bright)
            times.push_back(framePts[i]);
        bright = luma > 128.0;
    }
    return times;
}

} // namespace sorv::test
