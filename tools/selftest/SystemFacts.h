// What a reader of the report wants to know of the machine. Nothing that names it or its user.
#pragma once

#include <string>

namespace selftest {

// Not Windows itself, which has parts that it lacks.
bool isWine();

// Lines, each with a word in front.
std::string systemFacts();

// The library that is tested: its size and its SHA-256.
std::string libraryFacts(const std::string& path);

}  // namespace selftest
