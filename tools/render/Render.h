#pragma once

// mapwright-render: a map view written to a PNG by the map control's own
// layout and painting, without a window.

#include <QByteArray>
#include <QStringList>

// Runs with the arguments after the program name. 0 when the PNG is
// written; 2 with a message in AErrors on a bad argument, an unreadable
// layer or MBTiles file, a configuration that does not load or a PNG that
// cannot be written. Needs a GUI application.
int vxRenderRun(const QStringList& AArguments, QByteArray& AErrors);
