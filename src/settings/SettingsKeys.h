// The one table of keys: what may stand in a settings file and what it means. The parser, the
// sample file and the documentation are made from it.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "platform/SysWipe.h"
#include "settings/Settings.h"

namespace tv::settings {

enum class Kind : uint8_t {
    Text,
    Host,     // a name or address, no blanks
    Address,  // a numeric one
    Number,   // within lowest and highest
    YesNo,
    Choice,        // one word of choices
    Choices,       // several of them, with commas
    Size,          // "10 MB"; lowest and highest in bytes
    Duration,      // "30 s", "5 min"; lowest and highest in ms
    KeyPins,       // hashes of public keys, with commas
    NameServers,   // "192.0.2.1", "tls://192.0.2.1#name", with commas
    Mailbox,       // an e-mail address alone
    Mailboxes,     // several of them, with commas
    NamedMailbox,  // "Anna <a@b>", or the address alone
    Field,         // of a message's header: "Name: value"
    File,          // to be read
    Target,        // a file to be written, or a word of choices
    Secret,
    SecretLine,  // a file whose first line is the secret
    SecretFile,  // a file that is the secret
};

// What a value looks like.
struct Form {
    Kind kind;
    std::string_view choices = {};    // with ", " between them
    int64_t lowest = 0, highest = 0;  // of NameServers: how many, over all lines
};

// A value as the file has it, checked by its form.
struct Value {
    ~Value() { plat::wipe(text.data(), text.size()); }

    std::string text;    // of a path: absolute; of the files of secrets: the secret
    int64_t number = 0;  // Number, Duration in ms, YesNo; a word's place among the choices
};

struct Key {
    std::string_view section;  // empty: before any section
    std::string_view name;
    Form form;
    void (*store)(Settings&, const Value&);  // for each value of those with commas
    std::string_view standard;               // what counts where the file says nothing
    std::string_view example;
    std::string_view meaning;  // two lines at most, with LF
};

std::span<const Key> keys();

// What profile = modern says of a key that the file does not have.
struct ProfileRow {
    std::string_view section, name, value;
};
std::span<const ProfileRow> modernProfile();

// null where there is none; names in any case.
const Key* findKey(std::string_view section, std::string_view name);
bool isSection(std::string_view section);

// Of these keys each line adds to those before it.
constexpr bool isList(Kind kind) {
    return kind == Kind::Choices || kind == Kind::KeyPins || kind == Kind::NameServers ||
           kind == Kind::Mailboxes || kind == Kind::Field;
}

constexpr bool isSecret(Kind kind) {
    return kind == Kind::Secret || kind == Kind::SecretLine || kind == Kind::SecretFile;
}

// What may stand there, as a clause: "a number from 1 to 65535".
std::string mayBe(const Form& form);

}  // namespace tv::settings
