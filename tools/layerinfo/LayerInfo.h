#pragma once

// mapwright-layerinfo: what a KML file or a Shapefile becomes when a file
// layer loads it, as one JSON document, so that a user whose layer comes up
// empty can see why.

#include "vxMapItemFileLayer.h"

#include <QByteArray>
#include <QString>

// The type the file name asks for: ".shp" in any case is a Shapefile,
// anything else KML.
TvxMapItemFileType vxLayerInfoFileTypeOf(const QString& AFileName);

// The layer and its items as JSON, keys in a fixed order and numbers with
// full double precision.
QByteArray vxLayerInfoJson(const QString& AFileName, const TvxMapItemFileLayer& ALayer);

// The whole command: arguments without the program name; output and error
// text go to the two byte arrays. Returns the exit code.
int vxLayerInfoRun(const QStringList& AArguments, QByteArray& AOutput, QByteArray& AErrors);
