// Lines of text, and how two lists of them differ.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

using Lines = std::vector<std::string>;

inline Lines operator+(Lines a, const Lines& b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

// The lines as one text.
std::string Joined(const Lines& lines);

// Lines below a title in brackets, in a file of tests/expected/.
struct Block
{
    std::string title;
    Lines lines;  // with "\n" for the line's end within a message
};
std::vector<Block> BlocksOf(const std::string& file);
Lines BlockOf(const std::string& file, const std::string& title);

// Whether both are the same. Otherwise it tells the lines that are missing (-) and those that are
// too many (+), between lines that both have.
testing::AssertionResult SameLines(const Lines& actual, const Lines& expected);

// EXPECT_EQ for long lists: prints only the lines that differ.
#define EXPECT_LINES(actual, ...) EXPECT_TRUE(SameLines(actual, __VA_ARGS__))
