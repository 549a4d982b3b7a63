#include "Render.h"

#include "vxMapControlKmlFileLoader.h"
#include "vxMapControlShapeFileLoader.h"

#include <QApplication>

#include <cstdio>
#include <cstring>

namespace
{
const char* const Help =
  "Usage: mapwright-render --size WxH --out FILE.png\n"
  "                        (--center LAT,LON --zoom Z | --config DIR [--center LAT,LON] [--zoom Z])\n"
  "                        [--tiles URL_TEMPLATE|mbtiles:FILE] [--tile-cache DIR] [--tile-prefix PREFIX]\n"
  "                        [--layer FILE[:fill=#AARRGGBB][:border=#AARRGGBB][:width=N]]...\n"
  "                        [--frames FILE [--at TIME]] [--no-navigation] [--wait SECONDS]\n"
  "       mapwright-render --help | --version\n"
  "\n"
  "Draws what the map window would paint, with the same map control, into a PNG,\n"
  "without a window.\n"
  "\n"
  "Options:\n"
  "  --size WxH            The image size in pixels, 1 to 16384 each (required).\n"
  "  --out FILE.png        The PNG to write (required).\n"
  "  --center LAT,LON      The centre of the view, in degrees.\n"
  "  --zoom Z              The zoom level, 1 to 20 (fractions too).\n"
  "  --config DIR          The window's start view of configuration directory DIR:\n"
  "                        centre, zoom and base map from DIR/Maps/Mapwright.ini\n"
  "                        (the base map from the tile cache DIR/Maps/MapCache\n"
  "                        only), its static markers and its layers.\n"
  "  --tiles URL_TEMPLATE  A base map from a template with [z], [x], [y] and\n"
  "                        [subdomain], over http, https or file.\n"
  "  --tiles mbtiles:FILE  A base map from an MBTiles file.\n"
  "  --tile-cache DIR      The disk cache folder of --tiles.\n"
  "  --tile-prefix PREFIX  The name prefix of its tile files (default openstreet).\n"
  "  --layer FILE[:...]    A KML file or Shapefile on top, with an optional fill,\n"
  "                        border colour and border width 0 to 100; repeatable,\n"
  "                        bottom to top.\n"
  "  --frames FILE         Feed frames, one per line, shown as live markers; or a\n"
  "                        journal of the window (Maps/Journal/*.journal), whose\n"
  "                        frames go in with their own times, the selected\n"
  "                        person's trail drawn.\n"
  "  --at TIME             With a journal: the state at TIME rather than at its\n"
  "                        end. TIME is a time of day as the journal writes it\n"
  "                        (12:04:30, 12:04:30.250 or 12:04), a whole date and\n"
  "                        time as written (2026-11-23T12:04:30), or seconds\n"
  "                        from the journal's first frame (90, 90.5).\n"
  "  --no-navigation       Leave out the navigation panel.\n"
  "  --wait SECONDS        How long to wait for tiles, 0 to 3600 (default 10).\n"
  "  -h, --help            Print this help and exit.\n"
  "  --version             Print the version and exit.\n"
  "\n"
  "Example:\n"
  "  mapwright-render --config /srv/site --size 1109x684 --out site.png\n"
  "\n"
  "Exit codes:\n"
  "  0  The PNG was written (missing tiles are reported).\n"
  "  2  A bad argument, an unreadable layer, MBTiles file or configuration, or a\n"
  "     PNG that could not be written.\n";
}

int main(int argc, char* argv[])
{
  for (int I = 1; I < argc; ++I)
  {
    if (std::strcmp(argv[I], "--version") == 0)
    {
      std::fputs("mapwright-render " MAPWRIGHT_VERSION "\n", stdout);
      return 0;
    }
    if (std::strcmp(argv[I], "--help") == 0 || std::strcmp(argv[I], "-h") == 0)
    {
      std::fputs(Help, stdout);
      return 0;
    }
  }

  // The control is a widget, but it is never shown.
  if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
    qputenv("QT_QPA_PLATFORM", "offscreen");
  QApplication Application(argc, argv);
  QApplication::setApplicationName(QStringLiteral("Mapwright"));
  QApplication::setApplicationVersion(QStringLiteral(MAPWRIGHT_VERSION));
  vxRegisterKmlFileLoader();
  vxRegisterShapeFileLoader();

  QByteArray Errors;
  const int Result = vxRenderRun(Application.arguments().mid(1), Errors);
  std::fwrite(Errors.constData(), 1, size_t(Errors.size()), stderr);
  return Result;
}
