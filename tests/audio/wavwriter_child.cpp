// Writes a recording forever, 4 096-frame buffers at a time, and prints the
// frames written after each buffer so the test knows when to kill it.
#include "audio/wavwriter.h"

#include <QString>

#include <cstdio>
#include <thread>
#include <vector>

int main(int argc, char** argv)
{
    if (argc < 2)
        return 2;
    sorv::WavWriter writer;
    if (!writer.open(QString::fromLocal8Bit(argv[1])))
        return 1;
    std::vector<float> buffer(4096);
    long long sample = 0;
    for (;;) {
        // A ramp that encodes each sample's position, so the reader can check
        // that what it finds is what was written, in order.
        for (float& x : buffer)
            x = static_cast<float>(sample++ % 48000) / 48000.0f;
        if (!writer.write(buffer))
            return 1;
        std::printf("%lld\n", static_cast<long long>(writer.frames()));
        std::fflush(stdout);
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
}
