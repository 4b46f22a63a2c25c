#pragma once

#include <QString>
#include <QStringList>

#include <vector>

namespace sorv::test {

// Synthetic speech for the recogniser's tests and measurements: espeak-ng
// sentences, resampled by sox to the common format (32-bit float, 48 kHz,
// mono), `leadSeconds` of silence first and `pauseSeconds` after each one.
bool makeSpeech(const QString& path, const QStringList& sentences, double pauseSeconds,
                double leadSeconds = 0.5, QString* error = nullptr);

// True when espeak-ng and sox are installed.
bool speechToolsAvailable();

// A whole file as mono float samples at its own rate (48 kHz for makeSpeech's).
std::vector<float> readMonoSamples(const QString& path);

// A JSGF grammar that accepts any sequence of the phrases: the test decodes
// then give exactly these words.
bool writeGrammar(const QString& path, const QStringList& phrases);

} // namespace sorv::test
