// The file taken apart into an ordered table, and read anew when it has changed.
#include "net/resolve/HostsFile.h"

#include <algorithm>

#include "base/Ascii.h"

namespace tv {
namespace {

// Lists that block advertising run to some hundred thousand names; more is no hosts file.
constexpr size_t kMaxFile = size_t{16} * 1024 * 1024;
constexpr size_t kMaxEntries = 500000;
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

// The part of the text up to the next of the stops, taken off its front.
std::string_view takeUpTo(std::string_view& text, std::string_view stops) {
    const size_t end = std::min(text.find_first_of(stops), text.size());
    const std::string_view part = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    return part;
}

std::string_view takeWord(std::string_view& line) {
    line = trimmed(line);
    return takeUpTo(line, " \t");
}

}  // namespace

HostsTable::HostsTable(std::string_view text) : text_(asciiLower(text)) {
    std::string_view rest = text_;
    if (rest.substr(0, kByteOrderMark.size()) == kByteOrderMark) {
        rest.remove_prefix(kByteOrderMark.size());
    }
    while (!rest.empty()) {
        addLine(takeUpTo(rest, "\r\n"));
    }
    std::stable_sort(entries_.begin(), entries_.end(),
                     [](const Entry& a, const Entry& b) { return a.name < b.name; });
}

void HostsTable::addLine(std::string_view line) {
    line = line.substr(0, line.find('#'));
    const std::string_view address = takeWord(line);
    if (!plat::parseIp(address)) return;
    for (;;) {
        std::string_view name = takeWord(line);
        if (name.empty() || entries_.size() >= kMaxEntries) return;
        if (name.back() == '.') name.remove_suffix(1);
        entries_.push_back({name, address});
    }
}

bool HostsTable::find(std::string_view name, plat::AddressFamily family,
                      std::vector<plat::IpAddress>& out) const {
    out.clear();
    auto entry =
        std::lower_bound(entries_.begin(), entries_.end(), name,
                         [](const Entry& a, std::string_view wanted) { return a.name < wanted; });
    for (; entry != entries_.end() && entry->name == name; ++entry) {
        const auto address = plat::parseIp(entry->address);
        if (!address || address->family != family) continue;
        if (std::find(out.begin(), out.end(), *address) == out.end()) out.push_back(*address);
    }
    return !out.empty();
}

void HostsFile::refresh(const std::string& path) {
    plat::FileStamp stamp;
    if (!plat::fileStamp(path, stamp)) {
        table_.reset();
        return;
    }
    if (table_ && path == path_ && stamp == stamp_) return;
    std::string text;
    plat::readFileStart(path, kMaxFile, text);
    table_ = std::make_unique<HostsTable>(std::move(text));
    path_ = path;
    stamp_ = stamp;
    ++timesParsed_;
}

bool HostsFile::find(const std::string& path, std::string_view name, plat::AddressFamily family,
                     std::vector<plat::IpAddress>& out) {
    refresh(path);
    return table_ && table_->find(name, family, out);
}

}  // namespace tv
