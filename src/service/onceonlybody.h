#pragma once

#include <QByteArray>
#include <QIODevice>

namespace sorv {

// A request body that can be read once, from start to end, and never rewound.
// Qt's HTTP stack sends a request again when a kept-alive connection closes
// before any answer; for a body it cannot rewind it reports an error instead.
// That is what a POST needs: the service may already have acted on it.
class OnceOnlyBody : public QIODevice {
public:
    explicit OnceOnlyBody(QByteArray data, QObject* parent = nullptr);

    bool isSequential() const override { return true; }
    qint64 bytesAvailable() const override;
    bool atEnd() const override;
    bool reset() override { return false; }

protected:
    qint64 readData(char* data, qint64 maxSize) override;
    qint64 writeData(const char*, qint64) override { return -1; }

private:
    QByteArray m_data;
    qint64 m_offset = 0;
};

} // namespace sorv
