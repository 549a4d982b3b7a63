#include "vxMapItemLayer.h"

TvxMapItemLayer::TvxMapItemLayer(TvxMapLayers* ACollection) : TvxCustomMapItemLayer(ACollection)
{
}

TvxMapItemLayer::~TvxMapItemLayer() = default;
