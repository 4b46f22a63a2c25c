#pragma once

#include <QString>

namespace sorv {

// Texts the views show, in one place so the window and the command line say
// the same thing.

// Elapsed recording time: "00:59", "59:59", then "1:00:00" from an hour on.
QString formatElapsed(double seconds);

// What an e-mail code field keeps of what was typed or pasted: its digits,
// at most the first six.
QString mfaCodeDigits(const QString& typed);

// A size: "512 B", "12.3 KiB", "1.5 GiB".
QString formatBytes(double bytes);

// A transfer rate: "12.3 MiB/s".
QString formatRate(double bytesPerSecond);

// A level meter (0…1) as a bar of `width` cells for a terminal.
QString meterBar(float level, int width = 20);

} // namespace sorv
