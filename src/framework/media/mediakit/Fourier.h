#pragma once
// Fourier magnitudes and cross-correlations of audio, on FFTW.

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Tal {
namespace MediaKit {

/// Circular cross-correlation over `size` points (at least a.size() + b.size() - 1 for a linear one):
/// c[lag] = sum a[i] * b[i + lag], negative lags at the end (c[size - k] is lag -k).
std::vector<double> CrossCorrelation(const std::vector<int16_t>& a, const std::vector<int16_t>& b,
                                     std::size_t size);

/// Magnitudes of the discrete Fourier transform of `signal`, bins 0 .. size / 2.
std::vector<double> FourierMagnitudes(const std::vector<double>& signal);

}  // namespace MediaKit
}  // namespace Tal
