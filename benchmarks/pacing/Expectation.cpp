#include "Expectation.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace {

// Numbers of which the likeliest is this many times likelier do not occur.
constexpr double Negligible = 1e-25;

// Relative to the probability of the mode, that of each number above it.
std::vector<double> Above(std::uint32_t mode, std::uint32_t devices, std::uint32_t window)
{
    std::vector<double> probabilities;
    double probability = 1;
    for (std::uint32_t number = mode; number < devices; ++number) {
        probability *= (devices - number) / ((number + 1.0) * (window - 1.0));
        if (probability < Negligible) {
            break;
        }
        probabilities.push_back(probability);
    }
    return probabilities;
}

// The same of each number below it, the nearest first.
std::vector<double> Below(std::uint32_t mode, std::uint32_t devices, std::uint32_t window)
{
    std::vector<double> probabilities;
    double probability = 1;
    for (std::uint32_t number = mode; number > 0; --number) {
        probability *= number * (window - 1.0) / (devices - number + 1.0);
        if (probability < Negligible) {
            break;
        }
        probabilities.push_back(probability);
    }
    return probabilities;
}

}  // namespace

Expectation::Expectation(std::uint32_t devices, std::uint32_t window)
    : m_Devices(devices), m_Window(window)
{
    if (window == 1) {
        m_Least = devices;
        m_Probabilities = {1};
        return;
    }
    const auto mode = static_cast<std::uint32_t>((std::uint64_t{devices} + 1) / window);
    const std::vector<double> below = Below(mode, devices, window);
    const std::vector<double> above = Above(mode, devices, window);
    m_Least = mode - static_cast<std::uint32_t>(below.size());
    m_Probabilities.assign(below.rbegin(), below.rend());
    m_Probabilities.push_back(1);
    m_Probabilities.insert(m_Probabilities.end(), above.begin(), above.end());
    const double all = std::accumulate(m_Probabilities.begin(), m_Probabilities.end(), 0.0);
    for (double& probability : m_Probabilities) {
        probability /= all;
    }
}

double Expectation::Mean() const
{
    return static_cast<double>(m_Devices) / m_Window;
}

std::uint32_t Expectation::Percentile99() const
{
    return m_ExceededWith(0.01);
}

std::uint32_t Expectation::Peak() const
{
    return m_ExceededWith(-std::expm1(std::log(0.5) / m_Window));
}

double Expectation::ChanceOfAnyAbove(std::uint32_t number) const
{
    double above = 0;
    for (std::size_t i = m_Probabilities.size(); i > 0 && m_Least + i - 1 > number; --i) {
        above += m_Probabilities[i - 1];
    }
    return -std::expm1(m_Window * std::log1p(-std::min(above, 1.0)));
}

std::uint32_t Expectation::m_ExceededWith(double probability) const
{
    std::size_t last = m_Probabilities.size() - 1;
    double above = 0;
    while (last > 0 && above + m_Probabilities[last] <= probability) {
        above += m_Probabilities[last];
        --last;
    }
    return m_Least + static_cast<std::uint32_t>(last);
}

std::uint32_t WindowFor(std::uint32_t devices, std::uint32_t capacity)
{
    const double root = std::sqrt(capacity) - 2.5;
    return static_cast<std::uint32_t>(std::ceil(devices / (root * root)));
}
