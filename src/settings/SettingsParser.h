// The text of a settings file made into what it says, or the first thing in it that is not
// understood.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "base/Failure.h"
#include "settings/Settings.h"

namespace tv::settings {

// Gives the bytes of a file that a key names; secret: it is one for few eyes. Returns why it cannot
// be read, as a clause, or nothing.
using ReadFile =
    std::function<std::string(const std::string& path, bool secret, std::string& bytes)>;

// The path that a key of this file means.
std::string besides(const std::string& file, std::string_view path);

// bytes: UTF-8, UTF-16 with its mark, or else text in ansiCodePage. file: its path, which relative
// ones start at and failures name. out is what the file says where it is understood as a whole.
Failure parseSettings(std::string_view bytes, uint32_t ansiCodePage, const std::string& file,
                      const ReadFile& readFile, Settings& out);

}  // namespace tv::settings
