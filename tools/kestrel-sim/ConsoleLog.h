#pragma once

#include <QString>

// Time-stamped lines on standard output, flushed at once so that they
// interleave sensibly with what mapwright prints.
namespace ConsoleLog
{
// "12:00:03.512 <- Pulse"
void line(const QString& text);
void error(const QString& text); // on standard error, without a stamp
}
