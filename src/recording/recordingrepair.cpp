#include "recordingrepair.h"

#include <QCoreApplication>
#include <QFile>
#include <QtEndian>

#include <cstdio>
#include <optional>

namespace sorv {

namespace {

struct Box {
    QByteArray type;
    qint64 offset = 0; // of its header
    qint64 header = 8;
    qint64 size = 0; // the whole box
};

std::optional<Box> readBox(QFile& file, qint64 offset, qint64 end)
{
    if (offset + 8 > end || !file.seek(offset))
        return std::nullopt;
    const QByteArray head = file.read(16);
    if (head.size() < 8)
        return std::nullopt;
    Box box;
    box.offset = offset;
    box.type = head.mid(4, 4);
    box.size = qFromBigEndian<quint32>(head.constData());
    if (box.size == 1 && head.size() == 16) {
        box.size = static_cast<qint64>(qFromBigEndian<quint64>(head.constData() + 8));
        box.header = 16;
    } else if (box.size == 0) {
        box.size = end - offset;
    }
    if (box.size < box.header || offset + box.size > end)
        return std::nullopt;
    return box;
}

// The movie's length from its header box (moov/mvhd).
double movieSeconds(QFile& file, const Box& moov)
{
    for (qint64 at = moov.offset + moov.header; at < moov.offset + moov.size;) {
        const std::optional<Box> box = readBox(file, at, moov.offset + moov.size);
        if (!box)
            return 0;
        if (box->type == "mvhd") {
            file.seek(box->offset + box->header);
            const QByteArray b = file.read(32);
            if (b.size() < 20)
                return 0;
            const bool wide = b.at(0) == 1;
            if (wide && b.size() < 32)
                return 0;
            const auto scale = qFromBigEndian<quint32>(b.constData() + (wide ? 20 : 12));
            const quint64 duration = wide ? qFromBigEndian<quint64>(b.constData() + 24)
                                          : qFromBigEndian<quint32>(b.constData() + 16);
            return scale > 0 ? static_cast<double>(duration) / scale : 0;
        }
        at += box->size;
    }
    return 0;
}

template <typename T> bool writeAt(QFile& file, qint64 offset, T value)
{
    char bytes[sizeof(T)];
    qToLittleEndian(value, bytes);
    return file.seek(offset) && file.write(bytes, sizeof(T)) == sizeof(T);
}

} // namespace

RepairResult repairWav(const QString& path)
{
    RepairResult result;
    QFile file(path);
    if (!file.open(QIODevice::ReadWrite)) {
        result.error = file.errorString();
        return result;
    }
    const qint64 fileSize = file.size();
    const QByteArray head = file.read(12);
    const bool rf64 = head.startsWith("RF64");
    if (head.size() < 12 || (!head.startsWith("RIFF") && !rf64) || head.mid(8, 4) != "WAVE") {
        result.error = QCoreApplication::translate("PendingRecordings", "not a WAV file");
        return result;
    }
    qint64 ds64 = -1;
    qint64 fact = -1;
    qint64 data = -1;
    quint16 blockAlign = 0;
    quint32 sampleRate = 0;
    for (qint64 at = 12; at + 8 <= fileSize && data < 0;) {
        file.seek(at);
        const QByteArray chunk = file.read(8);
        const QByteArray id = chunk.left(4);
        const qint64 size = qFromLittleEndian<quint32>(chunk.constData() + 4);
        if (id == "data") {
            data = at;
        } else if (id == "fmt ") {
            const QByteArray fmt = file.read(16);
            if (fmt.size() < 16)
                break;
            sampleRate = qFromLittleEndian<quint32>(fmt.constData() + 4);
            blockAlign = qFromLittleEndian<quint16>(fmt.constData() + 12);
        } else if (id == "ds64") {
            ds64 = at;
        } else if (id == "fact") {
            fact = at;
        }
        at += 8 + size + (size & 1);
    }
    if (data < 0 || blockAlign == 0 || sampleRate == 0 || (rf64 && ds64 < 0)) {
        result.error =
            QCoreApplication::translate("PendingRecordings", "the WAV header is damaged");
        return result;
    }
    const qint64 dataStart = data + 8;
    const qint64 dataBytes = (fileSize - dataStart) / blockAlign * blockAlign;
    const qint64 frames = dataBytes / blockAlign;
    result.seconds = static_cast<double>(frames) / sampleRate;
    result.ok = true;

    file.seek(data + 4);
    const auto saidData = qFromLittleEndian<quint32>(file.read(4).constData());
    file.seek(4);
    const auto saidRiff = qFromLittleEndian<quint32>(file.read(4).constData());
    bool right = dataStart + dataBytes == fileSize;
    if (rf64) {
        file.seek(ds64 + 8);
        const QByteArray sizes = file.read(16);
        right = right && sizes.size() == 16 &&
                qFromLittleEndian<quint64>(sizes.constData()) == quint64(fileSize - 8) &&
                qFromLittleEndian<quint64>(sizes.constData() + 8) == quint64(dataBytes);
    } else {
        right = right && saidData == quint32(dataBytes) && saidRiff == quint32(fileSize - 8);
    }
    if (right)
        return result;

    // A plain RIFF file cannot say more than 4 GiB; libsndfile switches to
    // RF64 long before, so a RIFF header is always big enough here.
    const qint64 total = dataStart + dataBytes;
    bool written = file.resize(total);
    if (rf64) {
        written = written && writeAt<quint64>(file, ds64 + 8, quint64(total - 8)) &&
                  writeAt<quint64>(file, ds64 + 16, quint64(dataBytes)) &&
                  writeAt<quint64>(file, ds64 + 24, quint64(frames));
    } else {
        written = written && writeAt<quint32>(file, 4, quint32(total - 8)) &&
                  writeAt<quint32>(file, data + 4, quint32(dataBytes));
        if (fact >= 0)
            written = written && writeAt<quint32>(file, fact + 8, quint32(frames));
    }
    written = file.flush() && written;
    result.repaired = true;
    if (!written) {
        result.ok = false;
        result.error = file.errorString();
    }
    return result;
}

RepairResult repairMp4(const QString& path, const Mp4Remuxer& remux)
{
    RepairResult result;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        result.error = file.errorString();
        return result;
    }
    const qint64 end = file.size();
    std::optional<Box> moov;
    bool fragmented = false;
    for (qint64 at = 0; at < end;) {
        const std::optional<Box> box = readBox(file, at, end);
        if (!box)
            break; // a box cut short by the crash
        if (box->type == "moov")
            moov = box;
        else if (box->type == "moof")
            fragmented = true;
        at += box->size;
    }
    if (!moov) {
        result.error =
            QCoreApplication::translate("PendingRecordings", "the video file has no index");
        return result;
    }
    if (!fragmented) {
        result.ok = true;
        result.seconds = movieSeconds(file, *moov);
        return result;
    }
    file.close();
    if (!remux) {
        result.needsRemux = true;
        result.error =
            QCoreApplication::translate("PendingRecordings", "the video file needs rewriting");
        return result;
    }
    const QString part = path + QStringLiteral(".part");
    QString why;
    if (!remux(path, part, &why) || std::rename(QFile::encodeName(part).constData(),
                                                QFile::encodeName(path).constData()) != 0) {
        QFile::remove(part);
        result.error = why.isEmpty()
                           ? QCoreApplication::translate("PendingRecordings",
                                                         "the video file could not be rewritten")
                           : why;
        return result;
    }
    result.repaired = true;
    RepairResult plain = repairMp4(path, {});
    plain.repaired = true;
    return plain;
}

} // namespace sorv
