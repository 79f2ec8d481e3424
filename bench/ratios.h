// Measures in pairs. A bare time says little about a machine that nobody knows; each measure here
// names the baseline of the same run that it is compared with, and the ratio we aim at.
#pragma once

#include <string>

struct Pair
{
    std::string measure;   // a benchmark's name
    std::string baseline;  // another's
    double aim;            // the ratio that we want to stay within; 0 for none
    std::string what;
};

// Declares a pair to be printed at the end of the run; the result is for a namespace-scope
// constant.
bool Compare(Pair pair);
