// The files that the command line names, read before anything is sent.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace emailsend {

// Windows editors put one before UTF-8.
void dropByteOrderMark(std::string& text);

// The whole file; false with a sentence in error, also where memory ends.
bool readFile(const std::string& path, std::string& out, std::string& error);

// The one line of a file in UTF-8 or, where path is empty, what EMAILSEND_PASSWORD holds; the
// caller wipes it. False with a sentence in error.
bool readPassword(const std::string& path, std::string& password, std::string& error);

// Reads all the files and lets them go, with room to spare beside them: the plug-in will read them
// once more and keep them all, and where it cannot, the message would lack them. Adds their sizes
// to total. False with a sentence in error.
bool tryFiles(const std::vector<std::string>& paths, uint64_t& total, std::string& error);

}  // namespace emailsend
