#pragma once

#include <cstdint>
#include <vector>

// The requests of one second if each of so many devices picks it out of a window by pure chance: a
// binomial distribution, and for a window of more than a few seconds practically a Poisson one.
class Expectation
{
public:
    // At least one device, and a window of at least one second.
    Expectation(std::uint32_t devices, std::uint32_t window);

    double Mean() const;
    // What 99 per cent of the seconds do not exceed.
    std::uint32_t Percentile99() const;
    // The busiest second of the window, in the median of many runs: the seconds are nearly
    // independent of one another, so that it stays below what each of them does.
    std::uint32_t Peak() const;
    // How likely any second of the window exceeds a number.
    double ChanceOfAnyAbove(std::uint32_t number) const;

private:
    // The least number that one second exceeds with no more than this probability.
    std::uint32_t m_ExceededWith(double probability) const;

    std::uint32_t m_Devices;
    std::uint32_t m_Window;
    std::uint32_t m_Least = 0;            // the number that the first probability is of
    std::vector<double> m_Probabilities;  // of all numbers that ever occur
};

// The rule of thumb: how long a window keeps so many devices within what a server takes in a
// second. The root of a Poisson number has a standard deviation of 1/2 about the root of its mean;
// the rule leaves five of them. The capacity is at least 10.
std::uint32_t WindowFor(std::uint32_t devices, std::uint32_t capacity);
