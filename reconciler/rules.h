// What must hold, and why: one table.
#pragma once

#include <span>

#include "reconciler/facts.h"

struct Rule
{
    const wchar_t* name;        // for programs
    const wchar_t* what_holds;  // what must hold, as a sentence
    const wchar_t* wrong;       // the broken state, for the log
    const wchar_t* remedy;      // what is done then, for the log
    bool (*broken)(const Facts& facts);
    void (*cure)(const Facts& facts);
    bool said_once = false;  // where the same PC breaks it again and again
};

// In the order in which they are looked at: what a rule cures, those behind it may rely on.
std::span<const Rule> Rules();
