#pragma once

// Positions in the grids responders read: decimal degrees as the map's
// masks write them, degrees-minutes-seconds, UTM (UPS near the poles) and
// MGRS. GeographicLib does the conversions; this unit only chooses and
// writes them, and keeps the window's choice: the navigation panel's text,
// the position rows of the details panels, and the map's context menu that
// picks the format and copies the position under the mouse.

#include "vxMapControlTypes.h"

#include <QPoint>
#include <QString>
#include <memory>
#include <vector>

class QAction;
class QLabel;
class QMenu;
class TIniFile;
class TvxCustomMapControl;

enum class TCoordinateFormat
{
  DD,
  DMS,
  UTM,
  MGRS
};

namespace CoordinateFormat
{
// The mask of both axes in decimal degrees, as the map window sets it.
QString DecimalDegreesMask();

// The word of the settings file; unknown or empty text reads as DD.
TCoordinateFormat FromName(const QString& name);
QString Name(TCoordinateFormat format);

// Tenths of a second, hemisphere letter last: 40°30'00.0"N, 015°18'00.0"E.
QString DmsLatitude(double latitude);
QString DmsLongitude(double longitude);
// Zone and hemisphere, easting and northing in whole metres:
// "33n 525420 4483298"; UPS, from 84N and below 80S, without a zone:
// "n 2001928 1989066".
QString Utm(const TvxMapControlGeoPoint& point);
// To 1 m, five digits each way: "33TWE2542083297", "ZAG0192789066".
QString Mgrs(const TvxMapControlGeoPoint& point);

// The one-line text of a point: DD as the masks write it, DMS latitude and
// longitude four blanks apart as the masks join them. A point that is not
// valid, or that the library refuses, reads in DD.
QString Text(TCoordinateFormat format, const TvxMapControlGeoPoint& point);
// Text at least as wide as any the format gives, to size the panel's element.
QString WidestText(TCoordinateFormat format);
}

class TCoordinateFormats
{
public:
  explicit TCoordinateFormats(TvxCustomMapControl* map);
  ~TCoordinateFormats();

  TCoordinateFormat Format() const { return FFormat; }
  // Applies at once: the panel's text and every position row on show.
  void SetFormat(TCoordinateFormat format);

  // [Map] CoordinateFormat. The key is written only after the user chose
  // through the menu, so a stored word the program does not know survives.
  void ReadSettings(const TIniFile& ini);
  void WriteSettings(TIniFile& ini) const;

  // A details panel's latitude and longitude value labels; their captions
  // sit beside them in the panel's grid.
  void AddPositionRows(QLabel* latitude, QLabel* longitude);
  // The rows of `latitude`'s panel show the position given by the two
  // attribute texts. Texts that are no number show as they stand.
  void ShowPosition(QLabel* latitude, const QString& latitudeText, const QString& longitudeText);

  // The context menu at a point of the map, in its own pixels.
  void Popup(const QPoint& mapPoint);
  // Puts the text of the menu's point on the clipboard.
  void CopyPosition();
  QString PositionText() const;

  QMenu* Menu() const { return FMenu.get(); }
  QAction* FormatAction(TCoordinateFormat format) const;
  QAction* CopyAction() const { return FCopyAction; }

private:
  struct TPositionRows;
  void ShowRows(const TPositionRows& rows) const;
  // The panel keeps its width unless a grid reference needs more.
  void FitPanel(const TPositionRows& rows, bool toText) const;

  TvxCustomMapControl* FMap;
  TCoordinateFormat FFormat = TCoordinateFormat::DD;
  bool FChosen = false; // the user picked a format through the menu
  TvxMapControlGeoPoint FMenuPoint;
  std::vector<TPositionRows> FRows;
  std::unique_ptr<QMenu> FMenu;
  QAction* FPositionAction = nullptr;
  QAction* FFormatActions[4] = {};
  QAction* FCopyAction = nullptr;
};
