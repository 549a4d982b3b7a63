// The journal of a run: its lines, its files and their bound, a write that
// fails; and the selected person's trail drawn from the positions kept.

#include "ClockU.h"
#include "DialogsU.h"
#include "InternetProbeU.h"
#include "JournalFormatU.h"
#include "JournalU.h"
#include "RosterU.h"
#include "ShellFixtures.h"
#include "TestRegistry.h"
#include "TrailsU.h"
#include "vxMapControl.h"
#include "vxMapMultiPointItems.h"

#include <QBuffer>
#include <QCheckBox>
#include <QLabel>

namespace
{
const QDateTime Noon(QDate(2026, 11, 23), QTime(12, 0));

QByteArray Report(const char* id, double lat, double lon, const char* init = "FALSE")
{
  return QStringLiteral("<M ID=\"%1\" NAME=\"N%1\" LOCATION=\"[0001] Hall\" STATUS=\"ON\" LAT=\"%2\" LON=\"%3\" "
                        "FIXSTATUS=\"GOOD\" FIXRADIUS=\"10\" INIT=\"%4\"/>")
    .arg(QLatin1String(id), QString::number(lat, 'f', 6), QString::number(lon, 'f', 6), QLatin1String(init))
    .toLatin1();
}

QByteArray Frame(const QByteArray& reports)
{
  return "<KestrelMapData><LiveMarkers>" + reports + "</LiveMarkers></KestrelMapData>";
}

QByteArray FileBytes(const QString& fileName)
{
  QFile file(fileName);
  return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void WriteSized(const QString& fileName, int bytes)
{
  QFile file(fileName);
  QVERIFY(file.open(QIODevice::WriteOnly));
  file.write(QByteArray(bytes, 'x'));
}
}

class TestJournal : public QObject
{
  Q_OBJECT

  TManualClock* FNow = nullptr;

private Q_SLOTS:
  void initTestCase() { InternetProbe::SetProbe([] { return false; }); }

  void init()
  {
    Dialogs::Set(std::make_unique<TRecordingDialogs>());
    auto clock = std::make_unique<TManualClock>(Noon);
    FNow = clock.get();
    Clock::Set(std::move(clock));
  }

  void cleanup()
  {
    Clock::Set(nullptr);
    Dialogs::Set(nullptr);
  }

  // Any frame fits one line of printable ASCII and reads back the same;
  // broken lines are named and the others still count.
  void linesHoldAnyFrameAndBrokenOnesAreNamed()
  {
    const QByteArray awkward("<A T=\"a\\xb\\\\c\">\n\tline two\r\0\x7F\xC3\xA9</A>", 34);
    const QByteArray line = JournalFormat::Line(Noon.addMSecs(250), awkward);
    QVERIFY(line.startsWith("2026-11-23T12:00:00.250 <A T="));
    QVERIFY(line.endsWith('\n'));
    QCOMPARE(line.count('\n'), 1);
    for (char c : line.chopped(1))
      QVERIFY2(c >= 0x20 && c <= 0x7E, line.constData());
    QCOMPARE(JournalFormat::Unescape(JournalFormat::Escape(awkward)), std::optional<QByteArray>(awkward));

    QByteArray text = line;
    text += "2026-11-23T12:00:01.000 <one/>\n";
    text += "garbage without a time\n";
    text += "2026-11-23T12:00:02.000 <bad \\q escape/>\n";
    text += "\n";
    text += "2026-11-23T12:00:03.000\n";
    // The clock went back a little: the line counts, at the time before it.
    text += "2026-11-23T11:59:59.000 <two/>\n";
    text += "2026-11-23T12:00:04.000 <three/>\n";
    text += "2026-11-23T12:00:05.000 <cut sh"; // what a crash mid-write would leave
    QBuffer buffer(&text);
    QVERIFY(buffer.open(QIODevice::ReadOnly));
    const TJournalContents contents = JournalFormat::Read(buffer);
    QCOMPARE(contents.BrokenLines, QList<int>({3, 4, 6, 9}));
    QCOMPARE(contents.Entries.size(), 4);
    QCOMPARE(contents.Entries[0].Frame, awkward);
    QCOMPARE(contents.Entries[1].Frame, QByteArray("<one/>"));
    QCOMPARE(contents.Entries[2].Frame, QByteArray("<two/>"));
    QCOMPARE(contents.Entries[2].Line, 7);
    QCOMPARE(contents.Entries[2].Arrived, Noon.addSecs(1));
    QCOMPARE(contents.Entries[3].Arrived, Noon.addSecs(4));
    QCOMPARE(contents.Start(), Noon.addMSecs(250));
  }

  // A moment as a time of day, a whole time stamp, or seconds from the start.
  void momentsOfAJournal()
  {
    const QDateTime start(QDate(2026, 11, 23), QTime(23, 50, 10, 500));
    const auto at = [&start](const char* text) { return JournalFormat::ResolveTime(QLatin1String(text), start); };
    QCOMPARE(at("90"), start.addSecs(90));
    QCOMPARE(at("23:55:00"), QDateTime(start.date(), QTime(23, 55)));
    QCOMPARE(at("23:55:00.125"), QDateTime(start.date(), QTime(23, 55, 0, 125)));
    QCOMPARE(at("23:50"), QDateTime(start.date(), QTime(23, 50))); // within the start's minute: the start itself
    QCOMPARE(at("00:10:00"), QDateTime(start.date().addDays(1), QTime(0, 10))); // past midnight
    QCOMPARE(at("2026-11-24T00:01:02.003"), QDateTime(start.date().addDays(1), QTime(0, 1, 2, 3)));
    for (const char* bad : {"", "-5", "noon", "25:00", "1:02.5x", "2026-13-01T00:00:00"})
      QVERIFY2(!at(bad), bad);
  }

  // One file per start, named by the clock; lines reach the disk within a
  // second, whole; older journals go, oldest first, beyond the bound.
  void filesFlushAndRotation()
  {
    QTemporaryDir dir;
    const QString folder = dir.filePath(QStringLiteral("Journal"));
    QDir().mkpath(folder);
    WriteSized(folder + QStringLiteral("/2026-11-20_08-00-00.journal"), 400);
    WriteSized(folder + QStringLiteral("/2026-11-21_08-00-00.journal"), 400);
    WriteSized(folder + QStringLiteral("/2026-11-22_08-00-00.journal"), 400);
    WriteSized(folder + QStringLiteral("/notes.txt"), 5000); // not a journal: never counted, never removed

    TJournal journal;
    QStringList stops;
    journal.OnStopped = [&stops](const QString& message) { stops << message; };
    QVERIFY(journal.Start(folder, 1000));
    QCOMPARE(QFileInfo(journal.FileName()).fileName(), QStringLiteral("2026-11-23_12-00-00.journal"));
    QCOMPARE(QDir(folder).entryList(QDir::Files),
             QStringList({"2026-11-21_08-00-00.journal", "2026-11-22_08-00-00.journal",
                          "2026-11-23_12-00-00.journal", "notes.txt"}));

    journal.Append("<first/>");
    FNow->Advance(40);
    journal.Append("<second/>");
    QCOMPARE(FileBytes(journal.FileName()), QByteArray()); // still waiting
    QElapsedTimer waited;
    waited.start();
    QTRY_VERIFY_WITH_TIMEOUT(!FileBytes(journal.FileName()).isEmpty(), 3000);
    QVERIFY2(waited.elapsed() < 1600, QByteArray::number(waited.elapsed()));
    QCOMPARE(FileBytes(journal.FileName()),
             QByteArray("2026-11-23T12:00:00.000 <first/>\n2026-11-23T12:00:00.040 <second/>\n"));

    // A second start in the same second gets a name of its own; the
    // running journal is never removed, however far past the bound.
    TJournal second;
    QVERIFY(second.Start(folder, 10));
    QCOMPARE(QFileInfo(second.FileName()).fileName(), QStringLiteral("2026-11-23_12-00-00-2.journal"));
    QCOMPARE(QDir(folder).entryList({QStringLiteral("*.journal")}, QDir::Files),
             QStringList({"2026-11-23_12-00-00-2.journal"}));
    QVERIFY(stops.isEmpty());
  }

  // A write that fails stops the journal with one message; in the window
  // it is the status text, and frames still reach the map.
  void writeFailureStopsOnceAndTheMapGoesOn()
  {
    QTemporaryDir dir;
    TLoopbackParent parent;
    WriteIni(dir, QStringLiteral("[Startup]\nTCPPort=%1\n").arg(parent.Port()));
    auto form = std::make_unique<TfrmMain>(QStringList{dir.path(), QStringLiteral("RunTime")});
    form->PingTimer->stop();
    QVERIFY(form->Journal() && form->Journal()->Active());
    QVERIFY(parent.WaitForPeer());
    QTRY_VERIFY(form->TCPListenerActive());
    auto failing = std::make_unique<QFile>(QStringLiteral("/dev/full"));
    QVERIFY(failing->open(QIODevice::WriteOnly | QIODevice::Unbuffered));
    const QString kept = form->Journal()->FileName();
    parent.Send(Frame(Report("7", 41.3, -80.3, "TRUE")) + "\r");
    QTRY_COMPARE(PersonCount(*form), 1);
    QTRY_VERIFY_WITH_TIMEOUT(FileBytes(kept).contains("ID=\"7\""), 3000);
    form->Journal()->Start(std::move(failing));
    parent.Send(Frame(Report("8", 41.3, -80.3)) + "\r");
    QTRY_VERIFY_WITH_TIMEOUT(form->StatusBarPanel0->text().startsWith(QStringLiteral("Journal stopped: cannot write \"/dev/full\"")), 3000);
    QVERIFY(!form->Journal()->Active());
    parent.Send(Frame(Report("9", 41.3, -80.3)) + "\r");
    QTRY_COMPARE(PersonCount(*form), 3);
    QVERIFY(static_cast<TRecordingDialogs&>(Dialogs::Get()).Messages.isEmpty());
    QVERIFY(!FileBytes(kept).contains("ID=\"8\""));

    // Off by its key: no folder, no file.
    QTemporaryDir off;
    WriteIni(off, QStringLiteral("[Journal]\nEnabled=0\n"));
    TfrmMain quiet(QStringList{off.path(), QStringLiteral("RunTime")});
    QVERIFY(!quiet.Journal());
    QVERIFY(!QFileInfo::exists(off.filePath(QStringLiteral("Maps/Journal"))));
  }

  // The selected person's last 15 minutes as lines under the markers,
  // fainter with age; another selection shows its own trail; the roster's
  // names toggle and F3 hide it.
  void trailOfTheSelectedPerson()
  {
    QTemporaryDir dir;
    WriteIni(dir, QStringLiteral("[Startup]\nTCPPort=1\nStartLat=41.3\nStartLon=-80.3\nStartZoom=17\n"));
    auto form = std::make_unique<TfrmMain>(QStringList{dir.path(), QStringLiteral("RunTime")});
    form->resize(1000, 700);
    form->show();
    form->PingTimer->stop();
    TTrails& trails = form->Trails();

    // Twenty minutes, a step north each minute; B stands still.
    for (int minute = 0; minute <= 20; ++minute) {
      form->TCPDataReceived(QString::fromLatin1(Frame(Report("A", 41.3 + minute * 0.0001, -80.3, minute == 0 ? "TRUE" : "FALSE") +
                                                      Report("B", 41.301, -80.301))));
      if (minute < 20)
        FNow->Advance(60'000);
    }
    QCOMPARE(form->CurrentUserID(), QStringLiteral("A"));
    const std::vector<TTrailPoint> points = trails.Points(QStringLiteral("A"));
    QCOMPARE(points.size(), size_t(16)); // minutes 5 to 20
    QCOMPARE(points.front().Lat, 41.3 + 5 * 0.0001);
    QCOMPARE(trails.Points(QStringLiteral("B")).size(), size_t(1));

    const std::vector<TvxMapPolyline*>& lines = trails.Lines();
    QCOMPARE(lines.size(), size_t(15));
    const TvxMapItems& items = form->KestrelLiveMarkers->MapItems();
    for (size_t i = 0; i < lines.size(); ++i)
      QCOMPARE(lines[i]->Index(), int(i));
    QCOMPARE(items.Items(items.Count() - 1), form->SelectedLiveMarker());
    const auto alpha = [](const TvxMapPolyline* line) { return line->Style().BorderColor() >> 24; };
    QVERIFY(alpha(lines.front()) < alpha(lines.back()));
    QCOMPARE(lines.back()->GeoPoints().Count(), 2);

    // B has one place only: no line.
    form->Map->Select(form->LiveMarkers().FindKestrelLiveMarker(QStringLiteral("B")), Qt::NoModifier, false);
    QCOMPARE(form->CurrentUserID(), QStringLiteral("B"));
    QVERIFY(trails.Lines().empty());
    form->Map->Select(form->LiveMarkers().FindKestrelLiveMarker(QStringLiteral("A")), Qt::NoModifier, false);
    QCOMPARE(trails.Lines().size(), size_t(15));

    QApplication::setActiveWindow(form.get());
    form->pnlRoster->cbNames->setChecked(true);
    form->pnlRoster->cbNames->setChecked(false);
    QVERIFY(trails.Lines().empty());
    QTest::keyClick(form.get(), Qt::Key_F3);
    QCOMPARE(trails.Lines().size(), size_t(15));

    // The person goes silent and ages away: the trail goes with the marker.
    FNow->Advance(40'000);
    form->LiveMarkers().AgePass(Clock::Now());
    form->ShowTrail();
    QCOMPARE(PersonCount(*form), 0);
    QVERIFY(trails.Lines().empty());
  }
};

MAPWRIGHT_TEST_CLASS(TestJournal)
#include "tst_Journal.moc"
