// The list of rights that a file has on Windows, read for the groups that people are in without
// anybody's doing.
#include "platform/SysRights.h"

#include <windows.h>
// aclapi.h needs windows.h before it
#include <aclapi.h>

#include "platform/win32/WidePath.h"

namespace tv::plat {
namespace {

constexpr ACCESS_MASK kReads = FILE_READ_DATA | GENERIC_READ | GENERIC_ALL;

// One of the system's own groups.
class KnownGroup {
public:
    explicit KnownGroup(WELL_KNOWN_SID_TYPE type) {
        DWORD size = sizeof bytes_;
        known_ = CreateWellKnownSid(type, nullptr, bytes_, &size) != 0;
    }

    bool is(PSID other) const { return known_ && EqualSid(sid(), other); }
    // In the language of the system.
    std::string name() const {
        wchar_t name[256], domain[256];
        DWORD nameSize = 256, domainSize = 256;
        SID_NAME_USE use;
        if (!LookupAccountSidW(nullptr, sid(), name, &nameSize, domain, &domainSize, &use)) {
            return "a group of ordinary users";
        }
        return narrow(name);
    }

private:
    PSID sid() const { return const_cast<BYTE*>(bytes_); }  // only read, whatever the type says

    alignas(DWORD) BYTE bytes_[SECURITY_MAX_SID_SIZE];
    bool known_ = false;
};

// The first entry that speaks of reading counts; what everyone is denied, each group is.
bool mayRead(ACL* rights, const KnownGroup& group, const KnownGroup& everyone) {
    for (DWORD i = 0; i < rights->AceCount; ++i) {
        void* entry = nullptr;
        if (!GetAce(rights, i, &entry)) return false;
        const auto& header = *static_cast<const ACE_HEADER*>(entry);
        const bool allows = header.AceType == ACCESS_ALLOWED_ACE_TYPE;
        if (!allows && header.AceType != ACCESS_DENIED_ACE_TYPE) continue;
        if ((header.AceFlags & INHERIT_ONLY_ACE) != 0) continue;
        // The two kinds look alike.
        auto& ace = *static_cast<ACCESS_ALLOWED_ACE*>(entry);
        if ((ace.Mask & kReads) == 0) continue;
        PSID who = &ace.SidStart;
        if (group.is(who)) return allows;
        if (!allows && everyone.is(who)) return false;
    }
    return false;
}

}  // namespace

std::vector<std::string> groupsThatRead(std::string_view utf8Path) {
    std::vector<std::string> names;
    std::wstring path = widePath(utf8Path);
    ACL* rights = nullptr;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    if (GetNamedSecurityInfoW(path.data(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr,
                              nullptr, &rights, nullptr, &descriptor) != ERROR_SUCCESS) {
        return names;
    }
    const KnownGroup everyone(WinWorldSid);
    for (const WELL_KNOWN_SID_TYPE type : {WinWorldSid, WinAuthenticatedUserSid, WinInteractiveSid,
                                           WinBuiltinUsersSid, WinBuiltinGuestsSid}) {
        const KnownGroup group(type);
        // A file without a list is everybody's.
        if (rights ? mayRead(rights, group, everyone) : type == WinWorldSid) {
            names.push_back(group.name());
        }
    }
    LocalFree(descriptor);
    return names;
}

}  // namespace tv::plat
