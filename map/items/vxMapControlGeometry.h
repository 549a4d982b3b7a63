#pragma once

// Cuts shapes to a rectangle before they reach the painter: at a high zoom
// level a shape can run millions of pixels beyond the screen, and the
// drawing layer must never see such coordinates.

#include "vxMapControlTypes.h"

#include <QPoint>
#include <QRect>

#include <span>
#include <vector>

struct TvxEdge
{
  TvxPointDouble StartPoint;
  TvxPointDouble EndPoint;
};

// The intersection of two closed polygons (last point equal to the first),
// Greiner-Hormann style. A vertex that lies exactly on the other polygon's
// edge is moved 0.1 across it first, so results can hold points that far
// off the input. Each result ring repeats its first point at its end.
void vxClipPolygon(std::span<const TvxPointDouble> ASubject, std::span<const TvxPointDouble> AClip,
                   std::vector<std::vector<TvxPointDouble>>& APolygons);

// Crossing-number test on a closed ring, as vxClipPolygon decides which
// side a polygon starts on. Points on a vertical edge count as inside; a
// vertex on the ray is lifted by 0.1 in Y, so it counts once.
bool vxIsPtInPolygon(const TvxPointDouble& APoint, std::span<const TvxPointDouble> APolygon);

// The pieces of an open polyline inside ARect, whose right and bottom are
// inclusive as QRect's are; points on the border are inside. Crossing
// points are rounded halves to even. Lone points are dropped.
void vxClipPolylineByRect(std::span<const QPoint> APoints, const QRect& ARect,
                          std::vector<std::vector<QPoint>>& APolylines);
