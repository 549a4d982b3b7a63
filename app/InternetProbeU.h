#pragma once

#include <QStringList>
#include <functional>

// Tells whether the internet can be reached: a GET to each target in turn
// until one answers with anything but a client or server failure (400-505).
// Blocks the calling thread, which is the main thread by design: the probe
// runs on a worker and the caller waits without pumping events.
bool GetInternetConnectionStatus();

namespace InternetProbe
{
// The two public home pages tried by default, in order.
QStringList DefaultTargets();

// Replaces the targets (tests point them at loopback servers).
void SetTargets(const QStringList& targets);
QStringList Targets();

// Replaces the whole probe; an empty function restores the HTTP probe.
void SetProbe(std::function<bool()> probe);

// The HTTP probe itself, over the given targets.
bool ProbeTargets(const QStringList& targets);
}
