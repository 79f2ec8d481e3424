// The words of the story: what a person would say of an effect.
#pragma once

#include <string>
#include <utility>

#include "platform/virtual/core/journal.h"

// What a line tells of, as far as its place among the lines of its instant depends on that.
enum Topic : unsigned
{
    kAny = 0,
    kState = 1 << 0,
    kPlan = 1 << 1,
    kDevice = 1 << 2,
    kMute = 1 << 3,
    kRequest = 1 << 4,
    kRequestEnded = 1 << 5,
    kSleep = 1 << 6,
    kUserBack = 1 << 7,
    kAwayEnds = 1 << 8,
    kDisplay = 1 << 9,
    kServiceStatus = 1 << 10,
    kKilled = 1 << 11,
};

struct Told
{
    Told() = default;
    Told(std::string words, Topic about = kAny) : text(std::move(words)), topic(about) {}
    Told(const char* words, Topic about = kAny) : text(words), topic(about) {}

    std::string text;  // "" for an effect that a person would not notice
    Topic topic = kAny;
};

Told TellEffect(const virtual_pc::Effect& effect);
