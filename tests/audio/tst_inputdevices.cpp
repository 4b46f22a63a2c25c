// The device list without a daemon: what the sound server's source info
// becomes in the picker (synthetic pa_source_info structs), its order, and
// which differences between two looks at the server count as a change the
// microphone has to follow.

#include "audio/inputdevicelist.h"
#include "audio/inputdevicemonitor.h"
#include "audio/pulsecontext.h"

#include <QTest>

#include <pulse/introspect.h>

using namespace sorv;
using Source = PulseContext::SourceInfo;

namespace {

// A source as the server reports it: 2 channels of s16le at 48 kHz unless
// told otherwise.
pa_source_info paSource(const char* name, const char* description, std::uint32_t index,
                        std::uint32_t monitorOfSink = PA_INVALID_INDEX, std::uint8_t channels = 2)
{
    pa_source_info info{};
    info.name = name;
    info.description = description;
    info.index = index;
    info.monitor_of_sink = monitorOfSink;
    info.sample_spec.format = PA_SAMPLE_S16LE;
    info.sample_spec.rate = 48000;
    info.sample_spec.channels = channels;
    return info;
}

QList<Source> sources(std::initializer_list<pa_source_info> infos)
{
    QList<Source> list;
    for (const auto& i : infos)
        list << PulseContext::toSourceInfo(i);
    return list;
}

QStringList names(const QList<InputDevice>& devices)
{
    QStringList out;
    for (const auto& d : devices)
        out << d.name + (d.isDefault ? QStringLiteral("*") : QString());
    return out;
}

} // namespace

class TestInputDevices : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void sourceBecomesDevice_data();
    void sourceBecomesDevice();
    void order_data();
    void order();
    void change_data();
    void change();
};

void TestInputDevices::sourceBecomesDevice_data()
{
    QTest::addColumn<Source>("source");
    QTest::addColumn<bool>("listed");
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("isDefault");
    const char* usb = "alsa_input.usb-Headset-00.mono-fallback";
    auto row = [](const char* tag, pa_source_info info, bool listed, const char* name, bool def) {
        QTest::newRow(tag) << PulseContext::toSourceInfo(info) << listed << QString::fromUtf8(name)
                           << def;
    };
    row("microphone", paSource(usb, "USB Headset Mono", 3), true, "USB Headset Mono", false);
    row("default microphone", paSource("virtmic", "VirtualMic", 2), true, "VirtualMic", true);
    row("monitor of a sink", paSource("speakers.monitor", "Monitor of Speakers", 0, 1), false, "",
        false);
    row("no channels", paSource(usb, "USB Headset Mono", 3, PA_INVALID_INDEX, 0), false, "", false);
    row("empty description", paSource(usb, "", 3), false, "", false);
    row("no description", paSource(usb, nullptr, 3), false, "", false);
}

void TestInputDevices::sourceBecomesDevice()
{
    QFETCH(Source, source);
    QFETCH(bool, listed);
    QFETCH(QString, name);
    QFETCH(bool, isDefault);
    const auto device = inputDeviceForSource(source, QStringLiteral("virtmic"));
    QCOMPARE(device.has_value(), listed);
    if (!listed)
        return;
    QCOMPARE(device->name, name);
    QCOMPARE(device->isDefault, isDefault);
    QCOMPARE(device->id, inputDeviceIdForSourceName(source.name));
}

void TestInputDevices::order_data()
{
    QTest::addColumn<QStringList>("serverOrder"); // description per source, in index order
    QTest::addColumn<QString>("defaultSource");   // its position's name: "s<i>"
    QTest::addColumn<QStringList>("expected");    // "*" marks the default

    QTest::newRow("default first, whatever its name")
        << QStringList{QStringLiteral("Alpha"), QStringLiteral("Zulu")} << QStringLiteral("s1")
        << QStringList{QStringLiteral("Zulu*"), QStringLiteral("Alpha")};
    QTest::newRow("case does not decide")
        << QStringList{QStringLiteral("beta"), QStringLiteral("Charlie"), QStringLiteral("alpha")}
        << QString()
        << QStringList{QStringLiteral("alpha"), QStringLiteral("beta"), QStringLiteral("Charlie")};
    QTest::newRow("mic then Mic keep their order")
        << QStringList{QStringLiteral("mic"), QStringLiteral("Mic"), QStringLiteral("Aux")}
        << QString()
        << QStringList{QStringLiteral("Aux"), QStringLiteral("mic"), QStringLiteral("Mic")};
    QTest::newRow("Mic then mic keep their order")
        << QStringList{QStringLiteral("Mic"), QStringLiteral("mic")} << QString()
        << QStringList{QStringLiteral("Mic"), QStringLiteral("mic")};
    QTest::newRow("numbers and monitors")
        << QStringList{QStringLiteral("Mic 2"), QStringLiteral("monitor"), QStringLiteral("Mic 1")}
        << QStringLiteral("s0") << QStringList{QStringLiteral("Mic 2*"), QStringLiteral("Mic 1")};
}

void TestInputDevices::order()
{
    QFETCH(QStringList, serverOrder);
    QFETCH(QString, defaultSource);
    QFETCH(QStringList, expected);
    QList<QByteArray> names_;
    QList<QByteArray> descriptions;
    for (qsizetype i = 0; i < serverOrder.size(); ++i) {
        names_ << QStringLiteral("s%1").arg(i).toUtf8();
        descriptions << serverOrder.at(i).toUtf8();
    }
    QList<Source> list;
    for (qsizetype i = 0; i < serverOrder.size(); ++i) {
        const bool monitor = serverOrder.at(i) == QLatin1String("monitor");
        list << PulseContext::toSourceInfo(
            paSource(names_.at(i).constData(), descriptions.at(i).constData(), std::uint32_t(i),
                     monitor ? 0 : PA_INVALID_INDEX));
    }
    QCOMPARE(names(inputDevicesFromSources(list, defaultSource)), expected);
}

void TestInputDevices::change_data()
{
    QTest::addColumn<bool>("beforeUp");
    QTest::addColumn<QList<Source>>("before");
    QTest::addColumn<QString>("beforeDefault");
    QTest::addColumn<bool>("afterUp");
    QTest::addColumn<QList<Source>>("after");
    QTest::addColumn<QString>("afterDefault");
    // lost, back, devicesChanged, defaultChanged
    QTest::addColumn<QList<bool>>("flags");
    QTest::addColumn<QStringList>("added");
    QTest::addColumn<QStringList>("removed");
    QTest::addColumn<QStringList>("reconfigured");

    const auto mic = paSource("virtmic", "VirtualMic", 2);
    auto mic44 = mic;
    mic44.sample_spec.rate = 44100;
    auto micRecreated = mic;
    micRecreated.index = 9;
    auto micRenamed = mic;
    micRenamed.description = "Studio";
    const auto usb = paSource("usbmic", "Headset", 3);
    const auto mon = paSource("speakers.monitor", "Monitor of Speakers", 0, 1);
    const QString v = QStringLiteral("virtmic");
    const QString u = QStringLiteral("usbmic");

    QTest::newRow("nothing (mute, volume, suspend)")
        << true << sources({mic, mon}) << v << true << sources({mic, mon}) << v
        << QList<bool>{false, false, false, false} << QStringList{} << QStringList{}
        << QStringList{};
    QTest::newRow("new sample rate") << true << sources({mic}) << v << true << sources({mic44}) << v
                                     << QList<bool>{false, false, false, false} << QStringList{}
                                     << QStringList{} << QStringList{v};
    QTest::newRow("re-created between two looks")
        << true << sources({mic}) << v << true << sources({micRecreated}) << v
        << QList<bool>{false, false, false, false} << QStringList{} << QStringList{}
        << QStringList{v};
    QTest::newRow("renamed: the list changes, the stream does not")
        << true << sources({mic}) << v << true << sources({micRenamed}) << v
        << QList<bool>{false, false, true, false} << QStringList{} << QStringList{}
        << QStringList{};
    QTest::newRow("plugged in") << true << sources({mic}) << v << true << sources({mic, usb}) << v
                                << QList<bool>{false, false, true, false} << QStringList{u}
                                << QStringList{} << QStringList{};
    QTest::newRow("unplugged") << true << sources({mic, usb}) << v << true << sources({mic}) << v
                               << QList<bool>{false, false, true, false} << QStringList{}
                               << QStringList{u} << QStringList{};
    QTest::newRow("default changed")
        << true << sources({mic, usb}) << v << true << sources({mic, usb}) << u
        << QList<bool>{false, false, true, true} << QStringList{} << QStringList{} << QStringList{};
    QTest::newRow("monitor added is no device")
        << true << sources({mic}) << v << true << sources({mic, mon}) << v
        << QList<bool>{false, false, false, false}
        << QStringList{QStringLiteral("speakers.monitor")} << QStringList{} << QStringList{};
    QTest::newRow("server lost") << true << sources({mic}) << v << false << QList<Source>{}
                                 << QString() << QList<bool>{true, false, true, false}
                                 << QStringList{} << QStringList{} << QStringList{};
    QTest::newRow("server back") << false << QList<Source>{} << QString() << true << sources({mic})
                                 << v << QList<bool>{false, true, true, false} << QStringList{}
                                 << QStringList{} << QStringList{};
}

void TestInputDevices::change()
{
    QFETCH(bool, beforeUp);
    QFETCH(QList<Source>, before);
    QFETCH(QString, beforeDefault);
    QFETCH(bool, afterUp);
    QFETCH(QList<Source>, after);
    QFETCH(QString, afterDefault);
    QFETCH(QList<bool>, flags);
    QFETCH(QStringList, added);
    QFETCH(QStringList, removed);
    QFETCH(QStringList, reconfigured);
    auto snapshot = [](bool up, const QList<Source>& list, const QString& def) {
        InputDeviceMonitor::Snapshot s;
        s.serverAvailable = up;
        s.sources = list;
        s.defaultSourceName = def;
        s.devices = inputDevicesFromSources(list, def);
        return s;
    };
    const auto c = InputDeviceMonitor::compare(snapshot(beforeUp, before, beforeDefault),
                                               snapshot(afterUp, after, afterDefault));
    QCOMPARE((QList<bool>{c.serverLost, c.serverBack, c.devicesChanged, c.defaultSourceChanged}),
             flags);
    QCOMPARE(c.addedSources, added);
    QCOMPARE(c.removedSources, removed);
    QCOMPARE(c.reconfiguredSources, reconfigured);
}

QTEST_GUILESS_MAIN(TestInputDevices)
#include "tst_inputdevices.moc"
