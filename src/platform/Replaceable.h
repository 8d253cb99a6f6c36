// One process-wide service of the system with a replacement that tests may put in its place.
#pragma once

namespace tv::plat {

// The service itself is made on first use and never destroyed: the library may be used until the
// process ends, and nothing may run at unload.
template <class Service>
class Replaceable {
public:
    template <class Own>
    static Service& get() {
        static Own& own = *new Own;
        return replacement_ ? *replacement_ : own;
    }

    static Service* replace(Service* service) {
        Service* before = replacement_;
        replacement_ = service;
        return before;
    }

private:
    static inline Service* replacement_ = nullptr;
};

}  // namespace tv::plat
