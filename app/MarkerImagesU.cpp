#include "MarkerImagesU.h"

#include <QFile>
#include <QHash>

static void InitMarkerResources()
{
  // The images live in a static library's resources.
  Q_INIT_RESOURCE(markers);
}

namespace MarkerCategory
{
const QStringList& TabOrder()
{
  static const QStringList Order = {Industry, Nature, Transportation, People, Media, Tourism, Misc, Custom};
  return Order;
}

const QStringList& LoadOrder()
{
  static const QStringList Order = {Transportation, Industry, Nature, People, Media, Tourism, Misc, Custom};
  return Order;
}
}

namespace
{
struct TCaptions
{
  const QStringList Industry = {
    QStringLiteral("Air Fixwing"), QStringLiteral("Aircraft Carrier"), QStringLiteral("Army"),
    QStringLiteral("Battleship"), QStringLiteral("Boat Crane"), QStringLiteral("Bomber"), QStringLiteral("Brewery"),
    QStringLiteral("Bunker"), QStringLiteral("Channel Change"), QStringLiteral("Chemestry"),
    QStringLiteral("Construction"), QStringLiteral("Crane"), QStringLiteral("Dam"), QStringLiteral("Database"),
    QStringLiteral("Deep Sea Fishing"), QStringLiteral("Expert"), QStringLiteral("Factory"),
    QStringLiteral("Fishing"), QStringLiteral("Foundry"), QStringLiteral("Frequency Change"),
    QStringLiteral("Gas Cylinder"), QStringLiteral("Geothermal"), QStringLiteral("IO Bridge"),
    QStringLiteral("Jeep"), QStringLiteral("Jetfighter"), QStringLiteral("Laboratory"), QStringLiteral("Landfill"),
    QStringLiteral("Lighthouse"), QStringLiteral("Linedown"), QStringLiteral("Lock"), QStringLiteral("Mast Crane"),
    QStringLiteral("Metro Network"), QStringLiteral("Mine"), QStringLiteral("Missile"),
    QStringLiteral("Mobile Phone Tower"), QStringLiteral("Museum Industry"), QStringLiteral("No Nuke Export"),
    QStringLiteral("Observatory"), QStringLiteral("Oil Pump Jack"), QStringLiteral("Oil Rig"),
    QStringLiteral("Outlet"), QStringLiteral("Powerline Pole"), QStringLiteral("Power Outage"),
    QStringLiteral("Power Plant"), QStringLiteral("Power Substation"), QStringLiteral("Radar"),
    QStringLiteral("Radio Station"), QStringLiteral("Recycle"), QStringLiteral("Sawmill"),
    QStringLiteral("Septic Tank"), QStringLiteral("Shipwreck"), QStringLiteral("Solar Energy"),
    QStringLiteral("Space Port"), QStringLiteral("Splice"), QStringLiteral("Submarine"), QStringLiteral("Warehouse"),
    QStringLiteral("Water Tower"), QStringLiteral("Wind Turbine")};
  const QStringList Nature = {
    QStringLiteral("Algae"), QStringLiteral("Alligator"), QStringLiteral("Anchor"), QStringLiteral("Anemometer"),
    QStringLiteral("Animal Shelter"), QStringLiteral("Ant"), QStringLiteral("Apple"), QStringLiteral("Bats"),
    QStringLiteral("Beach"), QStringLiteral("View"), QStringLiteral("Birds"), QStringLiteral("Butterfly"),
    QStringLiteral("Canyon"), QStringLiteral("Cheese"), QStringLiteral("Chicken"), QStringLiteral("Cloudy"),
    QStringLiteral("Partly Cloudy"), QStringLiteral("Compost"), QStringLiteral("Corral"), QStringLiteral("Cow"),
    QStringLiteral("Crop Circle"), QStringLiteral("Deer"), QStringLiteral("Desert"), QStringLiteral("Dolphin"),
    QStringLiteral("Drinking Water"), QStringLiteral("Duck"), QStringLiteral("Eggs"), QStringLiteral("Elephant"),
    QStringLiteral("Farm"), QStringLiteral("Farm Stand"), QStringLiteral("Field"), QStringLiteral("Fjord"),
    QStringLiteral("Flower"), QStringLiteral("Forest"), QStringLiteral("Frog"), QStringLiteral("Fruits"),
    QStringLiteral("Geyser"), QStringLiteral("Glacier"), QStringLiteral("Grass"), QStringLiteral("Hare"),
    QStringLiteral("Haybale"), QStringLiteral("Honeycomb"), QStringLiteral("Hot Spring"), QStringLiteral("Lake"),
    QStringLiteral("Lobster"), QStringLiteral("Monkey"), QStringLiteral("Moon-Star"), QStringLiteral("Mosquito"),
    QStringLiteral("Mountain Pass"), QStringLiteral("Mountains"), QStringLiteral("Mushroom"),
    QStringLiteral("Penguin"), QStringLiteral("Pets"), QStringLiteral("Pig"), QStringLiteral("Clover"),
    QStringLiteral("Rainy"), QStringLiteral("Habitat"), QStringLiteral("RIver"), QStringLiteral("Rodent"),
    QStringLiteral("Seal"), QStringLiteral("Shark"), QStringLiteral("Shore"), QStringLiteral("Snail"),
    QStringLiteral("Snake"), QStringLiteral("Snow"), QStringLiteral("Spider"), QStringLiteral("Sugar Shack"),
    QStringLiteral("Sunny"), QStringLiteral("Sunset"), QStringLiteral("Thunderstorm"), QStringLiteral("Tiger"),
    QStringLiteral("Tornado"), QStringLiteral("Turtle"), QStringLiteral("Fruit Stand"), QStringLiteral("Veterinary"),
    QStringLiteral("Vinyard"), QStringLiteral("Volcano"), QStringLiteral("Water"), QStringLiteral("Waterfall"),
    QStringLiteral("Water Mill"), QStringLiteral("Water Well"), QStringLiteral("Pump"), QStringLiteral("Wetlands"),
    QStringLiteral("Whale"), QStringLiteral("Camel"), QStringLiteral("Wind"), QStringLiteral("Windmill"),
    QStringLiteral("Woodshed"), QStringLiteral("Zoo")};
  const QStringList Transportation = {
    QStringLiteral("Access Denied"), QStringLiteral("Aircraft Small"), QStringLiteral("Airport"),
    QStringLiteral("Airport Apron"), QStringLiteral("Airport Runway"), QStringLiteral("Airport Terminal"),
    QStringLiteral("Barrier"), QStringLiteral("Boat"), QStringLiteral("Bulldozer"), QStringLiteral("Bus"),
    QStringLiteral("Bus Stop"), QStringLiteral("Cablecar"), QStringLiteral("Car"), QStringLiteral("Car Wash"),
    QStringLiteral("Caution"), QStringLiteral("Closed Road"), QStringLiteral("Convertable"),
    QStringLiteral("Crossing Guard"), QStringLiteral("Down"), QStringLiteral("Dangerous Curve"),
    QStringLiteral("Falling Rock"), QStringLiteral("Ferry"), QStringLiteral("Fuel Station"),
    QStringLiteral("Funicular"), QStringLiteral("Harbor"), QStringLiteral("Helicopter"), QStringLiteral("Highway"),
    QStringLiteral("Hotair Balloon"), QStringLiteral("Icy Road"), QStringLiteral("Intersection"),
    QStringLiteral("Crossing"), QStringLiteral("Main Road"), QStringLiteral("Motorcycle"), QStringLiteral("Oil"),
    QStringLiteral("Park And Ride"), QStringLiteral("Parking Garage"), QStringLiteral("Parking Meter"),
    QStringLiteral("Pedestrian Crossing"), QStringLiteral("Repair"), QStringLiteral("Road"),
    QStringLiteral("Gravel Road"), QStringLiteral("Slipway"), QStringLiteral("Speed Bump"), QStringLiteral("Stop"),
    QStringLiteral("Taxi"), QStringLiteral("Ferry"), QStringLiteral("Taxiway"), QStringLiteral("Tires"),
    QStringLiteral("Toll Station"), QStringLiteral("Traffic Camera"), QStringLiteral("Traffic Light"),
    QStringLiteral("Train"), QStringLiteral("Tramway"), QStringLiteral("Truck"), QStringLiteral("Tunnel"),
    QStringLiteral("Underground"), QStringLiteral("Van"), QStringLiteral("Waterway")};
  const QStringList People = {
    QStringLiteral("Archery"), QStringLiteral("ATV"), QStringLiteral("Football"), QStringLiteral("Tennis"),
    QStringLiteral("Baseball"), QStringLiteral("Basketball"), QStringLiteral("Volleyball"),
    QStringLiteral("Downhill"), QStringLiteral("Cycling"), QStringLiteral("Billiards"),
    QStringLiteral("Border Cross"), QStringLiteral("Bobsled"), QStringLiteral("Boxing"), QStringLiteral("Climbing"),
    QStringLiteral("cup"), QStringLiteral("Curling"), QStringLiteral("Cycling"), QStringLiteral("Diving"),
    QStringLiteral("Finish"), QStringLiteral("fitness"), QStringLiteral("4x4"), QStringLiteral("Golf"),
    QStringLiteral("Handball"), QStringLiteral("Hiking"), QStringLiteral("Hourse Riding"), QStringLiteral("Hunting"),
    QStringLiteral("Hockey"), QStringLiteral("Ice Skating"), QStringLiteral("Arena"), QStringLiteral("Jogging"),
    QStringLiteral("Judo"), QStringLiteral("Karate"), QStringLiteral("Kayaking"), QStringLiteral("Motorcycle"),
    QStringLiteral("Parachute"), QStringLiteral("Remote Control"), QStringLiteral("Row Boat"),
    QStringLiteral("Field"), QStringLiteral("Sailing"), QStringLiteral("Scuba"), QStringLiteral("Shooting Range"),
    QStringLiteral("Skiing"), QStringLiteral("Ski Jump"), QStringLiteral("Ski Lift"), QStringLiteral("Sled"),
    QStringLiteral("Snorkeling"), QStringLiteral("Snowboarding"), QStringLiteral("Snowmobile"),
    QStringLiteral("Soccer"), QStringLiteral("Car"), QStringLiteral("SUV"), QStringLiteral("Stadium"),
    QStringLiteral("Race"), QStringLiteral("Sumo"), QStringLiteral("Swimming"), QStringLiteral("Taekwondo"),
    QStringLiteral("Table Tennis"), QStringLiteral("Tennis"), QStringLiteral("Volleyball"),
    QStringLiteral("Water Skiing"), QStringLiteral("Weigh Lifting"), QStringLiteral("Wind Surfing"),
    QStringLiteral("Wrestling"), QStringLiteral("Yoga")};
  const QStringList Media = {
    QStringLiteral("360"), QStringLiteral("Speaker"), QStringLiteral("Ribbon"), QStringLiteral("Calendar"),
    QStringLiteral("Graph"), QStringLiteral("Note"), QStringLiteral("Conversation"), QStringLiteral("Down"),
    QStringLiteral("Folder"), QStringLiteral("Camera"), QStringLiteral("Tag"), QStringLiteral("Share"),
    QStringLiteral("Star"), QStringLiteral("Text"), QStringLiteral("Tweet"), QStringLiteral("Video"),
    QStringLiteral("Zoom")};
  const QStringList Tourism = {
    QStringLiteral("Agritourism"), QStringLiteral("Arch"), QStringLiteral("City"), QStringLiteral("Bouddha"),
    QStringLiteral("Bridge"), QStringLiteral("Bridge Old"), QStringLiteral("Cabin"), QStringLiteral("Campfire"),
    QStringLiteral("Camping"), QStringLiteral("Castle"), QStringLiteral("Cathedral"), QStringLiteral("Grave"),
    QStringLiteral("Cave"), QStringLiteral("Cemetary"), QStringLiteral("Chapel"), QStringLiteral("Church"),
    QStringLiteral("Clock"), QStringLiteral("Country"), QStringLiteral("Cross"), QStringLiteral("Dog Leash"),
    QStringLiteral("Flag"), QStringLiteral("Forest"), QStringLiteral("Fountain"), QStringLiteral("Ghost Town"),
    QStringLiteral("Gondola"), QStringLiteral("Headstone"), QStringLiteral("Historical"), QStringLiteral("Hut"),
    QStringLiteral("Temple"), QStringLiteral("Life Guard"), QStringLiteral("Map"), QStringLiteral("Marina"),
    QStringLiteral("Monument"), QStringLiteral("Mosque"), QStringLiteral("Olympic Site"), QStringLiteral("Pagoda"),
    QStringLiteral("Palm Tree"), QStringLiteral("Panoramic View"), QStringLiteral("Picnic"),
    QStringLiteral("Prayer"), QStringLiteral("Pyramid"), QStringLiteral("Ruins"), QStringLiteral("Statue"),
    QStringLiteral("Temple"), QStringLiteral("Tower"), QStringLiteral("World")};
  const QStringList Misc = {
    QStringLiteral("Green Pin"), QStringLiteral("Blue Pin"), QStringLiteral("Red Pin"), QStringLiteral("Yellow Pin"),
    QStringLiteral("Green Star"), QStringLiteral("Blue Star"), QStringLiteral("Red Star"),
    QStringLiteral("Yellow Star"), QStringLiteral("Green Figure"), QStringLiteral("Dark Blue Figure"),
    QStringLiteral("Blue Figure"), QStringLiteral("Light Blue Figure"), QStringLiteral("Red Figure"),
    QStringLiteral("Orange Figure"), QStringLiteral("Yellow Figure"), QStringLiteral("Gray Figure"),
    QStringLiteral("Black Figure")};
};

QList<TMarkerRow> Rows(const QStringList& captions, int (*imageOf)(int row))
{
  QList<TMarkerRow> rows;
  rows.reserve(captions.size());
  for (int row = 0; row < captions.size(); ++row)
    rows.append({captions.at(row), imageOf(row)});
  return rows;
}

int SameAsRow(int row)
{
  return row;
}

// Rows 42 on skip images of an older list that saved files still count.
int TransportationImage(int row)
{
  if (row < 42)
    return row;
  return row == 42 ? 43 : row + 3;
}

int PeopleImage(int row)
{
  return row < 58 ? row : row + 1;
}

const QHash<QString, QList<TMarkerRow>>& AllRows()
{
  static const QHash<QString, QList<TMarkerRow>> All = [] {
    const TCaptions c;
    QHash<QString, QList<TMarkerRow>> all;
    all.insert(MarkerCategory::Industry, Rows(c.Industry, SameAsRow));
    // "Zoo", the last row, points one past the end of the list.
    all.insert(MarkerCategory::Nature, Rows(c.Nature, SameAsRow));
    all.insert(MarkerCategory::Transportation, Rows(c.Transportation, TransportationImage));
    all.insert(MarkerCategory::People, Rows(c.People, PeopleImage));
    all.insert(MarkerCategory::Media, Rows(c.Media, SameAsRow));
    all.insert(MarkerCategory::Tourism, Rows(c.Tourism, SameAsRow));
    all.insert(MarkerCategory::Misc, Rows(c.Misc, SameAsRow));
    return all;
  }();
  return All;
}
}

const QList<TMarkerRow>& FixedMarkerRows(const QString& category)
{
  static const QList<TMarkerRow> None;
  const auto& all = AllRows();
  const auto it = all.constFind(category);
  return it == all.constEnd() ? None : *it;
}

QImage TMarkerImageList::Image(int index) const
{
  if (index < 0 || index >= FImages.size())
    return QImage();
  TEntry& entry = FImages[index];
  if (!entry.Resource.isEmpty()) {
    QImage image(entry.Resource);
    // A missing resource keeps its place, so later indices stay right.
    if (image.isNull()) {
      image = QImage(FSize, QImage::Format_ARGB32_Premultiplied);
      image.fill(Qt::transparent);
    }
    entry.Image = image.convertToFormat(QImage::Format_ARGB32_Premultiplied);
    entry.Resource.clear();
  }
  return entry.Image;
}

int TMarkerImageList::Add(const QImage& image)
{
  FImages.append({image, QString()});
  return int(FImages.size()) - 1;
}

int TMarkerImageList::AddResource(const QString& path)
{
  FImages.append({QImage(), path});
  return int(FImages.size()) - 1;
}

int TMarkerImageLists::FixedImageCount(const QString& category)
{
  static const QHash<QString, int> Counts = {
    {MarkerCategory::Industry, 58}, {MarkerCategory::Nature, 88}, {MarkerCategory::Transportation, 61},
    {MarkerCategory::People, 65},   {MarkerCategory::Media, 17},  {MarkerCategory::Tourism, 46},
    {MarkerCategory::Misc, 17}};
  return Counts.value(category, 0);
}

TMarkerImageLists::TMarkerImageLists()
{
  InitMarkerResources();
  // Hundreds of names at every start: put together by hand, not by arg().
  for (const QString& category : MarkerCategory::TabOrder()) {
    TMarkerImageList* list = ByCategory(category);
    const int count = FixedImageCount(category);
    const QString folder = QStringLiteral(":/markers/") + category + QLatin1Char('/');
    for (int index = 0; index < count; ++index) {
      const char digits[] = {char('0' + index / 10), char('0' + index % 10), '.', 'p', 'n', 'g'};
      list->AddResource(folder + QLatin1String(digits, sizeof digits));
    }
  }
}

TMarkerImageList* TMarkerImageLists::ByCategory(const QString& category)
{
  return const_cast<TMarkerImageList*>(std::as_const(*this).ByCategory(category));
}

const TMarkerImageList* TMarkerImageLists::ByCategory(const QString& category) const
{
  if (category == MarkerCategory::Industry)
    return &IndustryImageList;
  if (category == MarkerCategory::Nature)
    return &NatureImageList;
  if (category == MarkerCategory::Transportation)
    return &TransportationImageList;
  if (category == MarkerCategory::People)
    return &PeopleImageList;
  if (category == MarkerCategory::Media)
    return &MediaImageList;
  if (category == MarkerCategory::Tourism)
    return &TourismImageList;
  if (category == MarkerCategory::Misc)
    return &MiscImageList;
  if (category == MarkerCategory::Custom)
    return &CustomImageList;
  return nullptr;
}

TMarkerImageLists& MarkerImageLists()
{
  static TMarkerImageLists Lists;
  return Lists;
}
