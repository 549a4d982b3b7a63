// The roster beside the map in RunTime runs: frames in, rows out, alarms
// first, lost contact after the ageing pass, selection both ways.

#include "ClockU.h"
#include "DialogsU.h"
#include "InternetProbeU.h"
#include "RosterU.h"
#include "ShellFixtures.h"
#include "TestRegistry.h"
#include "vxMapControl.h"
#include "vxMapItem.h"
#include "vxMapPointItems.h"

#include <QApplication>
#include <QCheckBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTableView>
#include <QTimer>
#include <QToolButton>

namespace
{
const QString Site = QStringLiteral("[Startup]\nStartLat=41.3133\nStartLon=-80.3387\nStartZoom=17\n");

QString Report(const QString& id, const QString& name, const QString& status, double lat, double lon)
{
  return QStringLiteral("<M ID=\"%1\" NAME=\"%2\" LOCATION=\"[0001] Hall\" STATUS=\"%3\" LAT=\"%4\" LON=\"%5\" "
                        "FIXSTATUS=\"GOOD\" FIXRADIUS=\"10\"/>")
    .arg(id, name.toHtmlEscaped(), status.toHtmlEscaped(), QString::number(lat, 'f', 6), QString::number(lon, 'f', 6));
}

QString Frame(const QString& reports)
{
  return QStringLiteral("<KestrelMapData><LiveMarkers>") + reports + QStringLiteral("</LiveMarkers></KestrelMapData>");
}

// A frame, and the roster's round without waiting for its quarter second.
void Feed(TfrmMain& form, const QString& frame)
{
  form.TCPDataReceived(frame);
  form.pnlRoster->Refresh();
}

void Tick(TfrmMain& form)
{
  form.PingTimerTimer();
  form.pnlRoster->Refresh();
}

QStringList Column(TRosterModel& model, int column)
{
  QStringList texts;
  for (int row = 0; row < model.rowCount(); ++row)
    texts << model.index(row, column).data().toString();
  return texts;
}
}

class TestRoster : public QObject
{
  Q_OBJECT

  QTemporaryDir FDir;
  TManualClock* FNow = nullptr;

  // An empty `ini` keeps the settings file the last run left.
  std::unique_ptr<TfrmMain> Open(const QString& mode, const QString& ini = Site)
  {
    auto form = std::make_unique<TfrmMain>(QStringList{ini.isEmpty() ? FDir.path() : WriteIni(FDir, ini), mode});
    form->resize(1400, 800);
    form->show();
    form->PingTimer->stop(); // ticks by hand
    QTest::qWait(20);
    return form;
  }

private Q_SLOTS:
  void initTestCase() { InternetProbe::SetProbe([] { return false; }); }

  void init()
  {
    Dialogs::Set(std::make_unique<TRecordingDialogs>());
    auto clock = std::make_unique<TManualClock>(QDateTime(QDate(2026, 11, 23), QTime(14, 0)));
    FNow = clock.get();
    Clock::Set(std::move(clock));
  }

  void cleanup()
  {
    Clock::Set(nullptr);
    Dialogs::Set(nullptr);
  }

  // Alarms first whatever the sort; counts by status; the filter on ID or
  // name; a row click selects through the map, a map selection picks the row.
  void rowsCountsFilterAndSelection()
  {
    auto form = Open(QStringLiteral("RunTime"));
    QVERIFY(form->pnlRoster->isVisible());
    QVERIFY(form->btnRoster->isChecked());
    TRosterModel& model = form->pnlRoster->Model();
    Feed(*form, Frame(Report("30-02", "Zoe", "ON", 41.3133, -80.3387) +
                                Report("30-01", "Adam", "EVAC", 41.3134, -80.3386) +
                                Report("30-04", "Mia", "PANIC", 41.3135, -80.3385) +
                                Report("30-03", "Bob", "ON", 41.3136, -80.3384) +
                                Report("30-05", "Eve", "FALL", 41.3137, -80.3383)));
    QCOMPARE(Column(model, TRoster::rcID), QStringList({"30-04", "30-05", "30-01", "30-02", "30-03"}));
    QCOMPARE(form->pnlRoster->Roster().CountsText(), QStringLiteral("5 people: 1 FALL, 1 PANIC, 1 EVAC, 2 ON"));
    QVERIFY(form->pnlRoster->lblCounts->text().contains("2 in alarm"));

    form->pnlRoster->tvRoster->sortByColumn(TRoster::rcName, Qt::DescendingOrder);
    QCOMPARE(Column(model, TRoster::rcName), QStringList({"Mia", "Eve", "Zoe", "Bob", "Adam"}));

    form->pnlRoster->edtFilter->setText(QStringLiteral("o"));
    QCOMPARE(Column(model, TRoster::rcName), QStringList({"Zoe", "Bob"}));
    form->pnlRoster->edtFilter->setText(QStringLiteral("30-0"));
    QCOMPARE(model.rowCount(), 5);

    // A click on Bob's row: the window's own selection path runs.
    const int bob = model.RowOf(QStringLiteral("30-03"));
    QTableView* view = form->pnlRoster->tvRoster;
    QTest::mouseClick(view->viewport(), Qt::LeftButton, {}, view->visualRect(model.index(bob, TRoster::rcName)).center());
    QCOMPARE(form->CurrentUserID(), QStringLiteral("30-03"));
    QCOMPARE(form->lblName->text(), QStringLiteral("Bob"));

    // The map selects Zoe: the row follows.
    form->Map->Select(form->LiveMarkers().FindKestrelLiveMarker(QStringLiteral("30-02")), Qt::NoModifier, false);
    QCOMPARE(form->CurrentUserID(), QStringLiteral("30-02"));
    QCOMPARE(view->selectionModel()->selectedRows().value(0).row(), model.RowOf(QStringLiteral("30-02")));

    // The next alarm from Zoe cycles through the two alarms, in list order.
    form->RosterNextAlarm();
    QCOMPARE(form->CurrentUserID(), QStringLiteral("30-04"));
    form->RosterNextAlarm();
    QCOMPARE(form->CurrentUserID(), QStringLiteral("30-05"));
    form->RosterNextAlarm();
    QCOMPARE(form->CurrentUserID(), QStringLiteral("30-04"));

    // Markup stays text.
    // A burst of frames: the roster catches up within a quarter second.
    form->TCPDataReceived(Frame(Report("30-06", "<b>Al</b>", "<i>X</i>", 41.3138, -80.3382)));
    QTRY_VERIFY_WITH_TIMEOUT(form->pnlRoster->lblCounts->text().contains("&lt;i&gt;X&lt;/i&gt;"), 1000);
    QVERIFY(Column(model, TRoster::rcName).contains("<b>Al</b>"));
  }

  // The ageing pass takes people off the map; the roster keeps them as lost
  // contact with their last place, shows it on request, lets them go on
  // dismissal and takes them back when they report.
  void lostContact()
  {
    TLoopbackParent parent;
    auto form = Open(QStringLiteral("RunTime"), Site + QStringLiteral("TCPPort=%1\n").arg(parent.Port()));
    QVERIFY(parent.WaitForPeer());
    QTRY_VERIFY(form->TCPListenerActive());
    TRosterPanel& roster = *form->pnlRoster;
    Feed(*form, Frame(Report("A", "Ann", "ON", 41.3133, -80.3387) + Report("B", "Ben", "EVAC", 41.3140, -80.3380)));
    FNow->Advance(20000);
    Feed(*form, Frame(Report("B", "Ben", "EVAC", 41.3141, -80.3381)));
    FNow->Advance(11000);
    Tick(*form); // the pass: A is 31 s old, B 11 s

    QCOMPARE(PersonCount(*form), 1);
    QCOMPARE(roster.Roster().PeopleCount(), 1);
    QCOMPARE(int(roster.Roster().Lost().size()), 1);
    const TRosterEntry& ann = *roster.Roster().Lost().front();
    QCOMPARE(ann.ID, QStringLiteral("A"));
    QCOMPARE(ann.Latitude, 41.3133);
    TRosterModel& model = roster.Model();
    QCOMPARE(model.index(model.LostHeadingRow(), TRoster::rcID).data().toString(), QStringLiteral("Lost contact (1)"));
    QCOMPARE(model.index(model.LostRowOf("A"), TRoster::rcLastReport).data().toString(),
             QStringLiteral("14:00:00 (31 s ago)"));

    roster.ShowLost(QStringLiteral("A"));
    QVERIFY(roster.Ghost()->isVisible());
    QCOMPARE(form->Map->CenterPoint().Latitude(), 41.3133);
    const QPoint ghostCentre = roster.Ghost()->geometry().center();
    QVERIFY((ghostCentre - form->Map->rect().center()).manhattanLength() <= 2);

    // Ann reports again: out of the lost list, the ghost goes.
    Feed(*form, Frame(Report("A", "Ann", "ON", 41.3134, -80.3388)));
    QVERIFY(roster.Roster().Lost().empty());
    QVERIFY(!roster.Ghost()->isVisible());
    QCOMPARE(model.LostHeadingRow(), -1);

    // Lost again, then dismissed by the user.
    FNow->Advance(31000);
    Tick(*form);
    QCOMPARE(int(roster.Roster().Lost().size()), 2);
    roster.ShowLost(QStringLiteral("B"));
    roster.tvRoster->selectRow(model.LostRowOf("B"));
    QVERIFY(roster.btnDismiss->isEnabled());
    roster.btnDismiss->click();
    QVERIFY(!roster.Ghost()->isVisible());
    QVERIFY(!roster.Roster().FindLost(QStringLiteral("B")));
    QVERIFY(roster.Roster().FindLost(QStringLiteral("A")));
  }

  // Frames only mark the roster stale: a burst costs one round, which
  // runs before the window's next paint shows the map.
  void burstIsOneRoundBeforeThePaint()
  {
    auto form = Open(QStringLiteral("RunTime"));
    TRosterModel& model = form->pnlRoster->Model();
    int resets = 0;
    connect(&model, &QAbstractItemModel::modelReset, this, [&] { ++resets; });
    form->TCPDataReceived(Frame(Report("B1", "Una", "ON", 41.3133, -80.3387)));
    form->TCPDataReceived(Frame(Report("B2", "Ivo", "ON", 41.3134, -80.3386)));
    form->TCPDataReceived(Frame(Report("B3", "Oda", "HEAT", 41.3135, -80.3385)));
    QCoreApplication::sendPostedEvents(nullptr, QEvent::UpdateRequest);
    QCOMPARE(Column(model, TRoster::rcID), QStringList({"B3", "B1", "B2"}));
    QVERIFY(form->pnlRoster->lblCounts->text().contains("1 in alarm"));
    QCOMPARE(resets, 1);
  }

  // Rows are sorted again only when a change moves them: each kind of
  // change below must still move them, and a report that moves nobody
  // keeps the rows and the selection.
  void changesMoveTheRows()
  {
    auto form = Open(QStringLiteral("RunTime"));
    TRosterPanel& roster = *form->pnlRoster;
    TRosterModel& model = roster.Model();
    const auto at = [](const QString& report, const QString& location) {
      return QString(report).replace(QStringLiteral("[0001] Hall"), location);
    };
    Feed(*form, Frame(Report("C1", "Ann", "ON", 41.3133, -80.3387) + Report("C2", "Ben", "ON", 41.3134, -80.3386) +
                      Report("C3", "Cy", "ON", 41.3135, -80.3385)));
    roster.tvRoster->sortByColumn(TRoster::rcLocation, Qt::AscendingOrder);
    Feed(*form, Frame(at(Report("C3", "Cy", "ON", 41.3135, -80.3385), "[0000] Cellar")));
    QCOMPARE(Column(model, TRoster::rcID), QStringList({"C3", "C1", "C2"}));

    Feed(*form, Frame(Report("C2", "Ben", "PANIC", 41.3134, -80.3386)));
    QCOMPARE(Column(model, TRoster::rcID), QStringList({"C2", "C3", "C1"}));
    QCOMPARE(roster.Roster().AlarmCount(), 1);
    Feed(*form, Frame(Report("C2", "Ben", "ON", 41.3134, -80.3386)));
    QCOMPARE(Column(model, TRoster::rcID), QStringList({"C3", "C1", "C2"}));

    // The filter reads the names as they are now.
    roster.edtFilter->setText(QStringLiteral("nn"));
    QCOMPARE(Column(model, TRoster::rcID), QStringList({"C1"}));
    Feed(*form, Frame(Report("C2", "Benn", "ON", 41.3134, -80.3386)));
    QCOMPARE(Column(model, TRoster::rcID), QStringList({"C1", "C2"}));
    roster.edtFilter->clear();

    // Moving nobody: same rows, the selection stays, the values are new.
    roster.SetSelectedID(QStringLiteral("C1"));
    int resets = 0;
    connect(&model, &QAbstractItemModel::modelReset, this, [&] { ++resets; });
    FNow->Advance(3000);
    Feed(*form, Frame(Report("C1", "Ann", "ON", 41.3133, -80.3387)));
    QCOMPARE(resets, 0);
    QCOMPARE(roster.tvRoster->selectionModel()->selectedRows().value(0).row(), model.RowOf(QStringLiteral("C1")));
    QCOMPARE(model.index(model.RowOf(QStringLiteral("C2")), TRoster::rcLastReport).data().toString(),
             QStringLiteral("3 s"));

    // By the last report, newest last: a new report moves its row.
    roster.tvRoster->sortByColumn(TRoster::rcLastReport, Qt::AscendingOrder);
    QCOMPARE(Column(model, TRoster::rcID), QStringList({"C2", "C3", "C1"}));
    FNow->Advance(2000);
    Feed(*form, Frame(Report("C2", "Benn", "ON", 41.3134, -80.3386)));
    QCOMPARE(Column(model, TRoster::rcID), QStringList({"C3", "C1", "C2"}));
  }

  // A hidden roster does no rounds, yet the names on the map follow
  // newcomers, and someone the ageing pass takes off meanwhile shows as
  // lost with their last report once the roster is shown.
  void hiddenRosterCatchesUp()
  {
    TLoopbackParent parent;
    auto form = Open(QStringLiteral("RunTime"), Site + QStringLiteral("TCPPort=%1\n").arg(parent.Port()));
    QVERIFY(parent.WaitForPeer());
    QTRY_VERIFY(form->TCPListenerActive());
    TRosterPanel& roster = *form->pnlRoster;
    roster.cbNames->setChecked(true);
    form->btnRosterClick();
    QVERIFY(roster.isHidden());

    form->TCPDataReceived(Frame(Report("H1", "Hal", "ON", 41.3133, -80.3387) + Report("H2", "Hedy", "ON", 41.3134, -80.3386)));
    FNow->Advance(20000);
    form->TCPDataReceived(Frame(QString(Report("H2", "Hedy", "EVAC", 41.3139, -80.3381))
                                  .replace(QStringLiteral("[0001] Hall"), QStringLiteral("[0007] Stair B"))));
    QTRY_COMPARE(form->LiveMarkers().FindKestrelLiveMarker(QStringLiteral("H2"))->TitleOptions().Text(),
                 QStringLiteral("{NAME}"));
    QCOMPARE(roster.Roster().PeopleCount(), 0);

    FNow->Advance(16000);
    form->TCPDataReceived(Frame(Report("H1", "Hal", "ON", 41.3133, -80.3387)));
    form->PingTimerTimer(); // the pass: H2 is 16 s old
    QCOMPARE(PersonCount(*form), 1);
    form->btnRosterClick();
    QVERIFY(!roster.isHidden());
    QCOMPARE(roster.Roster().PeopleCount(), 1);
    const TRosterEntry* hedy = roster.Roster().FindLost(QStringLiteral("H2"));
    QVERIFY(hedy);
    QCOMPARE(hedy->Latitude, 41.3139);
    TRosterModel& model = roster.Model();
    const int row = model.LostRowOf(QStringLiteral("H2"));
    QCOMPARE(model.index(row, TRoster::rcLastReport).data().toString(), QStringLiteral("14:00:20 (16 s ago)"));
    QCOMPARE(model.index(row, TRoster::rcLocation).data().toString(), QStringLiteral("[0007] Stair B"));
  }

  // A frame whose message box holds the feed: the notice shows on the top
  // strip while the box, owned by the main window, is open.
  void pausedNotice()
  {
    TLoopbackParent parent;
    auto form = Open(QStringLiteral("RunTime"), Site + QStringLiteral("TCPPort=%1\n").arg(parent.Port()));
    QVERIFY(parent.WaitForPeer());
    QTRY_VERIFY(form->TCPListenerActive());
    Dialogs::Set(nullptr); // the boxes on screen
    bool shownWhileOpen = false;
    QWidget* owner = nullptr;
    QTimer::singleShot(300, this, [&] {
      shownWhileOpen = form->lblPaused->isVisible();
      if (QWidget* box = QApplication::activeModalWidget()) {
        owner = box->parentWidget();
        box->close();
      }
    });
    parent.Send("<KestrelMapData><LiveMarkers><M ID=\"X\" LAT=\"north\" LON=\"1\" FIXRADIUS=\"1\"/>"
                "</LiveMarkers></KestrelMapData>\r");
    QTRY_VERIFY_WITH_TIMEOUT(owner != nullptr, 3000);
    QVERIFY(shownWhileOpen);
    QCOMPARE(owner, form.get());
    QTRY_VERIFY(!form->lblPaused->isVisible());
  }

  // Names on the map through the item titles; the roster's switch and its
  // keys reach the settings file only once the user has used them.
  void namesAndSettings()
  {
    {
      auto form = Open(QStringLiteral("RunTime"));
      Feed(*form, Frame(Report("N1", "Nora", "ON", 41.3133, -80.3387) + Report("N2", "", "ON", 41.3134, -80.3386)));
      form->pnlRoster->cbNames->setChecked(true);
      TvxMapPushpin* nora = form->LiveMarkers().FindKestrelLiveMarker(QStringLiteral("N1"));
      TvxMapPushpin* unnamed = form->LiveMarkers().FindKestrelLiveMarker(QStringLiteral("N2"));
      QCOMPARE(nora->TitleOptions().Text(), QStringLiteral("{NAME}"));
      QCOMPARE(nora->TitleOptions().Visibility(), mitvVisible);
      QCOMPARE(unnamed->TitleOptions().Text(), QStringLiteral("{ID}"));
      form->Map->repaint();
      const QRect name = nora->ViewInfo()->GetTitle()->Bounds();
      QVERIFY(!name.isEmpty());
      QVERIFY(name.top() > nora->PointerViewInfo()->ImageRect().bottom());
      // Newcomers get theirs at the next round.
      Feed(*form, Frame(Report("N3", "Ola", "ON", 41.3135, -80.3385)));
      QCOMPARE(form->LiveMarkers().FindKestrelLiveMarker(QStringLiteral("N3"))->TitleOptions().Text(),
               QStringLiteral("{NAME}"));
      form->close();
    }
    QString ini = QString::fromUtf8(ReadAll(FDir.filePath("Maps/Mapwright.ini")));
    QVERIFY(ini.contains("NamesOnMap=1"));
    QVERIFY(!ini.contains("Visible="));

    {
      auto form = Open(QStringLiteral("RunTime"), {});
      QVERIFY(form->pnlRoster->NamesOnMap());
      form->btnRoster->click();
      QVERIFY(!form->pnlRoster->isVisible());
      form->close();
    }
    ini = QString::fromUtf8(ReadAll(FDir.filePath("Maps/Mapwright.ini")));
    QVERIFY(ini.contains("[Roster]"));
    QVERIFY(ini.contains("Visible=0"));
    {
      auto form = Open(QStringLiteral("RunTime"), {});
      QVERIFY(!form->pnlRoster->isVisible());
      form->close();
    }
    // Config runs start without it; Get runs have none.
    QFile::remove(FDir.filePath("Maps/Mapwright.ini"));
    {
      auto config = Open(QStringLiteral("Config"));
      QVERIFY(!config->pnlRoster->isVisible());
      // Shown later, its filter has the clear button all the same.
      config->btnRoster->click();
      QVERIFY(config->pnlRoster->isVisible() && config->pnlRoster->edtFilter->isClearButtonEnabled());
    }
    auto get = Open(QStringLiteral("Get"));
    get->btnRosterClick();
    QVERIFY(!get->pnlRoster->isVisible());
  }
};

MAPWRIGHT_TEST_CLASS(TestRoster)
#include "tst_Roster.moc"
