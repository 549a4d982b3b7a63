#pragma once

// What every benchmark reports: medians of repeated runs.

#include <algorithm>
#include <vector>

inline double Median(std::vector<double> AValues)
{
  std::sort(AValues.begin(), AValues.end());
  const size_t N = AValues.size();
  return N == 0 ? 0 : N % 2 ? AValues[N / 2] : (AValues[N / 2 - 1] + AValues[N / 2]) / 2;
}
