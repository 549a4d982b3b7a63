#include "RosterU.h"

#include "ClockU.h"
#include "LiveMarkersU.h"
#include "StatusImagesU.h"
#include "vxMapControl.h"
#include "vxMapItemLayer.h"
#include "vxMapPointItems.h"

#include <QCheckBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTableView>
#include <QVBoxLayout>

#include <algorithm>
#include <map>

namespace
{
// A character no XML document can hold, so no ID from the feed can clash.
const QString LostPrefix = QStringLiteral("\u0001lost:");

QString Text(const TvxMapItemAttributes& attributes, const QString& key)
{
  return attributes.ContainsName(key) ? attributes.Value(key).toString() : QString();
}

// Alarms, then the other words that flash, then the rest.
int Severity(const QString& status)
{
  if (TRoster::IsAlarm(status))
    return 0;
  return StatusLook(status).Flashes ? 1 : 2;
}

const QString& SortText(const TRosterEntry& entry, int column)
{
  switch (column) {
  case TRoster::rcName: return entry.Name;
  case TRoster::rcStatus: return entry.Status;
  case TRoster::rcLocation: return entry.Location;
  case TRoster::rcFixStatus: return entry.FixStatus;
  default: return entry.ID;
  }
}

QImage GreyImage(const QImage& source)
{
  QImage grey = source.convertToFormat(QImage::Format_ARGB32);
  for (int y = 0; y < grey.height(); ++y) {
    auto* line = reinterpret_cast<QRgb*>(grey.scanLine(y));
    for (int x = 0; x < grey.width(); ++x) {
      const int g = qGray(line[x]) / 2 + 100;
      line[x] = qRgba(g, g, g, qAlpha(line[x]) * 3 / 4);
    }
  }
  return grey;
}
} // namespace

// ---------------------------------------------------------------------------
// TRoster

bool TRoster::IsAlarm(const QString& status)
{
  return status == QLatin1String("PANIC") || status == QLatin1String("FALL") || status == QLatin1String("MOTION") ||
         status == QLatin1String("HEAT");
}

void TRoster::Take(QString& field, QString&& value, int column)
{
  if (field == value)
    return;
  field = std::move(value);
  if (column == FSortColumn || (column == rcName && !FFilter.isEmpty()))
    FArrangeNeeded = true;
}

void TRoster::Refresh(const TvxMapItemLayer& layer, const QDateTime& now)
{
  FNow = now;
  const quint64 read = ++FReads;
  size_t seen = 0;
  const TvxMapItems& items = layer.MapItems();
  for (int i = 0; i < items.Count(); ++i) {
    const auto* pin = dynamic_cast<const TvxMapPushpin*>(items.Items(i));
    if (!pin)
      continue;
    const TvxMapItemAttributes& attributes = pin->Attributes();
    // The pin of a Get or Put run has no report.
    if (!attributes.ContainsName(LiveMarkerKey::LastUpdate))
      continue;
    QString id = Text(attributes, LiveMarkerKey::ID);
    auto [at, added] = FLive.try_emplace(id);
    TPerson& person = at->second;
    if (person.SeenInRead == read)
      continue; // the first pin of an ID is the one the store keeps up to date
    person.SeenInRead = read;
    ++seen;
    TRosterEntry& entry = person.Entry;
    if (added) {
      entry.ID = std::move(id);
      FArrangeNeeded = true;
      if (!FLost.empty())
        std::erase_if(FLost, [&](const TRosterEntry& lost) { return lost.ID == entry.ID; });
    }
    Take(entry.Name, Text(attributes, LiveMarkerKey::Name), rcName);
    Take(entry.Location, Text(attributes, LiveMarkerKey::Location), rcLocation);
    Take(entry.FixStatus, Text(attributes, LiveMarkerKey::FixStatus), rcFixStatus);
    if (QString status = Text(attributes, LiveMarkerKey::Status); added || status != entry.Status) {
      // The alarms, their order and the counts follow the status.
      entry.Status = std::move(status);
      person.Alarm = IsAlarm(entry.Status);
      person.Severity = Severity(entry.Status);
      FArrangeNeeded = true;
    }
    QDateTime stamp = attributes.Value(LiveMarkerKey::LastUpdate).toDateTime();
    if (FSortColumn == rcLastReport && stamp != entry.LastReport)
      FArrangeNeeded = true;
    entry.LastReport = std::move(stamp);
    person.Latitude = attributes.ContainsName(LiveMarkerKey::Lat) ? attributes.Value(LiveMarkerKey::Lat) : QVariant();
    person.Longitude = attributes.ContainsName(LiveMarkerKey::Lon) ? attributes.Value(LiveMarkerKey::Lon) : QVariant();
  }

  if (seen < FLive.size()) {
    // Those who left together go in ID order, the same every run.
    std::vector<TRosterEntry> left;
    for (auto it = FLive.begin(); it != FLive.end();) {
      if (it->second.SeenInRead == read) {
        ++it;
        continue;
      }
      TRosterEntry lost = std::move(it->second.Entry);
      lost.Lost = true;
      lost.Latitude = it->second.Latitude.toDouble();
      lost.Longitude = it->second.Longitude.toDouble();
      left.push_back(std::move(lost));
      it = FLive.erase(it);
    }
    std::sort(left.begin(), left.end(), [](const TRosterEntry& a, const TRosterEntry& b) { return a.ID < b.ID; });
    for (TRosterEntry& lost : left) {
      std::erase_if(FLost, [&](const TRosterEntry& earlier) { return earlier.ID == lost.ID; });
      FLost.push_back(std::move(lost));
    }
    FArrangeNeeded = true;
  }
  if (FArrangeNeeded)
    Arrange();
}

void TRoster::SetFilter(const QString& text)
{
  FFilter = text.trimmed();
  Arrange();
}

void TRoster::SetSortColumn(int column, Qt::SortOrder order)
{
  FSortColumn = column;
  FSortOrder = order;
  Arrange();
}

bool TRoster::Matches(const TRosterEntry& entry) const
{
  return FFilter.isEmpty() || entry.ID.contains(FFilter, Qt::CaseInsensitive) ||
         entry.Name.contains(FFilter, Qt::CaseInsensitive);
}

void TRoster::Arrange()
{
  std::vector<const TPerson*> all;
  all.reserve(FLive.size());
  FAlarmCount = 0;
  for (const auto& [id, person] : FLive) {
    all.push_back(&person);
    FAlarmCount += person.Alarm;
  }
  const int column = FSortColumn;
  const bool descending = FSortOrder == Qt::DescendingOrder;
  std::sort(all.begin(), all.end(), [column, descending](const TPerson* a, const TPerson* b) {
    if (a->Alarm != b->Alarm)
      return a->Alarm;
    int order = 0;
    if (column == rcLastReport)
      order = a->Entry.LastReport < b->Entry.LastReport ? -1 : (b->Entry.LastReport < a->Entry.LastReport ? 1 : 0);
    else if (column == rcImage)
      order = a->Severity - b->Severity;
    else
      order = QString::compare(SortText(a->Entry, column), SortText(b->Entry, column), Qt::CaseInsensitive);
    if (order == 0)
      order = QString::compare(a->Entry.ID, b->Entry.ID);
    return descending ? order > 0 : order < 0;
  });

  FLiveRows.clear();
  FAlarmOrder.clear();
  for (const TPerson* person : all) {
    if (person->Alarm)
      FAlarmOrder.push_back(person->Entry.ID);
    if (Matches(person->Entry))
      FLiveRows.push_back(&person->Entry);
  }
  // The latest loss on top.
  FLostRows.clear();
  for (auto it = FLost.crbegin(); it != FLost.crend(); ++it)
    if (Matches(*it))
      FLostRows.push_back(&*it);
  FArrangeNeeded = false;
  ++FArrangement;
}

QString TRoster::CountsText() const
{
  std::map<QString, int> counts;
  for (const auto& [id, person] : FLive)
    ++counts[person.Entry.Status];
  std::vector<std::pair<QString, int>> ordered(counts.begin(), counts.end());
  std::stable_sort(ordered.begin(), ordered.end(), [](const auto& a, const auto& b) {
    const int sa = Severity(a.first), sb = Severity(b.first);
    return sa != sb ? sa < sb : a.second > b.second;
  });
  const int people = int(FLive.size());
  QString text = people == 1 ? QStringLiteral("1 person") : QStringLiteral("%1 people").arg(people);
  for (size_t i = 0; i < ordered.size(); ++i)
    text += (i == 0 ? QStringLiteral(": ") : QStringLiteral(", ")) +
            QStringLiteral("%1 %2").arg(ordered[i].second).arg(ordered[i].first.isEmpty() ? QStringLiteral("(no status)")
                                                                                          : ordered[i].first);
  return text;
}

QString TRoster::NextAlarmID(const QString& currentID) const
{
  if (FAlarmOrder.empty())
    return {};
  const auto at = std::find(FAlarmOrder.cbegin(), FAlarmOrder.cend(), currentID);
  if (at == FAlarmOrder.cend() || std::next(at) == FAlarmOrder.cend())
    return FAlarmOrder.front();
  return *std::next(at);
}

const TRosterEntry* TRoster::FindLost(const QString& id) const
{
  for (const TRosterEntry& entry : FLost)
    if (entry.ID == id)
      return &entry;
  return nullptr;
}

void TRoster::Dismiss(const QString& id)
{
  const QString gone = id; // `id` may be the lost entry's own
  if (std::erase_if(FLost, [&](const TRosterEntry& lost) { return lost.ID == gone; }) > 0)
    Arrange();
}

// ---------------------------------------------------------------------------
// TRosterModel

TRosterModel::TRosterModel(TRoster& roster, QObject* parent)
  : QAbstractTableModel(parent), FRoster(roster)
{
}

int TRosterModel::LostHeadingRow() const
{
  return FRoster.Lost().empty() ? -1 : int(FRoster.Live().size());
}

int TRosterModel::rowCount(const QModelIndex& parent) const
{
  if (parent.isValid())
    return 0;
  const int lost = int(FRoster.Lost().size());
  return int(FRoster.Live().size()) + (lost > 0 ? lost + 1 : 0);
}

int TRosterModel::columnCount(const QModelIndex& parent) const
{
  return parent.isValid() ? 0 : TRoster::ColumnCount;
}

const TRosterEntry* TRosterModel::EntryAt(int row) const
{
  const int live = int(FRoster.Live().size());
  if (row >= 0 && row < live)
    return FRoster.Live()[size_t(row)];
  const int lost = row - live - 1;
  if (lost >= 0 && lost < int(FRoster.Lost().size()))
    return FRoster.Lost()[size_t(lost)];
  return nullptr;
}

QVariant TRosterModel::data(const QModelIndex& index, int role) const
{
  if (!index.isValid())
    return {};
  const TRosterEntry* entry = EntryAt(index.row());
  if (!entry) {
    if (role == Qt::DisplayRole && index.column() == TRoster::rcID)
      return QStringLiteral("Lost contact (%1)").arg(FRoster.Lost().size());
    if (role == Qt::FontRole) {
      QFont bold;
      bold.setBold(true);
      return bold;
    }
    return {};
  }
  switch (role) {
  case Qt::DisplayRole:
    switch (index.column()) {
    case TRoster::rcID: return entry->ID;
    case TRoster::rcName: return entry->Name;
    case TRoster::rcStatus: return entry->Lost ? entry->Status + QStringLiteral(" (lost)") : entry->Status;
    case TRoster::rcLocation: return entry->Location;
    case TRoster::rcFixStatus: return entry->FixStatus;
    case TRoster::rcLastReport: {
      const qint64 seconds = entry->LastReport.isValid() ? std::max<qint64>(0, entry->LastReport.secsTo(FRoster.Now())) : 0;
      if (entry->Lost)
        return QStringLiteral("%1 (%2 s ago)").arg(entry->LastReport.time().toString(QStringLiteral("HH:mm:ss"))).arg(seconds);
      return QStringLiteral("%1 s").arg(seconds);
    }
    default: return {};
    }
  case Qt::DecorationRole:
    if (index.column() == TRoster::rcImage) {
      const QString key = (entry->Lost ? LostPrefix : QString()) + entry->Status;
      auto it = const_cast<QHash<QString, QImage>&>(FImages).find(key);
      if (it == FImages.end()) {
        const QImage image = LiveImages().Image(StatusLook(entry->Status).OtherImage).scaled(
          20, 23, Qt::KeepAspectRatio, Qt::SmoothTransformation);
        it = const_cast<QHash<QString, QImage>&>(FImages).insert(key, entry->Lost ? GreyImage(image) : image);
      }
      return it.value();
    }
    return {};
  case Qt::ForegroundRole:
    if (entry->Lost)
      return QColor(0x80, 0x80, 0x80);
    if (TRoster::IsAlarm(entry->Status) && index.column() == TRoster::rcStatus)
      return QColor(0xD0, 0x00, 0x00);
    return {};
  case Qt::ToolTipRole:
    if (index.column() == TRoster::rcName || index.column() == TRoster::rcLocation)
      return index.data(Qt::DisplayRole);
    return {};
  case Qt::UserRole:
    return entry->ID;
  default:
    return {};
  }
}

QVariant TRosterModel::headerData(int section, Qt::Orientation orientation, int role) const
{
  if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
    return {};
  static const char* const Captions[] = {"", "ID", "Name", "Status", "Location", "Fix", "Last report"};
  return section >= 0 && section < TRoster::ColumnCount ? QString::fromLatin1(Captions[section]) : QString();
}

Qt::ItemFlags TRosterModel::flags(const QModelIndex& index) const
{
  if (!index.isValid())
    return Qt::NoItemFlags;
  return EntryAt(index.row()) ? Qt::ItemIsEnabled | Qt::ItemIsSelectable : Qt::ItemIsEnabled;
}

void TRosterModel::sort(int column, Qt::SortOrder order)
{
  FRoster.SetSortColumn(column, order);
  Update();
}

QStringList TRosterModel::RowIDs() const
{
  QStringList ids;
  ids.reserve(rowCount());
  for (const TRosterEntry* entry : FRoster.Live())
    ids << entry->ID;
  if (!FRoster.Lost().empty())
    ids << QString();
  for (const TRosterEntry* entry : FRoster.Lost())
    ids << LostPrefix + entry->ID;
  return ids;
}

void TRosterModel::Update()
{
  if (FRoster.Arrangement() != FShownArrangement) {
    FShownArrangement = FRoster.Arrangement();
    if (QStringList ids = RowIDs(); ids != FShownIDs) {
      beginResetModel();
      FShownIDs = std::move(ids);
      endResetModel();
      return;
    }
  }
  // Same rows in the same order: the values only.
  if (!FShownIDs.isEmpty())
    Q_EMIT dataChanged(index(0, 0), index(int(FShownIDs.size()) - 1, TRoster::ColumnCount - 1));
}

int TRosterModel::RowOf(const QString& id) const
{
  return int(FShownIDs.indexOf(id));
}

int TRosterModel::LostRowOf(const QString& id) const
{
  return int(FShownIDs.indexOf(LostPrefix + id));
}

// ---------------------------------------------------------------------------
// TRosterPanel

TRosterPanel::TRosterPanel(TvxCustomMapControl* map, TvxMapItemLayer* live, QWidget* parent)
  : QFrame(parent), FMap(map), FLive(live), FModel(std::make_unique<TRosterModel>(FRoster))
{
  setObjectName(QStringLiteral("pnlRoster"));
  setMinimumWidth(260);
  auto* root = new QVBoxLayout(this);
  root->setContentsMargins(4, 4, 4, 4);
  root->setSpacing(4);

  lblCounts = new QLabel(this);
  lblCounts->setObjectName(QStringLiteral("lblCounts"));
  lblCounts->setTextFormat(Qt::RichText);
  lblCounts->setWordWrap(true);
  root->addWidget(lblCounts);

  edtFilter = new QLineEdit(this);
  edtFilter->setObjectName(QStringLiteral("edtFilter"));
  edtFilter->setPlaceholderText(QStringLiteral("Filter by ID or name"));
  // Its clear button comes with the first showing (showEvent).
  root->addWidget(edtFilter);

  auto* buttons = new QHBoxLayout;
  btnNextAlarm = new QPushButton(QStringLiteral("Next alarm (F8)"), this);
  btnNextAlarm->setObjectName(QStringLiteral("btnNextAlarm"));
  btnZoomAll = new QPushButton(QStringLiteral("Zoom to everyone"), this);
  btnZoomAll->setObjectName(QStringLiteral("btnZoomAll"));
  buttons->addWidget(btnNextAlarm);
  buttons->addWidget(btnZoomAll);
  root->addLayout(buttons);
  cbNames = new QCheckBox(QStringLiteral("Names on map"), this);
  cbNames->setObjectName(QStringLiteral("cbNames"));
  root->addWidget(cbNames);

  tvRoster = new QTableView(this);
  tvRoster->setObjectName(QStringLiteral("tvRoster"));
  tvRoster->setModel(FModel.get());
  tvRoster->setSelectionBehavior(QAbstractItemView::SelectRows);
  tvRoster->setSelectionMode(QAbstractItemView::SingleSelection);
  tvRoster->setEditTriggers(QAbstractItemView::NoEditTriggers);
  tvRoster->verticalHeader()->hide();
  tvRoster->verticalHeader()->setDefaultSectionSize(24);
  tvRoster->setIconSize(QSize(20, 23));
  tvRoster->setTextElideMode(Qt::ElideRight);
  tvRoster->setWordWrap(false);
  tvRoster->setSortingEnabled(true);
  tvRoster->sortByColumn(TRoster::rcID, Qt::AscendingOrder);
  QHeaderView* header = tvRoster->horizontalHeader();
  header->setStretchLastSection(true);
  header->setSectionResizeMode(QHeaderView::Interactive);
  header->resizeSection(TRoster::rcImage, 28);
  header->resizeSection(TRoster::rcID, 58);
  header->resizeSection(TRoster::rcName, 84);
  header->resizeSection(TRoster::rcStatus, 100); // ROLLCALLACK whole
  header->resizeSection(TRoster::rcLocation, 120);
  header->resizeSection(TRoster::rcFixStatus, 70);
  root->addWidget(tvRoster, 1);

  btnDismiss = new QPushButton(QStringLiteral("Dismiss lost contact"), this);
  btnDismiss->setObjectName(QStringLiteral("btnDismiss"));
  btnDismiss->setEnabled(false);
  root->addWidget(btnDismiss, 0, Qt::AlignRight);

  connect(edtFilter, &QLineEdit::textChanged, this, [this](const QString& text) {
    FRoster.SetFilter(text);
    FModel->Update();
    SetSelectedID(FSelectedID);
  });
  connect(btnNextAlarm, &QPushButton::clicked, this, [this] { NextAlarm(FSelectedID); });
  connect(btnZoomAll, &QPushButton::clicked, this, [this] { ZoomToEveryone(); });
  connect(cbNames, &QCheckBox::toggled, this, [this](bool on) { SetNamesOnMap(on); });
  connect(tvRoster, &QTableView::clicked, this, [this](const QModelIndex& index) { RowClicked(index.row(), false); });
  connect(tvRoster, &QTableView::doubleClicked, this,
          [this](const QModelIndex& index) { RowClicked(index.row(), true); });
  connect(tvRoster->selectionModel(), &QItemSelectionModel::selectionChanged, this, [this] { UpdateDismissButton(); });
  connect(btnDismiss, &QPushButton::clicked, this, [this] {
    const QModelIndexList rows = tvRoster->selectionModel()->selectedRows();
    if (const TRosterEntry* entry = rows.isEmpty() ? nullptr : FModel->EntryAt(rows.first().row()); entry && entry->Lost)
      Dismiss(QString(entry->ID)); // the entry goes with the dismissal
  });
  FRefreshTimer.setSingleShot(true);
  connect(&FRefreshTimer, &QTimer::timeout, this, [this] { RefreshIfStale(); });
  FGhost = new QLabel(FMap);
  FGhost->setObjectName(QStringLiteral("lblGhost"));
  FGhost->hide();
  FMap->installEventFilter(this);
  UpdateHeader();
}

TRosterPanel::~TRosterPanel()
{
  // The view lets go of the model before the model goes.
  tvRoster->setModel(nullptr);
}

bool TRosterPanel::RefreshDue() const
{
  return !FSinceRefresh.isValid() || FSinceRefresh.elapsed() >= MinRefreshIntervalMs;
}

void TRosterPanel::RequestRefresh()
{
  FStale = true;
  if (!FWatchedWindow && window() != this) {
    FWatchedWindow = window();
    FWatchedWindow->installEventFilter(this);
  }
  if (!FRefreshTimer.isActive())
    FRefreshTimer.start(RefreshDue() ? 0 : int(MinRefreshIntervalMs - FSinceRefresh.elapsed()));
}

void TRosterPanel::RefreshIfStale()
{
  if (!FStale)
    return;
  if (!isHidden()) {
    Refresh();
    return;
  }
  // Hidden: what shows on the map still follows the layer.
  if (!FGhostID.isEmpty() && LivePin(FGhostID))
    Refresh(); // the last-seen person is back
  else if (cbNames->isChecked())
    SetNamesOnMap(true);
}

void TRosterPanel::RefreshBeforeAgeing()
{
  if (FStale)
    Refresh();
}

void TRosterPanel::showEvent(QShowEvent* event)
{
  // The clear button's icon costs a search through the icon themes, which
  // a roster hidden all run long need not pay at start.
  if (!edtFilter->isClearButtonEnabled())
    edtFilter->setClearButtonEnabled(true);
  // Shown by the user, not by the window coming back from the task bar.
  if (FStale && !event->spontaneous())
    Refresh();
  QFrame::showEvent(event);
}

void TRosterPanel::Refresh()
{
  FRefreshTimer.stop();
  FStale = false;
  FSinceRefresh.start();
  FRoster.Refresh(*FLive, Clock::Now());
  if (!FGhostID.isEmpty() && !FRoster.FindLost(FGhostID))
    HideGhost();
  if (cbNames->isChecked())
    SetNamesOnMap(true);
  FModel->Update();
  SetSelectedID(FSelectedID);
  UpdateHeader();
}

void TRosterPanel::UpdateHeader()
{
  QString text = FRoster.CountsText().toHtmlEscaped();
  if (const int alarms = FRoster.AlarmCount(); alarms > 0)
    text = QStringLiteral("<span style=\"color:#D00000; font-weight:bold\">%1 in alarm</span><br>%2")
             .arg(alarms)
             .arg(text);
  lblCounts->setText(text);
  btnNextAlarm->setEnabled(FRoster.AlarmCount() > 0);
}

void TRosterPanel::UpdateDismissButton()
{
  const QModelIndexList rows = tvRoster->selectionModel()->selectedRows();
  const TRosterEntry* entry = rows.isEmpty() ? nullptr : FModel->EntryAt(rows.first().row());
  btnDismiss->setEnabled(entry && entry->Lost);
}

void TRosterPanel::SetSelectedID(const QString& id)
{
  FSelectedID = id;
  const int row = FModel->RowOf(id);
  FSyncing = true;
  if (row < 0)
    tvRoster->selectionModel()->clearSelection();
  else if (tvRoster->currentIndex().row() != row || !tvRoster->selectionModel()->isRowSelected(row, {}))
    tvRoster->selectRow(row);
  FSyncing = false;
}

TvxMapPushpin* TRosterPanel::LivePin(const QString& id) const
{
  const TvxMapItems& items = FLive->MapItems();
  for (int i = 0; i < items.Count(); ++i) {
    auto* pin = dynamic_cast<TvxMapPushpin*>(items.Items(i));
    if (pin && pin->Attributes().ContainsName(LiveMarkerKey::LastUpdate) && Text(pin->Attributes(), LiveMarkerKey::ID) == id)
      return pin;
  }
  return nullptr;
}

void TRosterPanel::SelectPerson(const QString& id, bool centre)
{
  TvxMapPushpin* pin = LivePin(id);
  if (!pin)
    return;
  FSelectedID = id;
  FMap->Select(pin, Qt::NoModifier, false);
  if (centre)
    FMap->SetCenterPoint(pin->Location().GeoPoint());
}

void TRosterPanel::RowClicked(int row, bool doubleClick)
{
  if (FSyncing)
    return;
  const TRosterEntry* entry = FModel->EntryAt(row);
  if (!entry)
    return;
  if (entry->Lost)
    ShowLost(entry->ID);
  else
    SelectPerson(entry->ID, doubleClick);
}

void TRosterPanel::NextAlarm(const QString& currentID)
{
  const QString id = FRoster.NextAlarmID(currentID);
  if (id.isEmpty())
    return;
  SelectPerson(id, true);
  SetSelectedID(id);
}

void TRosterPanel::ZoomToEveryone()
{
  if (FLive->MapItems().Count() > 0)
    FMap->ZoomToFitLayerItems({FLive}, 0.15);
}

bool TRosterPanel::NamesOnMap() const
{
  return cbNames->isChecked();
}

void TRosterPanel::SetNamesOnMap(bool on)
{
  if (cbNames->isChecked() != on) {
    cbNames->setChecked(on); // comes back here through the toggle
    return;
  }
  const TvxMapItems& items = FLive->MapItems();
  for (int i = 0; i < items.Count(); ++i) {
    auto* pin = dynamic_cast<TvxMapPushpin*>(items.Items(i));
    if (!pin || !pin->Attributes().ContainsName(LiveMarkerKey::LastUpdate))
      continue;
    TvxMapItemTitleOptions& title = pin->TitleOptions();
    const QString pattern =
      !on ? QString() : Text(pin->Attributes(), LiveMarkerKey::Name).isEmpty() ? QStringLiteral("{ID}") : QStringLiteral("{NAME}");
    if (title.Text() != pattern)
      title.SetText(pattern);
    const TvxMapItemTitleVisibility visibility = on ? mitvVisible : mitvAuto;
    if (title.Visibility() != visibility)
      title.SetVisibility(visibility);
  }
}

void TRosterPanel::ShowLost(const QString& id)
{
  const TRosterEntry* entry = FRoster.FindLost(id);
  if (!entry || !FGhost)
    return;
  const QImage image = GreyImage(LiveImages().Image(StatusLook(entry->Status).OtherImage));
  FGhost->setPixmap(QPixmap::fromImage(image));
  FGhost->resize(image.size());
  FGhost->setToolTip(QStringLiteral("Last seen: %1 %2 at %3")
                       .arg(entry->ID, entry->Name, entry->LastReport.time().toString(QStringLiteral("HH:mm:ss"))));
  FGhostID = id;
  FGhostPoint = TvxMapControlGeoPoint::Create(entry->Latitude, entry->Longitude);
  FMap->SetCenterPoint(FGhostPoint);
  FGhost->show();
  FGhost->raise();
  PlaceGhost();
}

void TRosterPanel::PlaceGhost()
{
  if (!FGhost || FGhostID.isEmpty())
    return;
  // Centred on the point, as the live pins are.
  const TvxPointDouble at = FLive->GeoPointToScreenPoint(FGhostPoint);
  const QPoint topLeft(qRound(at.X) - FGhost->width() / 2, qRound(at.Y) - FGhost->height() / 2);
  if (FGhost->pos() != topLeft)
    FGhost->move(topLeft);
}

bool TRosterPanel::eventFilter(QObject* watched, QEvent* event)
{
  if (watched == FMap && (event->type() == QEvent::Paint || event->type() == QEvent::Resize))
    PlaceGhost();
  // The window is about to paint: a due round goes first, so that the
  // table shows the frames the map shows.
  if (watched == FWatchedWindow && event->type() == QEvent::UpdateRequest && FStale && !isHidden() && RefreshDue())
    Refresh();
  return QFrame::eventFilter(watched, event);
}

void TRosterPanel::HideGhost()
{
  FGhostID.clear();
  if (FGhost)
    FGhost->hide();
}

void TRosterPanel::Dismiss(const QString& id)
{
  if (FGhostID == id)
    HideGhost();
  FRoster.Dismiss(id);
  FModel->Update();
  SetSelectedID(FSelectedID);
  UpdateHeader();
  UpdateDismissButton();
}
