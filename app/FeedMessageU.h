#pragma once

#include <QString>
#include <QStringList>
#include <vector>

// One person's report as the feed delivers it, converted and ready for the
// live marker store.
struct TLiveMarkerReport
{
  QString Id;
  QString Name;
  QString Location;
  QString Status;
  double Lat = 0;
  double Lon = 0;
  QString FixStatus;
  int Radius = 0;
  bool Init = false;
};

// One frame of the parent, read: a KestrelMapData document with an
// optional System part of commands and an optional LiveMarkers part of
// reports. Names are case-sensitive; a missing attribute reads as empty.
struct TFeedMessage
{
  QStringList Commands;                  // the COMMAND of each System child, in order
  bool HasLiveMarkers = false;           // LiveMarkers has at least one child
  std::vector<TLiveMarkerReport> Reports; // the reports read before any failure
  QString ReportFailure;                 // why the rest of the reports was dropped; empty when none
};

// Throws EMapwrightError with the parser's text for a frame that is no XML,
// and "Node "KestrelMapData" not found" for another document element.
// A report reads its attributes in the order ID, NAME, LOCATION, STATUS,
// LAT, LON, FIXSTATUS, FIXRADIUS, INIT; LAT and LON in the user's locale;
// a LAT, LON or FIXRADIUS that is missing or no number drops it and the
// reports after it (ReportFailure).
TFeedMessage ReadFeedMessage(const QString& text);

// The two readers ReadFeedMessage chooses between, for the tests that hold
// them to the same results. The plain reader takes the frames a parent
// writes (plain elements, attributes and text) and returns false, leaving
// `message` as it was, for any other; the stream reader takes every frame.
bool ReadPlainFeedMessage(const QString& text, TFeedMessage& message);
TFeedMessage ReadFeedMessageStreamed(const QString& text);
