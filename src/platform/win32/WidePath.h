// UTF-8 to UTF-16 and back for calls into the Windows API, and paths as it takes them.
#pragma once

#include <string>
#include <string_view>

namespace tv::plat {

std::wstring widen(std::string_view utf8);
// The path for calls that open files: as it is, or, where Windows would refuse it for its length,
// absolute and marked as one to be taken by the letter, which lifts the limit.
std::wstring widePath(std::string_view utf8);
std::string narrow(std::wstring_view wide);
// In the ANSI code page of the system.
std::string toAnsi(std::string_view utf8);
// The path of something in Windows' own folder, for what another folder may hold by that name could
// be anybody's; empty where the folder is not known.
std::string inSystemFolder(const wchar_t* name);

}  // namespace tv::plat
