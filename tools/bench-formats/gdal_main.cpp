// The baseline of the formats benchmark: GDAL reads every feature of the
// given files through its C API, every field as its type and every point,
// and prints the milliseconds of each file. Benchmark only.

#include <gdal.h>
#include <ogr_api.h>

#include <chrono>
#include <cstdio>
#include <cstring>

namespace
{

double GChecksum = 0;

void ReadGeometry(OGRGeometryH AGeometry)
{
  const int Children = OGR_G_GetGeometryCount(AGeometry);
  if (Children > 0)
  {
    for (int I = 0; I < Children; ++I)
      ReadGeometry(OGR_G_GetGeometryRef(AGeometry, I));
    return;
  }
  const int Count = OGR_G_GetPointCount(AGeometry);
  for (int I = 0; I < Count; ++I)
    GChecksum += OGR_G_GetX(AGeometry, I) + OGR_G_GetY(AGeometry, I);
}

// Milliseconds to open and read the whole file; -1 if it does not open.
double ReadFile(const char* AFileName, long& AFeatures)
{
  const auto Start = std::chrono::steady_clock::now();
  GDALDatasetH Dataset = GDALOpenEx(AFileName, GDAL_OF_VECTOR | GDAL_OF_READONLY, nullptr, nullptr, nullptr);
  if (!Dataset)
    return -1;
  AFeatures = 0;
  for (int L = 0; L < GDALDatasetGetLayerCount(Dataset); ++L)
  {
    OGRLayerH Layer = GDALDatasetGetLayer(Dataset, L);
    OGR_L_ResetReading(Layer);
    while (OGRFeatureH Feature = OGR_L_GetNextFeature(Layer))
    {
      ++AFeatures;
      const int Fields = OGR_F_GetFieldCount(Feature);
      for (int F = 0; F < Fields; ++F)
      {
        switch (OGR_Fld_GetType(OGR_F_GetFieldDefnRef(Feature, F)))
        {
        case OFTInteger:
          GChecksum += OGR_F_GetFieldAsInteger(Feature, F);
          break;
        case OFTInteger64:
          GChecksum += double(OGR_F_GetFieldAsInteger64(Feature, F));
          break;
        case OFTReal:
          GChecksum += OGR_F_GetFieldAsDouble(Feature, F);
          break;
        case OFTDate:
        case OFTDateTime:
        {
          int Y, M, D, H, Mi, Tz;
          float S;
          OGR_F_GetFieldAsDateTimeEx(Feature, F, &Y, &M, &D, &H, &Mi, &S, &Tz);
          GChecksum += Y + M + D;
          break;
        }
        default:
          GChecksum += double(std::strlen(OGR_F_GetFieldAsString(Feature, F)));
        }
      }
      if (OGRGeometryH Geometry = OGR_F_GetGeometryRef(Feature))
        ReadGeometry(Geometry);
      OGR_F_Destroy(Feature);
    }
  }
  GDALClose(Dataset);
  return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - Start).count();
}

} // namespace

int main(int argc, char* argv[])
{
  GDALAllRegister();
  for (int I = 1; I < argc; ++I)
  {
    long Features = 0;
    const double Ms = ReadFile(argv[I], Features);
    std::printf("%s %.3f %ld\n", argv[I], Ms, Features);
  }
  std::fprintf(stderr, "checksum %g, %s\n", GChecksum, GDALVersionInfo("RELEASE_NAME"));
  return 0;
}
