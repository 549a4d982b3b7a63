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

#include <cstdio>

// One figure for scripts/bench's table: a tab-separated line after a marker,
// with the baseline measured in the same run.
inline void BenchRow(const char* AFigure, double AMedianMs, const char* ABaseline, double ABaselineMs)
{
  std::printf("bench-row\t%s\t%.2f\t%s\t%.2f\n", AFigure, AMedianMs, ABaseline, ABaselineMs);
  std::fflush(stdout);
}
