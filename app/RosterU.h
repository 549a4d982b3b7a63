#pragma once

// The dispatcher's roster beside the map: everyone on the live marker
// layer in one list, alarms first, counts by status, the next alarm at a
// key, and the people the ageing pass took off the map kept as "Lost
// contact" with where they were last seen. It reads the live layer and
// never changes the people on it, so the map's own rules stay as they are.

#include "vxMapControlTypes.h"

#include <QAbstractTableModel>
#include <QDateTime>
#include <QElapsedTimer>
#include <QFrame>
#include <QHash>
#include <QImage>
#include <QLabel>
#include <QPointer>
#include <QString>
#include <QStringList>
#include <QTimer>
#include <functional>
#include <memory>
#include <vector>

class QCheckBox;

class QLineEdit;
class QPushButton;
class QTableView;
class TvxCustomMapControl;
class TvxMapItemLayer;
class TvxMapPushpin;

struct TRosterEntry
{
  QString ID;
  QString Name;
  QString Status;
  QString Location;
  QString FixStatus;
  double Latitude = 0;
  double Longitude = 0;
  QDateTime LastReport;
  bool Lost = false;
};

// The roster without a window: what the list shows, in its order.
class TRoster
{
public:
  enum TColumn
  {
    rcImage,
    rcID,
    rcName,
    rcStatus,
    rcLocation,
    rcFixStatus,
    rcLastReport,
    ColumnCount
  };

  // Alarm words first in the list and in the alarm queue.
  static bool IsAlarm(const QString& status);

  // Reads the live layer at `now`. People who left it since the last call
  // go to the lost list; a lost person who reports again leaves it.
  void Refresh(const TvxMapItemLayer& layer, const QDateTime& now);

  // Case-insensitive, on ID or name; lost people are filtered too.
  void SetFilter(const QString& text);
  // Alarms stay first whatever the column.
  void SetSortColumn(int column, Qt::SortOrder order);

  // The rows on show: live people, sorted and filtered, then lost ones.
  const std::vector<TRosterEntry>& Live() const { return FLiveRows; }
  const std::vector<TRosterEntry>& Lost() const { return FLostRows; }
  int PeopleCount() const { return int(FLive.size()); }
  int AlarmCount() const { return FAlarmCount; }
  // "14 people: 1 PANIC, 3 EVAC, 10 ON": alarms, then the other flashing
  // words, then the rest, most first within each.
  QString CountsText() const;
  // The person in alarm after `currentID` in list order, cycling; empty
  // when nobody is in alarm. The filter does not hide anybody here.
  QString NextAlarmID(const QString& currentID) const;
  const TRosterEntry* FindLost(const QString& id) const;
  // The user is done with a lost person.
  void Dismiss(const QString& id);
  const QDateTime& Now() const { return FNow; }

private:
  void Arrange();
  bool Matches(const TRosterEntry& entry) const;

  QHash<QString, TRosterEntry> FLive; // by ID
  std::vector<TRosterEntry> FLost;    // oldest loss first
  std::vector<TRosterEntry> FLiveRows;
  std::vector<TRosterEntry> FLostRows;
  std::vector<QString> FAlarmOrder; // everybody in alarm, in list order
  QString FFilter;
  int FSortColumn = rcID;
  Qt::SortOrder FSortOrder = Qt::AscendingOrder;
  int FAlarmCount = 0;
  QDateTime FNow;
};

// The roster as a table: live rows, a "Lost contact" heading row, lost rows.
class TRosterModel : public QAbstractTableModel
{
  Q_OBJECT

public:
  explicit TRosterModel(TRoster& roster, QObject* parent = nullptr);

  int rowCount(const QModelIndex& parent = {}) const override;
  int columnCount(const QModelIndex& parent = {}) const override;
  QVariant data(const QModelIndex& index, int role) const override;
  QVariant headerData(int section, Qt::Orientation orientation, int role) const override;
  Qt::ItemFlags flags(const QModelIndex& index) const override;
  void sort(int column, Qt::SortOrder order) override;

  // The roster changed: same rows in the same order only repaint.
  void Update();
  // Row of a live person's ID, or of a lost one's; -1 when not on show.
  int RowOf(const QString& id) const;
  int LostRowOf(const QString& id) const;
  // The entry of a row; null for the heading row.
  const TRosterEntry* EntryAt(int row) const;
  int LostHeadingRow() const;

private:
  QStringList RowIDs() const;

  TRoster& FRoster;
  QStringList FShownIDs;
  QHash<QString, QImage> FImages; // status image per status word
};

class TRosterPanel : public QFrame
{
  Q_OBJECT

public:
  TRosterPanel(TvxCustomMapControl* map, TvxMapItemLayer* live, QWidget* parent = nullptr);
  ~TRosterPanel() override;

  TRoster& Roster() { return FRoster; }
  TRosterModel& Model() { return *FModel; }

  // One round: the layer read again, the table and the header updated.
  void Refresh();
  // A round now, or when a quarter second has passed since the last one:
  // a burst of frames costs one round, not one per frame.
  void RequestRefresh();
  static constexpr int MinRefreshIntervalMs = 250;
  // The map selected someone: the row follows without selecting back.
  void SetSelectedID(const QString& id);
  // Selects and centres the next person in alarm after `currentID`.
  void NextAlarm(const QString& currentID);
  void ZoomToEveryone();
  // Each live marker shows its NAME (or ID) below it.
  void SetNamesOnMap(bool on);
  bool NamesOnMap() const;
  // The last-seen marker of a lost person, or none.
  void ShowLost(const QString& id);
  void Dismiss(const QString& id);
  QString GhostID() const { return FGhostID; }
  // The last-seen marker: a picture over the map rather than an item, so
  // that no layer is added to the map's own list.
  QLabel* Ghost() const { return FGhost; }

  // The map's selection path, so that the window's own handler runs.
  void SelectPerson(const QString& id, bool centre);

  QLabel* lblCounts = nullptr;
  QLineEdit* edtFilter = nullptr;
  QPushButton* btnNextAlarm = nullptr;
  QPushButton* btnZoomAll = nullptr;
  QCheckBox* cbNames = nullptr;
  QTableView* tvRoster = nullptr;
  QPushButton* btnDismiss = nullptr;

protected:
  bool eventFilter(QObject* watched, QEvent* event) override;
  void showEvent(QShowEvent* event) override;

private:
  void PlaceGhost();
  void RowClicked(int row, bool doubleClick);
  void UpdateHeader();
  void UpdateDismissButton();
  void HideGhost();
  TvxMapPushpin* LivePin(const QString& id) const;

  TvxCustomMapControl* FMap;
  TvxMapItemLayer* FLive;
  TRoster FRoster;
  std::unique_ptr<TRosterModel> FModel;
  QString FSelectedID;
  QString FGhostID;
  TvxMapControlGeoPoint FGhostPoint{};
  QPointer<QLabel> FGhost; // a child of the map
  bool FSyncing = false;
  QElapsedTimer FSinceRefresh;
  QTimer FRefreshTimer;
};
