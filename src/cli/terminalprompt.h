#pragma once

#include <QString>

#include <optional>

namespace sorv::cli {

// One line of standard input without its line end; none at the end of input.
std::optional<QString> readLine();

// Shows `text` on standard error and reads a line. Without echo when `echo`
// is false and standard input is a terminal (passwords, PINs).
std::optional<QString> prompt(const char* text, bool echo);

} // namespace sorv::cli
