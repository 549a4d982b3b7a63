// Start-up to a visible window, as a user feels it: `mapwright CFG Config`
// launched as its own process under X, from the launch until the X server
// maps its main window. No layers; the internet probe and the feed link
// point at a closed loopback port, so they fail at once. The baseline, in
// the same rounds and measured the same way, is a bare Qt main window of the
// same size: this program started again with --bare. Beside it, as a
// reference, the same window holding one label of text (--label): the first
// text of a process loads the fonts, which the bare window never does, so
// that row shows the floor of any window with text. Each start is a user's
// start after a clean exit, with the runtime folder in memory.
//
//   mapwright-bench-startup --program PATH [--rounds N] [--disk-runtime] [--after-crash]
//
// Needs DISPLAY (scripts/bench starts Xvfb :96) and a display without a
// window manager, where a mapped top-level window is a visible one.

#include "BenchStats.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QLabel>
#include <QMainWindow>
#include <QProcess>
#include <QTemporaryDir>

#include <xcb/xcb.h>

#include <poll.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <vector>

namespace
{
constexpr int Width = 1109;
constexpr int Height = 684;
constexpr int TimeoutMs = 20000;

struct TXcbFree
{
  void operator()(void* p) const { std::free(p); }
};

class TMapWatcher
{
public:
  TMapWatcher()
    : FConnection(xcb_connect(nullptr, nullptr))
  {
    if (xcb_connection_has_error(FConnection))
      return;
    FRoot = xcb_setup_roots_iterator(xcb_get_setup(FConnection)).data->root;
    const uint32_t mask = XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY;
    xcb_change_window_attributes(FConnection, FRoot, XCB_CW_EVENT_MASK, &mask);
    FPidAtom = InternAtom("_NET_WM_PID");
    xcb_flush(FConnection);
  }
  ~TMapWatcher() { xcb_disconnect(FConnection); }

  bool Ok() const { return !xcb_connection_has_error(FConnection) && FPidAtom != XCB_NONE; }

  // Waits until a top-level window of the process is mapped; the time
  // since `since`, in ms, or nothing on a time-out.
  std::optional<double> WaitForMap(qint64 pid, const QElapsedTimer& since)
  {
    while (since.elapsed() < TimeoutMs) {
      std::unique_ptr<xcb_generic_event_t, TXcbFree> event(xcb_poll_for_event(FConnection));
      if (!event) {
        pollfd fd{xcb_get_file_descriptor(FConnection), POLLIN, 0};
        poll(&fd, 1, 50);
        continue;
      }
      if ((event->response_type & 0x7f) != XCB_MAP_NOTIFY)
        continue;
      const double ms = since.nsecsElapsed() / 1e6;
      const auto* map = reinterpret_cast<const xcb_map_notify_event_t*>(event.get());
      // Tool tips and menus are not the window.
      if (!map->override_redirect && WindowPid(map->window) == pid)
        return ms;
    }
    return std::nullopt;
  }

  // Drops what came while no launch was timed.
  void Drain()
  {
    while (std::unique_ptr<xcb_generic_event_t, TXcbFree>(xcb_poll_for_event(FConnection))) {
    }
  }

private:
  xcb_atom_t InternAtom(const char* name)
  {
    const auto cookie = xcb_intern_atom(FConnection, 0, uint16_t(qstrlen(name)), name);
    std::unique_ptr<xcb_intern_atom_reply_t, TXcbFree> reply(xcb_intern_atom_reply(FConnection, cookie, nullptr));
    return reply ? reply->atom : XCB_NONE;
  }

  qint64 WindowPid(xcb_window_t window)
  {
    const auto cookie = xcb_get_property(FConnection, 0, window, FPidAtom, XCB_ATOM_CARDINAL, 0, 1);
    std::unique_ptr<xcb_get_property_reply_t, TXcbFree> reply(
      xcb_get_property_reply(FConnection, cookie, nullptr));
    if (!reply || xcb_get_property_value_length(reply.get()) < 4)
      return -1;
    return *static_cast<const uint32_t*>(xcb_get_property_value(reply.get()));
  }

  xcb_connection_t* FConnection;
  xcb_window_t FRoot = XCB_NONE;
  xcb_atom_t FPidAtom = XCB_NONE;
};

int RunBare(int argc, char** argv, bool withLabel)
{
  QApplication app(argc, argv);
  QMainWindow window;
  if (withLabel)
    window.setCentralWidget(new QLabel(QStringLiteral("Mapwright"), &window));
  window.resize(Width, Height);
  window.show();
  return app.exec();
}

std::optional<double> Launch(TMapWatcher& watcher, const QString& program, const QStringList& arguments,
                             const QProcessEnvironment& environment)
{
  watcher.Drain();
  QProcess process;
  process.setProcessEnvironment(environment);
  process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
  QElapsedTimer timer;
  timer.start();
  process.start(program, arguments);
  if (!process.waitForStarted(TimeoutMs))
    return std::nullopt;
  const std::optional<double> ms = watcher.WaitForMap(process.processId(), timer);
  process.kill();
  process.waitForFinished(TimeoutMs);
  return ms;
}
}

int main(int argc, char** argv)
{
  for (int i = 1; i < argc; ++i) {
    if (qstrcmp(argv[i], "--bare") == 0)
      return RunBare(argc, argv, false);
    if (qstrcmp(argv[i], "--label") == 0)
      return RunBare(argc, argv, true);
  }

  QCoreApplication app(argc, argv);
  QCommandLineParser parser;
  parser.addOption({QStringLiteral("program"), QStringLiteral("The mapwright executable."), QStringLiteral("PATH")});
  parser.addOption({QStringLiteral("rounds"), QStringLiteral("Launches of each (default 11)."), QStringLiteral("N"),
                    QStringLiteral("11")});
  parser.addOption({QStringLiteral("disk-runtime"), QStringLiteral("Keep the runtime folder on disk, not in /dev/shm.")});
  parser.addOption({QStringLiteral("after-crash"),
                    QStringLiteral("Leave the lock of the killed window behind, as a crash does.")});
  parser.addHelpOption();
  parser.process(app);
  const QString program = parser.value(QStringLiteral("program"));
  const int rounds = std::max(1, parser.value(QStringLiteral("rounds")).toInt());
  if (program.isEmpty() || !QFileInfo::exists(program)) {
    std::fprintf(stderr, "mapwright-bench-startup: --program must name the mapwright executable\n");
    return 2;
  }
  TMapWatcher watcher;
  if (!watcher.Ok()) {
    std::fprintf(stderr, "mapwright-bench-startup: no X display (DISPLAY=%s)\n", qgetenv("DISPLAY").constData());
    return 2;
  }

  QTemporaryDir dir;
  QDir(dir.path()).mkpath(QStringLiteral("config/Maps"));
  // The runtime folder, where the single-instance lock lives, is in memory
  // as a desktop session's is (/run/user/UID); on disk each lock taken
  // waits for the disk (QLockFile syncs it).
  const bool diskRuntime = parser.isSet(QStringLiteral("disk-runtime"));
  QTemporaryDir memory(QStringLiteral("/dev/shm/mapwright-bench-XXXXXX"));
  const QString runtime = !diskRuntime && memory.isValid() ? memory.path() : dir.filePath(QStringLiteral("runtime"));
  QDir().mkpath(runtime);
  QFile::setPermissions(runtime, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
  {
    // Port 9 on loopback is closed: probe, feed and tiles fail at once.
    QFile ini(dir.filePath(QStringLiteral("config/Maps/Mapwright.ini")));
    ini.open(QIODevice::WriteOnly);
    ini.write("[Startup]\nTCPPort=9\nStartLat=41.3133\nStartLon=-80.3387\nStartZoom=12\n"
              "[Servers]\nProbeUrl1=http://127.0.0.1:9/\nProbeUrl2=http://127.0.0.1:9/\n"
              "ArcGISServer=http://127.0.0.1:9\nOpenStreetMapUrl=http://127.0.0.1:9/[z]/[x]/[y].png\n"
              "AzureMapsServer=http://127.0.0.1:9\n");
  }
  QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
  environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("xcb"));
  environment.insert(QStringLiteral("XDG_RUNTIME_DIR"), runtime);
  environment.insert(QStringLiteral("MAPWRIGHT_DIALOGS"), QStringLiteral("stderr"));

  const QString self = QCoreApplication::applicationFilePath();
  const QStringList mapArguments = {dir.filePath(QStringLiteral("config")), QStringLiteral("Config")};
  // The window is killed once mapped; its lock goes, as its own exit
  // would take it, unless a crash is what is measured.
  const bool afterCrash = parser.isSet(QStringLiteral("after-crash"));
  const auto launchMap = [&] {
    const auto ms = Launch(watcher, program, mapArguments, environment);
    if (!afterCrash)
      for (const QString& name : QDir(runtime).entryList({QStringLiteral("mapwright-*")}, QDir::Files | QDir::System))
        QFile::remove(QDir(runtime).filePath(name));
    return ms;
  };
  std::vector<double> bare, label, map;
  // One of each first, unmeasured: the disk cache holds them afterwards.
  Launch(watcher, self, {QStringLiteral("--bare")}, environment);
  Launch(watcher, self, {QStringLiteral("--label")}, environment);
  launchMap();
  for (int round = 0; round < rounds; ++round) {
    const auto b = Launch(watcher, self, {QStringLiteral("--bare")}, environment);
    const auto l = Launch(watcher, self, {QStringLiteral("--label")}, environment);
    const auto m = launchMap();
    if (!b || !l || !m) {
      std::fprintf(stderr, "mapwright-bench-startup: no window within %d ms\n", TimeoutMs);
      return 1;
    }
    bare.push_back(*b);
    label.push_back(*l);
    map.push_back(*m);
  }
  const double base = Median(bare);
  const double withText = Median(label);
  std::printf("launch to a mapped %dx%d window, medians of %d launches\n", Width, Height, rounds);
  std::printf("  %-44s %8.1f ms  (baseline)\n", "bare Qt main window", base);
  std::printf("  %-44s %8.1f ms  %6.2fx bare  (reference)\n", "bare Qt main window with one label", withText,
              withText / base);
  std::printf("  %-44s %8.1f ms  %6.2fx bare\n", "mapwright CFG Config", Median(map), Median(map) / base);
  std::printf("  %-44s %8s     %6.2fx with one label\n", "", "", Median(map) / withText);
  BenchRow("start-up to a visible window", Median(map), "bare Qt main window", base);
  BenchRow("start-up to a visible window", Median(map), "bare Qt main window with one label", withText);
  return 0;
}
