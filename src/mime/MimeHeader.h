// The ordered fields of one node's header, and how a field is written.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "log/LogBase.h"
#include "mime/AddressList.h"

namespace tv {

class MimeHeader {
public:
    struct Field {
        std::string name;
        std::string value;  // UTF-8, unfolded
    };

    // The value loses NUL and the white space at its ends, and its line breaks become blanks; an
    // empty one deletes the field. A field that is there keeps its place; a new one comes last.
    // Names are ours: no host has a say in them.
    void set(std::string_view name, std::string_view value);
    // As set, but a new field comes right behind the one named after, if there is such.
    void setBehind(std::string_view after, std::string_view name, std::string_view value);
    void remove(std::string_view name);
    // A field without a value, where there is none of that name.
    void addEmpty(std::string_view name);
    // Empty if there is no such field.
    std::string_view get(std::string_view name) const;
    bool has(std::string_view name) const { return !get(name).empty(); }
    const std::vector<Field>& fields() const { return fields_; }

    // Appends "Name: value" without a line end. Addresses are taken apart and written as an address
    // list in the given form; anything else is written as text, encoded and folded as needed.
    static void writeField(LogBase& log, const Field& field, uint32_t codePage, AddressForm form,
                           std::string& out);
    // True for From, To, Cc and the like, whose value is a list of addresses.
    static bool isAddressField(std::string_view name);

private:
    std::vector<Field> fields_;
};

}  // namespace tv
