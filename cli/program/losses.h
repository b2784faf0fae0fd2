// What the library says was lost of a run and of its recording: for JSON, for people, for the exit code.
#pragma once

#include <boost/json/object.hpp>

#include <cstdint>
#include <string>
#include <vector>

namespace Tessel::Cli {

// As TESSEL_TEXT_LOSSES gives it: {"verdict", "losses", "recording"}; empty before the first run.
struct LossTexts
{
    boost::json::object Losses;

    // Events read after a later one, and how far they went back.
    uint64_t stepsBack() const;
    uint64_t largestStepPs() const;
    bool isSorted() const;
    uint64_t unsorted() const; // too late for --sort
    uint64_t outOfOrder() const { return isSorted() ? unsorted() : stepsBack(); }
    bool isClean() const; // nothing, neither in the run nor in its recording
};

// Of the current device, now.
LossTexts lossesNow();

// Adds verdict (the worse of both), losses and recordingLosses.
void addLosses(boost::json::object &keys, const LossTexts &losses);

// "the result is lossy: readBuffer lost 1024 words, 2 times from 1.25 s to 3.5 s", and one of the recording;
// what is clean isn't there.
std::vector<std::string> lossLines(const LossTexts &losses);

} // namespace Tessel::Cli
