// The prompt: commands as they are typed, on one PC.
#pragma once

#include <optional>
#include <string>

#include "pc/player.h"

// What a speed is, in words, and its value; nothing for another text.
inline constexpr const char* kSpeedWords = "speed: 0, or 0.001 to 1000000 times as fast";
std::optional<double> ReadSpeed(const std::string& text);

// Plays the lines of the standard input. A line's error is printed, and the PC runs on. Returns the
// exit status: at a terminal kDone, and otherwise that of the worst line.
Status Prompt(const PlayOptions& options);
