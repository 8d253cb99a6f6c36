// A hosts file: addresses of names, ahead of every name server.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/IpAddress.h"
#include "platform/SysFile.h"

namespace tv {

// Such a file, read. Pure.
class HostsTable {
public:
    HostsTable() = default;
    // Lines of an address and its names; what cannot be read is passed over.
    explicit HostsTable(std::string_view text);
    HostsTable(const HostsTable&) = delete;
    HostsTable& operator=(const HostsTable&) = delete;

    // name in lower case. Addresses of one family in the order of the lines, each once.
    bool find(std::string_view name, plat::AddressFamily family,
              std::vector<plat::IpAddress>& out) const;
    size_t size() const { return entries_.size(); }

private:
    struct Entry {
        std::string_view name, address;  // of text_
    };

    void addLine(std::string_view line);

    std::string text_;
    std::vector<Entry> entries_;  // by name, then in the order of the lines
};

// The file, parsed again only when its path, size or time has changed.
class HostsFile {
public:
    bool find(const std::string& path, std::string_view name, plat::AddressFamily family,
              std::vector<plat::IpAddress>& out);
    size_t timesParsed() const { return timesParsed_; }

private:
    void refresh(const std::string& path);

    std::string path_;
    plat::FileStamp stamp_;
    std::unique_ptr<HostsTable> table_;
    size_t timesParsed_ = 0;
};

}  // namespace tv
