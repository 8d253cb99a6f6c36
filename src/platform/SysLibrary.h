// A shared library loaded at run time.
#pragma once

#include <string>
#include <string_view>

namespace tv::plat {

// Unloaded on destruction.
class SysLibrary {
public:
    SysLibrary() = default;
    ~SysLibrary() { close(); }
    SysLibrary(const SysLibrary&) = delete;
    SysLibrary& operator=(const SysLibrary&) = delete;

    // On failure error holds the system's reason, UTF-8.
    bool open(std::string_view utf8Path, std::string& error);
    void close();
    bool isOpen() const { return handle_ != nullptr; }

    // The address of an exported function; nullptr where there is none.
    using Function = void (*)();
    Function function(const char* name) const;
    // The same in the type that is wanted.
    template <class Wanted>
    void find(const char* name, Wanted*& out) const {
        out = reinterpret_cast<Wanted*>(function(name));
    }

private:
    void* handle_ = nullptr;
};

}  // namespace tv::plat
