// The main window, shown offscreen at its design size, under 1,000 people:
//  - a round: every person reports once, in frames of about 70 reports that
//    stay within the link's 16,384 characters, written by a parent on
//    loopback all at once, as a parent sends a round; timed from the write
//    until the window has taken every frame and painted the result;
//  - a flash tick over 1,000 people in alarm, with its paint;
//  - the same round again, which changes nothing and composes no image;
//  - the roster's share of a round: reading the layer, sorting, counting,
//    and repainting its table, shown beside the map, with and without a
//    filter typed.
// Beside them, as the baseline, the same frames only parsed by Qt's XML
// stream reader: the ratio is what the window's whole round costs against
// reading the XML alone. The window's own reader for plain frames is timed
// on its own beside it.
//
//   mapwright-bench-live [--rounds N]

#include "BenchStats.h"
#include "DialogsU.h"
#include "FeedLinkU.h"
#include "FeedMessageU.h"
#include "InternetProbeU.h"
#include "JournalU.h"
#include "LiveMarkersU.h"
#include "MainU.h"
#include "RosterU.h"
#include "TrailsU.h"
#include "vxMapControl.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QLineEdit>
#include <QTableView>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>

#include <cmath>
#include <cstdio>
#include <functional>
#include <vector>

// Under callgrind each round is a profile of its own (callgrind_annotate
// on the numbered dumps); elsewhere the marks cost nothing.
#if __has_include(<valgrind/callgrind.h>)
#include <valgrind/callgrind.h>
#define PROFILE_MARK(name) CALLGRIND_DUMP_STATS_AT(name)
#else
#define PROFILE_MARK(name) ((void)0)
#endif

namespace
{
constexpr int People = 1000;
constexpr int FrameLimit = 16384;

// One round of frames; `status` for everybody, positions on a grid round
// the view's centre so that all are on screen. Names and locations as long
// as a real incident's make about 60 reports a frame.
QStringList RoundFrames(const QString& status, int radius)
{
  QStringList frames;
  QString frame;
  const QString head = QStringLiteral("<KestrelMapData><LiveMarkers>");
  const QString tail = QStringLiteral("</LiveMarkers></KestrelMapData>");
  for (int i = 0; i < People; ++i) {
    const QString report =
      QStringLiteral("<Marker ID=\"%1\" NAME=\"Firefighter %1, Engine Company 12\" LOCATION=\"[%2] North Stairwell, "
                     "Level %2\" STATUS=\"%3\" LAT=\"%4\" "
                     "LON=\"%5\" FIXSTATUS=\"GOOD\" FIXRADIUS=\"%6\" INIT=\"%7\"></Marker>")
        .arg(QStringLiteral("20-%1").arg(i, 4, 10, QLatin1Char('0')))
        .arg(i % 40 + 1, 4, 10, QLatin1Char('0'))
        .arg(status)
        .arg(41.3133 + (i / 40 - 12) * 0.00012, 0, 'f', 6)
        .arg(-80.3387 + (i % 40 - 20) * 0.00016, 0, 'f', 6)
        .arg(radius)
        .arg(i == 0 ? QStringLiteral("TRUE") : QStringLiteral("FALSE"));
    if (head.size() + frame.size() + report.size() + tail.size() >= FrameLimit) {
      frames << head + frame + tail;
      frame.clear();
    }
    frame += report;
  }
  frames << head + frame + tail;
  return frames;
}

// Counts the map's paints.
class TPaintCounter : public QObject
{
public:
  int Paints = 0;

protected:
  bool eventFilter(QObject* watched, QEvent* event) override
  {
    if (event->type() == QEvent::Paint)
      ++Paints;
    return QObject::eventFilter(watched, event);
  }
};

double Time(const std::function<void()>& work)
{
  QElapsedTimer timer;
  timer.start();
  work();
  return timer.nsecsElapsed() / 1e6;
}
}

int main(int argc, char** argv)
{
  qputenv("QT_QPA_PLATFORM", "offscreen");
  QApplication app(argc, argv);
  QCommandLineParser parser;
  parser.addOption({QStringLiteral("rounds"), QStringLiteral("Rounds of each measurement (default 7)."),
                    QStringLiteral("N"), QStringLiteral("7")});
  parser.addHelpOption();
  parser.process(app);
  const int rounds = std::max(1, parser.value(QStringLiteral("rounds")).toInt());

  Dialogs::Set(std::make_unique<TStderrDialogs>());
  InternetProbe::SetProbe([] { return false; });
  // The parent: the window connects to it as to the real one.
  QTcpServer parent;
  parent.listen(QHostAddress::LocalHost);
  QTemporaryDir dir;
  QDir(dir.path()).mkpath(QStringLiteral("Maps"));
  {
    // No tiles: the base map layers point at a closed port, so the timing
    // is the markers' alone.
    QFile ini(dir.filePath(QStringLiteral("Maps/Mapwright.ini")));
    ini.open(QIODevice::WriteOnly);
    ini.write("[Startup]\nTCPPort=" + QByteArray::number(parent.serverPort()) + "\nStartLat=41.3133\nStartLon=-80.3387\nStartZoom=17\n"
              "[Servers]\nArcGISServer=http://127.0.0.1:9\nOpenStreetMapUrl=http://127.0.0.1:9/[z]/[x]/[y].png\n"
              "AzureMapsServer=http://127.0.0.1:9\n");
  }

  const QStringList onRound = RoundFrames(QStringLiteral("ON"), 10);
  const QStringList panicRound = RoundFrames(QStringLiteral("PANIC"), 10);
  int longest = 0;
  for (const QString& frame : onRound)
    longest = std::max(longest, int(frame.size()));
  std::printf("%d people in %lld frames of at most %d characters (limit %d); window 1109x684 offscreen; "
              "medians of %d rounds\n",
              People, static_cast<long long>(onRound.size()), longest, FrameLimit, rounds);

  std::vector<double> parseOnly, plainParse, firstRound, repeatRound, flashTick, rosterRound, rosterFiltered, journalRound,
    trailShow;
  int composedInRepeat = 0, paintsFirst = 0, paintsRepeat = 0;
  for (int round = 0; round < rounds; ++round) {
    parseOnly.push_back(Time([&] {
      for (const QString& frame : onRound)
        ReadFeedMessageStreamed(frame);
    }));
    plainParse.push_back(Time([&] {
      for (const QString& frame : onRound)
        ReadFeedMessage(frame);
    }));

    TfrmMain form({dir.path(), QStringLiteral("Test")});
    form.show();
    TPaintCounter paints;
    form.Map->installEventFilter(&paints);
    QTcpSocket* link = nullptr;
    while (!form.FeedLink().Active()) {
      QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
      if (!link && parent.hasPendingConnections())
        link = parent.nextPendingConnection();
    }
    int delivered = 0;
    const auto deliver = form.FeedLink().OnTCPDataReceived;
    form.FeedLink().OnTCPDataReceived = [&](const QString& frame) {
      deliver(frame);
      ++delivered;
    };
    // The round goes out in one write; done when every frame is in and
    // the paint it asked for, if any, is done.
    const auto feed = [&](const QStringList& frames) {
      delivered = 0;
      link->write((frames.join(QLatin1Char('\r')) + QLatin1Char('\r')).toLatin1());
      link->flush();
      while (delivered < frames.size())
        QCoreApplication::processEvents(QEventLoop::AllEvents);
      QCoreApplication::sendPostedEvents();
      QCoreApplication::processEvents();
    };
    int paintsBefore = paints.Paints;
    PROFILE_MARK("before the first round");
    firstRound.push_back(Time([&] { feed(onRound); }));
    PROFILE_MARK("first round");
    paintsFirst += paints.Paints - paintsBefore;
    const int before = form.LiveMarkers().ImageCompositions();
    paintsBefore = paints.Paints;
    repeatRound.push_back(Time([&] { feed(onRound); }));
    PROFILE_MARK("the same round again");
    paintsRepeat += paints.Paints - paintsBefore;
    composedInRepeat += form.LiveMarkers().ImageCompositions() - before;

    form.btnRosterClick();
    QCoreApplication::processEvents();
    PROFILE_MARK("before the roster rounds");
    std::vector<double> roster, filtered;
    for (int tick = 0; tick < 9; ++tick)
      roster.push_back(Time([&] {
        form.pnlRoster->Refresh();
        form.pnlRoster->tvRoster->viewport()->repaint();
      }));
    PROFILE_MARK("the roster rounds");
    form.pnlRoster->edtFilter->setText(QStringLiteral("Company 12"));
    for (int tick = 0; tick < 9; ++tick)
      filtered.push_back(Time([&] {
        form.pnlRoster->Refresh();
        form.pnlRoster->tvRoster->viewport()->repaint();
      }));
    form.pnlRoster->edtFilter->clear();
    rosterRound.push_back(Median(roster));
    rosterFiltered.push_back(Median(filtered));

    feed(panicRound);
    bool phase = true;
    std::vector<double> ticks;
    for (int tick = 0; tick < 6; ++tick) {
      ticks.push_back(Time([&] {
        form.Map->BeginUpdate();
        form.LiveMarkers().Flash(phase);
        form.Map->EndUpdate();
        form.Map->repaint();
      }));
      phase = !phase;
    }
    flashTick.push_back(Median(ticks));

    // What the journal costs the window once a second at this rate: the
    // round's lines kept, then written and pushed to the disk.
    {
      TJournal journal;
      journal.Start(dir.filePath(QStringLiteral("Maps/Journal")), qint64(1) << 40);
      journalRound.push_back(Time([&] {
        for (const QString& frame : onRound)
          journal.Append(frame.toUtf8());
        journal.Flush();
      }));
    }

    // The selected person's full trail: a report a second for 15 minutes.
    {
      const QDateTime start = QDateTime::currentDateTime();
      for (int second = 0; second < TTrails::KeepSeconds; ++second) {
        TLiveMarkerReport report;
        report.Id = QStringLiteral("trail");
        report.Lat = 41.3133 + 0.0004 * std::sin(second / 60.0);
        report.Lon = -80.3387 + 0.0000015 * second;
        form.Trails().Record({report}, start.addSecs(second));
      }
      const QDateTime end = start.addSecs(TTrails::KeepSeconds - 1);
      std::vector<double> shows;
      for (int tick = 0; tick < 9; ++tick)
        shows.push_back(Time([&] {
          form.Map->BeginUpdate();
          form.Trails().Show(QStringLiteral("trail"), end);
          form.Map->EndUpdate();
          form.Map->repaint();
        }));
      trailShow.push_back(Median(shows));
    }
    form.close();
  }

  const double base = Median(parseOnly);
  const auto line = [base](const char* name, double ms) {
    std::printf("  %-44s %8.1f ms  %6.1fx parse\n", name, ms, base > 0 ? ms / base : 0.0);
  };
  std::printf("  %-44s %8.1f ms  (baseline)\n", "parse only, one round", base);
  line("the window's reader, one round", Median(plainParse));
  line("first round: parse, store, images, paint", Median(firstRound));
  line("same round again: nothing changes", Median(repeatRound));
  line("flash tick, 1,000 alarms, with paint", Median(flashTick));
  line("roster round, 1,000 people, with paint", Median(rosterRound));
  line("roster round with a filter typed", Median(rosterFiltered));
  line("journal: a round kept, written, synced", Median(journalRound));
  line("trail of 900 positions drawn, with paint", Median(trailShow));
  std::printf("images composed in the repeated rounds: %d; map paints per first round: %d, per repeated round: %d\n",
              composedInRepeat, paintsFirst / rounds, paintsRepeat / rounds);
  BenchRow("live: the window's frame reader, one round", Median(plainParse), "parse only, one round", base);
  BenchRow("live: first round, 1,000 people", Median(firstRound), "parse only, one round", base);
  BenchRow("live: the same round again", Median(repeatRound), "parse only, one round", base);
  BenchRow("live: flash tick, 1,000 alarms", Median(flashTick), "parse only, one round", base);
  BenchRow("live: roster round", Median(rosterRound), "parse only, one round", base);
  BenchRow("live: journal, a round written and synced", Median(journalRound), "parse only, one round", base);
  BenchRow("live: a 900-position trail drawn", Median(trailShow), "parse only, one round", base);
  return composedInRepeat == 0 ? 0 : 1;
}
