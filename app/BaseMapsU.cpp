#include "BaseMapsU.h"

#include "ArcGISMapProviderU.h"
#include "GlobalsU.h"
#include "IniFileU.h"
#include "InternetProbeU.h"
#include "vxAzureMapImageryDataProvider.h"
#include "vxMBTilesImageryDataProvider.h"
#include "vxMapControlOpenStreetMapImageryDataProvider.h"
#include "vxMapImageTileLayer.h"

#include <QAction>
#include <QActionGroup>
#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <QFontMetrics>
#include <QLabel>
#include <QMenu>
#include <QRegularExpression>

namespace
{
const QString PublicOpenStreetMapUrl = QStringLiteral("https://[subdomain].tile.openstreetmap.org/[z]/[x]/[y].png");
const QString MBTilesScheme = QStringLiteral("mbtiles:");
const QString OpenStreetMapAttribution = QStringLiteral("© OpenStreetMap contributors");
const QStringList OpenStreetMapSubdomains = {QStringLiteral("a"), QStringLiteral("b"), QStringLiteral("c")};

// The Azure rows are looked up this far past their entries (see
// SetCachedBaseMapsOnly).
constexpr int AzureLookupShift = 3;

bool IsAzure(int index)
{
  return index >= bmAzureImagery && index <= bmAzureRoad;
}

// A value of [Servers], or empty when it is absent or not an HTTP address:
// a bad line must not take the map away.
QString ServerValue(const TIniFile& ini, const char* key, bool host)
{
  QString value = ini.ReadString(QStringLiteral("Servers"), QLatin1String(key), QString());
  if (value.isEmpty())
    return value;
  if (!value.startsWith(QLatin1String("http://"), Qt::CaseInsensitive) &&
      !value.startsWith(QLatin1String("https://"), Qt::CaseInsensitive))
  {
    qWarning("[Servers] %s ignored: \"%s\" is not an http:// or https:// address", key, qUtf8Printable(value));
    return QString();
  }
  // The paths are appended with their own "/".
  if (host)
    while (value.endsWith(QLatin1Char('/')))
      value.chop(1);
  return value;
}

bool IsMBTilesValue(const TIniFile& ini, const char* key)
{
  return ini.ReadString(QStringLiteral("Servers"), QLatin1String(key), QString())
    .startsWith(MBTilesScheme, Qt::CaseInsensitive);
}

// "mbtiles:" and a file, as an absolute path; a relative one is taken from
// the INI's folder, written with either slash. Empty when it names no file.
QString MBTilesValue(const TIniFile& ini, const char* key)
{
  const QString value = ini.ReadString(QStringLiteral("Servers"), QLatin1String(key), QString());
  QString path = value.mid(MBTilesScheme.size()).trimmed();
  if (path.isEmpty())
  {
    qWarning("[Servers] %s ignored: \"%s\" names no file", key, qUtf8Printable(value));
    return QString();
  }
  path.replace(QLatin1Char('\\'), QLatin1Char('/'));
  if (QFileInfo(path).isRelative())
    path = Globals::JoinPath(QFileInfo(ini.FileName()).absolutePath(), path);
  return MBTilesScheme + QDir::cleanPath(path);
}

void Show(TvxMapImageTileLayer* layer, bool visible)
{
  if (layer)
    layer->SetVisible(visible);
}

void SetDiskFolder(TvxMapImageTileLayer* layer, const QString& folder)
{
  if (layer && layer->Provider())
    layer->Provider()->CacheOptions().SetDiskFolder(folder);
}

// Windows wildcards: "*" and "?" only, any case.
QRegularExpression WildcardExpression(const QString& pattern)
{
  QString expression;
  for (const QChar c : pattern)
  {
    if (c == QLatin1Char('*'))
      expression += QLatin1String(".*");
    else if (c == QLatin1Char('?'))
      expression += QLatin1Char('.');
    else
      expression += QRegularExpression::escape(QString(c));
  }
  return QRegularExpression(QRegularExpression::anchoredPattern(expression),
                            QRegularExpression::CaseInsensitiveOption | QRegularExpression::DotMatchesEverythingOption);
}
} // namespace

const std::array<TBaseMapRow, BaseMapCount>& BaseMapCatalogue()
{
  static const std::array<TBaseMapRow, BaseMapCount> Catalogue = {{
    {QString(), QStringLiteral("WorldImagery"), true, QStringLiteral("ArcGIS_WI*")},
    {QString(), QStringLiteral("WorldStreet"), true, QStringLiteral("ArcGIS_WS*")},
    {QString(), QStringLiteral("WorldTopo"), true, QStringLiteral("ArcGIS_WT*")},
    {QString(), QStringLiteral("NatGeo"), true, QStringLiteral("ArcGIS_NGW*")},
    {QString(), QStringLiteral("USATopo"), true, QStringLiteral("ArcGIS_UT*")},
    {QStringLiteral("OpenStreetMap"), QStringLiteral("OpenStreet"), true, QStringLiteral("openstreet*")},
    {QStringLiteral("Azure Imagery"), QStringLiteral("AzureImagery"), false, QStringLiteral("azure_Satellite*")},
    {QStringLiteral("Azure Hybrid"), QStringLiteral("AzureHybrid"), false, QStringLiteral("azure_Hybrid*")},
    {QStringLiteral("Azure Road"), QStringLiteral("AzureRoad"), false, QStringLiteral("azure_Road*")},
  }};
  return Catalogue;
}

TServerSettings TServerSettings::Read(const TIniFile& ini)
{
  TServerSettings settings;
  settings.OpenStreetMapUrl = IsMBTilesValue(ini, "OpenStreetMapUrl") ? MBTilesValue(ini, "OpenStreetMapUrl")
                                                                       : ServerValue(ini, "OpenStreetMapUrl", false);
  settings.ArcGISServer = ServerValue(ini, "ArcGISServer", true);
  settings.AzureMapsServer = ServerValue(ini, "AzureMapsServer", true);
  settings.ProbeUrl1 = ServerValue(ini, "ProbeUrl1", false);
  settings.ProbeUrl2 = ServerValue(ini, "ProbeUrl2", false);
  return settings;
}

QString TServerSettings::OpenStreetMapFile() const
{
  return OpenStreetMapUrl.startsWith(MBTilesScheme) ? OpenStreetMapUrl.mid(MBTilesScheme.size()) : QString();
}

QStringList TServerSettings::ProbeTargets() const
{
  QStringList targets;
  for (const QString& url : {ProbeUrl1, ProbeUrl2})
    if (!url.isEmpty())
      targets << url;
  return targets.isEmpty() ? InternetProbe::DefaultTargets() : targets;
}

bool FindCachedFiles(const QString& PathName, const QString& FileName)
{
  // No folder, no cache (rather than searching the root).
  if (PathName.isEmpty())
    return false;
  const QRegularExpression pattern = WildcardExpression(FileName);
  // One match is enough: a cache folder can hold many thousands of tiles.
  QDirIterator it(PathName, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
  while (it.hasNext())
  {
    it.next();
    if (!it.fileInfo().isDir() && pattern.match(it.fileName()).hasMatch())
      return true;
  }
  return false;
}

TBaseMaps::TBaseMaps(const TLayers& layers, QMenu* menu, QLabel* attribution1, QLabel* attribution2)
  : FLayers(layers), FMenu(menu), FAttribution1(attribution1), FAttribution2(attribution2)
{
}

void TBaseMaps::SetUpLayers(const TServerSettings& servers)
{
  if (TvxMapImageTileLayer* layer = FLayers.OpenStreetMap; layer && !servers.OpenStreetMapFile().isEmpty())
  {
    // A broken file warns once and leaves the entry drawing nothing.
    layer->SetProviderClass(vxImageTileProviderClass<TvxMBTilesImageryDataProvider>());
    layer->ProviderAs<TvxMBTilesImageryDataProvider>()->SetFileName(servers.OpenStreetMapFile());
  }
  else if (layer)
  {
    layer->SetProviderClass(vxImageTileProviderClass<TvxMapControlOpenStreetMapImageryDataProvider>());
    auto* provider = layer->ProviderAs<TvxMapControlOpenStreetMapImageryDataProvider>();
    provider->SetSubdomains(OpenStreetMapSubdomains);
    provider->SetUrlTemplate(servers.OpenStreetMapUrl.isEmpty() ? PublicOpenStreetMapUrl : servers.OpenStreetMapUrl);
  }

  // The override is read when the provider is made, so an existing one is
  // made anew.
  TArcGISMapProvider::SetServerOverride(servers.ArcGISServer);
  if (TvxMapImageTileLayer* layer = FLayers.ArcGIS)
  {
    layer->SetProviderClass(nullptr);
    layer->SetProviderClass(vxImageTileProviderClass<TArcGISMapProvider>());
  }

  const std::pair<TvxMapImageTileLayer*, TvxAzureMapTileset> azureLayers[] = {
    {FLayers.Azure1, TvxAzureMapTileset::Satellite}, {FLayers.Azure2, TvxAzureMapTileset::HybridRoad}};
  for (const auto& [layer, tileset] : azureLayers)
  {
    if (!layer)
      continue;
    layer->SetProviderClass(vxImageTileProviderClass<TvxMapControlAzureMapImageryDataProvider>());
    auto* provider = AzureProvider(layer);
    provider->BeginUpdate();
    provider->SetServer(servers.AzureMapsServer);
    provider->SetTileset(tileset);
    provider->EndUpdate();
  }
}

int TBaseMaps::BuildMenu(int baseMapIdx, const TBaseMapFlags& flags, const QString& azureKey,
                         const QString& cacheDir, std::function<void(QAction*)> onClick)
{
  FMenu->clear();
  if (!FGroup)
    FGroup = new QActionGroup(FMenu);
  FGroup->setExclusive(true);
  if (FLayers.ArcGIS)
    FLayers.ArcGIS->SetProviderClass(vxImageTileProviderClass<TArcGISMapProvider>());

  auto addEntry = [&](const QString& caption, int tag, bool checked, bool visible)
  {
    QAction* entry = FMenu->addAction(caption);
    entry->setCheckable(true);
    entry->setData(tag);
    FGroup->addAction(entry);
    entry->setChecked(checked);
    entry->setVisible(visible);
    QObject::connect(entry, &QAction::triggered, entry, [onClick, entry] {
      if (onClick)
        onClick(entry);
    });
  };

  if (TArcGISMapProvider* provider = ArcGISProvider())
  {
    const TArcGISMapProvider::TBaseMaps& rows = provider->BaseMaps();
    for (int i = 0; i < int(rows.size()); ++i)
      addEntry(rows[size_t(i)].first, i, i == baseMapIdx, i < BaseMapCount && flags[size_t(i)]);
  }
  const auto& catalogue = BaseMapCatalogue();
  for (int row = bmOpenStreetMap; row < BaseMapCount; ++row)
  {
    const int tag = int(FMenu->actions().size());
    const bool flag = flags[size_t(row)];
    addEntry(catalogue[size_t(row)].Caption, tag, baseMapIdx == tag && flag, flag);
  }

  if (!azureKey.isEmpty())
    SetAzureKey(azureKey);

  int index = baseMapIdx;
  if (IsAzure(index) && !azureKey.isEmpty())
  {
    ShowAzure(index, azureKey);
    // Only here do the Azure layers get their disk folder.
    if (!cacheDir.isEmpty())
      SetDiskFolder(FLayers.Azure1, cacheDir);
    SetDiskFolder(FLayers.Azure2, cacheDir);
  }
  else
  {
    // Without a key an Azure map cannot show; the menu keeps its check mark
    // and the saved value stays.
    if (IsAzure(index))
      index = bmWorldImagery;
    Show(FLayers.Azure1, false);
    Show(FLayers.Azure2, false);
  }

  const bool openStreetMap = index == bmOpenStreetMap;
  Show(FLayers.OpenStreetMap, openStreetMap);
  if (!cacheDir.isEmpty())
    SetDiskFolder(FLayers.OpenStreetMap, cacheDir);
  if (openStreetMap)
    SetAttribution(TAttributionFamily::OpenStreetMap);

  // An index outside the catalogue shows no base map rather than failing.
  const bool arcGIS = index >= 0 && index < bmOpenStreetMap;
  Show(FLayers.ArcGIS, arcGIS);
  if (arcGIS)
  {
    if (TArcGISMapProvider* provider = ArcGISProvider())
      provider->ChangeBaseMap(index);
    SetAttribution(TAttributionFamily::ArcGIS);
  }
  if (!cacheDir.isEmpty())
    SetDiskFolder(FLayers.ArcGIS, cacheDir);
  return index;
}

void TBaseMaps::Click(QAction* entry, QString& azureKey, const std::function<QString()>& askKey)
{
  entry->setChecked(true);
  const int index = entry->data().toInt();

  if (index == bmOpenStreetMap)
  {
    Show(FLayers.ArcGIS, false);
    Show(FLayers.Azure1, false);
    Show(FLayers.Azure2, false);
    Show(FLayers.OpenStreetMap, true);
    SetAttribution(TAttributionFamily::OpenStreetMap);
  }
  else if (IsAzure(index))
  {
    if (azureKey.isEmpty() && askKey)
    {
      azureKey = askKey();
      if (!azureKey.isEmpty())
        SetAzureKey(azureKey);
    }
    // Still no key: the map on screen stays although the entry is checked.
    if (azureKey.isEmpty())
      return;
    ShowAzure(index, azureKey);
  }
  else if (index >= 0 && index < bmOpenStreetMap)
  {
    Show(FLayers.OpenStreetMap, false);
    Show(FLayers.Azure1, false);
    Show(FLayers.Azure2, false);
    Show(FLayers.ArcGIS, true);
    if (TArcGISMapProvider* provider = ArcGISProvider())
      provider->ChangeBaseMap(index);
    SetAttribution(TAttributionFamily::ArcGIS);
  }
}

void TBaseMaps::SetCachedBaseMapsOnly(const TBaseMapFlags& flags, const QString& cacheDir)
{
  const auto& catalogue = BaseMapCatalogue();
  for (int row = 0; row < BaseMapCount; ++row)
  {
    if (!flags[size_t(row)] || FindCachedFiles(cacheDir, catalogue[size_t(row)].CachePattern))
      continue;
    if (row == bmOpenStreetMap && MBTilesProvider() && QFileInfo(MBTilesProvider()->FileName()).isFile())
      continue;
    const int position = IsAzure(row) ? row + AzureLookupShift : row;
    Entry(position)->setVisible(false);
  }
}

void TBaseMaps::ApplyFlags(const TBaseMapFlags& flags)
{
  for (QAction* entry : FMenu->actions()) {
    const int tag = entry->data().toInt();
    entry->setVisible(tag >= 0 && tag < BaseMapCount && flags[size_t(tag)]);
  }
}

QAction* TBaseMaps::EntryAt(int position) const
{
  const QList<QAction*> entries = FMenu->actions();
  return position >= 0 && position < int(entries.size()) ? entries[position] : nullptr;
}

QString TBaseMaps::ArcGISTileUrl() const
{
  const TArcGISMapProvider* provider = ArcGISProvider();
  return provider ? provider->URL() : QString();
}

QString TBaseMaps::ArcGISFilePrefix() const
{
  const TArcGISMapProvider* provider = ArcGISProvider();
  return QStringLiteral("ArcGIS_") + (provider ? provider->CachePrefix() : QString());
}

int TBaseMaps::ArcGISMaxZoom() const
{
  const TArcGISMapProvider* provider = ArcGISProvider();
  return provider ? provider->MaxZoomLevel() : 0;
}

int TBaseMaps::CheckedIndex() const
{
  const QList<QAction*> entries = FMenu->actions();
  for (int i = 0; i < int(entries.size()); ++i)
    if (entries[i]->isChecked())
      return i;
  return -1;
}

QAction* TBaseMaps::FirstVisibleEntry() const
{
  for (QAction* entry : FMenu->actions())
    if (entry->isVisible())
      return entry;
  return nullptr;
}

void TBaseMaps::SetAttribution(TAttributionFamily family)
{
  switch (family)
  {
  case TAttributionFamily::ArcGIS:
    FAttribution1->setText(QStringLiteral("Powered by Esri"));
    FAttribution1->move(FAttribution1->x(), 5);
    FAttribution2->setText(QStringLiteral("Sources: Esri, HERE, USGS..."));
    FAttribution2->show();
    break;
  case TAttributionFamily::OpenStreetMap:
    if (MBTilesProvider())
    {
      ShowFileAttribution(MBTilesProvider()->Attribution());
      break;
    }
    FAttribution1->setText(OpenStreetMapAttribution);
    FAttribution1->move(FAttribution1->x(), 13);
    FAttribution2->hide();
    break;
  case TAttributionFamily::Azure:
    FAttribution1->setText(QStringLiteral("© Microsoft Azure Maps"));
    FAttribution1->move(FAttribution1->x(), 13);
    FAttribution2->hide();
    break;
  }
  if (QWidget* panel = FAttribution1->parentWidget())
    panel->show();
}

void TBaseMaps::ShowFileAttribution(const QString& text)
{
  FAttribution1->setToolTip(text);
  FAttribution2->setToolTip(text);
  const QFontMetrics metrics(FAttribution1->font());
  const int width = FAttribution1->width();
  if (metrics.horizontalAdvance(text) <= width)
  {
    FAttribution1->setText(text);
    FAttribution1->move(FAttribution1->x(), 13);
    FAttribution2->hide();
    return;
  }
  // Two lines, as the ArcGIS credit has: broken at the last space that
  // fits, the rest cut short if it must be.
  int cut = int(text.size());
  while (cut > 0 && (text.at(cut - 1) != QLatin1Char(' ') || metrics.horizontalAdvance(text.left(cut - 1)) > width))
    --cut;
  if (cut == 0)
    cut = int(text.size()) / 2;
  FAttribution1->setText(metrics.elidedText(text.left(cut).trimmed(), Qt::ElideRight, width));
  FAttribution1->move(FAttribution1->x(), 5);
  FAttribution2->setText(metrics.elidedText(text.mid(cut).trimmed(), Qt::ElideRight, width));
  FAttribution2->show();
}

TArcGISMapProvider* TBaseMaps::ArcGISProvider() const
{
  return FLayers.ArcGIS ? FLayers.ArcGIS->ProviderAs<TArcGISMapProvider>() : nullptr;
}

QString TBaseMaps::BaseMapFileProblem() const
{
  const TvxMBTilesImageryDataProvider* provider = MBTilesProvider();
  return provider ? provider->LastError() : QString();
}

TvxMBTilesImageryDataProvider* TBaseMaps::MBTilesProvider() const
{
  return FLayers.OpenStreetMap ? FLayers.OpenStreetMap->ProviderAs<TvxMBTilesImageryDataProvider>() : nullptr;
}

TvxMapControlAzureMapImageryDataProvider* TBaseMaps::AzureProvider(TvxMapImageTileLayer* layer)
{
  return layer ? layer->ProviderAs<TvxMapControlAzureMapImageryDataProvider>() : nullptr;
}

void TBaseMaps::SetAzureKey(const QString& azureKey)
{
  for (TvxMapImageTileLayer* layer : {FLayers.Azure1, FLayers.Azure2})
    if (auto* provider = AzureProvider(layer))
      provider->SetAzureKey(azureKey);
}

void TBaseMaps::ShowAzure(int index, const QString& azureKey)
{
  Show(FLayers.ArcGIS, false);
  Show(FLayers.OpenStreetMap, false);
  const bool hybrid = index == bmAzureHybrid;
  Show(FLayers.Azure1, true);
  Show(FLayers.Azure2, hybrid);
  // One new tile source per layer for key and tileset together.
  if (auto* provider = AzureProvider(FLayers.Azure1))
  {
    provider->BeginUpdate();
    provider->SetAzureKey(azureKey);
    provider->SetTileset(index == bmAzureRoad ? TvxAzureMapTileset::Road : TvxAzureMapTileset::Satellite);
    provider->EndUpdate();
  }
  if (auto* provider = AzureProvider(FLayers.Azure2))
  {
    provider->BeginUpdate();
    provider->SetAzureKey(azureKey);
    if (hybrid)
      provider->SetTileset(TvxAzureMapTileset::HybridRoad);
    provider->EndUpdate();
  }
  SetAttribution(TAttributionFamily::Azure);
}

QAction* TBaseMaps::Entry(int position) const
{
  const QList<QAction*> entries = FMenu->actions();
  if (position < 0 || position >= int(entries.size()))
    throw EListError("List index out of bounds (" + std::to_string(position) + ")");
  return entries[position];
}
