#pragma once

// Base maps: the catalogue of nine, the popup menu that offers them, the
// switch between the four tile layers with their attribution labels, the
// offline rule that hides base maps without cached tiles, and the optional
// servers of a site that runs its own.

#include <QPointer>
#include <QString>
#include <QStringList>
#include <array>
#include <functional>

class QAction;
class QActionGroup;
class QLabel;
class QMenu;
class TIniFile;
class TArcGISMapProvider;
class TvxMapControlAzureMapImageryDataProvider;
class TvxMBTilesImageryDataProvider;
class TvxMapImageTileLayer;

// Positions of the catalogue: the value of BaseMapIdx, the menu index and
// each entry's tag.
enum TBaseMapPosition
{
  bmWorldImagery,
  bmWorldStreet,
  bmWorldTopo,
  bmNatGeo,
  bmUSATopo,
  bmOpenStreetMap,
  bmAzureImagery,
  bmAzureHybrid,
  bmAzureRoad,
  BaseMapCount
};

struct TBaseMapRow
{
  QString Caption;      // empty for the ArcGIS rows: their provider names them
  QString IniKey;       // key in section "Maps"
  bool Default = false; // the key's default
  QString CachePattern; // wildcard of its tile files in the cache folder
};
const std::array<TBaseMapRow, BaseMapCount>& BaseMapCatalogue();

// Which base maps are offered, by position.
using TBaseMapFlags = std::array<bool, BaseMapCount>;

// The optional [Servers] section. Empty values keep the public services;
// the program reads the section and never writes it.
struct TServerSettings
{
  // A URL template with [subdomain], [z], [x], [y]; or "mbtiles:" and the
  // absolute path of a file of tiles that the OpenStreetMap entry draws
  // from instead (the INI may give it relative to its own folder).
  QString OpenStreetMapUrl;
  QString ArcGISServer;     // scheme and host in place of the public ArcGIS host
  QString AzureMapsServer;  // scheme and host in place of the public Azure Maps host
  QString ProbeUrl1;        // the internet probe's targets, in order
  QString ProbeUrl2;

  static TServerSettings Read(const TIniFile& ini);
  // The file of an "mbtiles:" value, else empty.
  QString OpenStreetMapFile() const;
  // The probe's targets: the configured ones if any, else the defaults.
  QStringList ProbeTargets() const;
};

// True when the folder holds at least one file (not a directory) matching
// the wildcard pattern.
bool FindCachedFiles(const QString& PathName, const QString& FileName);

enum class TAttributionFamily
{
  ArcGIS,
  OpenStreetMap,
  Azure
};

// Works on the main form's four tile layers, its popup menu and its two
// attribution labels; the form keeps the handlers and their brackets.
class TBaseMaps
{
public:
  struct TLayers
  {
    TvxMapImageTileLayer* OpenStreetMap = nullptr;
    TvxMapImageTileLayer* ArcGIS = nullptr;
    TvxMapImageTileLayer* Azure1 = nullptr;
    TvxMapImageTileLayer* Azure2 = nullptr;
  };

  TBaseMaps(const TLayers& layers, QMenu* menu, QLabel* attribution1, QLabel* attribution2);

  // Gives the tile layers their providers, with the site's servers where
  // set: OpenStreetMap's template and subdomains, or its MBTiles file, the
  // ArcGIS provider class, the Azure tile sets. Once, before BuildMenu.
  void SetUpLayers(const TServerSettings& servers);

  // Builds the menu from the catalogue and shows the start base map. Each
  // entry's click goes to `onClick` with the entry. Returns the local index
  // that is shown (an Azure index without a key falls back to 0). An index
  // outside the catalogue shows no base map and checks no entry.
  int BuildMenu(int baseMapIdx, const TBaseMapFlags& flags, const QString& azureKey, const QString& cacheDir,
                std::function<void(QAction*)> onClick);

  // A click on `entry`, without the form's cursor and pause bracket. An
  // Azure entry without a key asks `askKey` for one and stores it in
  // `azureKey`; still without a key, only the check mark moves.
  void Click(QAction* entry, QString& azureKey, const std::function<QString()>& askKey);

  // Hides the entries whose tiles are not in `cacheDir`; an OpenStreetMap
  // entry that draws from an MBTiles file stays while the file is there.
  // The Azure rows are looked up at positions 9 to 11 and throw EListError
  // when that position is needed, as the design has it.
  void SetCachedBaseMapsOnly(const TBaseMapFlags& flags, const QString& cacheDir);

  // Shows each entry as its flag says, undoing any offline hiding.
  void ApplyFlags(const TBaseMapFlags& flags);
  // The entry at a menu position, or null outside the menu.
  QAction* EntryAt(int position) const;
  // The ArcGIS base map on show: tile URL, file prefix of its cache tiles
  // ("ArcGIS_" and the map's prefix) and highest level.
  QString ArcGISTileUrl() const;
  QString ArcGISFilePrefix() const;
  int ArcGISMaxZoom() const;

  // Why the site's MBTiles file cannot be drawn from; empty when it can,
  // or when the site gave none.
  QString BaseMapFileProblem() const;

  // Position of the first checked entry, or -1.
  int CheckedIndex() const;
  // The first visible entry, or null.
  QAction* FirstVisibleEntry() const;

  void SetAttribution(TAttributionFamily family);

private:
  TArcGISMapProvider* ArcGISProvider() const;
  // A map file's own credit, over two lines when one is too short.
  void ShowFileAttribution(const QString& text);
  // The OpenStreetMap layer's file provider, when the site gave a file.
  TvxMBTilesImageryDataProvider* MBTilesProvider() const;
  static TvxMapControlAzureMapImageryDataProvider* AzureProvider(TvxMapImageTileLayer* layer);
  void SetAzureKey(const QString& azureKey);
  // Shows the Azure base map at that position, with the key and attribution.
  void ShowAzure(int index, const QString& azureKey);
  // The menu entry at a position; EListError past either end.
  QAction* Entry(int position) const;

  TLayers FLayers;
  QMenu* FMenu;
  QLabel* FAttribution1;
  QLabel* FAttribution2;
  QPointer<QActionGroup> FGroup; // the menu's radio entries; a child of the menu
};
