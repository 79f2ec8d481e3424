// Measures in pairs. A bare time says little about an unknown machine, so each measure names a
// baseline of the same run that it is compared with, and the ratio to stay within.
#pragma once

#include <string>

struct Pair
{
    std::string measure;   // a benchmark's name
    std::string baseline;  // the name of the benchmark that it is compared with
    double aim;            // the ratio to stay within; 0 for none
    std::string what;
};

// Declares a pair to be printed at the end of the run; the result is for a namespace-scope
// constant.
bool Compare(Pair pair);
