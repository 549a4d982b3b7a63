#pragma once

// The item layer whose items the program adds in code, such as its marker
// layers.

#include "vxCustomMapItemLayer.h"

class TvxMapItemLayer : public TvxCustomMapItemLayer
{
public:
  explicit TvxMapItemLayer(TvxMapLayers* ACollection = nullptr);
  ~TvxMapItemLayer() override;
};
