#pragma once

#include "FeedMessageU.h"
#include "GlobalsU.h"

#include <QWidget>
#include <vector>

// Holds the map's place in the main window until the map control exists:
// it keeps the centre and zoom the shell sets and reads back, brackets
// updates, and lists the people the feed reports so that a run can be
// followed. The map control takes over its name, "Map", and its calls.
class TMapStandIn : public QWidget
{
  Q_OBJECT

public:
  explicit TMapStandIn(QWidget* parent = nullptr);

  double CenterLatitude() const { return FCenterLatitude; }
  double CenterLongitude() const { return FCenterLongitude; }
  void SetCenter(double latitude, double longitude);
  double ZoomLevel() const { return FZoomLevel; }
  void SetZoomLevel(double zoom);

  // Nested update brackets repaint once, when the outermost closes.
  void BeginUpdate() { ++FUpdateCount; }
  void EndUpdate();
  int UpdateCount() const { return FUpdateCount; }

  // Height of the navigation panel along the map's bottom edge.
  int NavigationPanelHeight() const { return 50; }

  // Keeps the latest report per person. True when this ID was new.
  bool ShowReport(const TLiveMarkerReport& report);
  bool HasReports() const { return !FPeople.empty(); }
  int PersonCount() const { return static_cast<int>(FPeople.size()); }
  const TLiveMarkerReport* FindPerson(const QString& id) const;
  void SetSelectedId(const QString& id);

protected:
  void paintEvent(QPaintEvent* event) override;

private:
  void Changed();

  double FCenterLatitude = 0;
  double FCenterLongitude = 0;
  double FZoomLevel = 1;
  int FUpdateCount = 0;
  bool FDirty = false;
  std::vector<TLiveMarkerReport> FPeople; // in order of first report
  QString FSelectedId;
};
