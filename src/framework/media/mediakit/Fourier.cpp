#include "framework/media/mediakit/Fourier.h"

#include <fftw3.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <memory>
#include <mutex>

namespace Tal {
namespace MediaKit {

namespace {

// FFTW's planner is not thread-safe; executing a plan is.
std::mutex g_planner;

struct PlanDestroyer {
    void operator()(fftw_plan_s* plan) const {
        std::lock_guard<std::mutex> lock(g_planner);
        fftw_destroy_plan(plan);
    }
};
using Plan = std::unique_ptr<fftw_plan_s, PlanDestroyer>;

// std::complex<double> has fftw_complex's layout.
using Bins = std::vector<std::complex<double>>;

fftw_complex* Raw(Bins& bins) {
    return reinterpret_cast<fftw_complex*>(bins.data());
}

Plan Forward(std::vector<double>& in, Bins& out) {
    std::lock_guard<std::mutex> lock(g_planner);
    return Plan(fftw_plan_dft_r2c_1d(static_cast<int>(in.size()), in.data(), Raw(out), FFTW_ESTIMATE));
}

Plan Inverse(Bins& in, std::vector<double>& out) {
    std::lock_guard<std::mutex> lock(g_planner);
    return Plan(fftw_plan_dft_c2r_1d(static_cast<int>(out.size()), Raw(in), out.data(), FFTW_ESTIMATE));
}

Bins Transform(std::vector<double> signal) {
    Bins out(signal.size() / 2 + 1);
    Plan plan = Forward(signal, out);
    fftw_execute(plan.get());
    return out;
}

std::vector<double> Padded(const std::vector<int16_t>& samples, std::size_t size) {
    std::vector<double> out(size, 0.0);
    std::copy_n(samples.begin(), std::min(size, samples.size()), out.begin());
    return out;
}

}  // namespace

std::vector<double> CrossCorrelation(const std::vector<int16_t>& a, const std::vector<int16_t>& b,
                                     std::size_t size) {
    if (size == 0) {
        return {};
    }
    Bins product = Transform(Padded(a, size));
    const Bins second = Transform(Padded(b, size));
    // conj(A) * B: the correlation of a with b shifted by the lag.
    for (std::size_t k = 0; k < product.size(); ++k) {
        product[k] = std::conj(product[k]) * second[k];
    }
    std::vector<double> out(size);
    Plan plan = Inverse(product, out);
    fftw_execute(plan.get());
    // FFTW's inverse is unscaled.
    for (double& value : out) {
        value /= static_cast<double>(size);
    }
    return out;
}

std::vector<double> FourierMagnitudes(const std::vector<double>& signal) {
    if (signal.empty()) {
        return {};
    }
    const Bins bins = Transform(signal);
    std::vector<double> out(bins.size());
    for (std::size_t k = 0; k < bins.size(); ++k) {
        out[k] = std::abs(bins[k]);
    }
    return out;
}

}  // namespace MediaKit
}  // namespace Tal
