// A meeting bot's event stream on the client: bytes read in 4 KiB pieces,
// split into lines, payloads parsed and folded into segments, as
// LiveTranscriptManager does between the network and its signals. Reported
// as bytes and payloads per second of one core, and, after a meeting far
// longer than any real one, how much the transcript holds: the segment
// count and the process's resident memory, which stay flat.

#include "transcript/eventstreamreader.h"
#include "transcript/meetingtranscript.h"

#include <benchmark/benchmark.h>

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>
#include <iterator>

namespace {

// One minute of a three-speaker meeting: a piece of three words every
// 400 ms, with the event names and comments a service sends between them.
QByteArray minuteOfMeeting()
{
    static const char* const kWords[] = {"so",  "the",    "release", "ships",
                                         "on",  "Friday", "and",     "translations",
                                         "are", "due",    "Thursday"};
    QByteArray out;
    for (int piece = 0; piece < 150; ++piece) {
        QString text;
        for (int w = 0; w < 3; ++w)
            text +=
                QString::fromLatin1(kWords[(piece * 3 + w) % std::size(kWords)]) + QLatin1Char(' ');
        const QJsonObject element{{"speaker", QString::number((piece / 5) % 3)},
                                  {"text", text.trimmed()},
                                  {"is_final", piece % 5 == 4},
                                  {"absolute_start_time", "2024-03-05T14:07:00"}};
        out += "event: transcript\ndata: " +
               QJsonDocument(QJsonObject{{"type", "transcript"}, {"segments", QJsonArray{element}}})
                   .toJson(QJsonDocument::Compact) +
               "\n\n";
        if (piece % 25 == 0)
            out += ": keepalive\n\n";
    }
    return out;
}

qint64 residentKiB()
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return 0;
    for (const QByteArray& line : status.readAll().split('\n')) {
        if (line.startsWith("VmRSS:"))
            return line.mid(6).trimmed().split(' ').value(0).toLongLong();
    }
    return 0;
}

void feed(const QByteArray& stream, sorv::EventStreamReader& reader,
          sorv::MeetingTranscript& transcript)
{
    constexpr qsizetype kRead = 4096;
    QList<QByteArray> payloads;
    for (qsizetype at = 0; at < stream.size(); at += kRead) {
        payloads.clear();
        reader.feed(QByteArrayView(stream.constData() + at, std::min(kRead, stream.size() - at)),
                    payloads);
        for (const QByteArray& p : payloads)
            benchmark::DoNotOptimize(transcript.apply(p));
    }
}

void BM_meetingStream(benchmark::State& state)
{
    const QByteArray minute = minuteOfMeeting();
    sorv::EventStreamReader reader;
    sorv::MeetingTranscript transcript;
    for (auto _ : state)
        feed(minute, reader, transcript);
    state.SetBytesProcessed(state.iterations() * minute.size());
    state.counters["payloads/s"] =
        benchmark::Counter(double(state.iterations()) * 150, benchmark::Counter::kIsRate);
}
BENCHMARK(BM_meetingStream);

// A hundred hours of meeting, then another hundred: what is held stays put.
void BM_hundredHours(benchmark::State& state)
{
    const QByteArray minute = minuteOfMeeting();
    for (auto _ : state) {
        sorv::EventStreamReader reader;
        sorv::MeetingTranscript transcript;
        for (int m = 0; m < 100 * 60; ++m)
            feed(minute, reader, transcript);
        const qint64 after100 = residentKiB();
        for (int m = 0; m < 100 * 60; ++m)
            feed(minute, reader, transcript);
        state.counters["segments"] = double(transcript.segments().size());
        state.counters["rss_MiB_100h"] = double(after100) / 1024.0;
        state.counters["rss_MiB_200h"] = double(residentKiB()) / 1024.0;
    }
}
BENCHMARK(BM_hundredHours)->Iterations(1)->Unit(benchmark::kSecond);

} // namespace

BENCHMARK_MAIN();
