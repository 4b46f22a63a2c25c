// A race of our own on purpose, between a thread Qt made and the main thread,
// with the two sides handing nothing over properly. Under ThreadSanitizer
// with the project's suppressions it must still be reported: the suppressions
// silence what Qt and glib do themselves, not our code.
#include <QCoreApplication>
#include <QThread>

namespace {
int g_counter = 0;

class Racer : public QThread {
protected:
    void run() override
    {
        for (int i = 0; i < 100000; ++i)
            ++g_counter;
    }
};
} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    Racer racer;
    racer.start();
    for (int i = 0; i < 100000; ++i)
        ++g_counter;
    racer.wait();
    return g_counter > 0 ? 0 : 1;
}
